// SPDX-License-Identifier: LGPL-2.1-or-later
// CResponse and its records CProps, CSources and CScanRes.
#include "CProps.h"
#include "CResponse.h"
#include "CScanRes.h"
#include "CSources.h"

#include "Allocations.h"
#include "LogCapture.h"
#include "TestSupport.h"

#include <algorithm>
#include <climits>
#include <memory>

using testing::Contains;
using testing::ElementsAre;

namespace {

constexpr int kUntouched = 0x7EADBEEF;

Bytes little(int value, int size)
{
    Bytes bytes;
    for (int i = 0; i < size; ++i) {
        bytes.push_back(static_cast<unsigned char>(static_cast<unsigned>(value) >> (8 * i)));
    }
    return bytes;
}

Bytes resolution(int horizontal, int vertical, unsigned char depth)
{
    return little(horizontal, 4) + little(vertical, 4) + Bytes{depth};
}

Bytes source(unsigned char type, unsigned char bar, int origin, int width, int height,
             const std::vector<Bytes>& resolutions)
{
    Bytes bytes = Bytes{type, bar} + little(origin, 4) + little(width, 4) + little(height, 4) +
                  Bytes{static_cast<unsigned char>(resolutions.size())};
    for (const Bytes& record : resolutions) {
        bytes = bytes + record;
    }
    return bytes;
}

Bytes properties(const std::vector<Bytes>& sources)
{
    Bytes bytes = {1, 2, 3, 4, 5, 6, static_cast<unsigned char>(sources.size())};
    for (const Bytes& record : sources) {
        bytes = bytes + record;
    }
    return bytes;
}

Bytes propertiesReply(const Bytes& data)
{
    return Bytes{0x1B, 0x53, 0x03, 0} + little(sizeOf(data), 2) + Bytes{0, 0} + data;
}

Bytes twoSources()
{
    return properties(
        {source(1, 7, 100, 2550, 3508, {resolution(300, 300, 24), resolution(600, 300, 8)}),
         source(2, 8, -1, 0x01020304, 0x7F000000, {resolution(150, 150, 24)})});
}

int set(CResponse& response, const Bytes& reply)
{
    return response.setHeader(reply.data(), sizeOf(reply));
}

int valueOf(const CSources& record, int (CSources::*getter)(int*) const)
{
    int value = kUntouched;
    EXPECT_EQ((record.*getter)(&value), 0);
    return value;
}

int valueOf(const CScanRes& record, int (CScanRes::*getter)(int*) const)
{
    int value = kUntouched;
    EXPECT_EQ((record.*getter)(&value), 0);
    return value;
}

// ---- setHeader -------------------------------------------------------------------------

TEST(CResponse, AnswersForAbsentData)
{
    CResponse response;
    EXPECT_EQ(response.getReply(), 0);
    EXPECT_EQ(response.getStatus(), -1);
    EXPECT_EQ(response.getADFStatus(), -1);
    EXPECT_EQ(response.getRecordResponse(), -1);
    EXPECT_EQ(response.isFlipped(), 0);
    EXPECT_EQ(response.getProperties(), nullptr);
}

TEST(CResponse, RefusesShortRepliesAndKeepsTheOldOne)
{
    CResponse response;
    EXPECT_EQ(set(response, propertiesReply(twoSources())), 0);
    CProps* before = response.getProperties();
    ASSERT_NE(before, nullptr);
    const Bytes other = {0x1B, 0x53, 0x04, 0, 0, 0, 5, 0};
    for (const int size : {5, 1, 0, -1, INT_MIN}) {
        EXPECT_EQ(response.setHeader(other.data(), size), 3) << size;
    }
    EXPECT_EQ(response.setHeader(nullptr, 8), 2);
    EXPECT_EQ(response.getReply(), 2);
    EXPECT_EQ(response.getProperties(), before);
    EXPECT_EQ(before->getMajor(), 1);
    EXPECT_EQ(response.setHeader(other.data(), 6), 0);
    EXPECT_EQ(response.getReply(), 1);
}

TEST(CResponse, KeepsACopy)
{
    CResponse response;
    Bytes reply = {0x1B, 0x53, 0x04, 0, 0, 0, 5, 6};
    set(response, reply);
    std::fill(reply.begin(), reply.end(), 0);
    EXPECT_EQ(response.getReply(), 1);
    EXPECT_EQ(response.getStatus(), 5);
    EXPECT_EQ(response.getADFStatus(), 6);
}

TEST(CResponse, ReplacesWhatItHeld)
{
    CResponse response;
    set(response, propertiesReply(twoSources()));
    set(response, propertiesReply(properties({source(3, 0, 0, 0, 0, {})})));
    ASSERT_NE(response.getProperties(), nullptr);
    EXPECT_EQ(response.getProperties()->getNumOfSources(), 1);
    ASSERT_NE(response.getProperties()->getSource(0), nullptr);
    EXPECT_EQ(response.getProperties()->getSource(0)->getType(), 3);
    EXPECT_EQ(response.getProperties()->getSource(1), nullptr);
    set(response, {0x1B, 0x53, 0x04, 0, 0, 0, 5, 0, 1});
    EXPECT_EQ(response.getProperties(), nullptr);
    EXPECT_EQ(response.getRecordResponse(), 1);
    EXPECT_EQ(response.isFlipped(), 0);
}

TEST(CResponse, ParsesPropertiesByTheirCodeAlone)
{
    Bytes reply = propertiesReply(twoSources());
    reply[0] = 0;
    reply[1] = 0x44;
    CResponse response;
    EXPECT_EQ(set(response, reply), 0);
    EXPECT_NE(response.getProperties(), nullptr);
    EXPECT_EQ(response.getReply(), 0);
}

// ---- what a reply says -----------------------------------------------------------------

TEST(CResponse, NamesTheCommandOfEveryCode)
{
    const std::vector<std::pair<int, int>> scanCodes = {{0x0F, 0}, {0x04, 1}, {0x03, 2}, {0x05, 3},
                                                        {0x01, 4}, {0x06, 5}, {0x02, 7}};
    for (int code = 0; code < 256; ++code) {
        int expected = 0;
        for (const auto& [known, number] : scanCodes) {
            expected = known == code ? number : expected;
        }
        CResponse response;
        const auto c = static_cast<unsigned char>(code);
        set(response, {0x1B, 0x53, c, 0, 0, 0, 9, 0});
        const LogCapture capture;
        EXPECT_EQ(response.getReply(), expected) << code;
        EXPECT_THAT(capture.messages(), Contains("getReply value of " + std::to_string(expected)));
        EXPECT_FALSE(capture.contains("entering command wake"));
        set(response, {0x1B, 0x44, c, 0, 0, 0, 9, 0});
        EXPECT_EQ(response.getReply(), code == 0x04 ? 6 : 0) << code;
        EXPECT_EQ(capture.count("entering command wake"), code == 0x04 ? 1 : 0);
        set(response, {0x1B, 0x45, c, 0, 0, 0, 9, 0});
        EXPECT_EQ(response.getReply(), 0);
        set(response, {0x1C, 0x53, c, 0, 0, 0, 9, 0});
        EXPECT_EQ(response.getReply(), 0);
    }
}

TEST(CResponse, HasAStatusInScanRepliesOnly)
{
    CResponse response;
    const LogCapture capture;
    set(response, {0x1B, 0x53, 0x04, 0, 0, 0, 0xF5, 0});
    EXPECT_EQ(response.getStatus(), 0xF5);
    EXPECT_TRUE(capture.contains("getStatus value of 245"));
    set(response, {0x1B, 0x44, 0x04, 0, 0, 0, 5, 3});
    EXPECT_EQ(response.getStatus(), -1);
    EXPECT_TRUE(capture.contains("getStatus value of -1"));
    EXPECT_EQ(response.getADFStatus(), 3);
    set(response, {0x1C, 0x53, 0x04, 0, 0, 0, 5, 0});
    EXPECT_EQ(response.getStatus(), -1);
    set(response, {0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFE, 1});
    EXPECT_EQ(response.getADFStatus(), 0xFF);
    EXPECT_EQ(response.getRecordResponse(), 0xFE);
    EXPECT_EQ(response.isFlipped(), 1);
}

TEST(CResponse, IsFlippedByOneOnly)
{
    for (int flag = 0; flag < 256; ++flag) {
        CResponse response;
        set(response, {0x1B, 0x53, 1, 0, 0, 0, 0, 0, 0, static_cast<unsigned char>(flag)});
        EXPECT_EQ(response.isFlipped(), flag == 1 ? 1 : 0);
    }
}

TEST(CResponse, BytesThatDidNotArriveAreAbsent)
{
    const Bytes reply = {0x1B, 0x53, 0x04, 0, 0, 0, 11, 12, 13, 1, 0};
    for (int size = 6; size <= sizeOf(reply); ++size) {
        CResponse response;
        EXPECT_EQ(set(response, slice(reply, 0, size)), 0);
        EXPECT_EQ(response.getReply(), 1);
        EXPECT_EQ(response.getStatus(), size > 6 ? 11 : -1) << size;
        EXPECT_EQ(response.getADFStatus(), size > 7 ? 12 : -1) << size;
        EXPECT_EQ(response.getRecordResponse(), size > 8 ? 13 : -1) << size;
        EXPECT_EQ(response.isFlipped(), size > 9 ? 1 : 0) << size;
    }
}

// ---- properties ------------------------------------------------------------------------

TEST(CResponse, ParsesTheTreeOfProperties)
{
    CResponse response;
    EXPECT_EQ(set(response, propertiesReply(twoSources())), 0);
    const CProps* props = response.getProperties();
    ASSERT_NE(props, nullptr);
    EXPECT_EQ(props->getMajor(), 1);
    EXPECT_EQ(props->getMinor(), 2);
    EXPECT_EQ(props->getCodeset(), 3);
    EXPECT_EQ(props->getCompression(), 4);
    EXPECT_EQ(props->getAlignmentClr(), 5);
    EXPECT_EQ(props->getAlignmentGry(), 6);
    EXPECT_EQ(props->getNumOfSources(), 2);
    EXPECT_EQ(props->getSource(-1), nullptr);
    EXPECT_EQ(props->getSource(2), nullptr);
    EXPECT_EQ(props->getSource(INT_MAX), nullptr);

    const CSources* first = props->getSource(0);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->getType(), 1);
    EXPECT_EQ(first->getBarId(), 7);
    EXPECT_EQ(valueOf(*first, &CSources::getOrgOffset), 100);
    EXPECT_EQ(valueOf(*first, &CSources::getWidth), 2550);
    EXPECT_EQ(valueOf(*first, &CSources::getHeight), 3508);
    EXPECT_EQ(first->getNumOfRes(), 2);
    EXPECT_EQ(first->getScanRes(-1), nullptr);
    EXPECT_EQ(first->getScanRes(2), nullptr);
    ASSERT_NE(first->getScanRes(1), nullptr);
    EXPECT_EQ(valueOf(*first->getScanRes(0), &CScanRes::getHorRes), 300);
    EXPECT_EQ(valueOf(*first->getScanRes(0), &CScanRes::getVerRes), 300);
    EXPECT_EQ(first->getScanRes(0)->getColorDepth(), 24);
    EXPECT_EQ(first->getScanRes(0)->isEqual(), 1);
    EXPECT_EQ(valueOf(*first->getScanRes(1), &CScanRes::getHorRes), 600);
    EXPECT_EQ(first->getScanRes(1)->getColorDepth(), 8);
    EXPECT_EQ(first->getScanRes(1)->isEqual(), 0);

