// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Recording.h"

#include <fstream>
#include <stdexcept>

namespace standin {

namespace {

void put(std::ostream& file, std::uint32_t number)
{
    file.write(reinterpret_cast<const char*>(&number), sizeof number);
}

void put(std::ostream& file, const Bytes& bytes)
{
    put(file, static_cast<std::uint32_t>(bytes.size()));
    file.write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
}

std::uint32_t getNumber(std::istream& file)
{
    std::uint32_t number = 0;
    if (!file.read(reinterpret_cast<char*>(&number), sizeof number)) {
        throw std::runtime_error("a recording ends too early");
    }
    return number;
}

Bytes getBytes(std::istream& file)
{
    Bytes bytes(getNumber(file));
    file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return bytes;
}

}  // namespace

std::uint32_t Recording::numberOf(const Bytes& transfer)
{
    const std::string key(transfer.begin(), transfer.end());
    const auto [known, isNew] =
        numbers_.emplace(key, static_cast<std::uint32_t>(transfers_.size()));
    if (isNew) {
        transfers_.push_back(transfer);
    }
    return known->second;
}

void Recording::addAnswer(const Bytes& transfer)
{
    if (!exchanges_.empty()) {
        exchanges_.back().answers.push_back(numberOf(transfer));
    }
}

void Recording::save(const std::string& path) const
{
    std::ofstream file(path, std::ios::binary);
    put(file, static_cast<std::uint32_t>(vendorId));
    put(file, static_cast<std::uint32_t>(productId));
    put(file, static_cast<std::uint32_t>(transfers_.size()));
    for (const Bytes& transfer : transfers_) {
        put(file, transfer);
    }
    put(file, static_cast<std::uint32_t>(exchanges_.size()));
    for (const Exchange& exchange : exchanges_) {
        put(file, exchange.command);
        put(file, static_cast<std::uint32_t>(exchange.answers.size()));
        for (const std::uint32_t number : exchange.answers) {
            put(file, number);
        }
    }
    if (!file.flush()) {
        throw std::runtime_error("cannot write " + path);
    }
}

void Recording::load(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error("cannot read " + path);
    }
    vendorId = static_cast<int>(getNumber(file));
    productId = static_cast<int>(getNumber(file));
    for (std::uint32_t left = getNumber(file); left > 0; --left) {
        transfers_.push_back(getBytes(file));
    }
    for (std::uint32_t left = getNumber(file); left > 0; --left) {
        addCommand(getBytes(file));
        std::vector<std::uint32_t>& answers = exchanges_.back().answers;
        answers.resize(getNumber(file));
        for (std::uint32_t& number : answers) {
            number = getNumber(file);
            if (number >= transfers_.size()) {
                throw std::runtime_error("a recording is broken");
            }
        }
    }
}

}  // namespace standin
