// SPDX-License-Identifier: LGPL-2.1-or-later
// What the SANE standard asks of a backend, call by call. Where this one is known to do otherwise,
// it has to go on doing exactly that: front ends cope with it.
#include "Commands.h"
#include "Page.h"
#include "Sane.h"

#include <cctype>
#include <cstdio>
#include <cstring>
#include <set>

namespace frontend {

namespace {

using Findings = std::set<std::string>;

const Findings kKnown = {
    "option 0 can be set",
    "preview takes a value that is neither true nor false",
    "the mode of input and output is not INVAL outside of a scan",
    "blocking reads cannot be chosen in a scan",
    "an option can be set in a scan",
};

class Probe {
public:
    explicit Probe(const std::string& name) : scanner_(name) {}

    Findings findings;

    void options()
    {
        for (int i = 0; i < Scanner::kOptions; ++i) {
            const SANE_Option_Descriptor* option = scanner_.descriptor(i);
            require(option != nullptr, "no descriptor");
            descriptor(i, *option);
            if (option->type != SANE_TYPE_GROUP) {
                refusals(i, *option);
                values(i, *option);
            }
        }
        for (const int outside : {-1, Scanner::kOptions, Scanner::kOptions + 50}) {
            expect(scanner_.descriptor(outside) == nullptr, "a descriptor outside");
        }
        SANE_Word count = 12;
        expect(scanner_.control(0, SANE_ACTION_SET_VALUE, &count, nullptr) == SANE_STATUS_INVAL,
               "option 0 can be set");
    }

    void scans()
    {
        const SANE_Option_Descriptor* modes = scanner_.descriptor(scanner_.option("mode"));
        const SANE_Option_Descriptor* dpi = scanner_.descriptor(scanner_.option("resolution"));
        const SANE_Word* words = dpi->constraint.word_list;
        for (int mode = 0; modes->constraint.string_list[mode] != nullptr; ++mode) {
            for (const SANE_Word resolution : {words[1], words[words[0]]}) {
                scanner_.set("mode", modes->constraint.string_list[mode]);
                scanner_.set("resolution", resolution);
                outside();
                partial();
                readWholePage(scanner_, 512 * 1024);
                scanner_.cancel();
            }
        }
    }

private:
    void expect(bool holds, const std::string& finding)
    {
        if (!holds) {
            findings.insert(finding);
        }
    }

    void descriptor(int number, const SANE_Option_Descriptor& option)
    {
        const std::string name = option.name;
        const bool isNamed = number != 0 && option.type != SANE_TYPE_GROUP;
        expect(name.empty() != isNamed, "name of option " + std::to_string(number));
        for (const char c : name) {
            expect(std::islower(c) != 0 || std::isdigit(c) != 0 || c == '-', "name " + name);
        }
        expect(option.title != nullptr && *option.title != '\0', "title of " + name);
        expect(option.desc != nullptr, "description of " + name);
        const bool isWord = option.type != SANE_TYPE_STRING && option.type != SANE_TYPE_GROUP;
        expect(!isWord || option.size == sizeof(SANE_Word), "size of " + name);
        expect((option.cap & SANE_CAP_HARD_SELECT) == 0 || (option.cap & SANE_CAP_SOFT_SELECT) == 0,
               "capabilities of " + name);
        if (option.constraint_type == SANE_CONSTRAINT_RANGE) {
            expect(option.constraint.range->min < option.constraint.range->max, "range " + name);
        }
    }

    SANE_Status set(int number, void* value, SANE_Int* info = nullptr) const
    {
        return scanner_.control(number, SANE_ACTION_SET_VALUE, value, info);
    }

    void refusals(int number, const SANE_Option_Descriptor& option)
    {
        const std::string name = option.name;
        expect(
            scanner_.control(number, SANE_ACTION_SET_AUTO, &number, nullptr) == SANE_STATUS_INVAL,
            "automatic " + name);
        if (option.type == SANE_TYPE_BOOL) {
            for (SANE_Word odd : {-1, 2}) {
                expect(set(number, &odd) == SANE_STATUS_INVAL,
                       name + " takes a value that is neither true nor false");
            }
            scanner_.set(name, SANE_FALSE);
        } else if (option.constraint_type == SANE_CONSTRAINT_STRING_LIST) {
            std::string odd = "no such value";
            expect(set(number, odd.data()) == SANE_STATUS_INVAL, name + " takes any text");
        }
    }

    void values(int number, const SANE_Option_Descriptor& option)
    {
        if (option.type == SANE_TYPE_STRING) {
            texts(number, option);
        } else if (option.constraint_type == SANE_CONSTRAINT_RANGE) {
            limits(number, option);
        } else if (option.constraint_type == SANE_CONSTRAINT_WORD_LIST) {
            for (SANE_Word i = 1; i <= option.constraint.word_list[0]; ++i) {
                word(number, option.constraint.word_list[i], option.constraint.word_list[i]);
            }
        } else if (option.type == SANE_TYPE_BOOL) {
            word(number, SANE_TRUE, SANE_TRUE);
            word(number, SANE_FALSE, SANE_FALSE);
        }
    }