    const CSources* second = props->getSource(1);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(second->getType(), 2);
    EXPECT_EQ(valueOf(*second, &CSources::getOrgOffset), -1);
    EXPECT_EQ(valueOf(*second, &CSources::getWidth), 0x01020304);
    EXPECT_EQ(valueOf(*second, &CSources::getHeight), 0x7F000000);
    ASSERT_NE(second->getScanRes(0), nullptr);
    EXPECT_EQ(valueOf(*second->getScanRes(0), &CScanRes::getVerRes), 150);
}

TEST(CResponse, TheSecondSourceFollowsTheResolutionsOfTheFirst)
{
    EXPECT_EQ(twoSources()[40], 2);
    EXPECT_EQ(twoSources()[41], 8);
}

TEST(CResponse, BytesBehindThePropertiesDoNotMatter)
{
    CResponse response;
    set(response, propertiesReply(twoSources()) + Bytes(400, 0xFF));
    const CProps* props = response.getProperties();
    ASSERT_NE(props, nullptr);
    EXPECT_EQ(props->getNumOfSources(), 2);
    ASSERT_NE(props->getSource(1), nullptr);
    EXPECT_EQ(props->getSource(1)->getBarId(), 8);
}

TEST(CResponse, LogsWhatItParses)
{
    CResponse response;
    const LogCapture capture;
    set(response, propertiesReply(twoSources()));
    Lines steps;
    for (const std::string& message : capture.plainMessages()) {
        if (message.find("set data") == 0 || message.find("get") != std::string::npos) {
            steps.push_back(message);
        }
    }
    EXPECT_THAT(steps, ElementsAre("set data for csources now 33", "  1 getType", "  7 getBarId",
                                   "set data from scan res now", "set data from scan res now",
                                   "set data for csources now 24", "  2 getType", "  8 getBarId",
                                   "set data from scan res now"));
}

