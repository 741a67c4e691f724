// SPDX-License-Identifier: LGPL-2.1-or-later
// What network scanners say and hear, byte by byte and without a network.

#include <sys/socket.h>

#include "CommandSplitter.h"
#include "Discovery.h"
#include "FrameFault.h"
#include "Framer.h"
#include "Sockets.h"
#include "Support.h"
#include "Text.h"

namespace scansim::test {

namespace {

Bytes bytesOf(const std::string& text)
{
    return Bytes(text.begin(), text.end());
}

NetworkTraits traitsWith(const std::string& frameSize)
{
    return makeModel({"frame-size=" + frameSize}).network;
}

Bytes numbered(std::size_t size)
{
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<std::uint8_t>(i * 7);
    }
    return bytes;
}

// The payloads' sizes, after a check of the headers; `joined` gets the payloads.
std::vector<std::size_t> sizesOf(const std::vector<Bytes>& frames, Bytes& joined)
{
    std::vector<std::size_t> sizes;
    for (const Bytes& frame : frames) {
        EXPECT_EQ(Bytes(frame.begin(), frame.begin() + 5), (Bytes{'H', 'B', 'N', '3', 0}));
        EXPECT_EQ(be32(frame.data() + 5), frame.size() - 9);
        sizes.push_back(frame.size() - 9);
        joined.insert(joined.end(), frame.begin() + 9, frame.end());
    }
    return sizes;
}

std::vector<std::size_t> cutIn(const std::string& frameSize, const std::vector<std::size_t>& parts)
{
    const NetworkTraits traits = traitsWith(frameSize);
    Framer framer(traits);
    Bytes sent;
    std::vector<Bytes> frames;
    for (std::size_t part : parts) {
        const Bytes bytes = numbered(part);
        sent.insert(sent.end(), bytes.begin(), bytes.end());
        const std::vector<Bytes> more = framer.addImage(bytes);
        frames.insert(frames.end(), more.begin(), more.end());
    }
    const std::vector<Bytes> rest = framer.flush();
    frames.insert(frames.end(), rest.begin(), rest.end());
    Bytes joined;
    const std::vector<std::size_t> sizes = sizesOf(frames, joined);
    EXPECT_TRUE(joined == sent);
    return sizes;
}

using Sizes = std::vector<std::size_t>;

// The answer of a model with these settings.
std::string answerOf(std::vector<std::string> settings)
{
    settings.insert(settings.end(), {"ip=10.1.2.3", "mac=100070482C6A", "host-name=here",
                                     "product=Model 7", "product-id=0xABC"});
    const Bytes bytes = makeAnswer(makeModel(settings));
    return std::string(bytes.begin(), bytes.end());
}

bool contains(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

}  // namespace

TEST(Framer, CutsAnywhere)
{
    EXPECT_EQ(cutIn("10", {25}), (Sizes{10, 10, 5}));
    EXPECT_EQ(cutIn("10", {4, 4, 4}), (Sizes{10, 2}));
    EXPECT_EQ(cutIn("10 3", {30}), (Sizes{10, 3, 10, 3, 4}));
    EXPECT_EQ(cutIn("65535", {65535 + 700}), (Sizes{65535, 700}));
}

TEST(Framer, NoFrameHasASingleByte)
{
    EXPECT_EQ(cutIn("2", {5}), (Sizes{2, 3}));
    EXPECT_EQ(cutIn("2", {1, 1, 1, 1, 1, 1}), (Sizes{2, 2, 2}));
    EXPECT_EQ(cutIn("7", {15}), (Sizes{7, 8}));
}

TEST(Framer, RandomSizesAreRepeatable)
{
    const Sizes sizes = cutIn("random:7", {300000});
    EXPECT_EQ(cutIn("random:7", {300000}), sizes);
    EXPECT_NE(cutIn("random:8", {300000}), sizes);
    for (std::size_t size : sizes) {
        EXPECT_GE(size, 2U);
        EXPECT_LE(size, 65536U);
    }
}

TEST(Framer, RefusesImpossibleSizes)
{
    for (const char* size : {"1", "65537", "", "random:", "random:x", "2,3"}) {
        EXPECT_THROW(traitsWith(size), InputError) << size;
    }
}

TEST(FrameFault, Spoils)
{
    const Bytes frame = makeFrame({1, 2, 3});
    const auto spoilt = [&](FaultAction action, std::uint32_t argument) {
        return spoil(frame, {action, argument}).bytes;
    };
    EXPECT_EQ(spoilt(FaultAction::Magic, 0), (Bytes{'X', 'B', 'N', '3', 0, 0, 0, 0, 3, 1, 2, 3}));
    EXPECT_EQ(spoilt(FaultAction::Length, 0xFFFFFFFE),
              (Bytes{'H', 'B', 'N', '3', 0, 0xFF, 0xFF, 0xFF, 0xFE, 1, 2, 3}));
    EXPECT_EQ(spoilt(FaultAction::Extra, 2).size(), frame.size() + 2);
    EXPECT_EQ(spoilt(FaultAction::Lose, 2), Bytes(frame.begin(), frame.end() - 2));
    EXPECT_EQ(spoilt(FaultAction::Lose, 200).size(), 9U);
    EXPECT_EQ(spoilt(FaultAction::Reset, 4), bytesOf("HBN3"));
    EXPECT_EQ(spoilt(FaultAction::HalfClose, 400), frame);
    EXPECT_TRUE(spoil(frame, {FaultAction::Silence, 0}).isLast);
    EXPECT_FALSE(spoil(frame, {FaultAction::Extra, 1}).isLast);
}

TEST(CommandSplitter, FindsCommandsInAStream)
{
    Journal journal("test");
    CommandSplitter splitter(journal);
    HostCommand lock;
    const Bytes framed = npaFrame(lock.bytes());
    Bytes stream = {'H', 'B', 'N', '3', 0, 0, 0, 0, 2};
    const Bytes plain = lock.bytes();
    stream.insert(stream.end(), plain.begin(), plain.end());
    stream.insert(stream.end(), framed.begin(), framed.end());
    std::vector<Bytes> found;
    for (std::uint8_t byte : stream) {
        splitter.add({byte});
        if (const auto command = splitter.next()) {
            found.push_back(*command);
        }
    }
    EXPECT_EQ(found, (std::vector<Bytes>{plain, framed}));
    EXPECT_TRUE(splitter.isTickled());
    splitter.end();
    EXPECT_TRUE(journal.complaints().empty());
}

TEST(CommandSplitter, ComplainsAboutWrongConversations)
{
    const std::string tickle("HBN3\0\0\0\0\2", 9);
    const std::string frame("HBN3\0\0\0\0\x20", 9);
    const std::string plain("\x1BS\3\0\0\0\x80\0", 8);
    const struct {
        std::string sent;
        const char* complaint;
    } cases[] = {{plain + plain, "does not begin with the tickle"},
                 {std::string("HBN3\0\0\0\0\0", 9), "does not begin with the tickle"},
                 {tickle + frame + plain, "only the tickle has a frame header"},
                 {tickle + tickle, "only the tickle has a frame header"},
                 {tickle + plain.substr(0, 5), "in the middle of a command"}};
    for (const auto& each : cases) {
        Journal journal("test");
        CommandSplitter splitter(journal);
        splitter.add(bytesOf(each.sent));
        while (splitter.next()) {
        }
        splitter.end();
        ASSERT_EQ(journal.complaints().size(), 1U) << each.complaint;
        EXPECT_TRUE(contains(journal.complaints()[0], each.complaint)) << journal.complaints()[0];
    }
}

TEST(Discovery, RecognisesTheQuery)
{
    const std::string good("\0\0\0\0\0\1\0\0\0\0\0\0\x0c_host-config\x04_udp\x05local\0\0\x21\0\1",
                           41);
    EXPECT_EQ(recogniseQuery(bytesOf(good)), Query::Good);
    EXPECT_EQ(recogniseQuery(bytesOf(good.substr(0, 40))), Query::Wrong);
    EXPECT_EQ(recogniseQuery(bytesOf("\1" + good.substr(1))), Query::Wrong);
    EXPECT_EQ(recogniseQuery(bytesOf("hello")), Query::None);
    EXPECT_EQ(recogniseQuery({}), Query::None);
    EXPECT_EQ(recogniseQuery(bytesOf(answerOf({}))), Query::None);
}

TEST(Discovery, AnswersAsScannersDo)
{
    const std::string answer = answerOf({});
    EXPECT_EQ(answer.substr(0, 12), std::string("\0\0\x84\0\0\0\0\1\0\0\0\0", 12));
    EXPECT_EQ(answer.substr(12, 38),
              std::string("\4here\x0c_host-config\x04_udp\x05local\0\0\x10\0\1\0\0\0\x78", 38));
    for (const char* string :
         {"\x14IPADDRESS \"10.1.2.3\"", "\x15MACUAA \"08000E123456\"", "1284STRID \"Model 7\"",
          "ADAPTERNAME \"Model 7\"", "PRINTERVIDPID \"12340ABC\""}) {
        EXPECT_TRUE(contains(answer, string)) << string;
    }
    // The length of the strings reaches to the end.
    const std::size_t length =
        static_cast<std::uint8_t>(answer[50]) * 256U + static_cast<std::uint8_t>(answer[51]);
    EXPECT_EQ(length, answer.size() - 52);
}

TEST(Discovery, VariantsOfAnswers)
{
    EXPECT_TRUE(contains(answerOf({"answer.quotes=no"}), "IPADDRESS 10.1.2.3\x17"));
    EXPECT_TRUE(contains(answerOf({"answer.vid-pid=0xDEAD0001"}), "PRINTERVIDPID \"DEAD0001\""));
    EXPECT_TRUE(contains(answerOf({"answer.adapter-name=Den"}), "ADAPTERNAME \"Den\""));
    EXPECT_FALSE(contains(answerOf({"answer.id-string=none"}), "1284STRID"));
    const std::string without = answerOf({"answer.leave-out=IPADDRESS MACUAA"});
    EXPECT_FALSE(contains(without, "IPADDRESS"));
    EXPECT_FALSE(contains(without, "MACUAA"));
    EXPECT_TRUE(contains(answerOf({"answer.string=X y", "answer.string=Z"}), "\3X y\1Z"));
    const std::string records = answerOf({"answer.records=a srv txt"});
    EXPECT_EQ(records[7], 3);
    EXPECT_TRUE(contains(records, std::string("\0\1\0\1\0\0\0\x78\0\4\x0A\1\2\3", 14)));
    EXPECT_EQ(answerOf({"answer.records="})[7], 0);
    EXPECT_EQ(answerOf({"answer.question=yes"})[5], 1);
    const std::string pointers = answerOf({"answer.pointers=yes"});
    EXPECT_EQ(pointers[5], 1);
    EXPECT_TRUE(contains(pointers, std::string("\4here\xC0\x0C\0\x10", 9)));
    EXPECT_THROW(answerOf({"answer.records=mx"}), InputError);
    EXPECT_THROW(answerOf({"mac=1234"}), InputError);
    EXPECT_THROW(answerOf({"ip=1.2.3"}), InputError);
}

TEST(Discovery, GarbageIsOfEveryKind)
{
    int responses = 0;
    for (std::uint32_t i = 0; i < 100; ++i) {
        const Bytes bytes = makeGarbageAnswer(i);
        EXPECT_EQ(bytes, makeGarbageAnswer(i));
        responses += bytes.size() > 12 && (bytes[2] & 0x80) != 0 ? 1 : 0;
    }
    EXPECT_GT(responses, 50);
    EXPECT_NE(makeForeignAnswer(1), makeForeignAnswer(2));
}

// The backend's socket is bound to the same port, and answers to it are its own.
TEST(Sockets, BroadcastsAreHeardWithoutTakingFromOthers)
{
    const int on = 1;
    const Descriptor host(socket(AF_INET, SOCK_DGRAM, 0));
    setsockopt(host.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    socklen_t size = sizeof address;
    ASSERT_EQ(bind(host.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    getsockname(host.get(), reinterpret_cast<sockaddr*>(&address), &size);
    const Descriptor later = hearBroadcasts(ntohs(address.sin_port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(sendto(host.get(), "x", 1, 0, reinterpret_cast<sockaddr*>(&address), sizeof address),
              1);
    char byte = 0;
    EXPECT_EQ(recv(host.get(), &byte, 1, MSG_DONTWAIT), 1);
    EXPECT_EQ(recv(later.get(), &byte, 1, MSG_DONTWAIT), -1);
}

// ---- what the scanner tells its carrier ---------------------------------------

TEST(ScannerPieces, SayWhatTheyAre)
{
    Bench bench({"feeder.sheets=0", "fault=block 3: reset 5"});
    bench.begin(HostCommand());
    Piece piece;
    ASSERT_EQ(bench.scanner->take(piece), TransferResult::Done);
    EXPECT_EQ(piece.bytes.at(8), 9);
    EXPECT_FALSE(piece.isImage);
    ASSERT_EQ(bench.scanner->take(piece), TransferResult::Done);
    EXPECT_TRUE(piece.isImage);
    EXPECT_TRUE(piece.joinsOthers);
    EXPECT_EQ(piece.bytes.size(), 1009U);
    bench.scanner->take(piece);
    ASSERT_EQ(bench.scanner->take(piece), TransferResult::Done);
    EXPECT_FALSE(piece.joinsOthers);
    ASSERT_TRUE(piece.fault);
    EXPECT_EQ(piece.fault->action, FaultAction::Reset);
    EXPECT_EQ(piece.fault->argument, 5U);
}

TEST(ScannerPieces, ShortAndEmptyOnes)
{
    Bench bench({"feeder.sheets=0", "fault=reply lock: short 3", "fault=reply start: zero"});
    bench.send(HostCommand(), CommandId::Lock);
    bench.send(HostCommand(), CommandId::Start);
    std::vector<std::size_t> sizes;
    for (int i = 0; i < 5; ++i) {
        Piece piece;
        EXPECT_EQ(bench.scanner->take(piece), TransferResult::Done);
        sizes.push_back(piece.bytes.size());
    }
    EXPECT_EQ(sizes, (std::vector<std::size_t>{3, 5, 0, 8, 31}));
}

TEST(ScannerPieces, CommandsThatEndTheConnection)
{
    Bench reset({"fault=command properties: reset"});
    EXPECT_EQ(reset.send(CommandId::Properties), TransferResult::Reset);
    Bench closed({"fault=command properties: half-close"});
    EXPECT_EQ(closed.send(CommandId::Properties), TransferResult::HalfClose);
}

TEST(FaultScript, KnowsTransports)
{
    FaultScript usb(Transport::Usb);
    FaultScript network(Transport::Network);
    EXPECT_THROW(usb.add("block: reset"), InputError);
    EXPECT_THROW(usb.add("tickle: timeout"), InputError);
    EXPECT_THROW(network.add("claim: busy"), InputError);
    EXPECT_THROW(network.add("block: stall"), InputError);
    EXPECT_THROW(network.add("tickle: stray"), InputError);
    EXPECT_NO_THROW(usb.add("block: stall"));
    EXPECT_NO_THROW(network.add("block: length 0xFFFFFFFF"));
    EXPECT_NO_THROW(network.add("connect 2: reset"));
}

}  // namespace scansim::test
