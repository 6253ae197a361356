#include "codec_bench.h"

#include <cstdlib>
#include <cstring>
#include <sys/mman.h>

#include "test_picture.h"

#include "orvik/iomemory.h"
#include "orvik/mediasession_output.h"

using namespace orvik;

namespace bench {
namespace {

Block<const std::byte> AsBytes(const std::vector<uint8_t>& bytes) { return std::as_bytes(Block<const uint8_t>(bytes)); }

Result<ImageTextureRef> Load(const Url& url) {
    return ImageTextureInterface::LoadTexture(url, TimeValue(), MEDIASESSIONFLAGS::NONE, ClassRef(), LayerSet());
}

Result<void> Save(const ImageTextureRef& texture, const Id& exporterClass, const Url& url) {
    const MediaOutputUrlRef exporter = TRY(ClassRef(exporterClass).Create<MediaOutputUrlInterface>());
    TRY(exporter->SetOutputUrl(url));
    return texture->Save(exporter, MEDIASESSIONFLAGS::NONE, nullptr);
}

template <class T>
bool Failed(benchmark::State& state, const Result<T>& result) {
    if (result)
        return false;
    state.SkipWithError(result.GetError()->ToString().GetCString());
    return true;
}

struct Codec {
    const char* name;
    Id exporter;
    const char* against;  ///< name of the other side
};
const Codec kCodecs[] = {
    {"png", Id("net.orvik.mediasession.png.export"), "libpng"},
    {"bmp", Id("net.orvik.mediasession.bmp.export"), "memcpy"},
};

/// The picture, its PNG, and the texture loaded from it; made once.
struct Material {
    std::vector<uint8_t> pixels = MakeTestPicture();
    std::vector<uint8_t> png = EncodeWithLibpng(pixels);
    ImageTextureRef texture;

    static Material& Get() {
        static Material material;
        return material;
    }
    Result<void> Prepare() {
        if (texture)
            return {};
        MemoryFileRef source = TRY(CreateMemoryFile(AsBytes(png)));
        texture = TRY(Load(TRY(MountMemoryFile("bench.source", source))));
        return {};
    }
};

void Decode(benchmark::State& state, const Codec& codec) {
    if (Failed(state, Material::Get().Prepare()))
        return;
    Result<MemoryFileRef> file = CreateMemoryFile();
    if (Failed(state, file))
        return;
    Result<Url> url = MountMemoryFile("bench.decode", *file);
    if (Failed(state, url) || Failed(state, Save(Material::Get().texture, codec.exporter, *url)))
        return;
    for ([[maybe_unused]] auto iteration : state) {
        Result<ImageTextureRef> texture = Load(*url);
        if (Failed(state, texture))
            return;
        benchmark::DoNotOptimize(texture);
    }
}

void Encode(benchmark::State& state, const Codec& codec) {
    if (Failed(state, Material::Get().Prepare()))
        return;
    for ([[maybe_unused]] auto iteration : state) {
        Result<MemoryFileRef> file = CreateMemoryFile();
        if (Failed(state, file))
            return;
        Result<Url> url = MountMemoryFile("bench.encode", *file);
        if (Failed(state, url) || Failed(state, Save(Material::Get().texture, codec.exporter, *url)))
            return;
    }
    UnmountMemoryFile("bench.encode");
}

/// The pixels into memory that the system has just given, in large pages: what any load must pay at least.
void CopyIntoFreshMemory(benchmark::State& state) {
    const std::vector<uint8_t>& pixels = Material::Get().pixels;
    for ([[maybe_unused]] auto iteration : state) {
        void* block = mmap(nullptr, kPixelBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (block == MAP_FAILED)
            return state.SkipWithError("no memory");
        madvise(block, kPixelBytes, MADV_HUGEPAGE);
        std::memcpy(block, pixels.data(), kPixelBytes);
        benchmark::DoNotOptimize(block);
        benchmark::ClobberMemory();
        munmap(block, kPixelBytes);
    }
}

void LibpngDecode(benchmark::State& state) {
    for ([[maybe_unused]] auto iteration : state) {
        if (!DecodeWithLibpng(Material::Get().png))
            return state.SkipWithError("libpng cannot decode");
    }
}

void LibpngEncode(benchmark::State& state) {
    for ([[maybe_unused]] auto iteration : state) {
        if (EncodeWithLibpng(Material::Get().pixels).empty())
            return state.SkipWithError("libpng cannot encode");
    }
}

}  // namespace

void ReleaseCodecMaterial() {
    Material::Get().texture = nullptr;
    UnmountMemoryFile("bench.source");
    UnmountMemoryFile("bench.decode");
}

std::vector<Pairing> RegisterCodecBenchmarks() {
    std::vector<Pairing> pairings;
    for (const Codec& codec : kCodecs) {
        const std::string prefix = std::string("codec.") + codec.name;
        const bool png = std::strcmp(codec.against, "libpng") == 0;
        const auto add = [&](const std::string& name, auto own, auto other) {
            benchmark::RegisterBenchmark(name.c_str(), own)->Unit(benchmark::kMillisecond);
            benchmark::RegisterBenchmark((name + "/" + codec.against).c_str(), other)->Unit(benchmark::kMillisecond);
            pairings.push_back({name, codec.against, "Mpixel/s", kWidth * double(kHeight) / 1e6});
        };
        add(
            prefix + ".decode", [&codec](benchmark::State& state) { Decode(state, codec); },
            png ? LibpngDecode : CopyIntoFreshMemory);
        add(
            prefix + ".encode", [&codec](benchmark::State& state) { Encode(state, codec); },
            png ? LibpngEncode : CopyIntoFreshMemory);
    }
    return pairings;
}

}  // namespace bench
