// SPDX-License-Identifier: LGPL-2.1-or-later
#include "LogReader.h"

#include "../../src/HBN3.h"
#include "../../src/ICommunication.h"
#include "CommandKinds.h"
#include "Filling.h"
#include "LogLine.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <istream>
#include <map>
#include <optional>
#include <utility>

namespace trace {

namespace {

constexpr std::size_t kLongestTransfer = 1 << 20;
constexpr std::size_t kReplyRoom = 512;
constexpr std::size_t kFrameHeaderSize = HBN3::kHeaderSize;
constexpr std::size_t kMarkerSize = 31;
constexpr std::uint8_t kGood = 0x80;

bool startsWith(const std::string& text, const char* start)
{
    return text.rfind(start, 0) == 0;
}

// The number behind `label`.
std::optional<long> numberBehind(const std::string& text, const std::string& label)
{
    const std::size_t at = text.find(label);
    if (at == std::string::npos) {
        return std::nullopt;
    }
    return std::strtol(text.c_str() + at + label.size(), nullptr, 10);
}

void putLittle(Bytes& bytes, std::size_t offset, std::uint64_t value, std::size_t count)
{
    for (std::size_t i = 0; i < count && offset + i < bytes.size(); ++i) {
        bytes[offset + i] = static_cast<std::uint8_t>(value >> (8 * i));
    }
}

// Appends "1b 53 04" or "1B 53  4".
void appendHex(const std::string& text, Bytes& bytes)
{
    const char* at = text.c_str();
    char* end = nullptr;
    for (unsigned long value = std::strtoul(at, &end, 16); end != at;
         value = std::strtoul(at, &end, 16)) {
        bytes.push_back(static_cast<std::uint8_t>(value));
        at = end;
    }
}

// The fields of the page marker in the order in which they are logged, with their offsets.
constexpr std::pair<const char*, std::size_t> kMarkerLines[] = {{" -> width = ", 11},
                                                                {" -> height = ", 15},
                                                                {" -> offsetx = ", 19},
                                                                {" -> offsety = ", 23},
                                                                {" -> trim = ", 27}};

// What one thread has logged.
class Thread {
public:
    Thread(std::string name, Filling& filling) : filling_(&filling)
    {
        result_.name = std::move(name);
    }

    void add(const LogLine& line)
    {
        if (line.time) {
            time_ = *line.time;
        }
        if (!line.hasMark) {
            return addUnmarked(line.message);
        }
        // Others may be the second half of a message, or what a journal says of itself.
        result_.hasTimes = result_.hasTimes && line.time.has_value();
        endDump();
        if (line.function != "readReply") {
            endReply();
        }
        addMarked(line.function, line.message);
    }

    Conversation finish()
    {
        endDump();
        endReply();
        return std::move(result_);
    }

private:
    // What the next dump is.
    enum class Dump { None, Command, Reply };

    void say(Party from, Bytes bytes, std::size_t known)
    {
        Transfer transfer = Transfer::data(from, time_, std::move(bytes));
        transfer.known = std::min(known, transfer.bytes.size());
        result_.transfers.push_back(std::move(transfer));
    }

    void remark(const std::string& text)
    {
        result_.transfers.push_back(Transfer::remark(time_, text));
    }

    void addUnmarked(const std::string& message)
    {
        if (const auto size = dumpSize(message)) {
            endDump();
            dumpLeft_ = std::min(*size, kLongestTransfer);
            dump_.clear();
        } else if (dumpLeft_ > 0 &&
                   message.find_first_not_of("0123456789abcdef ") == std::string::npos) {
            const std::size_t before = dump_.size();
            appendHex(message, dump_);
            dumpLeft_ -= std::min(dumpLeft_, dump_.size() - before);
            if (dumpLeft_ == 0) {
                endDump();
            }
        }
    }