// ---- single records --------------------------------------------------------------------

TEST(CScanRes, ReadsItsRecord)
{
    CScanRes record;
    const Bytes bytes = {0x2C, 1, 0, 0, 0x2C, 1, 0, 0, 0x18};
    EXPECT_EQ(record.setData(bytes.data(), 9), 0);
    EXPECT_EQ(valueOf(record, &CScanRes::getHorRes), 300);
    EXPECT_EQ(valueOf(record, &CScanRes::getVerRes), 300);
    EXPECT_EQ(record.getColorDepth(), 24);
    const LogCapture capture;
    EXPECT_EQ(record.isEqual(), 1);
    EXPECT_THAT(capture.plainMessages(), ElementsAre("isEqual", " +-- horizontal resolution is 300",
                                                     " +-- vertical resolution is 300"));
}

TEST(CScanRes, ComparesAllFourBytes)
{
    for (int byte = 0; byte < 8; ++byte) {
        Bytes bytes(9, 0x80);
        bytes[static_cast<std::size_t>(byte)] = 0x81;
        CScanRes record;
        record.setData(bytes.data(), 9);
        EXPECT_EQ(record.isEqual(), 0) << byte;
    }
    CScanRes record;
    record.setData(Bytes(9, 0xFF).data(), 9);
    EXPECT_EQ(record.isEqual(), 1);
    EXPECT_EQ(valueOf(record, &CScanRes::getHorRes), -1);
    EXPECT_EQ(record.getColorDepth(), 0xFF);
}

