// SPDX-License-Identifier: LGPL-2.1-or-later
// A long time of everything at once: all devices open side by side, random scans in turns of one
// read each, options, cancels, handles closed in the middle, lists, and faults of the devices.
#include "Chance.h"
#include "Commands.h"
#include "Page.h"
#include "Progress.h"
#include "Resources.h"
#include "Simulation.h"

#include <algorithm>
#include <cstdio>
#include <memory>

#include <malloc.h>

namespace frontend {

namespace {

constexpr double kQuietSeconds = 20;
constexpr double kListSeconds = 180;

// Each is met by the very scan that it is ordered for.
const std::vector<std::string> kUsbFaults = {
    "reply lock: status 131", "reply lock: status 137", "reply start: status 136",
    "command start: unplug",  "block 2: jam",           "block 2: replug",
    "block 2: unplug",        "block 2: stray 300",     "end: unplug",
};
const std::vector<std::string> kNetworkFaults = {
    "reply lock: status 131", "reply lock: status 137",
    "reply lock: half-close", "reply start: reset 12",
    "command lock: reset",    "block 2: reset",
    "block 2: half-close",    "block 2: half-close 1000",
    "block 2: magic",         "block 2: length 0xFFFFFFFF",
    "block 2: extra 3",       "block 2: lose 5",
    "block 2: jam",           "end: half-close",
};

struct Tally {
    long opens = 0;
    long lists = 0;
    long options = 0;
    long whole = 0;
    long cancelled = 0;
    long closed = 0;
    long empty = 0;
    long faults = 0;
    long failed = 0;
    std::uint64_t bytes = 0;
    double longest = 0;  // seconds of a step
    std::string longestAt;
};

// Does one thing after the other with one device.
class Actor {
public:
    Actor(const std::string& name, Chance& chance, Tally& tally)
        : name_(name), number_(numberOf(name)), chance_(chance), tally_(tally)
    {
    }

    void step()
    {
        const Progress call("", 0);
        try {
            act();
        } catch (const Failed& failure) {
            throw Failed(name_ + ", last fault " + fault_ + ": " + failure.what());
        }
        if (call.seconds() > tally_.longest) {
            tally_.longest = call.seconds();
            tally_.longestAt = fault_;
        }
    }

    // Nothing runs and nothing is open afterwards.
    void rest()
    {
        while (isFaulty_) {
            step();
        }
        scanner_.reset();
        isScanning_ = false;
        takeRecorded(number_);
    }

private:
    void act()
    {
        if (!scanner_) {
            open();
        } else if (isScanning_) {
            stepOfScan();
        } else {
            stepOfRest();
        }
    }

    bool isOnNetwork() const { return name_.find("libnet") != std::string::npos; }

    std::string tell(const std::string& what) const
    {
        return "device " + std::to_string(number_) + ": " + what;
    }

    // On USB it has a new one whenever it was plugged in.
    std::string currentName() const
    {
        if (isOnNetwork()) {
            return name_;
        }
        const std::string state = scantest::askSimulation(tell("state?"));
        char file[16];
        std::snprintf(file, sizeof file, "%03d", std::stoi(state.substr(state.find("file=") + 5)));
        return name_.substr(0, name_.rfind('/') + 1) + file;
    }

    void open()
    {
        scanner_ = std::make_unique<Scanner>(currentName());
        ++tally_.opens;
    }

    void stepOfRest()
    {
        if (chance_.oneIn(8)) {
            scanner_.reset();
        } else if (chance_.oneIn(3)) {
            askForEverything();
        } else {
            setUp();
            start();
        }
    }

    void askForEverything() const
    {
        for (int i = 0; i < Scanner::kOptions; ++i) {
            const SANE_Value_Type type = scanner_->descriptor(i)->type;
            if (type == SANE_TYPE_STRING) {
                scanner_->text(i);
            } else if (type != SANE_TYPE_GROUP) {
                scanner_->word(i);
            }
            ++tally_.options;
        }
        scanner_->cancel();
    }

    // The resolution last: the library keeps one for all its handles.
    void setUp()
    {
        static const std::vector<std::string> modes = {"24-bit Color", "8-bit Grayscale"};
        isFromFeeder_ = chance_.oneIn(3);
        scanner_->set("mode", chance_.of(modes));
        scanner_->set("source",
                      std::string(isFromFeeder_ ? "Automatic Document Feeder" : "Flatbed"));
        const double left = chance_.upTo(1000) * 0.1;
        const double top = chance_.upTo(1500) * 0.1;
        scanner_->setArea(left, top, left + 40 + chance_.upTo(700) * 0.1,
                          top + 40 + chance_.upTo(1000) * 0.1);
        scanner_->set("resolution", chance_.of<SANE_Word>({75, 75, 150, 300}));
        tally_.options += 7;
    }

    void start()
    {
        if (chance_.oneIn(12)) {
            scantest::tellSimulation(tell("load-sheets 5"));
            fault_ = chance_.of(isOnNetwork() ? kNetworkFaults : kUsbFaults);
            scantest::tellSimulation(tell("fault " + fault_));
            isFaulty_ = true;
            ++tally_.faults;
        }
        const SANE_Parameters parameters = scanner_->parameters();
        expected_ = static_cast<std::uint64_t>(parameters.bytes_per_line) *
                    static_cast<std::uint64_t>(parameters.lines);
        page_ = Digest();
        const SANE_Status status = scanner_->start();
        if (status == SANE_STATUS_GOOD) {
            isScanning_ = true;
        } else if (status == SANE_STATUS_NO_DOCS && isFromFeeder_) {
            ++tally_.empty;
            scanner_->cancel();
            scantest::tellSimulation(tell("load-sheets " + std::to_string(chance_.upTo(9))));
        } else {
            failed("sane_start", status);
        }
    }

