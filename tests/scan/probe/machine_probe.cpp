// SPDX-License-Identifier: LGPL-2.1-or-later
// Scans in a process that is refused memory or descriptors, at every place: each call gives a
// status, nothing is left behind, and the next scan is right.
#include "Allocations.h"
#include "Backend.h"
#include "Hooks.h"
#include "Memory.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <sys/resource.h>
#include <unistd.h>

namespace {

// By a clock that is so much faster, a scan takes far less, and a transfer that is waited for in
// vain takes more.
constexpr int kClockSpeed = 20;
constexpr double kLongest = 25.0;
constexpr int kMostAllocations = 100000;

// Left in descriptors beside those that are open already.
constexpr int kMostDescriptors = 8;

const Backend* backend = nullptr;

struct Settings {
    std::string device;
    bool isNetwork() const { return device.find("libnet") != std::string::npos; }
};

// How far a scan came, and what stopped it.
struct Outcome {
    const char* step = "list";
    SANE_Status status = SANE_STATUS_GOOD;
};

class Scan {
public:
    explicit Scan(const Settings& settings) : settings_(settings) {}

    // From the list to the end of the page. Allocates nothing itself.
    Outcome run(Page& page)
    {
        const SANE_Device** devices = nullptr;
        if (!settings_.isNetwork()) {
            if (const auto status = backend->getDevices(&devices, SANE_FALSE)) {
                return {"list", status};
            }
        }
        if (const auto status = open()) {
            return {"open", status};
        }
        return runOpened(page);
    }

    SANE_Status open() { return backend->open(settings_.device.c_str(), &handle_); }

    Outcome runOpened(Page& page)
    {
        if (const auto status = setUp(*backend, handle_, 26.0, false)) {
            return {"options", status};
        }
        const Frame frame = page.scan(*backend, handle_);
        return {frame.isStarted ? "read" : "start", frame.status};
    }

    void close()
    {
        if (handle_ != nullptr) {
            backend->cancel(handle_);
            backend->close(handle_);
        }
        handle_ = nullptr;
    }
    SANE_Handle handle() const { return handle_; }

private:
    const Settings& settings_;
    SANE_Handle handle_ = nullptr;
};

// The page as it is when nothing is refused, and what of memory and descriptors is held then.
class Baseline {
public:
    explicit Baseline(const Settings& settings) : settings_(settings)
    {
        whole.scanned = scanFreely(whole.page);
        scanFreely(page_);
        scanFreely(page_);
        held_ = memory::remembered();
        descriptors_ = openDescriptors();
    }

    void checkOutcome(const Outcome& outcome, const Page& page, const std::string& where)
    {
        ++tally[std::string(outcome.step) + " " + std::to_string(outcome.status)];
        require(outcome.status != SANE_STATUS_EOF || page.isLike(whole.page),
                where + ": another page passes for the whole");
        require(outcome.status != SANE_STATUS_GOOD, where + ": GOOD at the end of a frame");
    }

    // The next scan is right, and leaves what the others have left.
    void checkNext(const std::string& where)
    {
        require(scanFreely(page_), where + ": the next scan fails");
        require(page_.isLike(whole.page), where + ": the next page is another one");
        const int held = memory::remembered() - held_;
        require(held <= 0, where + ": " + std::to_string(held) + " allocations are left");
        const int left = openDescriptors() - descriptors_;
        require(left == 0, where + ": " + std::to_string(left) + " descriptors are left");
    }

    struct Whole {
        Page page;
        bool scanned = false;
    };
    Whole whole;
    std::map<std::string, int> tally;

private:
    bool scanFreely(Page& page)
    {
        memory::remember(true);
        Scan scan(settings_);
        const Outcome outcome = scan.run(page);
        scan.close();
        memory::remember(false);
        return outcome.status == SANE_STATUS_EOF;
    }

