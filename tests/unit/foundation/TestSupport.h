// SPDX-License-Identifier: LGPL-2.1-or-later
// Small helpers that the unit tests share.
#pragma once

#include "ConfigReader.h"
#include "DataBuffer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <numeric>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using Bytes = std::vector<unsigned char>;
using Lines = std::vector<std::string>;

inline int sizeOf(const Bytes& bytes)
{
    return static_cast<int>(bytes.size());
}

// n bytes that count up from first.
inline Bytes counting(int n, int first = 0)
{
    Bytes bytes(static_cast<std::size_t>(n));
    std::iota(bytes.begin(), bytes.end(), static_cast<unsigned char>(first));
    return bytes;
}

inline Bytes operator+(Bytes left, const Bytes& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

inline Bytes slice(const Bytes& bytes, int from, int to)
{
    return {bytes.begin() + from, bytes.begin() + to};
}

// Names the cases of a parametrised test by their field of that name.
struct CaseName {
    template <typename Case>
    std::string operator()(const testing::TestParamInfo<Case>& info) const
    {
        return info.param.name;
    }
};

// ---- random input with a fixed seed ------------------------------------------

class Random {
public:
    explicit Random(unsigned seed) : engine(seed) {}

    // A number from low to high, both included.
    int pick(int low, int high) { return std::uniform_int_distribution<int>(low, high)(engine); }
    unsigned char byte() { return static_cast<unsigned char>(pick(0, 255)); }
    Bytes bytes(int n)
    {
        Bytes result(static_cast<std::size_t>(n));
        for (unsigned char& value : result) {
            value = byte();
        }
        return result;
    }

private:
    std::mt19937 engine;
};

// ---- surroundings ---------------------------------------------------------------

// Sets or, with null, unsets a variable of the environment, and puts it back.
class EnvironmentGuard {
public:
    EnvironmentGuard(std::string name, const char* value) : variable(std::move(name))
    {
        if (const char* old = getenv(variable.c_str())) {
            before = old;
        }
        set(value);
    }
    EnvironmentGuard(const EnvironmentGuard&) = delete;
    EnvironmentGuard& operator=(const EnvironmentGuard&) = delete;
    ~EnvironmentGuard() { set(before ? before->c_str() : nullptr); }

    void set(const char* value) const
    {
        if (value != nullptr) {
            setenv(variable.c_str(), value, 1);
        } else {
            unsetenv(variable.c_str());
        }
    }

private:
    std::string variable;
    std::optional<std::string> before;
};

// A folder of its own for the files of one test.
class TempFolder {
public:
    TempFolder()
    {
        std::string name = testing::TempDir() + "unit-XXXXXX";
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("no temporary folder");
        }
        folder = name;
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;
    ~TempFolder()
    {
        for (const std::string& file : files) {
            unlink(file.c_str());
        }
        rmdir(folder.c_str());
    }

    const std::string& path() const { return folder; }
    std::string missing() const { return folder + "/missing"; }

    std::string file(const std::string& name, const std::string& content)
    {
        const std::string result = add(name);
        std::ofstream(result, std::ios::binary) << content;
        return result;
    }
    // A file that exists but that nobody, root included, can open.
    std::string unopenable()
    {
        const std::string result = add("socket");
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        result.copy(address.sun_path, sizeof address.sun_path - 1);
        const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
        if (bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
            throw std::runtime_error("no socket in " + folder);
        }
        close(fd);
        return result;
    }

private:
    std::string add(const std::string& name)
    {
        files.push_back(folder + "/" + name);
        return files.back();
    }

    std::string folder;
    Lines files;
};

// An option store that is filled by its setters only.
class TestStore : public ConfigReader {
public:
    TestStore() = default;
    TestStore(std::initializer_list<std::pair<const char*, int>> ints)
    {
        for (const auto& [key, value] : ints) {
            SetIntOption(key, value);
        }
    }
    int LoadConfig(const char*) override { return 0; }

    // A window in dots at 300 dpi from the origin. Half a dot keeps the truncation away
    // from the next lower number.
    void setWindow(int width, int height)
    {
        SetIntOption("CURRENTDPI", 300);
        SetDoubleOption("CURRENTBRX", (width + 0.5) * 25.4 / 300);
        SetDoubleOption("CURRENTBRY", (height + 0.5) * 25.4 / 300);
    }
};

// ---- stores -------------------------------------------------------------------

inline Bytes allBytes(const DataBuffer& buffer)
{
    Bytes bytes(static_cast<std::size_t>(buffer.GetAllDataSize()));
    buffer.GetAllData(bytes.data(), sizeOf(bytes));
    return bytes;
}

inline Bytes processedBytes(const DataBuffer& buffer)
{
    return slice(allBytes(buffer), 0, buffer.GetProcessedDataSize());
}

inline Bytes rawBytes(const DataBuffer& buffer)
{
    return slice(allBytes(buffer), buffer.GetProcessedDataSize(), buffer.GetAllDataSize());
}

inline void append(DataBuffer& buffer, const Bytes& raw)
{
    ASSERT_EQ(buffer.SetRawData(raw.data(), sizeOf(raw)), raw.empty() ? 0 : 1);
}

inline void fill(DataBuffer& buffer, const Bytes& processed, const Bytes& raw = {})
{
    append(buffer, processed);
    ASSERT_EQ(buffer.SetProcessedDataSize(sizeOf(processed)), 1);
    append(buffer, raw);
}

// ---- virtual functions -----------------------------------------------------------

// The place of a virtual function in its class's table; the destructor takes 0 and 1.
template <typename Member>
int virtualSlot(Member member)
{
    std::uintptr_t words[2] = {};
    static_assert(sizeof member == sizeof words);
    std::memcpy(words, &member, sizeof words);
    // Arm marks virtual functions in the second word, others with a one in the first.
    return static_cast<int>((words[0] & ~std::uintptr_t{1}) / sizeof(void*));
}

// ---- private members -------------------------------------------------------------

// PRIVATE_MEMBER(Class, member, Type) defines member(Class&) for a data member that no
// public function shows.
#define PRIVATE_MEMBER(Class, name, Type)                            \
    template <typename Tag, Type Class::*Pointer>                    \
    struct Expose_##name {                                           \
        friend Type& name(Class& object) { return object.*Pointer; } \
    };                                                               \
    struct Tag_##name {};                                            \
    Type& name(Class& object);                                       \
    template struct Expose_##name<Tag_##name, &Class::name>
