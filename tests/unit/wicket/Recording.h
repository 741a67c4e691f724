// SPDX-License-Identifier: LGPL-2.1-or-later
// Streams with what the scalar path makes of them: recorded on one kind of processor, decoded
// again on another.
#pragma once

#include "wicket/Wicket.h"

#include <iosfwd>
#include <vector>

namespace recording {

using Bytes = std::vector<unsigned char>;

struct Stream {
    bool isStuffed;
    int quality;
    int width;
    int height;
    int channels;
    Bytes body;
};

struct Result {
    int status;
    int generated;
    int converted;
    Bytes out;

    bool operator==(const Result& other) const
    {
        return status == other.status && generated == other.generated &&
               converted == other.converted && out == other.out;
    }
};

struct Entry {
    Stream stream;
    Result result;
    bool isTaken;  // whether the fast path decodes the stream itself
};

// decoder must be one for the stuffing of the stream.
Result decode(Wicket& decoder, const Stream& stream);
// False: the fast path gave up. tables: a decoder that has the quality of the stream.
bool decodeFast(FastDecoder& decoder, const wicket::Kernel& kernel, const Wicket& tables,
                const Stream& stream, Bytes* out);

// The file that the environment asks for with WICKET_RECORDING; null: none.
std::ostream* file();
void write(std::ostream& out, const Entry& entry);
// False at the end; throws in the middle of an entry.
bool read(std::istream& in, Entry* entry);

}  // namespace recording