    void endDump()
    {
        if (dump_.empty()) {
            return;
        }
        if (dumpLeft_ > 0 && next_ != Dump::None) {
            result_.transfers.push_back(
                Transfer::oddity(time_, "a dump lacks " + std::to_string(dumpLeft_) + " bytes"));
        }
        dumpLeft_ = 0;
        const Bytes bytes = std::move(dump_);
        dump_.clear();
        const Dump what = std::exchange(next_, Dump::None);
        if (what == Dump::Command) {
            sendDump(bytes);
        } else if (what == Dump::Reply) {
            const ByteView payload = ByteView(bytes).from(kFrameHeaderSize);
            say(Party::Scanner, payload.copy(), payload.size());
        }
    }

    void sendDump(const Bytes& bytes)
    {
        if (HBN3::CheckHeader(bytes.data(), static_cast<int>(bytes.size())) == 0) {
            remark("host greets the scanner (HBN3 tickle)");
        } else {
            say(Party::Host, bytes, bytes.size());
        }
        command_.clear();
    }

    // Logged without ENABLE_SL_DUMP, too: "1B 0", a byte and its offset.
    static bool addByte(const std::string& message, Bytes& bytes)
    {
        unsigned value = 0;
        std::size_t offset = 0;
        if (std::sscanf(message.c_str(), "%2x %3zu", &value, &offset) != 2 ||
            offset != bytes.size()) {
            return false;
        }
        bytes.push_back(static_cast<std::uint8_t>(value));
        return true;
    }

    // The host logs its whole buffer: the reply itself says where it ends.
    void endReply()
    {
        if (reply_.empty()) {
            return;
        }
        const std::size_t announced = kHeaderSize + ByteView(reply_).little(4, 2);
        reply_.resize(std::min(reply_.size(), std::min(announced, kReplyRoom)));
        const std::size_t size = reply_.size();
        say(Party::Scanner, std::move(reply_), size);
        reply_.clear();
    }

    void addMarked(const std::string& function, const std::string& message)
    {
        if (startsWith(message, "[ERROR]") || startsWith(message, "[WARN]") ||
            startsWith(message, " -> read error") || startsWith(message, " -> write error")) {
            remark("the host says: " + printable(message));
        }
        if (function == "sendCommand") {
            addByte(message, command_);
        } else if (function == "Write" && message == "writing data on USB") {
            const std::size_t size = command_.size();
            next_ = size > 0 ? Dump::None : Dump::Command;
            if (size > 0) {
                say(Party::Host, std::move(command_), size);
                command_.clear();
            }
        } else if (function == "sendOnce" && message == "data to be sent") {
            result_.transport = Transport::Network;
            next_ = Dump::Command;
        } else if (function == "readReply") {
            addReplyLine(message);
        } else if (function == "openDevice" || function == "closeDevice") {
            addOpening(function, message);
        } else {
            addImageLine(function, message);
        }
    }

    void addReplyLine(const std::string& message)
    {
        if (message == "global buffer contents:") {
            next_ = Dump::Reply;
        } else {
            addByte(message, reply_);
        }
    }

    void addOpening(const std::string& function, const std::string& message)
    {
        if (message.find("METHOD START") != std::string::npos) {
            remark(function == "openDevice" ? "host opens the scanner" : "host closes the scanner");
        }
    }

    void addImageLine(const std::string& function, const std::string& message)
    {
        const bool isStart = message.find("METHOD START") != std::string::npos;
        if (function == "ReadImage" && isStart) {
            read_ = Read{};
        } else if (!read_) {
            return;
        } else if (const auto size = numberBehind(
                       message, function == "ReadImage" ? " -> size is " : "size of data part: ")) {
            read_->size = std::min(static_cast<std::size_t>(std::max(*size, 0L)), kLongestTransfer);
        } else if (function == "traceHeader" && !startsWith(message, " -> ")) {
            appendHex(message, read_->start);
        } else if (function == "processPageMarker") {
            addMarkerLine(message);
        } else if (function == "takeBlock" || function == "traceHeader") {
            read_->isImage =
                read_->isImage || message.find("image data acquired") != std::string::npos;
        } else if (const auto result = numberBehind(message, "METHOD END ::::::::::::::: ");
                   result && function == "ReadImage") {
            endRead(*result);
        }
    }

