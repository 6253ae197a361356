#include "codec_bench.h"

#include <cstdlib>
#include <cstring>
#include <memory>

#include "codec_peers.h"
#include "fresh_memory.h"

#include "orvik/iomemory.h"
#include "orvik/mediasession_output.h"

using namespace orvik;

namespace bench {
namespace {

constexpr std::vector<CodecCase> (*kMakers[])() = {
    MakeBmpCases, MakeHdrCases, MakeJpegCases, MakePngCases, MakeTgaCases,
};

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

Result<ImageTextureRef> MakeTexture(const Id& formatId, const void* pixels) {
    ImageTextureRef texture = TRY(ClassRef(imageclasses::kTexture).Create<ImageTextureInterface>());
    const ImageRef image = TRY(ClassRef(imageclasses::kImage).Create<ImageInterface>());
    const PixelFormat format = PixelFormats::Get(formatId);
    TRY(image->Init(kWidth, kHeight, ClassRef(), format, {}));
    SetPixelHandlerStruct handler =
        TRY(image->SetPixelHandler(format, format->GetChannelOffsets(), ColorProfile(), SETPIXELHANDLERFLAGS::NONE));
    const Int rowBytes = format->GetBytesPerLine(kWidth);
    Result<void> written;
    for (Int y = 0; y < kHeight && written; ++y)
        written = handler.write({0, y, kWidth},
                                {static_cast<const std::byte*>(pixels) + y * rowBytes, format->GetBitsPerPixel()},
                                SETPIXELFLAGS::NONE);
    TRY(handler.Free());
    TRY(std::move(written));
    TRY(texture->AddChildren(IMAGEHIERARCHY::IMAGE, image, nullptr));
    return texture;
}

/// Reads all rows as floats as a viewer would: line by line into the same memory.
Result<void> ReadAsFloats(const ImageTextureRef& texture) {
    const auto image = Cast<ImageBaseInterface>(texture->GetFirstChild(Int(IMAGEHIERARCHY::IMAGE)));
    const PixelFormat format = PixelFormats::Get(pixelformats::kRgbF32);
    BaseArray<float> row;
    TRY(row.Resize(kWidth * 3));
    GetPixelHandlerStruct handler = TRY(image->GetPixelHandler(format, format->GetChannelOffsets(), ColorProfile(),
                                                               GETPIXELHANDLERFLAGS::NONE, LayerSet()));
    Result<void> read;
    for (Int y = 0; y < kHeight && read; ++y) {
        read = handler.read({0, y, kWidth}, {row.GetFirst(), format->GetBitsPerPixel()}, GETPIXELFLAGS::NONE);
        benchmark::DoNotOptimize(row[0]);
    }
    handler.Free();
    return read;
}

/// One case with the texture that it writes and the file that it reads, made on first use.
class Material {
public:
    explicit Material(CodecCase codec) : _codec(std::move(codec)) {}

    const CodecCase& GetCase() const { return _codec; }
    size_t GetPixelBytes() const {
        if (_codec.makeFile)
            return size_t(kWidth) * kHeight * _codec.filePixelBytes;
        return _codec.floats ? kPixelBytes * sizeof(float) : kPixelBytes;
    }

