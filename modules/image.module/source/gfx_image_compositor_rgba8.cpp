#include "gfx_image_compositor_rgba8.h"

#include "gfx_imageimpl.h"

namespace orvik {
namespace {

bool LaysOver(const Id& mode) {
    return mode == blendmodes::kOver || mode == blendmodes::kPassFolder || mode == blendmodes::kDissolve;
}

}  // namespace

Result<bool> Rgba8Stack::Init(Block<const ImageBaseRef> layers, Block<const Float> opacities) {
    TRY(_layers.Reserve(static_cast<Int>(layers.size())));
    for (size_t i = 0; i < layers.size(); ++i) {
        const auto* node = dynamic_cast<const ImageImpl*>(layers[i].GetPointer());
        Ref<PixelRaster> raster = node ? node->GetRaster() : Ref<PixelRaster>();
        const bool fits = raster && raster->GetFormat() == PixelFormats::Get(pixelformats::kRgbaU8) &&
                          raster->GetWidth() == node->GetWidth() && raster->GetHeight() == node->GetHeight();
        if (!fits || !LaysOver(GetLayerBlendMode(layers[i])->GetId()))
            return false;
        TRY(_layers.Append(Layer{std::move(raster), Placement(layers[i]), static_cast<float>(opacities[i])}));
    }
    _takesBottomStraight = !opacities.empty() && opacities[0] == 1.0;  // as a double: a float near 1 is rounded up
    TRY(_fronts.Resize(_layers.GetCount()));
    return true;
}

void Rgba8Stack::Read(const PixelSpan& span, uint8_t* dst) {
    constexpr Int kPixelBytes = 4;
    // In parts along which the same layers lie on each other.
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
        pixel::ComposeRgba8(dst + done * kPixelBytes, _fronts.GetFirst(), frontCount, static_cast<size_t>(count),
                            straight);
        done += count;
    }
}

}  // namespace orvik
