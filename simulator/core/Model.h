// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace scansim {

// The scanner's commands; the values are the numbers by which host software knows them.
enum class CommandId { Cancel, FeederStatus, Properties, Lock, Start, Unlock, Wake };
constexpr std::size_t kCommandCount = 7;

const char* commandName(CommandId id);

// What a scanner is connected by.
enum class Transport { Usb, Network };

enum class SourceKind { Flatbed, Feeder };

struct Resolution {
    std::uint32_t horizontal = 0;
    std::uint32_t vertical = 0;
    std::uint8_t depth = 24;
};

// Lengths of a source are in dots of 300 per inch, as its property record gives them.
struct Source {
    std::uint32_t type = 0;
    std::uint32_t barId = 0;
    std::uint32_t origin = 0;
    std::uint32_t width = 2552;
    std::uint32_t height = 3508;
    std::vector<Resolution> resolutions;
    std::vector<std::string> papers{"chart"};
    bool isMirrored = false;
};

// A string descriptor: text, none (descriptor index 0), or one whose reading stalls.
struct UsbString {
    enum class Kind { Text, Absent, Fails };
    Kind kind = Kind::Absent;
    std::string text;
};

struct UsbInterface {
    std::uint8_t interfaceClass = 255;
    std::vector<std::uint8_t> endpoints;
};

// How a scanner on the network speaks and how it answers those who look for one.
struct NetworkTraits {
    std::string ip;   // given by whoever makes the network, if empty
    std::string mac;  // 12 hexadecimal digits; likewise

    // The conversation.
    std::vector<std::uint32_t> frameSizes{8192};  // of image data, in turn
    std::optional<std::uint32_t> frameSeed;       // random sizes instead
    std::uint32_t segmentSize = 0;                // of each write to the socket; 0: a frame
    bool packsSegments = false;                   // as many frames as there are in one write
    bool refusesSecondHost = false;
    bool isPortClosed = false;

    // Answers to a search.
    std::string hostName;
    std::optional<std::string> adapterName;  // the product's, if not given; empty: left out
    std::optional<std::string> idString;     // likewise
    std::optional<std::uint32_t> vidPid;     // vendor ID << 16 | product ID
    bool hasQuotes = true;
    std::vector<std::string> leftOut;  // names of strings
    std::vector<std::string> extraStrings;
    std::vector<std::string> records{"txt"};
    bool repeatsQuestion = false;
    bool hasPointers = false;  // a compressed name, and the question that it points into
    std::uint32_t answers = 1;
    std::uint32_t answerDelayMs = 0;
    std::uint32_t garbageAnswers = 0;  // before the right one
    std::uint32_t foreignAnswers = 0;  // likewise
    std::uint32_t floodMs = 0;         // foreign answers for that long
};

// Everything that makes one simulated scanner different from another.
struct Model {
    std::string name;

    // What the backend is told about it.
    std::string featureFile;
    std::string modelName;

    // USB.
    std::uint32_t vendorId = 0;
    std::uint32_t productId = 0;
    UsbString vendor;
    UsbString product;
    std::uint32_t deviceClass = 0;
    std::vector<UsbInterface> interfaces;
    std::uint32_t scannerInterface = 0;
    std::uint32_t packetSize = 512;
    bool isReadOnly = false;
    bool hasKernelDriver = false;

    // Protocol.
    std::uint32_t protocol = 326;
    bool usesNpa = false;
    std::uint32_t compression = 0;
    std::uint32_t compressionLevel = 0;
    std::array<std::uint32_t, kCommandCount> statuses{};

    // Property records.
    std::uint32_t majorVersion = 1;
    std::uint32_t minorVersion = 0;
    std::uint32_t codeset = 0;
    std::uint32_t compressionTechnique = 0;
    std::uint32_t colourAlignment = 0;
    std::uint32_t greyAlignment = 0;
    std::vector<SourceKind> sources;
    Source flatbed;
    Source feeder;

    // Feeder.
    std::uint32_t sheets = 0;
    std::uint32_t sheetHeight = 0;

    // The image stream.
    bool isInterleaved = false;
    std::uint32_t interleaveOffsetX = 0;
    std::uint32_t interleaveTrim = 0;
    bool isCompressed = false;
    std::uint32_t bandLines = 32;
    std::vector<int> qualities{75};  // of the chunks of a page in turn
    bool isBgr = false;
    bool isFlipped = false;
    std::uint32_t blockSize = 16384;
    bool packsBlocks = false;
    std::uint32_t blockDelayMs = 0;
    std::uint32_t blocksAfterCancel = 0;

    NetworkTraits network;

    std::vector<std::string> faults;

    // A capture that is played instead; empty: none.
    std::string replay;

    bool has(SourceKind kind) const;
    const Source& source(SourceKind kind) const;
};

// Length of the header before each image block, and by how much its length field exceeds the data.
struct BlockFraming {
    std::size_t headerSize;
    std::size_t lengthSurplus;
};

BlockFraming blockFraming(std::uint32_t protocol);

}  // namespace scansim
