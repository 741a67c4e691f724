// Decodes recorded chunks of a compressed page, apart from the stages that a scan runs through:
//   wicket_decode INPUT.wck WIDTH CHANNELS OUTPUT.raw
// The output is the lines without gaps. A chunk that is not whole ends the page.
#include "wicket/DecompWicket.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

constexpr std::size_t kHeaderSize = 16;
constexpr std::size_t kMaxLines = 32;

std::size_t chunkSize(const Bytes& stream, std::size_t at)
{
    const unsigned char* p = stream.data() + at;
    return std::size_t{p[0]} << 24 | std::size_t{p[1]} << 16 | std::size_t{p[2]} << 8 | p[3];
}

class PageDecoder {
public:
    PageDecoder(int width, int channels)
        : decoder_(1), stride_(static_cast<std::size_t>(width) * static_cast<std::size_t>(channels))
    {
        decoder_.SetQualityFactor(0);
        decoder_.StartDecomp(width, 0, channels, 8 * channels);
        step_ = stride_ + static_cast<std::size_t>(decoder_.GetNumPadBytesPerLine());
    }

    // What cannot be decoded of a chunk is as the decoder leaves it.
    void decode(Bytes& chunk, Bytes& page)
    {
        Bytes out(step_ * kMaxLines);
        int converted = 0;
        int generated = 0;
        decoder_.Decomp(chunk.data(), static_cast<int>(chunk.size()), &converted, out.data(),
                        static_cast<int>(out.size()), &generated);
        const std::size_t lines = static_cast<std::size_t>(std::max(generated, 0)) / stride_;
        for (std::size_t i = 0; i < lines; ++i) {
            const auto line = out.begin() + static_cast<long>(i * step_);
            page.insert(page.end(), line, line + static_cast<long>(stride_));
        }
    }

private:
    CDecompWicket decoder_;
    std::size_t stride_;
    std::size_t step_ = 0;
};

Bytes decodePage(const Bytes& stream, int width, int channels)
{
    PageDecoder decoder(width, channels);
    Bytes page;
    std::size_t at = 0;
    while (at + kHeaderSize <= stream.size()) {
        const std::size_t size = chunkSize(stream, at);
        if (size < kHeaderSize || size > stream.size() - at) {
            break;
        }
        const auto first = stream.begin() + static_cast<long>(at);
        Bytes chunk(first, first + static_cast<long>(size));
        decoder.decode(chunk, page);
        at += size;
    }
    return page;
}

}  // namespace

int main(int argc, char** argv)
{
    const int width = argc == 5 ? std::atoi(argv[2]) : 0;
    const int channels = argc == 5 ? std::atoi(argv[3]) : 0;
    if (width < 1 || width > 0xFFFF || (channels != 1 && channels != 3)) {
        std::fprintf(stderr, "usage: wicket_decode INPUT.wck WIDTH CHANNELS OUTPUT.raw\n");
        return 2;
    }
    std::ifstream input(argv[1], std::ios::binary);
    if (!input) {
        std::perror(argv[1]);
        return 1;
    }
    const Bytes stream(std::istreambuf_iterator<char>(input), {});
    const Bytes page = decodePage(stream, width, channels);
    std::ofstream output(argv[4], std::ios::binary);
    output.write(reinterpret_cast<const char*>(page.data()), static_cast<long>(page.size()));
    output.close();
    if (!output) {
        std::perror(argv[4]);
        return 1;
    }
    return 0;
}
