// SPDX-License-Identifier: LGPL-2.1-or-later
#include "CaptureFile.h"
#include "Dialogue.h"
#include "Input.h"
#include "Options.h"
#include "Redaction.h"

#include <algorithm>
#include <fstream>
#include <iostream>

namespace {

using trace::Conversation;
using trace::Options;
using trace::UsageError;

constexpr int kOdd = 1;
constexpr int kFailed = 2;

std::vector<Conversation> chosen(std::vector<Conversation> all, std::size_t only)
{
    if (only == 0) {
        return all;
    }
    if (only > all.size()) {
        throw UsageError("there are only " + std::to_string(all.size()) + " conversations");
    }
    return {std::move(all[only - 1])};
}

std::size_t print(const std::vector<Conversation>& conversations, const Options& options)
{
    std::size_t oddities = 0;
    for (std::size_t i = 0; i < conversations.size(); ++i) {
        std::cout << (i > 0 ? "\n" : "") << std::max(options.only, i + 1) << ": ";
        trace::Dialogue dialogue(conversations[i], {options.showsBytes}, std::cout);
        dialogue.print();
        oddities += dialogue.oddities();
    }
    return oddities;
}

void warnOfMadeUp(const Conversation& conversation)
{
    std::size_t madeUp = 0;
    for (const trace::Transfer& transfer : conversation.transfers) {
        madeUp += transfer.bytes.size() - transfer.known;
    }
    if (madeUp > 0) {
        std::cerr << "scanlib-trace: " << madeUp
                  << " bytes were not recorded; white ones take their place\n";
    }
}

void save(const std::vector<Conversation>& conversations, const std::string& path)
{
    const auto hasCommands = [](const Conversation& each) { return each.hasCommands(); };
    if (std::count_if(conversations.begin(), conversations.end(), hasCommands) != 1) {
        throw UsageError("choose one conversation with commands by --only");
    }
    const Conversation& conversation =
        *std::find_if(conversations.begin(), conversations.end(), hasCommands);
    std::ofstream file(path, std::ios::binary);
    writeCapture(conversation, file);
    warnOfMadeUp(conversation);
    if (!file.flush()) {
        throw std::runtime_error("cannot write " + path);
    }
}

int run(const Options& options)
{
    std::vector<Conversation> conversations = chosen(trace::readInput(options.input), options.only);
    if (conversations.empty()) {
        throw std::runtime_error("no conversation with a scanner in it");
    }
    if (options.isRedacted) {
        trace::redact(conversations);
    }
    if (!options.saveFile.empty()) {
        save(conversations, options.saveFile);
        return 0;
    }
    const std::size_t oddities = print(conversations, options);
    if (!std::cout.flush()) {
        throw std::runtime_error("what was found could not be written");
    }
    return oddities > 0 ? kOdd : 0;
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        const Options options = trace::parseOptions({argv + 1, argv + argc});
        if (options.wantsHelp) {
            std::cout << trace::kHelp;
            return 0;
        }
        try {
            return run(options);
        } catch (const UsageError&) {
            throw;
        } catch (const std::exception& error) {
            std::cerr << "scanlib-trace: " << options.input << ": " << error.what() << '\n';
        }
    } catch (const UsageError& error) {
        std::cerr << "scanlib-trace: " << error.what() << "; see --help\n";
    }
    return kFailed;
}
