// SPDX-License-Identifier: LGPL-2.1-or-later
// Cancels scans at every place that can be told from outside, and looks at what becomes of them.
#include "Backend.h"
#include "Hooks.h"
#include "Simulation.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <semaphore.h>
#include <sys/time.h>
#include <unistd.h>

using hooks::Transfers;

namespace {

// A transport read more than the one that may be under way is one too many.
constexpr int kReadsAfterCancel = 1;
// A frame over the network takes a look at the socket, a wait and another look, twice.
constexpr int kReceivesOfAFrame = 4;

const Backend* backend = nullptr;
// The one that is cancelled.
std::atomic<SANE_Handle> cancelled{nullptr};
std::atomic<int> unsafeCalls{0};
std::atomic<const char*> unsafeName{""};

void cancelQuietly()
{
    const hooks::Unsafe unsafe;
    backend->cancel(cancelled);
    if (unsafe.count() > 0) {
        unsafeCalls += unsafe.count();
        unsafeName = unsafe.firstName();
    }
}

void onSignal(int)
{
    cancelQuietly();
}

// Another thread that cancels when it is told to.
class Canceller {
public:
    Canceller() : thread_([this] { run(); }) {}
    Canceller(const Canceller&) = delete;
    Canceller& operator=(const Canceller&) = delete;
    ~Canceller()
    {
        isOver_ = true;
        sem_post(&wanted_);
        thread_.join();
    }
    // Comes back when the cancel has.
    void cancel()
    {
        sem_post(&wanted_);
        while (sem_wait(&done_) != 0) {
        }
    }

private:
    void run()
    {
        for (;;) {
            while (sem_wait(&wanted_) != 0) {
            }
            if (isOver_) {
                return;
            }
            cancelQuietly();
            sem_post(&done_);
        }
    }
    static sem_t made()
    {
        sem_t semaphore;
        sem_init(&semaphore, 0, 0);
        return semaphore;
    }
    sem_t wanted_ = made();
    sem_t done_ = made();
    std::atomic<bool> isOver_{false};
    std::thread thread_;
};

Canceller* canceller = nullptr;

void cancelBySignal()
{
    raise(SIGUSR1);
}

void cancelByThread()
{
    canceller->cancel();
}

void (*cancelAction)() = nullptr;
double cancelTime = 0.0;

void cancelNow()
{
    cancelTime = hooks::now();
    cancelAction();
}

class Scanner {
public:
    Scanner(const std::string& name, double millimetres, bool fromFeeder)
    {
        const SANE_Status status = backend->open(name.c_str(), &handle_);
        require(status == SANE_STATUS_GOOD, "open " + name + ": " + std::to_string(status));
        require(setUp(*backend, handle_, millimetres, fromFeeder) == SANE_STATUS_GOOD, "options");
    }
    Scanner(const Scanner&) = delete;
    Scanner& operator=(const Scanner&) = delete;
    ~Scanner() { close(); }

    SANE_Handle handle() const { return handle_; }
    void close()
    {
        if (handle_ != nullptr) {
            backend->close(handle_);
        }
        handle_ = nullptr;
    }

private:
    SANE_Handle handle_ = nullptr;
};

struct Settings {
    std::string device;
    double millimetres = 26.0;
    bool fromFeeder = false;
    bool isNetwork() const { return device.find("libnet") != std::string::npos; }
};

// A scanner, and a page of it that nothing has disturbed.
class Subject {
public:
    explicit Subject(const Settings& settings)
        : settings_(settings), scanner(settings.device, settings.millimetres, settings.fromFeeder)
    {
        cancelled = scanner.handle();
        Transfers::start();
        const Frame frame = whole.scan(*backend, handle());
        Transfers::stop();
        trace = Transfers::trace();
        require(frame.status == SANE_STATUS_EOF && frame.size > 0,
                "the first page: " + std::to_string(frame.status));
        backend->cancel(handle());
    }

