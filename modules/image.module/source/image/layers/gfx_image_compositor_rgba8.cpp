#include "image/layers/gfx_image_compositor_rgba8.h"

#include "image/layers/gfx_image_rasternode.h"
#include "pixel/blend/gfx_image_pixelblend_formulas_inl.h"
#include "pixel/kernels/gfx_image_pixelformat_arithmetic.h"

namespace orvik {
namespace {

bool LaysOver(const Id& mode) {
    return mode == blendmodes::kOver || mode == blendmodes::kPassFolder || mode == blendmodes::kDissolve;
}

using Pixel = pixel::HWY_NAMESPACE::Rgba<float>;

Pixel LoadPixel(const uint8_t* bytes) {
    return {pixel::IntegerToFloat<float>(bytes[0]), pixel::IntegerToFloat<float>(bytes[1]),
            pixel::IntegerToFloat<float>(bytes[2]), pixel::IntegerToFloat<float>(bytes[3])};
}

/// The pixel at `offset` bytes into each run; as the loops over vectors.
void ComposePixel(uint8_t* dst, Block<const pixel::Rgba8Front> fronts, size_t offset, bool straight) {
    Pixel seen{0, 0, 0, 0};
    for (size_t i = 0; i < fronts.size(); ++i) {
        const Pixel front = LoadPixel(fronts[i].pixels + offset);
        seen = straight && i == 0
                   ? front
                   : pixel::HWY_NAMESPACE::BlendPixel<pixel::BlendFormula::Over>(seen, front, fronts[i].opacity);
    }
    const float values[4] = {seen.red, seen.green, seen.blue, seen.alpha};
    for (size_t channel = 0; channel < 4; ++channel)
        dst[channel] = pixel::FloatToInteger<Pix8u>(values[channel]);
}

}  // namespace

Result<bool> Rgba8Stack::Init(Block<const ImageBaseRef> layers, Block<const Float> opacities) {
    TRY(_layers.Reserve(static_cast<Int>(layers.size())));
    for (size_t i = 0; i < layers.size(); ++i) {
        const RasterNode* node = RasterNode::From(layers[i]);
        Ref<PixelRaster> raster = node ? node->GetRaster() : Ref<PixelRaster>();
        const bool fits = raster && raster->GetFormat() == PixelFormats::Get(pixelformats::kRgbaU8) &&
                          raster->GetWidth() == layers[i]->GetWidth() && raster->GetHeight() == layers[i]->GetHeight();
        if (!fits || !LaysOver(GetLayerBlendMode(layers[i])->GetId()))
            return false;
        TRY(_layers.Append(Layer{std::move(raster), Placement(layers[i]), static_cast<float>(opacities[i])}));
    }
    _takesBottomStraight = !opacities.empty() && opacities[0] == 1.0;  // as a double: a float near 1 is rounded up
    _kernel = pixel::GetRgba8Kernel();
    TRY(_fronts.Resize(_layers.GetCount()));
    return true;
}

void Rgba8Stack::Read(const PixelSpan& span, uint8_t* dst) {
    constexpr size_t kPixelBytes = 4;
    // Processes segments over which the set of layers is constant.
    for (Int done = 0; done < span.count;) {
        const PixelSpan rest{span.x + done, span.y, span.count - done};
        Int count = rest.count;
        size_t frontCount = 0;
        bool straight = false;
        for (Int i = 0; i < _layers.GetCount(); ++i) {
            const Layer& layer = _layers[i];
            const Placement::Overlap overlap = layer.placement.Clip(rest);
            if (overlap.count == 0)
                continue;
            if (overlap.skip > 0) {
                count = std::min(count, overlap.skip);
                continue;
            }
            count = std::min(count, overlap.count);
            straight = straight || (i == 0 && _takesBottomStraight);
            const PixelLine line = layer.raster->GetLine(overlap.local.x, overlap.local.y);
            _fronts[static_cast<Int>(frontCount++)] = {static_cast<const uint8_t*>(line.data), layer.opacity};
        }
        const auto pixels = static_cast<size_t>(count);
        const Block<const pixel::Rgba8Front> fronts = std::as_const(_fronts).ToBlock().first(frontCount);
        uint8_t* out = dst + static_cast<size_t>(done) * kPixelBytes;
        size_t i = _kernel ? _kernel(out, fronts.data(), frontCount, pixels, straight) : 0;
        for (; i < pixels; ++i)
            ComposePixel(out + i * kPixelBytes, fronts, i * kPixelBytes, straight);
        done += count;
    }
}

}  // namespace orvik
