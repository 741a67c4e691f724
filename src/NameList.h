// SPDX-License-Identifier: LGPL-2.1-or-later
// The lists of names that cross the transport and engine interfaces.
#pragma once

#include <cstdlib>

// A malloc'd array of malloc'd strings, freed at the end unless it was released. names and
// count may be filled through their addresses.
struct NameList {
    char** names = nullptr;
    int count = 0;

    NameList() = default;
    NameList(const NameList&) = delete;
    NameList& operator=(const NameList&) = delete;
    ~NameList()
    {
        for (int i = 0; names != nullptr && i < count; ++i) {
            free(names[i]);
        }
        free(names);
    }

    // Room for size names, all null. false without memory.
    bool allocate(int size)
    {
        names = static_cast<char**>(calloc(static_cast<std::size_t>(size) + 1, sizeof(char*)));
        count = names != nullptr ? size : 0;
        return names != nullptr;
    }

    // Hands the array over to a caller who frees it.
    char** release()
    {
        char** released = names;
        names = nullptr;
        count = 0;
        return released;
    }
};
