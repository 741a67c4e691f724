// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "ImageFile.h"
#include "Paper.h"

namespace scansim {

// A picture stretched over the whole paper.
class ImagePaper : public Paper {
public:
    ImagePaper(Image image, PaperSize size);
    std::unique_ptr<PaperReader> open(const Window& window) const override;

private:
    Image image_;
    PaperSize size_;
};

}  // namespace scansim
