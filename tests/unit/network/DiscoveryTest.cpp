// SPDX-License-Identifier: LGPL-2.1-or-later
// The search for scanners, seen through NetComm::getScanners.
#include "Discovery.h"

#include "Calls.h"
#include "DiscoveryReply.h"
#include "Dns.h"
#include "LogCapture.h"
#include "Loopback.h"
#include "NetComm.h"
#include "Responder.h"
#include "SaneConfReader.h"

#include <gmock/gmock.h>

using std::chrono::milliseconds;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::Ge;
using testing::IsEmpty;
using testing::Lt;
using testing::SizeIs;

namespace {

std::vector<Bytes> answers(int count)
{
    std::vector<Bytes> all;
    for (int n = 0; n < count; n++) {
        all.push_back(answerWith(scannerStrings(n)));
    }
    return all;
}

class Searcher : public NetComm {
public:
    using NetComm::list;
    using NetComm::standardTimes;
};

class DiscoveryTest : public testing::Test {
protected:
    DiscoveryTest()
    {
        conf.Add(0x1234, 0x3260, "/model.ini", "Model");
        conf.Add(0x4321, 0x4022, "/model.ini", "Model");
        conf.Add(0x0001, 0x0002, "/model.ini", "Model");
        Searcher::standardTimes.discovery = milliseconds(400);
    }
    ~DiscoveryTest() override { Searcher::standardTimes = NetTimes(); }

    std::vector<std::string> search(Searcher& searcher, int expected = 0)
    {
        char** names = nullptr;
        int count = 0;
        EXPECT_EQ(searcher.getScanners(&names, &count, &conf), expected);
        std::vector<std::string> all;
        for (int i = 0; i < count; i++) {
            all.emplace_back(names[i]);
            free(names[i]);
        }
        free(names);
        return all;
    }
    std::vector<std::string> search(int expected = 0)
    {
        Searcher searcher;
        return search(searcher, expected);
    }
    std::vector<std::string> searchFor(const std::vector<std::string>& strings)
    {
        const Responder responder({answerWith(strings)});
        return search();
    }