    const Settings& settings_;
    Page page_;
    int held_ = 0;
    int descriptors_ = 0;
};

void tell(const Baseline& baseline)
{
    for (const auto& [end, count] : baseline.tally) {
        printf("%4d times %s\n", count, end.c_str());
    }
}

// ---- memory ----

// false: so many are never asked for.
bool refuseFrom(Baseline& baseline, const Settings& settings, int granted, int refused, Page& page)
{
    const std::string where = "allocation " + std::to_string(granted) +
                              (refused > 1 ? " and all others" : "") + " refused";
    Scan scan(settings);
    Outcome outcome;
    bool isRefused = false;
    const double began = hooks::now();
    memory::remember(true);
    {
        const Allocations allocations(granted, refused);
        outcome = scan.run(page);
        scan.close();
        isRefused = allocations.refused();
    }
    memory::remember(false);
    const double took = hooks::now() - began;
    baseline.checkOutcome(outcome, page, where);
    require(took < kLongest, where + ": waited in vain, " + outcome.step);
    if (isRefused) {
        baseline.checkNext(where);
    }
    return isRefused;
}

void refuseMemory(const Settings& settings, int refused, int first, int step)
{
    Baseline baseline(settings);
    require(baseline.whole.scanned, "the first page");
    Page page;
    // It does not look at what it gets.
    memory::spare("libusb-0.1");
    hooks::setClockSpeed(kClockSpeed);
    int granted = first;
    while (granted < kMostAllocations && refuseFrom(baseline, settings, granted, refused, page)) {
        granted += step;
    }
    require(granted > 50, "hardly an allocation is seen");
    printf("%d allocations\n", granted);
    tell(baseline);
}

// ---- descriptors ----

// No more descriptors than are open, and so many.
class FewDescriptors {
public:
    explicit FewDescriptors(int more)
    {
        getrlimit(RLIMIT_NOFILE, &before_);
        // The lowest numbers are used first, and the dump file may have one of them.
        const int next = dup(0);
        close(next);
        const rlimit few = {static_cast<rlim_t>(next + more), before_.rlim_max};
        setrlimit(RLIMIT_NOFILE, &few);
    }
    FewDescriptors(const FewDescriptors&) = delete;
    FewDescriptors& operator=(const FewDescriptors&) = delete;
    ~FewDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }

private:
    rlimit before_ = {};
};

void refuseDescriptors(const Settings& settings)
{
    Baseline baseline(settings);
    require(baseline.whole.scanned, "the first page");
    Page page;
    for (int more = kMostDescriptors; more >= 0; --more) {
        const std::string where = std::to_string(more) + " descriptors";
        Scan whole(settings);
        {
            const FewDescriptors few(more);
            baseline.checkOutcome(whole.run(page), page, where);
            whole.close();
        }
        baseline.checkNext(where);

        Scan opened(settings);
        require(opened.open() == SANE_STATUS_GOOD, "open");
        backend->cancel(opened.handle());  // closes the device; the start opens it
        {
            const FewDescriptors few(more);
            baseline.checkOutcome(opened.runOpened(page), page, where + " at the start");
            opened.close();
        }
        baseline.checkNext(where + " at the start");
    }
    tell(baseline);
}

// ---- a single scan, for machines that lack something else ----

void scanOnce(const Settings& settings)
{
    Page page;
    Scan scan(settings);
    const Outcome outcome = scan.run(page);
    scan.close();
    printf("%s %d, %zu bytes\n", outcome.step, outcome.status, page.size());
    require(outcome.status == SANE_STATUS_EOF, "not the end of a page");
    FILE* file = fopen("page.raw", "wb");
    require(file != nullptr && fwrite(page.bytes(), 1, page.size(), file) == page.size() &&
                fclose(file) == 0,
            "page.raw");
}

void run(const std::string& what, const Settings& settings, int first, int step)
{
    if (settings.isNetwork()) {
        // The search takes ten seconds, of whatever clock.
        hooks::setClockSpeed(20);
        const SANE_Device** devices = nullptr;
        require(backend->getDevices(&devices, SANE_FALSE) == SANE_STATUS_GOOD, "no scanner");
        hooks::setClockSpeed(1);
    }
    if (what == "one") {
        refuseMemory(settings, 1, first, step);
    } else if (what == "all") {
        refuseMemory(settings, Allocations::kAll, first, step);
    } else if (what == "descriptors") {
        refuseDescriptors(settings);
    } else {
        require(what == "once", "what?");
        scanOnce(settings);
    }
}

}  // namespace

// machine_probe one|all|descriptors|once DEVICE [FIRST [STEP]], inside of a simulation.
int main(int count, char** words)
try {
    require(count >= 3, "WHAT DEVICE");
    setvbuf(stdout, nullptr, _IOLBF, 0);
    const Backend loaded("QuillonLegacy_1_0_0");
    backend = &loaded;
    backend->init(nullptr, nullptr);
    run(words[1], {words[2]}, count > 3 ? atoi(words[3]) : 0, count > 4 ? atoi(words[4]) : 1);
    backend->exit();
    return 0;
} catch (const Failed& failure) {
    printf("FAILED: %s\n", failure.what());
    fflush(stdout);
    _exit(1);
}