    void stepOfScan()
    {
        if (!isFaulty_ && chance_.oneIn(60)) {
            isScanning_ = false;
            if (chance_.oneIn(4)) {
                ++tally_.closed;
                scanner_.reset();
            } else {
                ++tally_.cancelled;
                scanner_->cancel();
            }
            return;
        }
        block_.resize(static_cast<std::size_t>(
            chance_.of<int>({1 + chance_.upTo(300), 8188, 32768, 1 << 20})));
        SANE_Int length = -1;
        const SANE_Status status = sane_read(scanner_->handle(), block_.data(),
                                             static_cast<SANE_Int>(block_.size()), &length);
        require(length >= 0 && length <= static_cast<SANE_Int>(block_.size()), "length of a read");
        page_.add(block_.data(), static_cast<std::size_t>(length));
        tally_.bytes += static_cast<std::uint64_t>(length);
        if (status != SANE_STATUS_GOOD) {
            isScanning_ = false;
            endOfPage(status);
        }
    }

    void endOfPage(SANE_Status status)
    {
        if (isFaulty_) {
            failed("sane_read", status);
            return;
        }
        require(status == SANE_STATUS_EOF, "a page ends with " + std::to_string(status));
        require(page_.bytes == expected_,
                std::to_string(page_.bytes) + " bytes instead of " + std::to_string(expected_));
        require(page_ == takeRecorded(number_), "the page is not the recorded one");
        ++tally_.whole;
        if (chance_.oneIn(2)) {
            scanner_->cancel();
        }
    }

    // Only what a fault was ordered for may fail, and only until the device is well again.
    void failed(const std::string& what, SANE_Status status)
    {
        require(isFaulty_, what + ": status " + std::to_string(status));
        ++tally_.failed;
        recover();
    }

    void recover()
    {
        isFaulty_ = false;
        isScanning_ = false;
        if (chance_.oneIn(2)) {
            scanner_->cancel();
        }
        scanner_.reset();
        const bool isThere = scantest::askSimulation(tell("state?")).rfind("unplugged", 0) != 0;
        scantest::tellSimulation(tell(isThere ? "replug" : "plug"));
        open();
        scanner_->setArea(0, 0, 30, 30);
        scanner_->set("resolution", 75);
        takeRecorded(number_);
        scanWholePage(*scanner_, number_);
        ++tally_.whole;
    }

    const std::string name_;
    const int number_;
    Chance& chance_;
    Tally& tally_;
    std::unique_ptr<Scanner> scanner_;
    std::vector<SANE_Byte> block_ = std::vector<SANE_Byte>(1 << 20);
    Digest page_;
    std::uint64_t expected_ = 0;
    bool isScanning_ = false;
    bool isFromFeeder_ = false;
    bool isFaulty_ = false;
    std::string fault_ = "none";  // the last one
};

void print(double seconds, const Tally& tally, const Resources& resources)
{
    std::printf(
        "%6.0f s: %ld opened, %ld lists, %ld options, %ld pages whole, %ld cancelled, "
        "%ld closed in the middle, %ld times no paper, %ld faults, %ld of them failures, "
        "%.0f MB; longest step %.1f s (%s)\n          %s\n",
        seconds, tally.opens, tally.lists, tally.options, tally.whole, tally.cancelled,
        tally.closed, tally.empty, tally.faults, tally.failed,
        1e-6 * static_cast<double>(tally.bytes), tally.longest, tally.longestAt.c_str(),
        resources.text().c_str());
}

Resources atRest(std::vector<std::unique_ptr<Actor>>& actors)
{
    for (const auto& actor : actors) {
        actor->rest();
    }
    malloc_trim(0);
    return Resources::now();
}

}  // namespace

// SECONDS SEED: on all the devices.
void soak(const Arguments& arguments)
{
    const double seconds = static_cast<double>(number(arguments, 0));
    Chance chance(static_cast<unsigned>(number(arguments, 1)));
    Tally tally;
    Session session;
    std::vector<std::unique_ptr<Actor>> actors;
    for (const std::string& name : session.list()) {
        actors.push_back(std::make_unique<Actor>(name, chance, tally));
    }
    require(!actors.empty(), "no devices");
    const Progress whole("", 0);
    double quietAt = kQuietSeconds;
    double listAt = kListSeconds;
    std::unique_ptr<Resources> early;
    Resources late;
    while (whole.seconds() < seconds || !early) {
        chance.of(actors)->step();
        if (whole.seconds() >= listAt) {
            require(session.list().size() == actors.size(), "devices in the list");
            ++tally.lists;
            listAt = whole.seconds() + kListSeconds;
        }
        if (whole.seconds() >= std::min(quietAt, seconds)) {
            late = atRest(actors);
            print(whole.seconds(), tally, late);
            quietAt = whole.seconds() + kQuietSeconds;
            if (!early) {
                early = std::make_unique<Resources>(late);
            }
        }
    }
    const std::string complaints = scantest::askSimulation("complaints?");
    require(complaints == "0", complaints + " complaints of the scanners");
    requireFlat(*early, late);
}

}  // namespace frontend
