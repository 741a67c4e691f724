// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Resources.h"

#include "Sane.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

#include <malloc.h>
#include <sys/resource.h>
#include <unistd.h>

// There only under the address sanitizer, which has malloc of its own.
extern "C" __attribute__((weak)) std::size_t __sanitizer_get_current_allocated_bytes();

namespace frontend {

namespace {

bool isSanitized()
{
    return __sanitizer_get_current_allocated_bytes != nullptr;
}

long heapBytes()
{
    if (isSanitized()) {
        return static_cast<long>(__sanitizer_get_current_allocated_bytes());
    }
    const struct mallinfo2 info = mallinfo2();
    return static_cast<long>(info.uordblks + info.hblkhd);
}

long openDescriptors()
{
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
}

long mappings()
{
    std::ifstream maps("/proc/self/maps");
    return std::count(std::istreambuf_iterator<char>(maps), {}, '\n');
}

long residentKb()
{
    std::ifstream statm("/proc/self/statm");
    long size = 0;
    long resident = 0;
    statm >> size >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

}  // namespace

Resources Resources::now()
{
    Resources all;
    all.descriptors = openDescriptors();
    all.mappings = frontend::mappings();
    all.residentKb = frontend::residentKb();
    all.heap = heapBytes();
    return all;
}

std::string Resources::text() const
{
    return std::to_string(descriptors) + " descriptors, " + std::to_string(mappings) +
           " mappings, resident " + std::to_string(residentKb) + " KB, heap " +
           std::to_string(heap) + " bytes";
}

void requireFlat(const Resources& early, const Resources& late, long heapSlack)
{
    const std::string change = early.text() + " -> " + late.text();
    std::printf("  after the warm-up: %s\n  at the end:        %s\n", early.text().c_str(),
                late.text().c_str());
    require(late.descriptors <= early.descriptors, "descriptors: " + change);
    require(late.heap <= early.heap + heapSlack, "heap: " + change);
    if (!isSanitized()) {
        require(late.mappings <= early.mappings, "mappings: " + change);
        require(late.residentKb <= early.residentKb + kResidentSlackKb, "resident: " + change);
    }
}

long peakResidentKb()
{
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

}  // namespace frontend
