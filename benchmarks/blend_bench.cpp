#include "blend_bench.h"

#include <cstring>
#include <random>
#include <string>

#include "orvik/gfx_image_pixelblend.h"

using namespace orvik;

namespace bench {
namespace {

struct Size {
    const char* name;
    Int rowPixels, rows;
};
constexpr Size kSizes[] = {{"big", 4096, 2160}, {"cache", 65536, 1}};

/// What one benchmark blends; background and foreground have the same format.
struct Job {
    Id mode;
    Id format;
    double opacity;
    Size size;
};

constexpr size_t kBigBytes = size_t(4096) * 2160 * 4 * sizeof(float);

/// The memory of all benchmarks, filled once with floats in 0 ... 1. Runs start an odd number of cache lines apart, so
/// that they do not compete for the same cache sets.
class Material {
public:
    static Material& Get() {
        static Material material;
        return material;
    }
    /// The background, the foreground and the destination. Only the destination is overwritten with other values.
    std::byte* GetRun(size_t index) { return _memory.data() + _start + index * (kBigBytes + kGap); }
    /// Source and destination of a copy of half of all runs.
    const std::byte* GetCopySource() const { return _memory.data() + _start; }
    std::byte* GetCopyDestination() { return _memory.data() + _start + kBigBytes * 3 / 2 + kGap; }
    void Release() { _memory = {}; }
    void Prepare() {
        if (!_memory.empty())
            return;
        _memory.resize(3 * (kBigBytes + kGap) + 64);
        _start = -reinterpret_cast<uintptr_t>(_memory.data()) & 63;
        std::minstd_rand random(1);
        for (size_t i = _start; i + sizeof(float) <= _memory.size(); i += sizeof(float)) {
            const float value = float(random() & 0xFFFFF) / float(0xFFFFF);
            std::memcpy(&_memory[i], &value, sizeof(value));
        }
    }

private:
    static constexpr size_t kGap = 64 * 37;

    std::vector<std::byte> _memory;
    size_t _start = 0;
};

void BlendRuns(benchmark::State& state, const Job& job) {
    const PixelFormat format = PixelFormats::Get(job.format);
    const ChannelOffsets offsets = format->GetChannelOffsets();
    const Result<BlendPixelHandlerRef> blend =
        blendmodes::Get(job.mode)->GetBlendPixelHandler(format, offsets, format, offsets, job.opacity);
    if (!blend)
        return state.SkipWithError(blend.GetError()->ToString().GetCString());
    const BITS stride = format->GetBitsPerPixel();
    const Int rowBytes = job.size.rowPixels * stride.GetBytes();
    Material& material = Material::Get();
    material.Prepare();
    std::byte *bg = material.GetRun(0), *fg = material.GetRun(1), *dst = material.GetRun(2);
    for ([[maybe_unused]] auto iteration : state) {
        for (Int row = 0; row < job.size.rows; ++row) {
            const Int at = row * rowBytes;
            if (!(*blend)({dst + at, stride}, {bg + at, stride}, {fg + at, stride}, job.size.rowPixels,
                          BLENDPIXELFLAGS::NONE))
                return state.SkipWithError("the handler failed");
        }
        benchmark::ClobberMemory();
    }
}

/// Copies as many bytes, read and written together, as blending reads and writes.
void CopyRuns(benchmark::State& state, const Job& job) {
    const size_t rowBytes =
        static_cast<size_t>(job.size.rowPixels * PixelFormats::Get(job.format)->GetBitsPerPixel().GetBytes()) * 3 / 2;
    const size_t rows = static_cast<size_t>(job.size.rows);
    Material& material = Material::Get();
    material.Prepare();
    const std::byte* src = material.GetCopySource();
    std::byte* dst = material.GetCopyDestination();
    for ([[maybe_unused]] auto iteration : state) {
        for (size_t row = 0; row < rows; ++row)
            std::memcpy(dst + row * rowBytes, src + row * rowBytes, rowBytes);
        benchmark::ClobberMemory();
    }
}

}  // namespace

void ReleaseBlendMaterial() { Material::Get().Release(); }

std::vector<Pairing> RegisterBlendBenchmarks() {
    std::vector<Pairing> pairings;
    const auto add = [&](const std::string& name, const Job& job) {
        const std::string full = name + "." + job.size.name;
        benchmark::RegisterBenchmark(full.c_str(), [job](benchmark::State& state) {
            BlendRuns(state, job);
        })->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark((full + "/memcpy").c_str(), [job](benchmark::State& state) {
            CopyRuns(state, job);
        })->Unit(benchmark::kMillisecond);
        pairings.push_back({full, "memcpy", "Mpixel/s", double(job.size.rowPixels * job.size.rows) / 1e6});
    };
    for (const Size& size : kSizes) {
        for (const Registry::Entry& entry : Registry::GetEntries(kBlendModeRegistry)) {
            if (entry.id == blendmodes::kApplyAlpha)
                continue;  // needs another foreground
            const std::string id(entry.id.GetText());
            const std::string name = "blend." + id.substr(id.rfind('.') + 1);
            add(name, {entry.id, pixelformats::kRgbaF32, 0.5, size});
            if (entry.id == blendmodes::kOver || entry.id == blendmodes::kMultiply)
                add(name + ".opaque", {entry.id, pixelformats::kRgbaF32, 1, size});
        }
        add("blend.rgba8.over", {blendmodes::kOver, pixelformats::kRgbaU8, 0.5, size});
    }
    return pairings;
}

}  // namespace bench
