// One importer over a file in memory, through a whole load. The macro names the format; without it, detection chooses.

#include "import_fuzzer.h"

#include <zlib.h>

#include "module/module_start.h"

#include "orvik/gfx_image.h"
#include "orvik/iomemory.h"
#include "orvik/mediasession_output.h"

#ifndef ORVIK_FUZZ_FORMAT
#define ORVIK_FUZZ_FORMAT ""
#endif

// Normally defined by the module's entry, which is not linked.
extern "C" {
void (*g_CpuYieldDelegate)() = nullptr;
}

namespace orvik {
namespace {

/// Published once and never withdrawn: the fuzzer runs until its process ends.
bool Start() {
    static Publisher& publisher = *new Publisher;
    return StartImageModule(publisher).HasError() == false;
}

Result<void> ReadPixels(const ImageBaseRef& image) {
    if (image->GetWidth() == 0 || image->GetHeight() == 0)
        return {};  // no pixels, and the other side is unbounded
    const PixelFormat format = PixelFormats::Get(pixelformats::kRgbaU8);
    BaseArray<std::byte> row;
    TRY(row.Resize(format->GetBytesPerLine(image->GetWidth())));
    GetPixelHandlerStruct handler = TRY(image->GetPixelHandler(format, format->GetChannelOffsets(), ColorProfile(),
                                                               GETPIXELHANDLERFLAGS::NONE, LayerSet()));
    Result<void> read;
    for (Int y = 0; y < image->GetHeight() && read; ++y)
        read =
            handler.read({0, y, image->GetWidth()}, {row.GetFirst(), format->GetBitsPerPixel()}, GETPIXELFLAGS::NONE);
    handler.Free();
    return read;
}

Result<void> LoadAndRead(Block<const std::byte> bytes, const MediaSessionFileFormatHandler& handler) {
    const Url url = TRY(MountMemoryFile("fuzz", TRY(CreateMemoryFile(bytes))));
    const ImageTextureRef texture = TRY(ClassRef(imageclasses::kTexture).Create<ImageTextureInterface>());
    const auto output = TRY(ClassRef(mediaclasses::kOutputTexture).Create<MediaOutputTextureInterface>());
    TRY(output->SetOutputTexture(texture, ClassRef(storageclasses::kNormal)));
    const MediaSessionRef session =
        TRY(MediaSessionImport(url, TimeValue(), MEDIASESSIONFLAGS::NONE, output, {}, {}, handler));
    const ImageVisitor visit = [](const ImageBaseRef& node, IMAGEHIERARCHY branch) -> Result<Bool> {
        if (branch != IMAGEHIERARCHY::TEXTURE)
            TRY(ReadPixels(node));
        return true;
    };
    TRY(WalkImages(texture, visit));
    return {};
}

/// Sets the check sum of every PNG chunk.
void MendPng(std::vector<uint8_t>& png) {
    constexpr size_t kSignature = 8, kAround = 12;  // length, type and check sum of a chunk
    const auto read32 = [&](size_t at) {
        return size_t(png[at]) << 24 | size_t(png[at + 1]) << 16 | size_t(png[at + 2]) << 8 | size_t(png[at + 3]);
    };
    for (size_t at = kSignature; at + kAround <= png.size();) {
        const size_t length = read32(at);
        if (length > png.size() - at - kAround)
            return;
        const uLong sum = crc32(0, png.data() + at + 4, uInt(length + 4));
        for (int i = 0; i < 4; ++i)
            png[at + 8 + length + size_t(i)] = uint8_t(sum >> (24 - 8 * i));
        at += length + kAround;
    }
}

/// Formats whose check sums would stop nearly all damage.
struct Mender {
    std::string_view format;
    void (*mend)(std::vector<uint8_t>& bytes);
};
constexpr Mender kMenders[] = {
    {"png", MendPng},
};

}  // namespace

bool FuzzImport(const uint8_t* data, size_t size, std::string_view format) {
    static const bool started = Start();
    if (!started)
        __builtin_trap();
    const Block<const std::byte> bytes(reinterpret_cast<const std::byte*>(data), size);
    return LoadAndRead(bytes, FindHandlerBySuffix(format)).HasError() == false;
}

void MendDamage(std::string_view format, std::vector<uint8_t>& bytes) {
    for (const Mender& mender : kMenders) {
        if (mender.format == format)
            mender.mend(bytes);
    }
}

}  // namespace orvik

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr std::string_view kFormat = ORVIK_FUZZ_FORMAT;
    std::vector<uint8_t> bytes(data, data + size);
    orvik::MendDamage(kFormat, bytes);
    orvik::FuzzImport(bytes.data(), bytes.size(), kFormat);
    return 0;
}
