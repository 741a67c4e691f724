// SPDX-License-Identifier: LGPL-2.1-or-later
// Writes the inputs that the corpora of the fuzzers started from: what a scanner without faults
// sends, and the samples of the unit tests.
#include "Dns.h"
#include "Frames.h"
#include "RecordingSeeds.h"
#include "Samples.h"
#include "wicket/Samples.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace {

constexpr unsigned kMessage = 4;
constexpr unsigned kRamp = 5;
constexpr unsigned kBlock = 6;
constexpr unsigned kMarker = 7;
constexpr unsigned kReply = 8;
constexpr unsigned kRecord = 9;
constexpr unsigned kSilence = 10;
constexpr unsigned kFailure = 11;
constexpr unsigned kCancel = 12;
constexpr unsigned kEnd = 13;
constexpr unsigned kEmpty = 14;
constexpr unsigned kProperties = 15;

class Folder {
public:
    Folder(const std::filesystem::path& all, const char* target) : path_(all / target)
    {
        std::filesystem::create_directories(path_);
    }
    void write(const std::string& name, const Bytes& bytes) const
    {
        std::ofstream file(path_ / name, std::ios::binary);
        file.write(reinterpret_cast<const char*>(bytes.data()),
                   static_cast<std::streamsize>(bytes.size()));
    }

private:
    std::filesystem::path path_;
};

Bytes item(unsigned kind, unsigned size = 0, const Bytes& bytes = {})
{
    const unsigned word = kind << 12 | size;
    return Bytes{static_cast<unsigned char>(word), static_cast<unsigned char>(word >> 8)} + bytes;
}

Bytes withBytes(unsigned kind, const Bytes& bytes)
{
    return item(kind, static_cast<unsigned>(bytes.size()), bytes);
}

// Of fuzz::Settings: 75 dpi and an inch each way unless said otherwise.
Bytes settings(unsigned char mode, unsigned char image, unsigned char dpi = 74)
{
    return {mode, image, dpi, 0, 0, 40, 255};
}

Bytes uncompressedPage(unsigned blocks, unsigned size)
{
    Bytes script = item(kMarker, 0, {75, 75, 0, 0, 0});
    for (unsigned i = 0; i < blocks; ++i) {
        script = script + item(kRamp, size);
    }
    return script + item(kRecord, 1);
}

Bytes interleavedPage()
{
    Bytes script = item(kMarker, 0, {20, 10, 1, 0, 0x82});
    for (int i = 0; i < 4; ++i) {
        script = script + item(kRamp, 55);
    }
    return script + item(kRecord, 1);
}

Bytes chunk(samples::Pattern pattern, int width, int lines, int channels)
{
    return samples::chunkOf(samples::page(pattern, width, lines, channels), 75);
}

Bytes compressedPage(int channels)
{
    const Bytes stream = chunk(samples::Pattern::gradient, 10, 8, channels) +
                         chunk(samples::Pattern::text, 10, 2, channels);
    return item(kMarker, 0, {10, 10, 0, 0, 0}) + withBytes(kBlock, stream) + item(kRecord, 1);
}

Bytes troubles()
{
    return item(kMarker, 0, {75, 75, 0, 0, 0}) + item(kRamp, 100) + item(kSilence, 5) +
           item(kFailure) + item(kCancel) + item(kEmpty) + item(kRecord, 18) + item(kRecord, 5) +
           item(kReply) + item(kProperties) + item(kEnd);
}

