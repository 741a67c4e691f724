// SPDX-License-Identifier: LGPL-2.1-or-later
#include "DiscoveryReply.h"

#include "Dns.h"

#include <gmock/gmock.h>

#include <cstring>
#include <ctime>
#include <memory>
#include <random>

namespace {

// Reads a packet at the end of its memory, so that a sanitizer sees any step beyond it.
int parse(const Bytes& packet, NValueObjects* record)
{
    const std::unique_ptr<unsigned char[]> exact(new unsigned char[packet.size()]);
    std::copy(packet.begin(), packet.end(), exact.get());
    return DiscoveryReply::parsePacket(exact.get(), static_cast<int>(packet.size()), record);
}

NValueObjects read(const std::vector<std::string>& strings)
{
    NValueObjects record;
    EXPECT_EQ(parse(answerWith(strings), &record), 1);
    return record;
}

std::string describe(const NValueObjects& r)
{
    char ids[32];
    snprintf(ids, sizeof ids, "%X:%X", r.getVid(), r.getPid());
    return r.getManufacturer() + "|" + r.getModel() + "|" + r.getMac() + "|" + r.getIp() + "|" +
           ids;
}

constexpr char kNothing[] = "||||0:0";
constexpr char kFirst[] = "Quillon|Model 0|000800000000|127.0.0.1|1234:3260";

// ---- packets ------------------------------------------------------------------------

TEST(DiscoveryReplyTest, ReadsAnAnswer)
{
    EXPECT_EQ(describe(read(scannerStrings())), kFirst);
}

TEST(DiscoveryReplyTest, RejectsWhatIsNoAnswer)
{
    NValueObjects record;
    const Bytes answer = answerWith(scannerStrings());
    for (std::size_t size = 0; size < 13; size++) {
        EXPECT_EQ(parse(Bytes(answer.begin(), answer.begin() + static_cast<std::ptrdiff_t>(size)),
                        &record),
                  0)
            << size;
    }
    Bytes query = answer;
    query[2] = 0x7F;
    EXPECT_EQ(parse(query, &record), 0);
    EXPECT_EQ(describe(record), kNothing);
    query[2] = 0x80;
    EXPECT_EQ(parse(query, &record), 1);
    EXPECT_EQ(describe(record), kFirst);
}

TEST(DiscoveryReplyTest, AnswersWithoutATextRecordPass)
{
    NValueObjects record;
    EXPECT_EQ(parse(dnsHeader(0, 0) + Bytes{0}, &record), 1);
    EXPECT_EQ(parse(dnsHeader(0, 1) + dnsRecord(serviceName(), 33, Bytes(6)), &record), 1);
    EXPECT_EQ(describe(record), kNothing);
}

TEST(DiscoveryReplyTest, StepsOverQuestions)
{
    const Bytes question = serviceName() + bigEndian(33, 2) + bigEndian(1, 2);
    for (unsigned count : {1U, 2U, 3U}) {
        NValueObjects record;
        Bytes packet = dnsHeader(count, 1);
        for (unsigned i = 0; i < count; i++) {
            packet = packet + question;
        }
        packet = packet + dnsRecord(serviceName(), 16, dnsStrings(scannerStrings()));
        EXPECT_EQ(parse(packet, &record), 1);
        EXPECT_EQ(describe(record), kFirst) << count;
    }
}

TEST(DiscoveryReplyTest, CountsHaveTwoBytes)
{
    NValueObjects record;
    Bytes packet = answerWith(scannerStrings());
    packet[6] = 1;
    packet[7] = 0;
    EXPECT_EQ(parse(packet, &record), 1);
    EXPECT_EQ(describe(record), kFirst);
    NValueObjects none;
    packet[6] = 0;
    EXPECT_EQ(parse(packet, &none), 1);
    EXPECT_EQ(describe(none), kNothing);
}

TEST(DiscoveryReplyTest, OtherServicesAreNotRead)
{
    for (const std::vector<std::string>& labels :
         std::vector<std::vector<std::string>>{{"Scanner", "_printer", "_tcp", "local"},
                                               {"Scanner", "_HOST-CONFIG", "_udp", "local"},
                                               {"Scanner", "_host-config2", "_udp", "local"},
                                               {"_host-config", "_udp", "local"},
                                               {}}) {
        NValueObjects record;
        EXPECT_EQ(
            parse(dnsHeader(0, 1) + dnsRecord(dnsName(labels), 16, dnsStrings(scannerStrings())),
                  &record),
            1);
        EXPECT_EQ(describe(record), kNothing);
    }
}

TEST(DiscoveryReplyTest, OtherTypesAreNotRead)
{
    for (const unsigned type : {0U, 1U, 12U, 15U, 17U, 0x1000U, 0x0110U}) {
        NValueObjects record;
        parse(dnsHeader(0, 1) + dnsRecord(serviceName(), type, dnsStrings(scannerStrings())),
              &record);
        EXPECT_EQ(describe(record), kNothing) << type;
    }
}

// After a record of another type, the next answer is read from behind its type.
TEST(DiscoveryReplyTest, RecordsAreNotSteppedOverAsAWhole)
{
    const Bytes text = dnsRecord(serviceName(), 16, dnsStrings(scannerStrings()));
    NValueObjects found;
    parse(dnsHeader(0, 2) + serviceName() + bigEndian(33, 2) + text, &found);
    EXPECT_EQ(describe(found), kFirst);
    NValueObjects missed;
    parse(dnsHeader(0, 2) + dnsRecord(serviceName(), 33, {}) + text, &missed);
    EXPECT_EQ(describe(missed), kNothing);
    // Each answer that is not of the service costs one label.
    NValueObjects late;
    parse(dnsHeader(0, 3) + label("a") + label("b") + text, &late);
    EXPECT_EQ(describe(late), kFirst);
    NValueObjects tooLate;
    parse(dnsHeader(0, 2) + label("a") + label("b") + text, &tooLate);
    EXPECT_EQ(describe(tooLate), kNothing);
}

TEST(DiscoveryReplyTest, OnlyTheFirstTextRecordIsRead)
{
    NValueObjects record;
    const Bytes second = dnsRecord(serviceName(), 16, dnsStrings({"IPADDRESS \"9.9.9.9\""}));
    Bytes packet = answerWith(scannerStrings()) + second;
    packet[7] = 2;
    parse(packet, &record);
    EXPECT_EQ(describe(record), kFirst);
}

TEST(DiscoveryReplyTest, StringsEndWithTheData)
{
    const Bytes strings = dnsStrings({"IPADDRESS \"1.2.3.4\"", "ADAPTERNAME \"M\""});
    Bytes packet = dnsHeader(0, 1) + dnsRecord(serviceName(), 16, strings);
    const std::size_t length = packet.size() - strings.size() - 1;
    packet[length] = static_cast<unsigned char>(1 + strings[0]);
    NValueObjects first;
    parse(packet, &first);
    EXPECT_EQ(describe(first), "|||1.2.3.4|0:0");
    packet[length]++;
    NValueObjects both;
    parse(packet, &both);
    EXPECT_EQ(describe(both), "|M||1.2.3.4|0:0") << "a string that begins inside is read whole";
}

TEST(DiscoveryReplyTest, EmptyStringsAreSteppedOver)
{
    EXPECT_EQ(describe(read({"", "ADAPTERNAME M", "", ""})), "|M|||0:0");
}

TEST(DiscoveryReplyTest, StringsEndAtAZeroByte)
{
    EXPECT_EQ(describe(read({std::string("ADAPTERNAME Mo\0del", 18), "IPADDRESS 1.1.1.1"})),
              "|Mo||1.1.1.1|0:0");
}

TEST(DiscoveryReplyTest, CutPacketsAreReadToTheirEnd)
{
    const Bytes answer = answerWith(scannerStrings());
    for (std::size_t size = 13; size < answer.size(); size++) {
        NValueObjects record;
        EXPECT_EQ(parse(Bytes(answer.begin(), answer.begin() + static_cast<std::ptrdiff_t>(size)),
                        &record),
                  1);
        EXPECT_FALSE(record.isComplete() && record.getPid() == 0x3260 && record.getVid() != 0x1234);
    }
}

TEST(DiscoveryReplyTest, LyingCountsCostNoTime)
{
    const clock_t start = clock();
    for (int i = 0; i < 100000; i++) {
        NValueObjects record;
        ASSERT_EQ(parse(dnsHeader(0, 0xFFFF) + Bytes{0}, &record), 1);
        ASSERT_EQ(parse(dnsHeader(0xFFFF, 0xFFFF) + Bytes{5}, &record), 1);
    }
    EXPECT_LT(clock() - start, 5 * CLOCKS_PER_SEC);
}

class DiscoveryReplyRandomTest : public testing::TestWithParam<unsigned> {};

// Under the sanitizers: nothing is read past the end of a packet.
TEST_P(DiscoveryReplyRandomTest, SurvivesGarbage)
{
    constexpr int kPackets = 40000;
    std::mt19937 random(GetParam());
    const auto below = [&random](std::size_t limit) { return random() % limit; };
    const Bytes question = serviceName() + bigEndian(33, 2) + bigEndian(1, 2);
    const std::vector<Bytes> seeds = {
        answerWith(scannerStrings()),
        dnsHeader(1, 2) + question + dnsRecord(serviceName(), 33, Bytes(6)) +
            dnsRecord(serviceName(), 16, dnsStrings(scannerStrings(7))),
        Bytes(1024, 0xFF),
    };
    int complete = 0;
    int rejected = 0;
    for (int i = 0; i < kPackets; i++) {
        Bytes packet = seeds[below(seeds.size())];
        for (std::size_t changes = below(12); changes > 0; changes--) {
            packet[below(packet.size())] = static_cast<unsigned char>(random());
        }
        if (below(3) == 0) {
            packet.resize(below(packet.size()) + 1);
        }
        NValueObjects record;
        rejected += parse(packet, &record) == 0 ? 1 : 0;
        complete += record.isComplete() ? 1 : 0;
        ASSERT_LE(record.deviceName().size(), 254U);
    }
    EXPECT_GT(complete, kPackets / 50);
    EXPECT_GT(rejected, kPackets / 100);
}

INSTANTIATE_TEST_SUITE_P(Seeds, DiscoveryReplyRandomTest, testing::Values(1U, 2U, 3U));

// ---- strings ------------------------------------------------------------------------

struct TextCase {
    const char* name;
    std::vector<std::string> strings;
    const char* expected;
    friend void PrintTo(const TextCase& c, std::ostream* out) { *out << c.name; }
};

class DiscoveryTextTest : public testing::TestWithParam<TextCase> {};

TEST_P(DiscoveryTextTest, Keys)
{
    EXPECT_EQ(describe(read(GetParam().strings)), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Table, DiscoveryTextTest,
    testing::Values(
        TextCase{"Address", {"IPADDRESS \"10.0.0.7\""}, "|||10.0.0.7|0:0"},
        TextCase{"AddressWithoutQuotes", {"IPADDRESS 10.0.0.7"}, "|||10.0.0.7|0:0"},
        TextCase{"Netmask", {"IPNETMASK \"1\""}, kNothing},
        TextCase{"Gateway", {"IPGATEWAY \"1\""}, kNothing},
        TextCase{"HostName", {"IPNAME \"1\""}, kNothing},
        TextCase{"LocalMac", {"MACLAA \"112233445566\""}, kNothing},
        TextCase{"AddressSource", {"IPADDRSOURCE \"1\""}, kNothing},
        TextCase{"Password", {"PASSWORDSET \"1\""}, kNothing},
        TextCase{"Attached", {"CPDATTACHED \"1\""}, kNothing},
        TextCase{"ServiceName", {"MDNSNAME \"1\""}, kNothing},
        TextCase{"UnknownKey", {"COLOUR \"1\""}, kNothing},
        TextCase{"LowerCaseKey", {"ipaddress \"1\""}, kNothing},
        TextCase{"LongerKey", {"IPADDRESS2 \"1\""}, kNothing},
        TextCase{"NoBlank", {"IPADDRESS", "ADAPTERNAME=\"M\""}, kNothing},
        TextCase{"NoKey", {" IPADDRESS"}, kNothing},
        TextCase{"Mac", {"MACUAA \"08000E123456\""}, "||100070482C6A||0:0"},
        TextCase{"MacWithoutQuotes", {"MACUAA 08000E123456"}, "||100070482C6A||0:0"},
        TextCase{"MacInLowerCase", {"MACUAA \"0a0b0c0d0e0f\""}, "||50D030B070F0||0:0"},
        TextCase{"MacWithMoreDigits", {"MACUAA \"08000E12345699\""}, "||100070482C6A||0:0"},
        TextCase{"ShortMac", {"MACUAA \"08000E\""}, "||100070000000||0:0"},
        TextCase{"EmptyMac", {"MACUAA \"\""}, "||000000000000||0:0"},
        TextCase{"DeviceId", {"1284STRID 123 \"MDL One\""}, "|MDL One|||0:0"},
        TextCase{"DeviceIdWithInnerQuotes", {"1284STRID \"a \"b\" c\""}, "|a \"b\" c|||0:0"},
        TextCase{"DeviceIdOneQuote", {"1284STRID x \"One"}, "|One|||0:0"},
        TextCase{"DeviceIdNoQuote", {"ADAPTERNAME M", "1284STRID One"}, "|M|||0:0"},
        TextCase{"AdapterName", {"ADAPTERNAME \"My Scanner\""}, "|My Scanner|||0:0"},
        TextCase{"AdapterNameWithoutQuotes", {"ADAPTERNAME My Scanner"}, "|My Scanner|||0:0"},
        TextCase{"LaterModelWins", {"1284STRID \"One\"", "ADAPTERNAME \"Two\""}, "|Two|||0:0"},
        TextCase{"LaterDeviceIdWins", {"ADAPTERNAME \"Two\"", "1284STRID \"One\""}, "|One|||0:0"},
        TextCase{"Maker", {"PRINTERVIDPID \"12343260\""}, "Quillon||||1234:3260"},
        TextCase{"Brand", {"PRINTERVIDPID \"43214022\""}, "Oxle||||4321:4022"},
        TextCase{"OtherVendor", {"PRINTERVIDPID \"12353260\""}, "||||1235:3260"},
        TextCase{"IdsWithoutQuotes", {"PRINTERVIDPID 1234abcd"}, "Quillon||||1234:ABCD"},
        TextCase{"IdsOfMoreDigits", {"PRINTERVIDPID \"FFFFFFFF12343260\""}, "Quillon||||1234:3260"},
        TextCase{"IdsOfFarMoreDigits",
                 {"PRINTERVIDPID \"12345678FFFFFFFF12343260\""},
                 "Quillon||||1234:3260"},
        TextCase{"LaterIdsClearTheMaker",
                 {"PRINTERVIDPID \"12343260\"", "PRINTERVIDPID \"00010002\""},
                 "||||1:2"},
        TextCase{"IdsWithAPrefix", {"PRINTERVIDPID \"0x12343260\""}, "Quillon||||1234:3260"}),
    kByName);

TEST(DiscoveryReplyTest, RemovesQuotes)
{
    const std::pair<const char*, const char*> cases[] = {
        {"", ""},     {"abc", "abc"},      {"\"abc\"", "abc"}, {"x\"abc\"y", "abc"},
        {"\"", ""},   {"\"abc", "abc"},    {"abc\"", ""},      {"a\"b", "b"},
        {"\"\"", ""}, {"\"a\"b\"", "a\"b"}};
    for (const auto& [given, expected] : cases) {
        EXPECT_EQ(DiscoveryReply::removeQuotes(given), expected) << given;
    }
}

TEST(DiscoveryReplyTest, ReadsHexadecimalNumbers)
{
    const std::pair<const char*, std::uint64_t> cases[] = {
        {"", 0},
        {"0", 0},
        {"9", 9},
        {"a", 10},
        {"F", 15},
        {"1A2b3C", 0x1A2B3C},
        {"1 2", 0x102},
        {"1g2", 0x102},
        {"@G`g/:", 0},
        {"0x10", 0x10},
        {"123456789ABCDEF0", 0x123456789ABCDEF0},
        {"99123456789ABCDEF0", 0x123456789ABCDEF0}};
    for (const auto& [given, expected] : cases) {
        EXPECT_EQ(DiscoveryReply::hexStringLong(given), expected) << given;
    }
}

TEST(DiscoveryReplyTest, ReversesBits)
{
    EXPECT_EQ(DiscoveryReply::reverse(0x01), 0x80);
    EXPECT_EQ(DiscoveryReply::reverse(0x0E), 0x70);
    EXPECT_EQ(DiscoveryReply::reverse(0xB4), 0x2D);
    for (int i = 0; i < 256; i++) {
        const auto byte = static_cast<unsigned char>(i);
        const unsigned char reversed = DiscoveryReply::reverse(byte);
        EXPECT_EQ(DiscoveryReply::reverse(reversed), byte);
        for (int bit = 0; bit < 8; bit++) {
            EXPECT_EQ(reversed >> (7 - bit) & 1, byte >> bit & 1);
        }
    }
}

TEST(DiscoveryReplyTest, ExtractsStrings)
{
    const Bytes bytes = {3, 'a', 'b', 'c', 'd', 0};
    const unsigned char* begin = bytes.data();
    int len = -1;
    EXPECT_EQ(DiscoveryReply::extractString(begin, begin + 6, &len), "abc");
    EXPECT_EQ(len, 3);
    EXPECT_EQ(DiscoveryReply::extractString(begin, begin + 3, &len), "ab") << "cut at the end";
    EXPECT_EQ(len, 3);
    EXPECT_EQ(DiscoveryReply::extractString(begin + 5, begin + 6, &len), "");
    EXPECT_EQ(len, 0);
    EXPECT_EQ(DiscoveryReply::extractString(begin + 6, begin + 6, &len), "");
    EXPECT_EQ(len, 0);
    const Bytes zero = {4, 'a', 0, 'b', 'c'};
    EXPECT_EQ(DiscoveryReply::extractString(zero.data(), zero.data() + 5, &len), "a");
    EXPECT_EQ(len, 4);
}

}  // namespace
