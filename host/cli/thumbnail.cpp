#include "thumbnail.h"

#include <array>

#include "formats.h"
#include "noderows.h"
#include "picture.h"

#include "orvik/iomemory.h"

namespace orvik::cli {

namespace {

/// 8-bit RGBA, straight alpha, rows without padding.
struct Raster {
    Int width = 0;
    Int height = 0;
    BaseArray<std::byte> pixels;
    std::byte* GetRow(Int y) { return pixels.GetFirst() + y * width * 4; }
};

/// Sums of one pixel of the small picture. Colours are weighted with alpha, so that invisible pixels do not count.
struct Sum {
    uint64_t weighted[3] = {};
    uint64_t alpha = 0;
    uint64_t count = 0;

    void Add(const std::byte* rgba) {
        const auto weight = std::to_integer<uint64_t>(rgba[3]);
        for (size_t i = 0; i < 3; ++i)
            weighted[i] += std::to_integer<uint64_t>(rgba[i]) * weight;
        alpha += weight;
        ++count;
    }
    void Take(std::byte* rgba) const {
        for (size_t i = 0; i < 3; ++i)
            rgba[i] = std::byte(alpha == 0 ? 0 : (weighted[i] + alpha / 2) / alpha);
        rgba[3] = std::byte(count == 0 ? 0 : (alpha + count / 2) / count);
    }
};

/// First pixel of the long side that falls into pixel `i` of the short one.
constexpr Int Start(Int i, Int from, Int to) { return i * from / to; }

RowsWish MakeWish(const ImageBaseRef& node, const LayerSet& layers) {
    RowsWish wish;
    const bool isMask = !layers && IsMask(node);
    wish.format = PixelFormats::Get(isMask ? pixelformats::kRgbU8 : pixelformats::kRgbaU8);
    wish.layers = layers;
    if (!isMask && node->Get(image::kColorProfile, ColorProfile()).HasProfile())
        wish.profile = colorprofiles::Get(colorprofiles::kSrgb);
    return wish;
}

void AddRow(Block<const std::byte> row, Int bytesPerPixel, Int width, BaseArray<Sum>& sums) {
    const Int small = sums.GetCount();
    for (Int x = 0; x < small; ++x) {
        const Int end = Start(x + 1, width, small);
        for (Int i = Start(x, width, small); i < end; ++i) {
            std::array<std::byte, 4> pixel{};
            pixel[3] = std::byte(255);
            std::copy_n(row.data() + i * bytesPerPixel, bytesPerPixel, pixel.begin());
            sums[x].Add(pixel.data());
        }
    }
}

Result<Raster> Shrink(const ImageBaseRef& node, const LayerSet& layers) {
    const RowsWish wish = MakeWish(node, layers);
    NodeRows rows = TRY(NodeRows::Create(node, wish));
    const Int width = rows.GetWidth(), height = rows.GetHeight();
    const Int longest = std::max({width, height, kThumbnailSize});
    Raster raster;
    raster.width = std::max<Int>(1, width * kThumbnailSize / longest);
    raster.height = std::max<Int>(1, height * kThumbnailSize / longest);
    if (longest == kThumbnailSize)
        raster.width = width, raster.height = height;
    TRY(raster.pixels.Resize(raster.width * raster.height * 4));

    const Int bytesPerPixel = wish.format->GetBitsPerPixel().GetBytes();
    BaseArray<Sum> sums;
    for (Int y = 0; y < raster.height; ++y) {
        TRY(sums.Resize(0));
        TRY(sums.Resize(raster.width));
        const Int end = Start(y + 1, height, raster.height);
        for (Int line = Start(y, height, raster.height); line < end; ++line) {
            const Block<const std::byte> row = TRY(rows.Read(line));
            AddRow(row, bytesPerPixel, width, sums);
        }
        for (Int x = 0; x < raster.width; ++x)
            sums[x].Take(raster.GetRow(y) + x * 4);
    }
    return raster;
}

Result<ImageTextureRef> MakeTexture(Raster& raster) {
    const PixelFormat rgba = PixelFormats::Get(pixelformats::kRgbaU8);
    const auto node = TRY(ClassRef(imageclasses::kImage).Create<ImageInterface>());
    TRY(node->Init(raster.width, raster.height, ClassRef(storageclasses::kNormal), rgba, {}));
    SetPixelHandlerStruct handler =
        TRY(node->SetPixelHandler(rgba, rgba->GetChannelOffsets(), ColorProfile(), SETPIXELHANDLERFLAGS::NONE));
    Result<void> written;
    for (Int y = 0; y < raster.height && written; ++y)
        written = handler.write({0, y, raster.width}, {raster.GetRow(y), rgba->GetBitsPerPixel()}, SETPIXELFLAGS::NONE);
    node->FreePixelHandler(handler);
    TRY(std::move(written));
    auto texture = TRY(ClassRef(imageclasses::kTexture).Create<ImageTextureInterface>());
    TRY(texture->AddChildren(IMAGEHIERARCHY::IMAGE, node, ImageBaseRef()));
    return texture;
}

/// A block in memory that is mounted under a name while it is written.
class NamedMemory {
public:
    static Result<NamedMemory> Create() {
        NamedMemory memory;
        memory._file = TRY(CreateMemoryFile());
        memory._url = TRY(MountMemoryFile(kName, memory._file));
        return memory;
    }
    NamedMemory(NamedMemory&& other) noexcept = default;
    NamedMemory& operator=(NamedMemory&&) = delete;
    ~NamedMemory() {
        if (_file)
            UnmountMemoryFile(kName);
    }
    const Url& GetUrl() const { return _url; }
    BaseArray<std::byte> TakeBytes() { return std::move(_file.GetPointer()->GetBytes()); }

private:
    static constexpr std::string_view kName = "orvik-thumbnail";
    NamedMemory() = default;
    MemoryFileRef _file;
    Url _url;
};

}  // namespace

Result<BaseArray<std::byte>> MakeThumbnail(const ImageBaseRef& node, const LayerSet& layers) {
    if (node->GetWidth() <= 0 || node->GetHeight() <= 0)
        return BaseArray<std::byte>();
    Raster raster = TRY(Shrink(node, layers));
    const ImageTextureRef texture = TRY(MakeTexture(raster));
    const ClassRef exporterClass(FindFormat("png")->GetExporterClass());
    const auto exporter = TRY(exporterClass.Create<MediaOutputUrlInterface>());
    NamedMemory memory = TRY(NamedMemory::Create());
    TRY(exporter->SetOutputUrl(memory.GetUrl()));
    TRY(texture->Save(exporter, MEDIASESSIONFLAGS::NONE, nullptr));
    return memory.TakeBytes();
}

}  // namespace orvik::cli