TEST(Records, AnswerForAbsentData)
{
    const CProps props;
    EXPECT_EQ(props.getMajor(), -1);
    EXPECT_EQ(props.getMinor(), -1);
    EXPECT_EQ(props.getCodeset(), -1);
    EXPECT_EQ(props.getCompression(), -1);
    EXPECT_EQ(props.getAlignmentClr(), -1);
    EXPECT_EQ(props.getAlignmentGry(), -1);
    EXPECT_EQ(props.getNumOfSources(), -1);
    EXPECT_EQ(props.getSource(0), nullptr);
    const CSources sources;
    EXPECT_EQ(sources.getType(), -1);
    EXPECT_EQ(sources.getBarId(), -1);
    EXPECT_EQ(sources.getNumOfRes(), -1);
    EXPECT_EQ(sources.getScanRes(0), nullptr);
    const CScanRes scanRes;
    EXPECT_EQ(scanRes.getColorDepth(), -1);
    EXPECT_GE(scanRes.isEqual(), 0);
    for (const auto getter : {&CSources::getOrgOffset, &CSources::getWidth, &CSources::getHeight}) {
        int value = kUntouched;
        EXPECT_EQ((sources.*getter)(&value), -1);
        EXPECT_EQ(value, kUntouched);
    }
    for (const auto getter : {&CScanRes::getHorRes, &CScanRes::getVerRes}) {
        int value = kUntouched;
        EXPECT_EQ((scanRes.*getter)(&value), -1);
        EXPECT_EQ(value, kUntouched);
    }
}

