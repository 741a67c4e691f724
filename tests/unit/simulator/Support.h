// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "ModelFile.h"
#include "Scanner.h"

namespace scansim::test {

// A folder of its own for a test's files, gone afterwards.
class TempFolder {
public:
    TempFolder()
    {
        std::string name = (std::filesystem::temp_directory_path() / "simtest.XXXXXX").string();
        path_ = mkdtemp(name.data());
    }
    ~TempFolder() { std::filesystem::remove_all(path_); }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    std::string path(const std::string& name) const { return path_ + "/" + name; }

    std::string write(const std::string& name, const std::string& text) const
    {
        std::ofstream(path(name), std::ios::binary) << text;
        return path(name);
    }

private:
    std::string path_;
};

inline std::string readAll(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

// A model with a flatbed and a feeder, changed by "key=value" settings.
inline Model makeModel(const std::vector<std::string>& settings = {})
{
    TempFolder folder;
    const std::string path = folder.write("test.model",
                                          "sources = flatbed feeder\n"
                                          "flatbed.resolutions = 75 150x300 300 600\n"
                                          "feeder.resolutions = 75 300\n"
                                          "feeder.sheets = 2\n"
                                          "block-size = 1000\n");
    std::vector<ModelSetting> overrides;
    for (const std::string& setting : settings) {
        overrides.push_back(ModelFile::parseSetting(setting, "test", "."));
    }
    return ModelFile::load(path, overrides);
}

// What a host would send; every field can be set to a wrong value.
struct HostCommand {
    CommandId id = CommandId::Lock;
    std::uint32_t protocol = 326;
    std::uint8_t colour = 3;
    std::uint8_t compression = 0;
    std::uint8_t level = 0;
    std::uint8_t filter = 3;
    std::uint32_t pixels = 100;
    std::uint32_t lines = 20;
    std::uint32_t offsetX = 0;
    std::uint32_t offsetY = 0;
    std::uint16_t dpi = 75;
    std::uint16_t verticalDpi = 75;
    std::uint8_t source = 1;

    // Written out from the protocol's tables, apart from the simulator's own.
    Bytes bytes() const
    {
        static const std::uint8_t headers[][8] = {
            {0x1B, 0x53, 0x0F, 0, 0, 0, 0x00, 0},    {0x1B, 0x53, 0x04, 0, 0, 0, 0x80, 0},
            {0x1B, 0x53, 0x03, 0, 0, 0, 0x80, 0},    {0x1B, 0x53, 0x05, 0, 0x18, 0, 0x80, 0},
            {0x1B, 0x53, 0x01, 0, 0x18, 0, 0x80, 0}, {0x1B, 0x53, 0x06, 0, 0, 0, 0x80, 0},
            {0x1B, 0x44, 0x04, 0, 0, 0, 0x80, 0}};
        const std::uint8_t* header = headers[static_cast<int>(id)];
        Bytes out(header, header + 8);
        if (id != CommandId::Lock && id != CommandId::Start) {
            return out;
        }
        out.insert(out.end(), {colour, compression, level, filter});
        for (std::uint32_t value : {pixels, lines, offsetX, offsetY}) {
            for (int shift = 0; shift < 32; shift += 8) {
                out.push_back(static_cast<std::uint8_t>(value >> shift));
            }
        }
        for (std::uint16_t value : {dpi, verticalDpi}) {
            out.push_back(static_cast<std::uint8_t>(value & 0xFF));
            out.push_back(static_cast<std::uint8_t>(value >> 8));
        }
        if (protocol > 326) {
            out[4] = protocol == 401 ? 0x1A : 0x23;
            out.insert(out.end(), {source, 0});
        }
        if (protocol == 402) {
            out.insert(out.end(), {1, 1, 1, 0x00, 0x80, 0x00, 0x80, 1, 2});
        }
        return out;
    }
};

// The host's frame around a command.
inline Bytes npaFrame(const Bytes& command)
{
    const std::size_t pad = (4 - (command.size() + 20) % 4) % 4;
    const std::size_t total = command.size() + 20 + pad;
    Bytes out = {0xA5,
                 static_cast<std::uint8_t>((total - 3) >> 8),
                 static_cast<std::uint8_t>((total - 3) & 0xFF),
                 0x10,
                 0x01,
                 0x83,
                 0xAA,
                 0xBB,
                 0xCC,
                 0xDD,
                 0x02,
                 static_cast<std::uint8_t>(pad)};
    out.resize(out.size() + pad);
    out.insert(out.end(), command.begin(), command.end());
    out.insert(out.end(), {0xAA, 0xBB, 0xCC, 0xDD, 0xAA, 0xBB, 0xCC, 0xDD});
    return out;
}

// A scanner with all that it needs, and a host's view of it.
class Bench {
public:
    explicit Bench(const std::vector<std::string>& settings = {},
                   const std::string& recordPrefix = {})
        : model(makeModel(settings)), journal("bench"), recorder(recordPrefix)
    {
        for (const std::string& rule : model.faults) {
            faults.add(rule);
        }
        scanner = std::make_unique<Scanner>(model, faults, journal, recorder);
    }

    TransferResult send(const Bytes& bytes) { return scanner->write(bytes); }

    TransferResult send(CommandId id)
    {
        HostCommand command;
        command.id = id;
        return send(command.bytes());
    }

    TransferResult send(HostCommand command, CommandId id)
    {
        command.id = id;
        return send(command.bytes());
    }

    Bytes read(std::size_t capacity = 4096)
    {
        Bytes out;
        lastResult = scanner->read(capacity, out);
        return out;
    }

    // Locks and starts, and reads both replies.
    void begin(const HostCommand& command)
    {
        if (command.protocol == 402) {
            send(CommandId::Wake);
            read(512);
        }
        send(command, CommandId::Lock);
        read(512);
        send(command, CommandId::Start);
        read(512);
    }

    std::size_t complaints() const { return journal.complaints().size(); }

    Model model;
    FaultScript faults;
    Journal journal;
    PageRecorder recorder;
    std::unique_ptr<Scanner> scanner;
    TransferResult lastResult = TransferResult::Done;
};

}  // namespace scansim::test