    SANE_Handle handle() const { return scanner.handle(); }

    // The same handle scans on as if nothing had been.
    void checkNextPage(const std::string& where)
    {
        const Frame frame = page.scan(*backend, handle());
        require(frame.status == SANE_STATUS_EOF,
                where + ": the next page ends with " + std::to_string(frame.status));
        require(page.isLike(whole), where + ": the next page is another one");
        backend->cancel(handle());
    }

    // A frame that ended by itself has to be whole.
    void checkEnd(const Frame& frame, const std::string& where) const
    {
        require(frame.status == SANE_STATUS_CANCELLED || frame.status == SANE_STATUS_EOF,
                where + ": status " + std::to_string(frame.status));
        require(frame.status == SANE_STATUS_CANCELLED || page.isLike(whole),
                where + ": the end of another page");
    }

    const Settings settings_;
    Scanner scanner;
    Page whole;
    Page page;
    std::string trace;
};

void checkQuietness()
{
    require(unsafeCalls == 0, "a cancel that meets an operation has called " +
                                  std::string(unsafeName) + " and " + std::to_string(unsafeCalls) +
                                  " others");
}

// What the operation still asked of the device behind the cancel, before it told the device.
std::string askedBehind(const std::string& trace, int place)
{
    const std::size_t first = static_cast<std::size_t>(place);
    std::string behind = trace.substr(first, trace.find_first_of("XU", first + 1) - first);
    // A command that is under way, or may go out without a wait, has met the cancel itself.
    for (const char* underWay : {"W", "X", "U", "wW"}) {
        if (behind.rfind(underWay, 0) == 0) {
            behind.erase(0, strlen(underWay));
            break;
        }
    }
    return behind;
}

// ---- every place ----

struct Tally {
    int places = 0;
    int cancelledFrames = 0;
    int mostReads = 0;
    double longest = 0.0;
};

// false: the scan was over before.
bool cancelAt(Subject& subject, int place, bool again, Tally& tally)
{
    const std::string where = "cancel at " + std::to_string(place);
    Transfers::start();
    Transfers::actAt(place, cancelNow, again);
    const Frame frame = subject.page.scan(*backend, subject.handle());
    const double took = hooks::now() - cancelTime;
    Transfers::stop();
    if (Transfers::actedAt() < 0) {
        subject.checkEnd(frame, where);
        backend->cancel(subject.handle());
        return false;
    }
    const std::string behind = askedBehind(Transfers::trace(), place);
    const int reads = static_cast<int>(std::count(behind.begin(), behind.end(), 'R'));
    const int most = subject.settings_.isNetwork() ? kReceivesOfAFrame : kReadsAfterCancel;
    subject.checkEnd(frame, where);
    const std::size_t end = Transfers::trace().rfind('U');
    require(frame.status == SANE_STATUS_CANCELLED ||
                Transfers::trace().find('R', static_cast<std::size_t>(place)) > end,
            where + ": not too late in " + Transfers::trace());
    if (frame.status == SANE_STATUS_CANCELLED) {
        ++tally.cancelledFrames;
        SANE_Int length = -1;
        SANE_Byte byte = 0;
        require(!frame.isStarted ||
                    backend->read(subject.handle(), &byte, 1, &length) == SANE_STATUS_CANCELLED,
                where + ": a read behind it");
    }
    require(reads <= most && behind.find('W') == std::string::npos,
            where + ": behind it came " + behind + " of " + Transfers::trace());
    tally.mostReads = std::max(tally.mostReads, reads);
    tally.longest = std::max(tally.longest, took);
    ++tally.places;
    if (place % 2 != 0) {
        backend->cancel(subject.handle());  // as front ends do
    }
    subject.checkNextPage(where);
    return true;
}

void cancelEverywhere(const Settings& settings, bool again)
{
    Subject subject(settings);
    Tally tally;
    for (int place = 0; cancelAt(subject, place, again, tally); ++place) {
    }
    checkQuietness();
    const int places = static_cast<int>(subject.trace.size());
    const int late = tally.places - tally.cancelledFrames;
    printf("%d places%s: %d cancelled, %d too late, at most %d reads and %.3f s behind\n",
           tally.places, again ? ", again and again" : "", tally.cancelledFrames, late,
           tally.mostReads, tally.longest);
    require(settings.isNetwork() || tally.places == places, "of " + std::to_string(places));
    require(tally.longest < 1.0, "too long");
}

// ---- a device that is silent or does not stop ----

void cancelWhenStuck(const Settings& settings, double limit, const std::string& fault)
{
    Subject subject(settings);
    scantest::tellSimulation("device 1: fault " + fault);
    Transfers::start();
    Transfers::actWhenStuck(20, cancelNow);
    const Frame frame = subject.page.scan(*backend, subject.handle());
    const double took = hooks::now() - cancelTime;
    Transfers::stop();
    require(Transfers::actedAt() >= 0, fault + ": not stuck");
    require(frame.status == SANE_STATUS_CANCELLED, fault + ": " + std::to_string(frame.status));
    printf("%s: %s after %.2f s\n", fault.c_str(), frame.isStarted ? "read" : "start", took);
    require(took < limit, "too long");
    subject.checkNextPage(fault);
    checkQuietness();
}

void cancelInTheMiddle(const Settings& settings, double limit)
{
    Subject subject(settings);
    const int middle = static_cast<int>(subject.trace.size()) / 2;
    Transfers::start();
    Transfers::actAt(middle, cancelNow);
    const Frame frame = subject.page.scan(*backend, subject.handle());
    const double took = hooks::now() - cancelTime;
    Transfers::stop();
    const std::string behind = Transfers::trace().substr(static_cast<std::size_t>(middle));
    printf("status %d after %.2f s and %zu transfers\n", frame.status, took, behind.size());
    require(frame.status == SANE_STATUS_CANCELLED, "not cancelled");
    require(took < limit, "too long");
    subject.checkNextPage("behind an endless page");
}

// ---- places without a transfer ----

// Behind a cancel that has met no operation, reads give what ended its flush: on the network the
// page may have been sent to its end before the scanner heard of it.
void checkNothingComes(SANE_Handle handle)
{
    SANE_Int length = -1;
    SANE_Byte bytes[1000];
    const SANE_Status status = backend->read(handle, bytes, sizeof bytes, &length);
    require((status == SANE_STATUS_CANCELLED || status == SANE_STATUS_EOF) && length == 0,
            "a read behind it: " + std::to_string(status));
}

void cancelBetween(const Settings& settings)
{
    Subject subject(settings);
    const SANE_Handle handle = subject.handle();
    const auto cancel = [] { backend->cancel(cancelled); };
    const auto start = [handle] { require(backend->start(handle) == SANE_STATUS_GOOD, "start"); };
    const auto readPage = [&] {
        require(subject.page.scan(*backend, handle).status == SANE_STATUS_EOF, "page");
        require(subject.page.isLike(subject.whole), "another page");
    };
    const auto readSome = [handle] {
        SANE_Int length = -1;
        SANE_Byte bytes[1000];
        require(backend->read(handle, bytes, sizeof bytes, &length) == SANE_STATUS_GOOD, "read");
    };
    const auto nothingComes = [handle] { checkNothingComes(handle); };
    using Steps = std::vector<std::function<void()>>;
    const std::pair<const char*, Steps> moments[] = {
        {"before a start", {cancel}},
        {"twice before a start", {cancel, cancel}},
        {"behind a start", {start, cancel, nothingComes}},
        {"twice behind a start", {start, cancel, cancel, nothingComes}},
        {"in the middle of a page", {start, readSome, cancel, nothingComes}},
        {"behind the end of a page", {readPage, cancel}},
        {"between two sheets", {readPage, cancel, readPage}},
        {"between two sheets, twice", {readPage, cancel, cancel, readPage, cancel}},
    };
    for (const auto& [name, steps] : moments) {
        for (const auto& step : steps) {
            step();
        }
        subject.checkNextPage(name);
        printf("%s\n", name);
    }
}

// ---- at any time ----

void cancelAtRandom(const Settings& settings, int rounds, bool byThread)
{
    Subject subject(settings);
    const SANE_Handle handle = subject.handle();
    const double began = hooks::now();
    subject.checkNextPage("measured");
    // Comes to about half of the cancels in time, whatever else this machine does.
    double longest = (hooks::now() - began) * 1e6;
    std::mt19937 random(static_cast<unsigned>(rounds));
    std::map<std::string, int> ends;
    for (int round = 0; round < rounds; ++round) {
        const int delay = std::uniform_int_distribution<int>(1, static_cast<int>(longest))(random);
        std::thread thread;
        if (byThread) {
            thread = std::thread([delay, handle] {
                usleep(static_cast<useconds_t>(delay));
                backend->cancel(handle);
            });
        } else {
            const itimerval timer = {{0, 0}, {delay / 1000000, delay % 1000000}};
            setitimer(ITIMER_REAL, &timer, nullptr);
        }
        const Frame frame = subject.page.scan(*backend, handle);
        // The other thread's cancel may be at work.
        const bool isMet = byThread && frame.status == SANE_STATUS_DEVICE_BUSY && !frame.isStarted;
        if (byThread) {
            thread.join();
        } else {
            const itimerval never = {};
            setitimer(ITIMER_REAL, &never, nullptr);
        }
        const std::string where = "a cancel after " + std::to_string(delay) + " us";
        // A cancel between two calls may flush to the end of the page.
        const bool isCut = subject.page.isStartOf(subject.whole);
        if (!isMet && !(frame.status == SANE_STATUS_EOF && isCut)) {
            subject.checkEnd(frame, where);
        }
        ++ends[std::to_string(frame.status)];
        longest *= frame.status == SANE_STATUS_EOF ? 0.9 : 1.1;
        if (round % 10 == 0 || isMet) {
            backend->cancel(handle);
            subject.checkNextPage(where);
        }
    }
    for (const auto& [status, count] : ends) {
        printf("%d times status %s\n", count, status.c_str());
    }
    require(ends["2"] > rounds / 5, "hardly a cancel");
    subject.checkNextPage("at last");
}

// ---- handles side by side, operations meanwhile ----

void closeBesides(const Settings& settings, const std::string& other, int rounds)
{
    Subject subject(settings);
    for (int round = 0; round < rounds; ++round) {
        Scanner besides(other, settings.millimetres, settings.fromFeeder);
        require(backend->start(besides.handle()) == SANE_STATUS_GOOD, "start of the other");
        require(backend->start(subject.handle()) == SANE_STATUS_GOOD, "start");
        std::thread closing([&] { besides.close(); });
        backend->cancel(subject.handle());
        closing.join();
        subject.checkNextPage("besides a close");
    }
    printf("%d rounds\n", rounds);
}

// Another thread cancels, now or in a while: what the first thread calls meanwhile waits, is
// refused, or meets the page that still runs.
void callMeanwhile(const Settings& settings, int rounds)
{
    Subject subject(settings);
    const SANE_Handle handle = subject.handle();
    const auto setAll = [&] {
        require(
            setUp(*backend, handle, settings.millimetres, settings.fromFeeder) == SANE_STATUS_GOOD,
            "options");
    };
    std::mt19937 random(static_cast<unsigned>(rounds));
    const auto pause = [&random] {
        constexpr int kLongest = 40000;  // microseconds; the page takes five blocks of 2000
        return static_cast<useconds_t>(
            std::max(std::uniform_int_distribution<int>(-kLongest, kLongest)(random), 0));
    };
    std::map<int, int> starts;
    for (int round = 0; round < rounds; ++round) {
        require(backend->start(handle) == SANE_STATUS_GOOD, "start");
        std::atomic<bool> isCancelling{false};
        std::thread thread([&, delay = pause()] {
            isCancelling = true;
            usleep(delay);
            backend->cancel(handle);
        });
        while (!isCancelling) {
        }
        SANE_Parameters parameters = {};
        for (int i = 0; i < 20; ++i) {
            require(backend->getParameters(handle, &parameters) == SANE_STATUS_GOOD, "parameters");
            setAll();
        }
        usleep(pause());
        ++starts[backend->start(handle)];
        backend->cancel(handle);
        thread.join();
        // A start that finds image bytes in place of its replies fails, and mirrors the area.
        setAll();
        subject.checkNextPage("meanwhile");
    }
    for (const auto& [status, count] : starts) {
        printf("%d times start %d\n", count, status);
        // On USB the replies do not wait behind the image bytes.
        const bool isUnanswered = settings.isNetwork() && status == SANE_STATUS_IO_ERROR;
        require(status == SANE_STATUS_GOOD || status == SANE_STATUS_DEVICE_BUSY ||
                    status == SANE_STATUS_CANCELLED || isUnanswered,
                "status");
    }
}

// ---- the command line ----

void chooseCanceller(const std::string& how)
{
    cancelAction = how == "thread" ? cancelByThread : cancelBySignal;
    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigaction(SIGUSR1, &action, nullptr);
    sigaction(SIGALRM, &action, nullptr);
}

// The search takes ten seconds, of whatever clock.
void search(const Settings& settings)
{
    if (settings.isNetwork()) {
        hooks::setClockSpeed(20);
        const SANE_Device** devices = nullptr;
        require(backend->getDevices(&devices, SANE_FALSE) == SANE_STATUS_GOOD, "no scanner");
        hooks::setClockSpeed(1);
    }
}

void run(const std::vector<std::string>& words)
{
    const std::string& what = words[1];
    Settings settings;
    settings.device = words[3];
    const auto number = [&](std::size_t i) {
        return i < words.size() ? atof(words[i].c_str()) : 0;
    };
    search(settings);
    if (what == "places" || what == "again") {
        cancelEverywhere(settings, what == "again");
    } else if (what == "stuck") {
        // On USB a transfer takes up to thirty seconds.
        hooks::setClockSpeed(settings.isNetwork() ? 1 : 10);
        for (std::size_t i = 5; i < words.size(); ++i) {
            cancelWhenStuck(settings, number(4), words[i]);
        }
    } else if (what == "endless") {
        settings.millimetres = 200.0;
        hooks::setClockSpeed(4);
        cancelInTheMiddle(settings, number(4));
    } else if (what == "between") {
        cancelBetween(settings);
    } else if (what == "random") {
        settings.millimetres = 60.0;
        cancelAtRandom(settings, static_cast<int>(number(4)), words[2] == "thread");
    } else if (what == "besides") {
        closeBesides(settings, words[5], static_cast<int>(number(4)));
    } else {
        require(what == "meanwhile", "what?");
        callMeanwhile(settings, static_cast<int>(number(4)));
    }
}

}  // namespace

// cancel_probe WHAT signal|thread DEVICE [NUMBER] ..., inside of a simulation of BACKEND_NAME.
int main(int count, char** words)
try {
    require(count >= 4, "WHAT signal|thread DEVICE ...");
    setvbuf(stdout, nullptr, _IOLBF, 0);
    const Backend loaded("QuillonLegacy_1_0_0");
    backend = &loaded;
    backend->init(nullptr, nullptr);
    const int before = openDescriptors();
    {
        Canceller thread;
        canceller = &thread;
        chooseCanceller(words[2]);
        run({words, words + count});
    }
    backend->exit();
    const int left = openDescriptors() - before;
    require(left == 0, std::to_string(left) + " descriptors left");
    return 0;
} catch (const Failed& failure) {
    printf("FAILED: %s\n", failure.what());
    fflush(stdout);
    _exit(1);
}