    SaneConfReader conf;
    LogCapture log;
    Stopwatch watch;
};

constexpr char kFirst[] = "Quillon/Model 0/libnet:000800000000:127.0.0.1:1234:3260";

TEST_F(DiscoveryTest, AsksEverybody)
{
    Responder responder({});
    search();
    const std::vector<Bytes> queries = responder.queries();
    const Bytes query = Bytes(5) + Bytes{1} + Bytes(6) + label("_host-config") + label("_udp") +
                        label("local") + Bytes{0, 0, 0x21, 0, 1};
    ASSERT_EQ(query.size(), 41U);
    EXPECT_THAT(queries, ElementsAre(query));
    EXPECT_EQ(responder.route, "255.255.255.255 from 5353");
}

TEST_F(DiscoveryTest, ListsAScanner)
{
    const Responder responder({answerWith(scannerStrings())});
    Searcher searcher;
    EXPECT_THAT(search(searcher), ElementsAre(kFirst));
    EXPECT_THAT(searcher.list, SizeIs(1));
    for (const char* line :
         {"before recvfrom(). ", "data is from: 127.0.0.1", "parsing udp packets",
          "ret is 1 and timeout is 0", "ret is 0 and timeout is 0", "list size is 1",
          "mac is 000800000000", "model is Model 0", "ip is 127.0.0.1", "man is Quillon",
          "vid is 1234", "pid is 3260", ""}) {
        EXPECT_THAT(log.plainMessages(), Contains(line)) << line;
    }
    const auto size = static_cast<int>(answerWith(scannerStrings()).size());
    EXPECT_THAT(log.plainMessages(), Contains("after recvfrom(). ret: " + std::to_string(size)));
    EXPECT_THAT(log.plainMessages(), Contains("after recvfrom(). ret: 41")) << "the own query";
}

TEST_F(DiscoveryTest, NobodyAnswers)
{
    Searcher searcher;
    char* untouched = nullptr;
    char** names = &untouched;
    int count = 7;
    EXPECT_EQ(searcher.getScanners(&names, &count, &conf), 0);
    EXPECT_EQ(names, &untouched);
    EXPECT_EQ(count, 7);
    EXPECT_THAT(log.plainMessages(), Contains("list size is 0"));
    EXPECT_THAT(watch.elapsed(), AllOf(Ge(milliseconds(400)), Lt(milliseconds(2000))));
}

TEST_F(DiscoveryTest, NothingIsConfigured)
{
    const Responder responder({answerWith(scannerStrings())});
    Searcher searcher;
    char** names = nullptr;
    int count = 7;
    EXPECT_EQ(searcher.getScanners(&names, &count, nullptr), 0);
    EXPECT_EQ(count, 7);
    EXPECT_THAT(log.plainMessages(), Contains("parsing udp packets"));
}

TEST_F(DiscoveryTest, ListsManyScanners)
{
    for (const int count : {25, 40}) {
        std::vector<std::string> expected;
        for (const Bytes& answer : answers(count)) {
            NValueObjects scanner;
            DiscoveryReply::parsePacket(answer.data(), static_cast<int>(answer.size()), &scanner);
            expected.push_back(scanner.deviceName());
        }
        const Responder responder(answers(count));
        EXPECT_EQ(search(), expected);
    }
}

TEST_F(DiscoveryTest, DuplicatesAreListedTwice)
{
    const Responder responder({answerWith(scannerStrings()), answerWith(scannerStrings())});
    EXPECT_THAT(search(), ElementsAre(kFirst, kFirst));
}

TEST_F(DiscoveryTest, ListGrowsWithEverySearch)
{
    const Responder responder({answerWith(scannerStrings())});
    Searcher searcher;
    EXPECT_THAT(search(searcher), SizeIs(1));
    EXPECT_THAT(search(searcher), SizeIs(2));
    const NoRoute noRoute;
    EXPECT_THAT(search(searcher, 99), SizeIs(2));
}

TEST_F(DiscoveryTest, IncompleteAnswersAreDropped)
{
    for (std::size_t missing = 0; missing < 4; missing++) {
        std::vector<std::string> strings = scannerStrings();
        strings.erase(strings.begin() + static_cast<std::ptrdiff_t>(missing));
        EXPECT_THAT(searchFor(strings), IsEmpty()) << missing;
    }
}

TEST_F(DiscoveryTest, ForeignScannersAreDropped)
{
    std::vector<std::string> strings = scannerStrings();
    strings[3] = "PRINTERVIDPID \"12343261\"";
    EXPECT_THAT(searchFor(strings), IsEmpty()) << "not configured";
    strings[3] = "PRINTERVIDPID \"00010002\"";
    EXPECT_THAT(searchFor(strings), IsEmpty()) << "configured, but of no known maker";
    strings[3] = "PRINTERVIDPID \"43214022\"";
    EXPECT_THAT(searchFor(strings),
                ElementsAre("Oxle/Model 0/libnet:000800000000:127.0.0.1:4321:4022"));
}

TEST_F(DiscoveryTest, GarbageIsDropped)
{
    const Responder responder({Bytes{}, Bytes{0x84}, Bytes(12, 0xFF), Bytes(13, 0xFF),
                               Bytes(1024, 0xFF), Bytes(5000, 0x80), dnsHeader(0, 0xFFFF),
                               answerWith(scannerStrings())});
    EXPECT_THAT(search(), ElementsAre(kFirst)) << "and does not hide the scanners";
    EXPECT_THAT(log.plainMessages(), Contains("after recvfrom(). ret: 0"));
    EXPECT_THAT(log.plainMessages(), Contains("after recvfrom(). ret: 1024"));
}

TEST_F(DiscoveryTest, AnswersEndAfter1024Bytes)
{
    std::vector<std::string> strings(4, std::string(250, 'x'));
    const std::vector<std::string> scanner = scannerStrings();
    strings.insert(strings.end(), scanner.begin(), scanner.end());
    ASSERT_GT(answerWith(strings).size(), 1024U);
    EXPECT_THAT(searchFor(strings), IsEmpty());
    strings.erase(strings.begin());
    EXPECT_THAT(searchFor(strings), ElementsAre(kFirst));
}

TEST_F(DiscoveryTest, FloodDoesNotLastLonger)
{
    // A long way to the model makes the search slower than the flood.
    SaneConfReader models;
    for (int i = 0; i < 300000; i++) {
        models.Add(0, 0, "", "");
    }
    models.Add(0x1234, 0x3260, "/model.ini", "Model");
    Searcher searcher;
    Responder responder(answers(100));
    responder.isFlood = true;
    Stopwatch search;
    char** names = nullptr;
    int count = 0;
    EXPECT_EQ(searcher.getScanners(&names, &count, &models), 0);
    EXPECT_THAT(search.elapsed(), AllOf(Ge(milliseconds(380)), Lt(milliseconds(2500))));
    EXPECT_GT(responder.sent, 10 * count) << "more came than could be read";
    EXPECT_GT(count, 0);
    for (int i = 0; i < count; i++) {
        free(names[i]);
    }
    free(names);
}

TEST_F(DiscoveryTest, ListIsNotWithoutEnd)
{
    Searcher::standardTimes.discovery = milliseconds(1500);
    Responder responder(answers(100));
    responder.isFlood = true;
    EXPECT_THAT(search(), SizeIs(1000));
}

TEST_F(DiscoveryTest, SharesThePortWithAResponder)
{
    const Responder responder({answerWith(scannerStrings())}, true);
    EXPECT_THAT(search(), SizeIs(1));
}

TEST_F(DiscoveryTest, PortTaken)
{
    const Responder responder({answerWith(scannerStrings())}, false);
    EXPECT_THAT(search(1), IsEmpty());
    EXPECT_THAT(log.plainMessages(), ElementsAre("[ERROR] broadcast errorr"));
    EXPECT_THAT(watch.elapsed(), Lt(milliseconds(300)));
}

TEST_F(DiscoveryTest, NoSocket)
{
    const NoSockets noSockets;
    EXPECT_THAT(search(1), IsEmpty());
    EXPECT_THAT(log.plainMessages(), ElementsAre("[ERROR] broadcast errorr"));
}

TEST_F(DiscoveryTest, NoRouteForTheQuery)
{
    const NoRoute noRoute;
    EXPECT_THAT(search(99), IsEmpty());
    EXPECT_THAT(log.plainMessages(),
                ElementsAre("[ERROR] sendto return an error", "list size is 0"));
    EXPECT_THAT(watch.elapsed(), Lt(milliseconds(300)));
}

TEST_F(DiscoveryTest, LeavesNoDescriptor)
{
    Searcher::standardTimes.discovery = milliseconds(1);
    const int before = openDescriptors();
    for (int i = 0; i < 100; i++) {
        search();
    }
    {
        const NoRoute noRoute;
        search(99);
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(DiscoveryTest, OddModelNamesStayInsideOfTheirField)
{
    std::vector<std::string> strings = scannerStrings();
    strings[2] = "1284STRID \"MFG:Quillon/A;MDL:\"X\";\"";
    EXPECT_THAT(searchFor(strings),
                ElementsAre("Quillon/MFG-Quillon-A;MDL-\"X\";/libnet:000800000000:127.0.0.1:"
                            "1234:3260"));
    strings[2] = "ADAPTERNAME \"" + std::string(240, 'm') + "\"";
    const std::vector<std::string> names = searchFor(strings);
    ASSERT_THAT(names, SizeIs(1));
    EXPECT_EQ(names[0].size(), 254U);
    EXPECT_NE(names[0].find("m/libnet:000800000000:127.0.0.1:1234:3260"), std::string::npos);
}

// The time that users wait.
TEST_F(DiscoveryTest, LastsTenSeconds)
{
    Searcher::standardTimes = NetTimes();
    const Responder responder({answerWith(scannerStrings())});
    EXPECT_THAT(search(), ElementsAre(kFirst));
    EXPECT_THAT(watch.elapsed(), AllOf(Ge(milliseconds(9900)), Lt(milliseconds(11500))));
    EXPECT_THAT(log.plainMessages(), Contains("ret is 1 and timeout is 9"));
}

}  // namespace