void writeTexts(const std::filesystem::path& all)
{
    const Folder conf(all, "conf");
    conf.write("models", text("# Models\nusb 0x1234 0x3260 /a/b.ini Quillon_Flatbed\n"
                              "usb 4321 4022 /c.ini Oxle_1\nusb 1234 3260 /late.ini Late\n\n"));
    conf.write("odd", text("usb 12345678901 -1 p m\n  usb 1 2 x y z\r\nusb 1 2\nscsi 1 2 3 4"));
    conf.write("long", text("usb 1 2 " + std::string(4100, 'p') + " m\n"));
    const Folder features(all, "features");
    features.write("model",
                   text("# Model\n[INTEGERS]\nCOMMANDVERSION=402\nCURRENTDPI=300\nCOLORDEPTH=3\n"
                        "BGRTORGB=1\nFLATBEDSIDEFLIP=1\nCOLORCORRECT=1\nSCANBARID=1\n[DOUBLES]\n"
                        "CURRENTTLX=0.0\nCURRENTBRX=215.9\nCURRENTBRY=279.4\n[STRINGS]\n"
                        "SCLIB=correct.so\nSCFUNC=f\nCOLORLUT=c0.bin\nGRAYLUT=g0.bin\n"));
    features.write("odd", text("[INTEGERS]\nA=1=B=2\n=3\nLINES=5\nCURRENTDPI=-99999999999\n"
                               "[DOUBLES]\nCURRENTBRX=1e300\nCURRENTBRY=nan\nCURRENTTLX=-inf\n"
                               "CURRENTTLY=0x1p9\n[NONE]\nkey = value\n"));
    features.write("long", text("[STRINGS]\nk=" + std::string(4200, 'v') + "\n"));
}

void writeReplies(const std::filesystem::path& all)
{
    const Folder replies(all, "replies");
    const Bytes whole = properties(2, {source(1, 0, {{75, 75}, {300, 300}, {300, 600}}),
                                       source(2, 1, {{75, 75}, {600, 600}})});
    for (unsigned char mode = 0; mode < 8; ++mode) {
        replies.write("properties" + std::to_string(mode), settings(mode, 0) + whole);
    }
    for (int id = 0; id < 8; ++id) {
        replies.write("reply" + std::to_string(id), settings(0, 0) + replyTo(id));
    }
    Bytes session = settings(2, 0) + withBytes(kMessage, whole);
    for (int id = 1; id < 7; ++id) {
        session = session + item(kReply);
    }
    replies.write("session", session);
    replies.write("troubles", settings(1, 0) + troubles());
}

void writeStreams(const std::filesystem::path& all)
{
    const Folder usb(all, "usb_image");
    const Folder net(all, "network");
    const auto both = [&](const std::string& name, const Bytes& page) {
        usb.write(name, page);
        net.write(name, Bytes{0} + page);
        net.write(name + "-cut", Bytes{7} + page);
        const Bytes start = withBytes(0, frameHeader(0)) + item(kProperties) + item(kReply) +
                            item(kReply) + item(kReply) + item(kReply);
        net.write(name + "-raw", Bytes{0x80} + Bytes(page.begin(), page.begin() + 7) + start +
                                     Bytes(page.begin() + 7, page.end()));
    };
    for (unsigned char version = 0; version < 3; ++version) {
        const auto feeder = static_cast<unsigned char>(version | 16);
        const std::string suffix = std::to_string(version);
        both("grey" + suffix, settings(version, 0) + uncompressedPage(3, 1875));
        both("colour" + suffix, settings(version, 1 | 2 | 4) + uncompressedPage(5, 3375));
        both("short" + suffix, settings(version, 1 | 4 | 32 | 64, 9) + uncompressedPage(1, 300));
        both("interleaved" + suffix, settings(version, 1, 9) + interleavedPage());
        both("compressed" + suffix, settings(version, 16 | 1, 9) + compressedPage(3));
        both("greyCompressed" + suffix, settings(version, 16, 9) + compressedPage(1));
        both("troubles" + suffix, settings(feeder, 8) + troubles());
        both("sheets" + suffix,
             settings(feeder, 1 | 8, 9) + uncompressedPage(1, 300) + uncompressedPage(1, 150));
    }
    for (const unsigned length : {39991U, 39992U, 79991U, 79992U, 0x7FFFFFF0U, 0x80000000U}) {
        Bytes frame = Bytes{0} + settings(0, 0, 9) + withBytes(0, frameHeader(length));
        for (int i = 0; i < 20; ++i) {
            frame = frame + item(kRamp, 4080);
        }
        net.write("frame" + std::to_string(length), frame + item(kRecord, 1));
        frame[0] = 0x80;
        const Bytes greeted = Bytes(frame.begin(), frame.begin() + 8) +
                              withBytes(0, frameHeader(0)) + Bytes(frame.begin() + 8, frame.end());
        net.write("reply" + std::to_string(length), greeted);
    }
    net.write("frames", Bytes{0} + settings(0, 0, 9) +
                            withBytes(0, frame(imageBlock(ramp(50))) + frame(imageBlock(ramp(50))) +
                                             frame(record(1))));
}

