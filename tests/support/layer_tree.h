#pragma once
// Builds layered images through the interfaces, reads them, and says by a plain evaluation what is to be seen.

#include <functional>
#include <gtest/gtest.h>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "support/layer_set.h"

#include "orvik/gfx_image.h"

namespace orvik {

/// What a node of a tree is made of. What is left out is not set on the node.
struct NodeSpec {
    std::string name = {};
    Int x = 0, y = 0;  ///< of its corner; set as keys unless both are 0
    Int width = 0, height = 0;
    Id format = pixelformats::kRgbaU8;
    std::optional<Float> opacity = {};
    Id mode = {};
    std::optional<Bool> enabled = {};
    std::optional<Int> maskColor = {};
    ITYPE type = ITYPE::LAYER;
    bool hasPixels = true;  ///< false: the storage that only describes
};

class LayerTree {
public:
    /// A pixel of a node as RGBA of doubles; an alpha or mask looks at the last one.
    using Paint = std::function<std::array<double, 4>(Int x, Int y)>;

    static ImageTextureRef MakeTexture() {
        return ClassRef(imageclasses::kTexture).Create<ImageTextureInterface>().TakeValue();
    }
    static ImageRef AddImage(const ImageTextureRef& texture, NodeSpec spec, const Paint& paint = {}) {
        spec.type = ITYPE::IMAGE;
        return Add(texture, IMAGEHIERARCHY::IMAGE, imageclasses::kImage, spec, paint);
    }
    static ImageRef AddLayer(const ImageBaseRef& parent, const NodeSpec& spec, const Paint& paint = {}) {
        return Add(parent, IMAGEHIERARCHY::LAYER, imageclasses::kRasterLayer, spec, paint);
    }
    /// A folder has no pixels, nor an area.
    static ImageRef AddFolder(const ImageBaseRef& parent, NodeSpec spec) {
        spec.type = ITYPE::FOLDER;
        spec.hasPixels = false;
        return AddLayer(parent, spec);
    }
    static ImageRef AddMask(const ImageBaseRef& layer, NodeSpec spec, const Paint& paint = {}) {
        spec.type = ITYPE::LAYERMASK;
        return Add(layer, IMAGEHIERARCHY::MASK, imageclasses::kRasterLayer, spec, paint);
    }
    static ImageRef AddAlpha(const ImageBaseRef& image, NodeSpec spec, const Paint& paint = {}) {
        spec.type = ITYPE::ALPHA;
        return Add(image, IMAGEHIERARCHY::ALPHA, imageclasses::kRasterLayer, spec, paint);
    }

    /// Writes every pixel of a node.
    static void Fill(const ImageBaseRef& node, const Paint& paint) {
        const PixelFormat source = PixelFormats::Get(pixelformats::kRgbaF64);
        auto writer = node->SetPixelHandler(source, {}, {}, SETPIXELHANDLERFLAGS::NONE);
        ASSERT_TRUE(writer) << writer.GetError()->ToString().GetCString();
        std::vector<std::array<double, 4>> row(static_cast<size_t>(node->GetWidth()));
        for (Int y = 0; y < node->GetHeight(); ++y) {
            for (Int x = 0; x < node->GetWidth(); ++x)
                row[static_cast<size_t>(x)] = paint(x, y);
            const PixelSpan span{0, y, node->GetWidth()};
            ASSERT_TRUE(writer->write(span, {row.data(), BITS(256)}, SETPIXELFLAGS::NONE));
            writer->Widen(span);
        }
        node->FreePixelHandler(*writer);
    }
    static Paint Plain(double red, double green, double blue, double alpha = 1) {
        return [=](Int, Int) { return std::array{red, green, blue, alpha}; };
    }
    /// Another value for every pixel and channel, the same ones for the same seed.
    static Paint Noise(unsigned seed) {
        return [random = std::mt19937(seed)](Int, Int) mutable {
            std::array<double, 4> pixel;
            for (double& value : pixel)
                value = double(random() % 256) / 255;
            if (random() % 4 == 0)
                pixel[3] = random() % 2 ? 1 : 0;  // full transparency and opacity have code of their own
            return pixel;
        };
    }

private:
    static ImageRef Add(const ImageBaseRef& parent, IMAGEHIERARCHY branch, const Id& nodeClass, const NodeSpec& spec,
                        const Paint& paint) {
        const ImageRef node = ClassRef(nodeClass).Create<ImageInterface>().TakeValue();
        const auto storage = spec.hasPixels ? storageclasses::kNormal : storageclasses::kNoData;
        EXPECT_TRUE(node->Init(spec.width, spec.height, ClassRef(storage), PixelFormats::Get(spec.format), {}));
        EXPECT_TRUE(node->Set(image::kType, spec.type));
        const auto set = [&](bool isGiven, const auto& key, const auto& value) {
            EXPECT_TRUE(!isGiven || node->Set(key, value));
        };
        const bool hasPlace = spec.x != 0 || spec.y != 0;
        set(!spec.name.empty(), spec.type == ITYPE::ALPHA ? image::kAlphaName : image::kName, String(spec.name));
        set(hasPlace, image::kLayerBoundingBoxX, spec.x);
        set(hasPlace, image::kLayerBoundingBoxY, spec.y);
        set(spec.opacity.has_value(), image::kLayerOpacity, spec.opacity.value_or(0));
        set(!spec.mode.IsEmpty(), image::kLayerBlendMode, blendmodes::Get(spec.mode));
        set(spec.enabled.has_value(), image::kLayerEnabled, spec.enabled.value_or(false));
        set(spec.maskColor.has_value(), image::kLayerMaskDefColor, spec.maskColor.value_or(0));
        if (paint && spec.hasPixels)
            Fill(node, paint);
        EXPECT_TRUE(parent->AddChildren(branch, node, nullptr));
        return node;
    }
};

/// Reads a node, line by line, as pixels of N components of type T. Empty after a failure, which also fails the test.
template <class T, size_t N = 4>
std::vector<std::array<T, N>> ReadPixels(const ImageBaseRef& node, const Id& format, const LayerSet& layers,
                                         GETPIXELHANDLERFLAGS flags = GETPIXELHANDLERFLAGS::NONE) {
    std::vector<std::array<T, N>> pixels;
    auto reader = node->GetPixelHandler(PixelFormats::Get(format), {}, {}, flags, layers);
    EXPECT_TRUE(reader);
    if (!reader)
        return pixels;
    const Int width = node->GetWidth();
    pixels.resize(static_cast<size_t>(width * node->GetHeight()));
    for (Int y = 0; y < node->GetHeight(); ++y)
        EXPECT_TRUE(reader->read({0, y, width}, {pixels.data() + y * width, BITS(sizeof(T) * N * 8)}, {}));
    node->FreePixelHandler(*reader);
    return pixels;
}

}  // namespace orvik