    // Every value, which is then the option's, in memory of its own.
    void texts(int number, const SANE_Option_Descriptor& option)
    {
        const std::string first = scanner_.text(number);
        for (int i = 0; option.constraint.string_list[i] != nullptr; ++i) {
            std::string value = option.constraint.string_list[i];
            expect(set(number, value.data()) == SANE_STATUS_GOOD, "set of " + value);
            const std::string given = value;
            value.assign(value.size(), '#');
            expect(scanner_.text(number) == given, given + " is another behind its set");
        }
        scanner_.set(option.name, first);
    }

    void limits(int number, const SANE_Option_Descriptor& option)
    {
        const SANE_Word before = scanner_.word(number);
        const SANE_Range& range = *option.constraint.range;
        word(number, range.min - 1, range.min);
        word(number, range.max + 1, range.max);
        word(number, range.min, range.min);
        word(number, range.max, range.max);
        word(number, before, before);
    }

    // With guards on both sides, and whatever info was before.
    void word(int number, SANE_Word given, SANE_Word kept)
    {
        constexpr SANE_Word kGuard = 0x5A5A5A5A;
        SANE_Word cells[] = {kGuard, given, kGuard};
        SANE_Int info = -1;
        const std::string name = scanner_.descriptor(number)->name;
        expect(set(number, &cells[1], &info) == SANE_STATUS_GOOD, "set of " + name);
        expect(cells[1] == kept && scanner_.word(number) == kept, "value of " + name);
        expect(((info & SANE_INFO_INEXACT) != 0) == (given != kept), "exactness of " + name);
        expect(cells[0] == kGuard && cells[2] == kGuard, name + " writes beside its value");
    }

    void outside()
    {
        SANE_Byte byte = 0;
        SANE_Int length = -1;
        expect(sane_read(scanner_.handle(), &byte, 1, &length) != SANE_STATUS_GOOD && length <= 0,
               "a read outside of a scan");
        expect(sane_set_io_mode(scanner_.handle(), SANE_FALSE) == SANE_STATUS_INVAL,
               "the mode of input and output is not INVAL outside of a scan");
        SANE_Int fd = -1;
        const SANE_Status status = sane_get_select_fd(scanner_.handle(), &fd);
        expect(status == SANE_STATUS_INVAL || status == SANE_STATUS_UNSUPPORTED,
               "a descriptor outside of a scan");
        const SANE_Parameters parameters = scanner_.parameters();
        expect(parameters.format == SANE_FRAME_GRAY || parameters.format == SANE_FRAME_RGB,
               "format");
        expect(parameters.last_frame == SANE_TRUE && parameters.depth == 8, "frame");
    }

    void partial()
    {
        require(scanner_.start() == SANE_STATUS_GOOD, "start");
        expect(firstByte() == SANE_STATUS_GOOD, "a byte in a scan");
        expect(sane_set_io_mode(scanner_.handle(), SANE_FALSE) == SANE_STATUS_GOOD,
               "blocking reads cannot be chosen in a scan");
        SANE_Word resolution = scanner_.word(scanner_.option("resolution"));
        expect(set(scanner_.option("resolution"), &resolution) != SANE_STATUS_GOOD,
               "an option can be set in a scan");
        scanner_.cancel();
    }

    // The first reads of a page may give nothing: a line is not whole yet.
    SANE_Status firstByte() const
    {
        constexpr int kMostReads = 100;
        SANE_Status status = SANE_STATUS_GOOD;
        SANE_Int length = 0;
        for (int i = 0; i < kMostReads && status == SANE_STATUS_GOOD && length == 0; ++i) {
            SANE_Byte byte = 0;
            status = sane_read(scanner_.handle(), &byte, 1, &length);
        }
        return length == 1 ? status : SANE_STATUS_EOF;
    }

    Scanner scanner_;
};

void sessions()
{
    for (int i = 0; i < 4; ++i) {
        require(sane_init(nullptr, nullptr) == SANE_STATUS_GOOD, "sane_init without a version");
        sane_exit();
        const Session session;
        SANE_Handle handle = nullptr;
        // In this order: a name that the loader does not know is its first one from then on.
        require(sane_open("", &handle) == SANE_STATUS_GOOD, "the first scanner");
        sane_close(handle);
        require(sane_open("no such scanner", &handle) == SANE_STATUS_INVAL, "a name of nothing");
    }
}

std::string listOf(const Findings& findings, const Findings& without)
{
    std::string list;
    for (const std::string& finding : findings) {
        list += without.count(finding) == 0 ? "\n  " + finding : "";
    }
    return list;
}

}  // namespace

// No arguments: on each device.
void conformance(const Arguments& /*arguments*/)
{
    sessions();
    Session session;
    for (const std::string& name : session.list()) {
        Probe probe(name);
        probe.options();
        probe.scans();
        require(probe.findings == kKnown, name + ": new:" + listOf(probe.findings, kKnown) +
                                              "\nno more:" + listOf(kKnown, probe.findings));
    }
}

}  // namespace frontend
