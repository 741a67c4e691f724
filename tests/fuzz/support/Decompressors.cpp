// SPDX-License-Identifier: LGPL-2.1-or-later
// Making a decompressor takes much longer than what most inputs do with it: they are kept and
// used again.
#include "DeCompHandler.h"
#include "wicket/DecompWicket.h"

#include <memory>
#include <utility>
#include <vector>

namespace {

using Decompressor = std::unique_ptr<CDecompWicket>;

std::vector<Decompressor>& idle()
{
    static std::vector<Decompressor> all;
    return all;
}

class Borrowed : public CDecomp {
public:
    Borrowed()
    {
        if (idle().empty()) {
            idle().push_back(std::make_unique<CDecompWicket>(1));
        }
        own_ = std::move(idle().back());
        idle().pop_back();
        unsigned char ring = 0;
        int none = 0;
        own_->Decomp(&ring, 0, &none, nullptr, 0, &none);  // back to the ring's start
    }
    ~Borrowed() override { idle().push_back(std::move(own_)); }

    void StartDecomp(int width, int height, int channels, int bitsPerPixel) override
    {
        own_->StartDecomp(width, height, channels, bitsPerPixel);
    }
    void EndDecomp() override {}
    int Decomp(unsigned char* in, int inLen, int* bytesConverted, unsigned char* out, int outLen,
               int* bytesGen) override
    {
        return own_->Decomp(in, inLen, bytesConverted, out, outLen, bytesGen);
    }
    void SetQualityFactor(int quality) override { own_->SetQualityFactor(quality); }
    int GetMaxLinesPerBand() override { return own_->GetMaxLinesPerBand(); }
    int GetNumPadBytesPerLine() override { return own_->GetNumPadBytesPerLine(); }

private:
    Decompressor own_;
};

}  // namespace

// In place of the library's, which is made weak.
std::unique_ptr<CDecomp> DeCompHandler::createDecompressor(int /*technology*/)
{
    return std::make_unique<Borrowed>();
}