    Result<ImageTextureRef> GetTexture() {
        if (_texture)
            return _texture;
        ImageTextureRef texture = TRY(_codec.floats ? MakeTexture(pixelformats::kRgbF32, TestFloats().data())
                                                    : MakeTexture(pixelformats::kRgbU8, TestPicture().data()));
        if (_codec.setUp) {
            DataDictionary settings;
            TRY(_codec.setUp(settings));
            TRY(texture->Set(image::kExportSettings, settings));
        }
        _texture = texture;
        return texture;
    }
    Result<const std::vector<uint8_t>*> GetFile() {
        if (!_file.empty())
            return &_file;
        if (_codec.makeFile) {
            _file = _codec.makeFile();
            return &_file;
        }
        const ImageTextureRef texture = TRY(GetTexture());
        const MemoryFileRef file = TRY(CreateMemoryFile());
        const Url url = TRY(MountMemoryFile("bench.make", file));
        TRY(Save(texture, _codec.exporter, url));
        UnmountMemoryFile("bench.make");
        const auto* first = reinterpret_cast<const uint8_t*>(file->GetBytes().GetFirst());
        _file.assign(first, first + file->GetBytes().GetCount());
        return &_file;
    }
    void Release() { _texture = nullptr; }

private:
    CodecCase _codec;
    ImageTextureRef _texture;
    std::vector<uint8_t> _file;
};

std::vector<std::unique_ptr<Material>>& Materials() {
    static std::vector<std::unique_ptr<Material>> materials;
    return materials;
}

void Decode(benchmark::State& state, Material& material) {
    const Result<const std::vector<uint8_t>*> bytes = material.GetFile();
    if (Failed(state, bytes))
        return;
    const Result<MemoryFileRef> file = CreateMemoryFile(AsBytes(**bytes));
    if (Failed(state, file))
        return;
    const Result<Url> url = MountMemoryFile("bench.decode", *file);
    if (Failed(state, url))
        return;
    for ([[maybe_unused]] auto iteration : state) {
        Result<ImageTextureRef> texture = Load(*url);
        if (Failed(state, texture) || (material.GetCase().floats && Failed(state, ReadAsFloats(*texture))))
            break;
        benchmark::DoNotOptimize(texture);
    }
    UnmountMemoryFile("bench.decode");
}

void Encode(benchmark::State& state, Material& material) {
    const Result<ImageTextureRef> texture = material.GetTexture();
    if (Failed(state, texture))
        return;
    for ([[maybe_unused]] auto iteration : state) {
        const Result<MemoryFileRef> file = CreateMemoryFile();
        if (Failed(state, file))
            break;
        const Result<Url> url = MountMemoryFile("bench.encode", *file);
        if (Failed(state, url) || Failed(state, Save(*texture, material.GetCase().exporter, *url)))
            break;
    }
    UnmountMemoryFile("bench.encode");
}

/// Copies the pixels into fresh memory: the minimum cost of any load or save.
void CopyIntoFreshMemory(benchmark::State& state, size_t bytes) {
    const std::vector<uint8_t> pixels(bytes, 1);
    for ([[maybe_unused]] auto iteration : state) {
        const FreshMemory memory(bytes);
        if (!memory.GetFirst())
            return state.SkipWithError("no memory");
        std::memcpy(memory.GetFirst(), pixels.data(), bytes);
        benchmark::DoNotOptimize(memory.GetFirst());
        benchmark::ClobberMemory();
    }
}

void RunDecoder(benchmark::State& state, Material& material,
                const std::function<bool(const std::vector<uint8_t>&, uint8_t*)>& decode) {
    const Result<const std::vector<uint8_t>*> file = material.GetFile();
    if (Failed(state, file))
        return;
    const size_t bytes = material.GetCase().floats ? kPixelBytes * sizeof(float) : kPixelBytes;
    for ([[maybe_unused]] auto iteration : state) {
        const FreshMemory memory(bytes);
        if (!memory.GetFirst() || !decode(**file, memory.GetFirst()))
            return state.SkipWithError("the other side cannot decode");
    }
}

void RunEncoder(benchmark::State& state, const std::function<bool()>& encode) {
    for ([[maybe_unused]] auto iteration : state) {
        if (!encode())
            return state.SkipWithError("the other side cannot encode");
    }
}

}  // namespace

void ReleaseCodecMaterial() { Materials().clear(); }

std::vector<Pairing> RegisterCodecBenchmarks() {
    using Run = std::function<void(benchmark::State&)>;
    std::vector<Pairing> pairings;
    const auto add = [&pairings](const std::string& name, const Material& material, const Run& own, const Run& other) {
        const std::string& against = material.GetCase().against;
        benchmark::RegisterBenchmark(name.c_str(), own)->Unit(benchmark::kMillisecond);
        if (other)
            benchmark::RegisterBenchmark((name + "/" + against).c_str(), other)->Unit(benchmark::kMillisecond);
        pairings.push_back({name, against, "MB/s", static_cast<double>(material.GetPixelBytes()) / 1e6});
    };
    for (const auto maker : kMakers) {
        for (CodecCase& codec : maker())
            Materials().push_back(std::make_unique<Material>(std::move(codec)));
    }
    for (const std::unique_ptr<Material>& owned : Materials()) {
        Material& material = *owned;
        const CodecCase& codec = material.GetCase();
        const std::vector<CodecPeer> peers = GetCodecPeers(codec);
        const Run copy = [bytes = material.GetPixelBytes()](benchmark::State& state) {
            CopyIntoFreshMemory(state, bytes);
        };

        const std::string decode = "codec." + codec.name + ".decode";
        Run other = copy;
        if (codec.otherDecode)
            other = [&material](benchmark::State& state) {
                RunDecoder(state, material, material.GetCase().otherDecode);
            };
        add(
            decode, material, [&material](benchmark::State& state) { Decode(state, material); }, other);
        for (const CodecPeer& peer : peers)
            add(
                decode + "." + peer.name, material,
                [&material, run = peer.decode](benchmark::State& state) { RunDecoder(state, material, run); }, other);

        if (codec.exporter == Id())
            continue;
        const std::string encode = "codec." + codec.name + ".encode";
        other = copy;
        if (codec.otherEncode)
            other = [&material](benchmark::State& state) { RunEncoder(state, material.GetCase().otherEncode); };
        add(
            encode, material, [&material](benchmark::State& state) { Encode(state, material); }, other);
        for (const CodecPeer& peer : peers)
            add(
                encode + "." + peer.name, material,
                [run = peer.encode](benchmark::State& state) { RunEncoder(state, run); }, other);
    }
    return pairings;
}

}  // namespace bench
