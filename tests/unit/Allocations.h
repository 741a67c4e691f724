// SPDX-License-Identifier: LGPL-2.1-or-later
// Control over the memory that the library asks for, and over its reads of files.
#pragma once

// Counts what the calling thread allocates while one is alive, and refuses allocations on
// demand. Only one may be alive at a time.
class Allocations {
public:
    static constexpr int kAll = 1 << 30;

    // Grants the given number of allocations, then refuses so many further ones: malloc and
    // its family and the new that does not throw return null, new throws.
    explicit Allocations(int granted = kAll, int refused = kAll);
    Allocations(const Allocations&) = delete;
    Allocations& operator=(const Allocations&) = delete;
    ~Allocations();

    int count() const;
    bool refused() const { return count() > granted_; }

    // For the allocators: counts one more, true if it is to be refused.
    static bool refuseNext();

    // While one is alive, allocations are neither counted nor refused: for what stands in for a
    // part of the system.
    class Pause {
    public:
        Pause();
        Pause(const Pause&) = delete;
        Pause& operator=(const Pause&) = delete;
        ~Pause();

    private:
        bool wasWatching_;
    };

private:
    int granted_;
};

// Grants one allocation more each time, until none is refused any more.
template <typename Action>
void withEveryShortage(Action action)
{
    constexpr int kMost = 10000;
    bool isRefused = true;
    for (int granted = 0; isRefused && granted < kMost; ++granted) {
        const Allocations some(granted);
        action(granted);
        isRefused = some.refused();
    }
}

// While one is alive, fread reads one element less than asked for.
class ShortReads {
public:
    ShortReads();
    ShortReads(const ShortReads&) = delete;
    ShortReads& operator=(const ShortReads&) = delete;
    ~ShortReads();

    static bool isOn();
};
