// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Allocations.h"

namespace {

thread_local bool watching = false;
thread_local int counted = 0;
thread_local int firstRefused = 0;
thread_local int lastRefused = 0;
thread_local bool shortReads = false;

}  // namespace

Allocations::Allocations(int granted, int refused) : granted_(granted)
{
    counted = 0;
    firstRefused = granted;
    lastRefused = refused < kAll - granted ? granted + refused : kAll;
    watching = true;
}

Allocations::~Allocations()
{
    watching = false;
}

int Allocations::count() const
{
    return counted;
}

Allocations::Pause::Pause() : wasWatching_(watching)
{
    watching = false;
}

Allocations::Pause::~Pause()
{
    watching = wasWatching_;
}

bool Allocations::refuseNext()
{
    if (!watching) {
        return false;
    }
    const int number = counted++;
    return number >= firstRefused && number < lastRefused;
}

ShortReads::ShortReads()
{
    shortReads = true;
}

ShortReads::~ShortReads()
{
    shortReads = false;
}

bool ShortReads::isOn()
{
    return shortReads;
}