void writeFrames(const std::filesystem::path& all)
{
    const Folder frames(all, "hbn3");
    const Bytes one = frame(ramp(30));
    frames.write("whole", Bytes{0, 39} + one + Bytes{0x80, 39} + one + Bytes{0x80});
    frames.write("cut", Bytes{0, 5} + Bytes(one.begin(), one.begin() + 5) + Bytes{34} +
                            Bytes(one.begin() + 5, one.end()) + Bytes{0x80});
    frames.write("many", {0, 0xFC, 1, 44,   0xFD, 1,    0x80, 0xFD, 2,    0xFD, 3,   0xFD,
                          4, 0xFD, 5, 0xFD, 6,    0xFD, 7,    0x80, 0xFE, 0xFF, 0x80});
    frames.write("negative", Bytes{0, 9} + frameHeader(0x80000000U) + Bytes{0x80, 9} +
                                 frameHeader(2) + Bytes{0x80, 2, 1, 2, 0x80});
}

void writeAnswers(const std::filesystem::path& all)
{
    const Folder answers(all, "discovery");
    const auto packet = [](const Bytes& bytes) {
        return Bytes{static_cast<unsigned char>(bytes.size()),
                     static_cast<unsigned char>(bytes.size() >> 8)} +
               bytes;
    };
    const Bytes one = answerWith(scannerStrings());
    answers.write("one", Bytes{0} + packet(one));
    answers.write("two", Bytes{1} + packet(one) + packet(answerWith(scannerStrings(1))));
    answers.write("id", Bytes{0} + packet(answerWith({"IPADDRESS 10.0.0.9", "MACUAA 0",
                                                      "1284STRID \"MFG:Quillon;MDL:A/B:C;\"",
                                                      "PRINTERVIDPID 43214022", "IPNETMASK \"\"",
                                                      "MDNSNAME \"x\""})));
    answers.write("question",
                  Bytes{0} + packet(dnsHeader(1, 2) + serviceName() + Bytes(4) +
                                    dnsRecord(serviceName(), 33, ramp(8)) +
                                    dnsRecord(serviceName(), 16, dnsStrings(scannerStrings(2)))));
    answers.write(
        "long", Bytes{0} + packet(answerWith({"ADAPTERNAME \"" + std::string(230, 'm') + "\"",
                                              "IPADDRESS \"" + std::string(60, '1') + "\"",
                                              "MACUAA \"00104F\"", "PRINTERVIDPID \"12343260\""})));
}

