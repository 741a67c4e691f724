#include "DecompressionStage.h"

#include "wicket/DecompWicket.h"

namespace {

class Borrowed : public CDecomp {
public:
    Borrowed()
    {
        unsigned char ring = 0;
        int none = 0;
        shared().Decomp(&ring, 0, &none, nullptr, 0, &none);  // back to the ring's start
    }
    void StartDecomp(int width, int height, int channels, int bitsPerPixel) override
    {
        shared().StartDecomp(width, height, channels, bitsPerPixel);
    }
    void EndDecomp() override {}
    int Decomp(unsigned char* in, int inLen, int* bytesConverted, unsigned char* out, int outLen,
               int* bytesGen) override
    {
        return shared().Decomp(in, inLen, bytesConverted, out, outLen, bytesGen);
    }
    void SetQualityFactor(int quality) override { shared().SetQualityFactor(quality); }
    int GetMaxLinesPerBand() override { return shared().GetMaxLinesPerBand(); }
    int GetNumPadBytesPerLine() override { return shared().GetNumPadBytesPerLine(); }

private:
    static CDecomp& shared()
    {
        static CDecompWicket decompressor(1);
        return decompressor;
    }
};

}  // namespace

std::unique_ptr<CDecomp> fuzz::DecompressionStage::createDecompressor(int)
{
    return std::make_unique<Borrowed>();
}
