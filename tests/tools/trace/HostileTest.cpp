// SPDX-License-Identifier: LGPL-2.1-or-later
// Whatever a recording holds, reading, printing, saving and redacting it comes to an end and
// touches no memory but its own.
#include "CaptureFile.h"
#include "Dialogue.h"
#include "Input.h"
#include "Redaction.h"
#include "Support.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

namespace {

using namespace tracetest;

constexpr int kRounds = 400;
constexpr std::size_t kMost = 20000;

std::string contents(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    std::string text(std::istreambuf_iterator<char>(file), {});
    return text.substr(0, kMost);
}

class Mutator {
public:
    explicit Mutator(unsigned seed) : random_(seed) {}

    std::string spoil(std::string text)
    {
        for (unsigned left = 1 + below(12); left > 0 && !text.empty(); --left) {
            spoilOnce(text);
        }
        return text;
    }

private:
    unsigned below(std::size_t limit) { return static_cast<unsigned>(random_() % limit); }

    void spoilOnce(std::string& text)
    {
        const std::size_t at = below(text.size());
        const std::size_t size = 1 + below(40);
        switch (below(6)) {
        case 0:
            text[at] = static_cast<char>(random_());
            break;
        case 1:
            text[at] = "\x00\xFF\x7F\x80\x1B"[below(5)];
            break;
        case 2:
            text.erase(at, size);
            break;
        case 3:
            text.insert(at, text.substr(below(text.size()), size));
            break;
        case 4:
            text.resize(at);
            break;
        default:
            text[at] = static_cast<char>(text[at] ^ 1 << below(8));
        }
    }

    std::minstd_rand random_;
};

// True if it could be read.
bool use(const TemporaryFile& file)
{
    try {
        std::vector<trace::Conversation> conversations = trace::readInput(file.path());
        for (int round = 0; round < 2; ++round) {
            for (const trace::Conversation& conversation : conversations) {
                printed(conversation, true);
                std::stringstream saved;
                trace::writeCapture(conversation, saved);
                EXPECT_EQ(trace::readCapture(saved).transfers.size(),
                          conversation.transfers.size());
            }
            trace::redact(conversations);
        }
        return true;
    } catch (const std::runtime_error&) {
        return false;
    }
}

TEST(TraceHostile, SpoiltRecordings)
{
    std::size_t samples = 0;
    for (const auto& entry : std::filesystem::directory_iterator(TRACE_SAMPLES)) {
        const std::string text = contents(entry.path());
        const TemporaryFile file(text);
        EXPECT_TRUE(use(file)) << entry.path();
        Mutator mutator(static_cast<unsigned>(++samples));
        for (int i = 0; i < kRounds; ++i) {
            file.write(mutator.spoil(text));
            use(file);
        }
    }
    EXPECT_GE(samples, 4U);
}

}  // namespace