    void addMarkerLine(const std::string& message)
    {
        read_->isHalves = read_->isHalves || message == "interleaving is needed";
        for (const auto& [label, offset] : kMarkerLines) {
            if (const auto value = numberBehind(message, label)) {
                read_->marker.resize(kMarkerSize);
                putLittle(read_->marker, offset, static_cast<std::uint64_t>(*value), 4);
            }
        }
    }

    void endRead(long result)
    {
        const Read read = std::move(*read_);
        read_.reset();
        if (!read.size) {
            return;
        }
        const bool isRecord = !read.isImage && *read.size > kRecordOffset && result > 0 &&
                              result < 0x100 && result != RECORD_NO_DATA_YET;
        Bytes bytes = isRecord ? record(read, static_cast<std::uint8_t>(result)) : read.start;
        const std::size_t known = bytes.size();
        bytes.resize(std::min(known, *read.size));
        filling_->fill(bytes, *read.size);
        say(Party::Scanner, std::move(bytes), known);
        result_.transfers.back().isRebuilt = isRecord;
    }

    struct Read {
        std::optional<std::size_t> size;
        bool isImage = false;
        bool isHalves = false;
        Bytes start;
        Bytes marker;
    };

    // The host logs the geometry of a page marker, and the code of every record.
    static Bytes record(const Read& read, std::uint8_t code)
    {
        Bytes bytes = read.marker;
        bytes.resize(std::max(bytes.size(), kRecordOffset + 1));
        bytes[0] = kEscape;
        bytes[1] = kScanClass;
        bytes[2] = kImageCode;
        putLittle(bytes, 4, *read.size - kHeaderSize, 2);
        bytes[6] = kGood;
        bytes[kRecordOffset] = code;
        if (read.isHalves && bytes.size() > kRecordOffset + 2) {
            bytes[kRecordOffset + 2] = 1;
        }
        return bytes;
    }

    Filling* filling_;
    Conversation result_;
    std::uint64_t time_ = 0;
    std::size_t dumpLeft_ = 0;
    Bytes dump_;
    Dump next_ = Dump::None;
    Bytes command_;
    Bytes reply_;
    std::optional<Read> read_;
};

// The threads of the processes that have logged.
class Log {
public:
    void add(const std::string& text)
    {
        const LogLine line = readLogLine(text);
        if (line.hasMark) {
            last_[*line.process] = line.thread;
            lastProcess_ = *line.process;
            thread(*line.process, line.thread).add(line);
            return;
        }
        // Lines of dumps have no mark. They belong to the thread that logged last.
        const long process = line.process.value_or(lastProcess_);
        const auto found = last_.find(process);
        if (found != last_.end()) {
            thread(process, found->second).add(line);
        }
    }

    std::vector<Conversation> finish()
    {
        std::vector<Conversation> result;
        for (const auto& key : order_) {
            Conversation conversation = threads_.at(key).finish();
            if (conversation.hasCommands()) {
                result.push_back(std::move(conversation));
            }
        }
        return result;
    }

private:
    using Key = std::pair<long, std::string>;

    Thread& thread(long process, const std::string& name)
    {
        const Key key(process, name);
        const auto found = threads_.find(key);
        if (found != threads_.end()) {
            return found->second;
        }
        order_.push_back(key);
        const std::string title = "Process " + std::to_string(process) + ", thread " + name;
        return threads_.emplace(key, Thread(title, filling_)).first->second;
    }

    Filling filling_;
    std::map<Key, Thread> threads_;
    std::vector<Key> order_;
    std::map<long, std::string> last_;
    long lastProcess_ = 0;
};

}  // namespace

std::vector<Conversation> readLog(std::istream& in)
{
    Log log;
    std::string line;
    while (std::getline(in, line)) {
        log.add(line);
    }
    return log.finish();
}

}  // namespace trace
