// The decompression stage, quick to make.
#pragma once

#include "DeCompHandler.h"

namespace fuzz {

// Making a decompressor takes much longer than decompressing with it: all stages share one.
class DecompressionStage : public DeCompHandler {
protected:
    std::unique_ptr<CDecomp> createDecompressor(int technology) override;
};

}  // namespace fuzz