TEST(Records, KeepACopy)
{
    Bytes bytes = twoSources();
    CProps props;
    EXPECT_EQ(props.setData(bytes.data(), sizeOf(bytes)), 0);
    std::fill(bytes.begin(), bytes.end(), 0);
    EXPECT_EQ(props.getNumOfSources(), 2);
    ASSERT_NE(props.getSource(1), nullptr);
    EXPECT_EQ(props.getSource(1)->getBarId(), 8);
    EXPECT_EQ(valueOf(*props.getSource(1)->getScanRes(0), &CScanRes::getHorRes), 150);
}

// ---- hostile replies -------------------------------------------------------------------

// Reads all that a tree can tell; what is not there reads as 0 or as absent.
void walk(const CProps& props)
{
    const auto isByte = [](int value) { return value >= -1 && value <= 255; };
    for (const auto getter :
         {&CProps::getMajor, &CProps::getMinor, &CProps::getCodeset, &CProps::getCompression,
          &CProps::getAlignmentClr, &CProps::getAlignmentGry}) {
        EXPECT_TRUE(isByte((props.*getter)()));
    }
    const int sources = props.getNumOfSources();
    EXPECT_EQ(props.getSource(std::max(sources, 0)), nullptr);
    for (int i = 0; i < sources; ++i) {
        const CSources* record = props.getSource(i);
        ASSERT_NE(record, nullptr);
        EXPECT_TRUE(isByte(record->getType()));
        EXPECT_TRUE(isByte(record->getBarId()));
        int value = 0;
        record->getOrgOffset(&value);
        record->getWidth(&value);
        record->getHeight(&value);
        const int resolutions = record->getNumOfRes();
        EXPECT_EQ(record->getScanRes(std::max(resolutions, 0)), nullptr);
        for (int k = 0; k < resolutions; ++k) {
            const CScanRes* scanRes = record->getScanRes(k);
            ASSERT_NE(scanRes, nullptr);
            scanRes->getHorRes(&value);
            scanRes->getVerRes(&value);
            EXPECT_TRUE(isByte(scanRes->getColorDepth()));
            scanRes->isEqual();
        }
    }
}

// More of them than the low byte of the length field can count.
TEST(CResponse, LongPropertiesAreReadToTheirEnd)
{
    const std::vector<Bytes> resolutions(20, resolution(300, 300, 24));
    const Bytes data =
        properties({source(1, 7, 0, 0, 0, resolutions), source(2, 8, 0, 0, 0, resolutions)});
    ASSERT_GT(sizeOf(data), 256 + 128);
    CResponse response;
    EXPECT_EQ(set(response, propertiesReply(data)), 0);
    const CSources* last = response.getProperties()->getSource(1);
    ASSERT_NE(last, nullptr);
    EXPECT_EQ(last->getBarId(), 8);
    ASSERT_NE(last->getScanRes(19), nullptr);
    EXPECT_EQ(valueOf(*last->getScanRes(19), &CScanRes::getVerRes), 300);
    EXPECT_EQ(last->getScanRes(19)->getColorDepth(), 24);
}

