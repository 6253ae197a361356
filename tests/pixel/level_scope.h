#pragma once

#include "pixel/kernels/gfx_image_pixelformat_kernels.h"

namespace orvik {

/// Makes everything that is set up while it lives use one level.
class LevelScope {
public:
    explicit LevelScope(const pixel::KernelSet& kernels) : _before(pixel::GetKernels()) { pixel::SetKernels(kernels); }
    ~LevelScope() { pixel::SetKernels(_before); }
    LevelScope(const LevelScope&) = delete;
    LevelScope& operator=(const LevelScope&) = delete;

private:
    const pixel::KernelSet& _before;
};

}  // namespace orvik
