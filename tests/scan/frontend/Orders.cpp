// SPDX-License-Identifier: LGPL-2.1-or-later
// Options in all orders: every pair of changes, and random sequences; between them parameters and
// scans. A model says what has to come of each step.
#include "Chance.h"
#include "Commands.h"
#include "Model.h"
#include "Page.h"
#include "Progress.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace frontend {

namespace {

constexpr std::uint64_t kMostBytes = 500000;  // of a page that is read to its end
constexpr int kSteps = 12;                    // of a random sequence

struct Counts {
    long changes = 0;
    long refused = 0;  // changes
    long pages = 0;
    long cancelled = 0;
    long failed = 0;  // starts
};

void requireDescriptor(const SANE_Option_Descriptor* option)
{
    require(option != nullptr && option->name != nullptr && option->title != nullptr &&
                option->desc != nullptr,
            "a descriptor without its texts");
    const bool isText = option->type == SANE_TYPE_STRING;
    require((option->constraint_type == SANE_CONSTRAINT_STRING_LIST) == isText, "constraint");
    require(option->type == SANE_TYPE_GROUP || option->size >= 4, "size");
    for (int i = 0; isText && option->constraint.string_list[i] != nullptr; ++i) {
        require(
            std::strlen(option->constraint.string_list[i]) < static_cast<std::size_t>(option->size),
            "a text that does not fit");
    }
}

// One opened device and its model.
class Run {
public:
    Run(const std::string& name, Chance& chance, Counts& counts)
        : scanner_(name),
          model_(scanner_),
          device_(numberOf(name)),
          chance_(chance),
          counts_(counts)
    {
    }

    void change(const Change& change)
    {
        trace_ += " " + change.option + "=" + change.text + std::to_string(change.word);
        check([&] {
            std::vector<char> text(change.text.begin(), change.text.end());
            text.push_back('\0');
            SANE_Word word = change.word;
            SANE_Int info = -1;
            const int number = scanner_.option(change.option);
            const bool isText = scanner_.descriptor(number)->type == SANE_TYPE_STRING;
            void* value = isText ? static_cast<void*>(text.data()) : &word;
            SANE_Int* wanted = chance_.oneIn(4) ? nullptr : &info;
            const SANE_Status status =
                scanner_.control(number, SANE_ACTION_SET_VALUE, value, wanted);
            const Outcome expected = model_.change(change);
            require(status == expected.status, "status " + std::to_string(status));
            require(wanted == nullptr || info == expected.info, "info " + std::to_string(info));
            require(isText || word == expected.word, "given back " + std::to_string(word));
            ++(status == SANE_STATUS_GOOD ? counts_.changes : counts_.refused);
            if ((expected.info & SANE_INFO_RELOAD_OPTIONS) != 0) {
                requireDescriptors();
            }
            model_.compare();
        });
    }

    void askForParameters()
    {
        trace_ += " parameters";
        check([&] {
            const SANE_Parameters parameters = scanner_.parameters();
            requireExtent(parameters, model_.parameters());
            model_.compare();
        });
    }

    void scan()
    {
        trace_ += " scan";
        check([&] {
            const SANE_Status expected = model_.start();
            const SANE_Status status = scanner_.start();
            require(status == expected, "start: status " + std::to_string(status));
            if (status == SANE_STATUS_GOOD) {
                readFrame();
            } else {
                ++counts_.failed;
            }
            model_.compare();
        });
    }

    void randomStep()
    {
        if (chance_.oneIn(6)) {
            scan();
        } else if (chance_.oneIn(6)) {
            askForParameters();
        } else {
            change(randomChange());
        }
    }

    // Of each option some values that it takes and one that it does not.
    static const std::vector<Change>& changes()
    {
        static const std::vector<Change> all = {
            {"resolution", 75, ""},
            {"resolution", 150, ""},
            {"resolution", 300, ""},
            {"resolution", 600, ""},
            {"resolution", 100, ""},
            {"mode", 0, "24-bit Color"},
            {"mode", 0, "8-bit Grayscale"},
            {"mode", 0, "Gray"},
            {"source", 0, "Flatbed"},
            {"source", 0, "Automatic Document Feeder"},
            {"source", 0, "ADF"},
            {"preview", SANE_FALSE, ""},
            {"preview", SANE_TRUE, ""},
            {"tl-x", SANE_FIX(12.3), ""},
            {"tl-y", SANE_FIX(45.6), ""},
            {"br-x", SANE_FIX(51.9), ""},
            {"br-y", SANE_FIX(78.1), ""},
            {"br-x", SANE_FIX(2000), ""},
            {"tl-y", SANE_FIX(-1), ""},
            {"media", 0, "4 x 6 in"},
            {"media", 0, "Kakugata 3 (216 x 277 mm)"},
            {"media", 0, "Legal (8 1/2 x 14 in)"},
            {"media", 0, ""},
        };
        return all;
    }

private:
    // What fails is told with the steps that led there.
    template <typename Body>
    void check(Body body) const
    {
        try {
            body();
        } catch (const Failed& failure) {
            throw Failed(std::string(failure.what()) + " behind:" + trace_);
        }
    }