void writeChunks(const std::filesystem::path& all)
{
    const Folder codec(all, "codec");
    const Folder pages(all, "decompress");
    int number = 0;
    for (const samples::Pattern pattern : samples::kPatterns) {
        for (const int channels : {1, 3}) {
            const std::string name = std::to_string(number++);
            const auto mode = static_cast<unsigned char>(channels == 3 ? 1 : 0);
            const Bytes body = samples::encode(samples::page(pattern, 24, 8, channels), 75);
            const Bytes whole = chunk(pattern, 20, 8, channels);
            codec.write("plane" + name, Bytes{mode, 2, 0, 76} + body);
            codec.write("chunk" + name, Bytes{static_cast<unsigned char>(mode | 4), 20, 8, 0, 8} +
                                            whole + chunk(pattern, 20, 3, channels));
            pages.write("page" + name, Bytes{mode, 19, 10, 5} + whole +
                                           chunk(pattern, 20, 3, channels) + Bytes(3));
            for (const int cut : {0, 2}) {
                pages.write("cut" + name + std::to_string(cut),
                            Bytes{mode, 19, 10, static_cast<unsigned char>(cut)} + whole +
                                chunk(pattern, 20, 3, channels));
            }
            pages.write("cut" + name,
                        Bytes{mode, 19, 10, 200} + Bytes(whole.begin(), whole.end() - 9) + whole);
        }
    }
    samples::BitWriter extreme;
    for (int i = 0; i < 17; ++i) {
        extreme.dc(2047, 0).ac(15, 0, 0).ac(3, -1023, 0).endOfBlock(0);
    }
    codec.write("extreme", Bytes{0, 16, 0, 101} + extreme.finish());
    pages.write("impossible", Bytes{0, 19, 10, 5, 0xFF, 0xFF, 0xFF, 0xFF, 1, 2, 3});
    pages.write("empty", Bytes{0, 19, 10, 5, 0, 0, 0, 0, 0, 0, 0, 0});
}

void writeSessions(const std::filesystem::path& all)
{
    const Folder library(all, "library");
    const auto session = [&](const std::string& name, unsigned char mode, const Bytes& with,
                             const Bytes& calls, const Bytes& script) {
        library.write(name, Bytes{mode} + with + Bytes{static_cast<unsigned char>(calls.size())} +
                                calls + script);
    };
    const Bytes scanning = {3, 7, 8, 7, 11, 0, 8, 11, 9, 14};
    const Bytes options = {4, 2, 5, 2, 75, 0, 0, 0, 5, 3,  1, 5, 4, 1, 5, 5,  1, 0,
                           0, 0, 5, 7, 0,  0, 1, 0, 5, 11, 3, 6, 2, 7, 8, 11, 0};
    const Bytes sheets = uncompressedPage(2, 1875) + uncompressedPage(1, 100);
    for (const int scanner : {0, 2}) {
        const auto network = static_cast<unsigned char>(scanner);
        const std::string suffix = network != 0 ? "-net" : "-usb";
        session("grey" + suffix, network, settings(0, 0), scanning, sheets);
        session("colour" + suffix, network, settings(2 | 16, 1 | 2 | 8 | 32), scanning, sheets);
        session("compressed" + suffix, network, settings(2, 16 | 1, 9), scanning,
                compressedPage(3));
        session("options" + suffix, network, settings(1, 0), options, sheets);
        session("troubles" + suffix, network, settings(0, 0), {8, 10, 9, 11, 9, 13, 1, 1, 8, 10, 9},
                troubles() + sheets);
        session("replies" + suffix, static_cast<unsigned char>(network | 1), settings(2, 0),
                scanning,
                (network != 0 ? withBytes(0, frameHeader(0)) : Bytes()) + item(kReply) +
                    item(kProperties) + item(kReply) + item(kReply, 0x280) + item(kReply) +
                    item(kReply) + sheets);
        session("cancels" + suffix, network, settings(0, 0), {8, 10, 9, 13, 8, 11, 9, 14, 1, 0},
                item(kRamp, 999) + item(kCancel) + item(kRamp, 999) + sheets);
    }
}

void writeRecordings(const std::filesystem::path& all)
{
    const Folder trace(all, "trace");
    for (const auto& [name, contents] : recordingSeeds()) {
        trace.write(name, text(contents));
    }
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "Usage: fuzz_seeds FOLDER\n");
        return 2;
    }
    writeTexts(argv[1]);
    writeReplies(argv[1]);
    writeStreams(argv[1]);
    writeFrames(argv[1]);
    writeAnswers(argv[1]);
    writeChunks(argv[1]);
    writeSessions(argv[1]);
    writeRecordings(argv[1]);
    return 0;
}