TEST(CResponse, TheLengthFieldEndsTheProperties)
{
    const Bytes whole = propertiesReply(twoSources());
    for (const int length : {0, 3, 7, 20}) {
        Bytes reply = whole;
        reply[4] = static_cast<unsigned char>(length);
        CResponse response;
        set(response, reply);
        const CProps* props = response.getProperties();
        ASSERT_NE(props, nullptr);
        EXPECT_EQ(props->getCompression(), length > 3 ? 4 : -1) << length;
        EXPECT_EQ(props->getNumOfSources(), length > 6 ? 2 : -1) << length;
        const CSources* first = props->getSource(0);
        EXPECT_EQ(first != nullptr ? first->getType() : -1, length > 7 ? 1 : length > 6 ? 0 : -1);
        EXPECT_EQ(first != nullptr ? first->getNumOfRes() : 0, 0) << length;
    }
}

// Cut anywhere, a reply tells what has arrived, and nothing else.
TEST(CResponse, TruncatedPropertiesTellWhatArrived)
{
    const Bytes data = twoSources();
    const Bytes whole = propertiesReply(data);
    for (int size = 6; size <= sizeOf(whole); ++size) {
        CResponse response;
        // An exact heap block, so that a read past it shows.
        const std::unique_ptr<unsigned char[]> exact(
            new unsigned char[static_cast<std::size_t>(size)]);
        std::copy_n(whole.begin(), size, exact.get());
        EXPECT_EQ(response.setHeader(exact.get(), size), 0);
        const CProps* props = response.getProperties();
        ASSERT_NE(props, nullptr);
        walk(*props);
        const int held = size - 8;
        EXPECT_EQ(props->getMajor(), held > 0 ? 1 : -1) << size;
        EXPECT_EQ(props->getCompression(), held > 3 ? 4 : -1) << size;
        EXPECT_EQ(props->getNumOfSources(), held > 6 ? 2 : -1) << size;
        if (held <= 6) {
            continue;
        }
        EXPECT_EQ(props->getSource(0)->getType(), held > 7 ? 1 : 0) << size;
        EXPECT_EQ(props->getSource(0)->getBarId(), held > 8 ? 7 : 0) << size;
        EXPECT_EQ(valueOf(*props->getSource(0), &CSources::getWidth) == 2550, held > 14) << size;
        EXPECT_EQ(props->getSource(0)->getNumOfRes(), held > 21 ? 2 : 0) << size;
        if (held > 21) {
            EXPECT_EQ(props->getSource(1)->getBarId(), held > 41 ? 8 : 0) << size;
            EXPECT_EQ(props->getSource(1)->getNumOfRes(), held > 54 ? 1 : 0) << size;
            EXPECT_EQ(props->getSource(0)->getScanRes(1)->isEqual(), held > 31 ? 0 : 1) << size;
        }
    }
}

TEST(CResponse, SurvivesRandomProperties)
{
    Random random(61);
    for (int round = 0; round < 1500; ++round) {
        Bytes reply = random.bytes(random.pick(6, 512));
        reply[0] = 0x1B;
        reply[1] = random.pick(0, 9) == 0 ? random.byte() : 0x53;
        reply[2] = 0x03;
        if (random.pick(0, 1) == 0) {
            reply[5] = static_cast<unsigned char>(random.pick(0, 2));
        }
        if (reply.size() > 14 && random.pick(0, 1) == 0) {
            reply[14] = static_cast<unsigned char>(random.pick(0, 5));
        }
        CResponse response;
        const int result = set(response, reply);
        EXPECT_EQ(result, 0);
        response.getReply();
        response.getStatus();
        ASSERT_NE(response.getProperties(), nullptr);
        walk(*response.getProperties());
    }
}

