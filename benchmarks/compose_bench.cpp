#include "compose_bench.h"

#include <cstring>
#include <random>
#include <string>

#include "orvik/gfx_image.h"

using namespace orvik;

namespace bench {
namespace {

constexpr Int kWidth = 4096, kHeight = 2160, kLayers = 4;
constexpr size_t kPictureBytes = size_t(kWidth) * kHeight * 4;
constexpr BITS kStride{32};

enum class Kind { Normal, Opaque, Mixed };

Result<ImageRef> AddNode(const ImageBaseRef& parent, IMAGEHIERARCHY branch, ITYPE type, const Id& format) {
    const Id nodeClass = type == ITYPE::IMAGE ? Id(imageclasses::kImage) : Id(imageclasses::kRasterLayer);
    ImageRef node = TRY(ClassRef(nodeClass).Create<ImageInterface>());
    const bool isDescription = type == ITYPE::IMAGE;
    TRY(node->Init(kWidth, kHeight, ClassRef(isDescription ? storageclasses::kNoData : storageclasses::kNormal),
                   PixelFormats::Get(format), {}));
    TRY(node->Set(image::kType, type));
    TRY(parent->AddChildren(branch, node, nullptr));
    return node;
}

/// Random bytes, shifted by one pixel per line.
Result<void> FillNode(const ImageRef& node, bool opaque) {
    const PixelFormat format = node->GetPixelFormat();
    const auto pixelBytes = static_cast<size_t>(format->GetBitsPerPixel().GetBytes());
    SetPixelHandlerStruct writer = TRY(node->SetPixelHandler(format, {}, ColorProfile(), SETPIXELHANDLERFLAGS::NONE));
    std::minstd_rand random(1);
    std::vector<uint8_t> bytes(static_cast<size_t>(kWidth + kHeight) * pixelBytes);
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = opaque && i % pixelBytes == 3 ? 255 : static_cast<uint8_t>(random() >> 8);
    for (Int y = 0; y < kHeight; ++y) {
        const uint8_t* line = bytes.data() + static_cast<size_t>(y) * pixelBytes;
        TRY(writer.write({0, y, kWidth}, {line, format->GetBitsPerPixel()}, SETPIXELFLAGS::NONE));
    }
    node->FreePixelHandler(writer);
    return {};
}

Result<ImageTextureRef> MakePicture(Kind kind) {
    ImageTextureRef texture = TRY(ClassRef(imageclasses::kTexture).Create<ImageTextureInterface>());
    const ImageRef picture = TRY(AddNode(texture, IMAGEHIERARCHY::IMAGE, ITYPE::IMAGE, pixelformats::kRgbaU8));
    static const Id kModes[kLayers] = {blendmodes::kMultiply, blendmodes::kScreen, blendmodes::kOverlay,
                                       blendmodes::kOver};
    for (Int i = 0; i < kLayers; ++i) {
        const ImageRef layer = TRY(AddNode(picture, IMAGEHIERARCHY::LAYER, ITYPE::LAYER, pixelformats::kRgbaU8));
        TRY(FillNode(layer, kind == Kind::Opaque));
        if (kind != Kind::Mixed)
            continue;
        TRY(layer->Set(image::kLayerBlendMode, blendmodes::Get(kModes[i])));
        TRY(layer->Set(image::kLayerOpacity, 0.5));
        TRY(layer->Set(image::kLayerBoundingBoxX, i * 3));
        const ImageRef mask = TRY(AddNode(layer, IMAGEHIERARCHY::MASK, ITYPE::LAYERMASK, pixelformats::kAlphaU8));
        TRY(FillNode(mask, false));
    }
    return texture;
}

/// The picture of the running benchmark, and the buffers of the copies.
struct Material {
    static Material& Get() {
        static Material material;
        return material;
    }
    const ImageTextureRef* Prepare(Kind wanted) {
        if (texture && kind == wanted)
            return &texture;
        texture = nullptr;
        Result<ImageTextureRef> made = MakePicture(wanted);
        if (!made)
            return nullptr;
        texture = std::move(made).TakeValue();
        kind = wanted;
        return &texture;
    }

    ImageTextureRef texture;
    Kind kind = Kind::Normal;
    std::vector<std::byte> source, destination;
};

void ComposePicture(benchmark::State& state, Kind kind) {
    Material& material = Material::Get();
    const ImageTextureRef* texture = material.Prepare(kind);
    const PixelFormat rgba = PixelFormats::Get(pixelformats::kRgbaU8);
    LayerSet all;
    if (!texture || !all.SetMode(LAYERSETMODE::LAYERS))
        return state.SkipWithError("the picture cannot be made");
    material.destination.resize(kPictureBytes * (kLayers + 1) / 2);
    for ([[maybe_unused]] auto iteration : state) {
        auto reader = (*texture)->GetPixelHandler(rgba, {}, ColorProfile(), GETPIXELHANDLERFLAGS::NONE, all);
        if (!reader)
            return state.SkipWithError(reader.GetError()->ToString().GetCString());
        for (Int y = 0; y < kHeight; ++y) {
            std::byte* line = material.destination.data() + y * kWidth * kStride.GetBytes();
            if (!reader->read({0, y, kWidth}, {line, kStride}, GETPIXELFLAGS::NONE))
                return state.SkipWithError("a line failed");
        }
        (*texture)->FreePixelHandler(*reader);
        benchmark::ClobberMemory();
    }
}

/// Copies as many bytes, read and written together, as compositing reads and writes.
void CopyBytes(benchmark::State& state) {
    Material& material = Material::Get();
    constexpr size_t kBytes = kPictureBytes * (kLayers + 1) / 2;
    material.source.resize(kBytes, std::byte(1));
    material.destination.resize(kBytes);
    for ([[maybe_unused]] auto iteration : state) {
        std::memcpy(material.destination.data(), material.source.data(), kBytes);
        benchmark::ClobberMemory();
    }
}

}  // namespace

void ReleaseComposeMaterial() { Material::Get() = Material(); }

std::vector<Pairing> RegisterComposeBenchmarks() {
    std::vector<Pairing> pairings;
    const std::pair<const char*, Kind> cases[] = {{"compose.normal4.big", Kind::Normal},
                                                  {"compose.opaque4.big", Kind::Opaque},
                                                  {"compose.mixed4.big", Kind::Mixed}};
    for (const auto& [name, kind] : cases) {
        benchmark::RegisterBenchmark(name, [kind = kind](benchmark::State& state) {
            ComposePicture(state, kind);
        })->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark((std::string(name) + "/memcpy").c_str(), CopyBytes)->Unit(benchmark::kMillisecond);
        pairings.push_back({name, "memcpy", "Mpixel/s", double(kWidth * kHeight) / 1e6});
    }
    return pairings;
}

}  // namespace bench