    void requireDescriptors() const
    {
        for (int i = 0; i < Scanner::kOptions; ++i) {
            requireDescriptor(scanner_.descriptor(i));
        }
        require(scanner_.descriptor(Scanner::kOptions) == nullptr, "one descriptor too many");
    }

    void requireExtent(const SANE_Parameters& parameters, const Extent& expected) const
    {
        const int slack = model_.isRounded() ? 1 : 0;
        const std::string what = std::to_string(parameters.pixels_per_line) + " x " +
                                 std::to_string(parameters.lines) + " instead of " +
                                 std::to_string(expected.pixels) + " x " +
                                 std::to_string(expected.lines);
        require(std::abs(parameters.pixels_per_line - expected.pixels) <= slack, what);
        require(std::abs(parameters.lines - expected.lines) <= slack, what);
        const int channels = model_.isColour() ? 3 : 1;
        require(parameters.bytes_per_line == parameters.pixels_per_line * channels, "bytes");
        require(parameters.format == (channels == 3 ? SANE_FRAME_RGB : SANE_FRAME_GRAY), "format");
        require(parameters.depth == 8 && parameters.last_frame == SANE_TRUE, "depth");
    }

    void readFrame()
    {
        const Extent frame = model_.frame();
        const std::uint64_t size = static_cast<std::uint64_t>(frame.pixels) *
                                   static_cast<std::uint64_t>(frame.lines) *
                                   (model_.isColour() ? 3 : 1);
        if (size > kMostBytes || chance_.oneIn(5)) {
            SANE_Byte block[1000];
            SANE_Int length = 0;
            sane_read(scanner_.handle(), block, chance_.upTo(1000), &length);
            scanner_.cancel();
            takeRecorded(device_);
            ++counts_.cancelled;
            return;
        }
        // A preview's parameters are those of its own resolution, whatever is scanned.
        if (!model_.isPreview() && chance_.oneIn(2)) {
            const SANE_Parameters parameters = scanner_.parameters();
            model_.parameters();
            readToEnd(static_cast<std::uint64_t>(parameters.bytes_per_line) *
                          static_cast<std::uint64_t>(parameters.lines),
                      0);
        } else {
            readToEnd(size, model_.isRounded() ? size / 20 : 0);
        }
    }

    void readToEnd(std::uint64_t size, std::uint64_t slack)
    {
        static const std::vector<std::size_t> sizes = {997, 8188, 32768, 1 << 20};
        Digest page;
        const SANE_Status ended = readPage(scanner_, &page, chance_.of(sizes));
        require(ended == SANE_STATUS_EOF, "end: status " + std::to_string(ended));
        require(page.bytes <= size + slack && page.bytes + slack >= size,
                std::to_string(page.bytes) + " bytes instead of " + std::to_string(size));
        require(page == takeRecorded(device_), "the page is not the recorded one");
        ++counts_.pages;
        if (chance_.oneIn(2)) {
            scanner_.cancel();
        }
    }

    Change randomChange()
    {
        Change change = chance_.of(changes());
        const SANE_Constraint_Type type =
            scanner_.descriptor(scanner_.option(change.option))->constraint_type;
        if (type == SANE_CONSTRAINT_RANGE && !chance_.oneIn(8)) {
            // Mostly small areas near one corner, that are quickly scanned.
            const int far = change.option[0] == 'b' ? 30 : 0;
            change.word = (far << 16) + chance_.upTo(60 << 16);
        }
        return change;
    }

    Scanner scanner_;
    Model model_;
    int device_;
    Chance& chance_;
    Counts& counts_;
    std::string trace_;
};

void everyPair(const std::string& name, Chance& chance, Counts& counts)
{
    for (const Change& first : Run::changes()) {
        for (const Change& second : Run::changes()) {
            Run run(name, chance, counts);
            run.change({"br-x", SANE_FIX(70), ""});
            run.change({"br-y", SANE_FIX(80), ""});
            run.change(first);
            run.change(second);
            if (chance.oneIn(2)) {
                run.askForParameters();
            }
            run.scan();
            run.scan();
        }
    }
}

}  // namespace

// SEQUENCES SEED [pairs]: on a device with a feeder that never gets empty.
void orders(const Arguments& arguments)
{
    const long count = number(arguments, 0);
    Chance chance(static_cast<unsigned>(number(arguments, 1)));
    Counts counts;
    Session session;
    const std::vector<std::string> names = session.list();
    require(names.size() == 1, "one device is needed");
    Progress progress("sequences", count);
    if (arguments.size() > 2) {
        everyPair(names[0], chance, counts);
    }
    for (long i = 1; i <= count; ++i) {
        Run run(names[0], chance, counts);
        for (int step = 0; step < kSteps; ++step) {
            run.randomStep();
        }
        progress.reached(i);
    }
    std::printf(
        "%ld sequences in %.1f s: %ld changes, %ld refused, %ld pages whole, "
        "%ld cancelled, %ld starts refused\n",
        count, progress.seconds(), counts.changes, counts.refused, counts.pages, counts.cancelled,
        counts.failed);
}

}  // namespace frontend