TEST(CResponse, ALengthBeyondTheReplyIsFilledWithZero)
{
    Bytes reply = propertiesReply({1, 2, 3, 4, 5, 6, 255});
    reply[4] = reply[5] = 0xFF;
    CResponse response;
    EXPECT_EQ(set(response, reply), 0);
    const CProps* props = response.getProperties();
    ASSERT_NE(props, nullptr);
    EXPECT_EQ(props->getNumOfSources(), 255);
    for (int i = 0; i < 255; ++i) {
        ASSERT_NE(props->getSource(i), nullptr);
        EXPECT_EQ(props->getSource(i)->getType(), 0);
        EXPECT_EQ(props->getSource(i)->getNumOfRes(), 0);
    }
}

TEST(CResponse, ParsingFailsWithoutMemory)
{
    const Bytes reply = propertiesReply(twoSources());
    CResponse response;
    bool isRefused = true;
    for (int granted = 0; isRefused; ++granted) {
        int result = -1;
        {
            const Allocations allocations(granted);
            result = response.setHeader(reply.data(), sizeOf(reply));
            isRefused = allocations.refused();
        }
        EXPECT_TRUE(result == 0 || result == 2);
        // What was read before stays, and can be walked.
        if (const CProps* props = response.getProperties()) {
            for (int i = 0; const CSources* record = props->getSource(i); ++i) {
                record->getType();
                for (int k = 0; const CScanRes* scanRes = record->getScanRes(k); ++k) {
                    scanRes->isEqual();
                }
            }
        }
        response.getReply();
        ASSERT_LT(granted, 100);
    }
    walk(*response.getProperties());
    EXPECT_EQ(response.getProperties()->getNumOfSources(), 2);

    isRefused = true;
    for (int granted = 0; isRefused; ++granted) {
        const Allocations allocations(granted);
        const int result = response.processProps();
        isRefused = allocations.refused();
        EXPECT_EQ(result, isRefused ? 2 : 0) << granted;
    }
}

TEST(Records, UnusualSizesAreHarmless)
{
    for (const int size : {0, 1, 6}) {
        const Bytes bytes(7, 0xFF);
        CProps props;
        props.setData(bytes.data(), size);
        EXPECT_EQ(props.getNumOfSources(), -1) << size;
        walk(props);
        CSources sources;
        sources.setData(bytes.data(), size);
        EXPECT_EQ(sources.getScanRes(0), nullptr) << size;
        CScanRes scanRes;
        scanRes.setData(bytes.data(), size);
        scanRes.isEqual();
    }
    const std::pair<int (CSources::*)(int*) const, int> fields[] = {
        {&CSources::getOrgOffset, 6}, {&CSources::getWidth, 10}, {&CSources::getHeight, 14}};
    for (int size = 1; size < 15; ++size) {
        CSources sources;
        sources.setData(Bytes(15, 1).data(), size);
        for (const auto& [getter, end] : fields) {
            int value = kUntouched;
            EXPECT_EQ((sources.*getter)(&value), size >= end ? 0 : -1) << size;
            EXPECT_EQ(value, size >= end ? 0x01010101 : kUntouched) << size;
        }
    }
    CSources cut;
    const Bytes record =
        slice(source(1, 2, 3, 4, 5, {resolution(6, 7, 8), resolution(9, 9, 9)}), 0, 20);
    EXPECT_EQ(cut.setData(record.data(), sizeOf(record)), 0);
    ASSERT_NE(cut.getScanRes(1), nullptr);
    EXPECT_EQ(valueOf(*cut.getScanRes(0), &CScanRes::getHorRes), 6);
    EXPECT_EQ(valueOf(*cut.getScanRes(1), &CScanRes::getHorRes), 0);
}

}  // namespace
