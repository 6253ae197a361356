#include "pixel_bench.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <regex>
#include <sys/mman.h>

#include "pixel_peers.h"

#include "orvik/gfx_image_pixelformat.h"

using namespace orvik;

namespace bench {
namespace {

constexpr Int kWidth = 4096, kHeight = 2160, kCacheRun = 65536, kShortRun = 64;
constexpr size_t kBufferBytes = size_t(kWidth) * kHeight * 32;  // four doubles a pixel
constexpr int kRounds = 7, kQuickRounds = 3;

struct Pair {
    const char* name;
    const char* src;
    const char* dst;
};
constexpr Pair kPairs[] = {
    {"rgba8_rgbaf", "rgba.u8", "rgba.f32"}, {"rgbaf_rgba8", "rgba.f32", "rgba.u8"}, {"rgb8_rgba8", "rgb.u8", "rgba.u8"},
    {"bgr8_rgb8", "bgr.u8", "rgb.u8"},      {"rgb8_bgra8", "rgb.u8", "bgra.u8"},    {"rgb16_rgb8", "rgb.u16", "rgb.u8"},
    {"rgb8_rgb16", "rgb.u8", "rgb.u16"},    {"rgbh_rgbf", "rgb.f16", "rgb.f32"},    {"rgbf_rgbh", "rgb.f32", "rgb.f16"},
    {"rgb8_grey8", "rgb.u8", "grey.u8"},
};
/// What is not converted directly into other formats: whole components, but not of the general families.
constexpr const char* kApart[] = {"cmyk", "dynamic"};

/// Source and destination of all measurements; the pages exist before the first.
class Buffers {
public:
    Buffers() : src(Map(0x11)), dst(Map(0x22)) {}
    ~Buffers() {
        munmap(src, kBufferBytes);
        munmap(dst, kBufferBytes);
    }
    Buffers(const Buffers&) = delete;
    Buffers& operator=(const Buffers&) = delete;

    std::byte *const src, *const dst;

private:
    static std::byte* Map(int value) {
        void* block = mmap(nullptr, kBufferBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (block == MAP_FAILED)
            std::abort();
        madvise(block, kBufferBytes, MADV_HUGEPAGE);
        std::memset(block, value, kBufferBytes);
        return static_cast<std::byte*>(block);
    }
};

double SecondsOf(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}
double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

/// How pixels are walked through.
struct Walk {
    const char* name;
    Int run;      ///< pixels of a call
    Int calls;    ///< on runs behind each other
    Int repeats;  ///< of all calls
};
constexpr Walk kBig{"big", kWidth, kHeight, 1}, kCache{"cache", kCacheRun, 1, 40}, kShort{"64", kShortRun, 1, 40000};

struct Ratio {
    double seconds = 0;  ///< of all pixels of a walk
    double ofCopy = 0;   ///< speed as a part of that of memcpy
};

/// Runs a conversion and a copy of the same number of bytes by turns. The copy reads and writes the mean of what the
/// conversion reads and writes, in calls of the same number.
Ratio Measure(const Buffers& buffers, const Walk& walk, Int srcBytes, Int dstBytes, const PixelRun& run, int rounds) {
    const size_t copyBytes = static_cast<size_t>((srcBytes + dstBytes) * walk.run / 2);
    std::vector<double> own, copy;
    for (int round = 0; round <= rounds; ++round) {
        const double ownSeconds = SecondsOf([&] {
            for (Int repeat = 0; repeat < walk.repeats; ++repeat) {
                for (Int call = 0; call < walk.calls; ++call)
                    run(buffers.src + call * walk.run * srcBytes, buffers.dst + call * walk.run * dstBytes,
                        static_cast<int>(walk.run));
            }
        });
        const double copySeconds = SecondsOf([&] {
            for (Int repeat = 0; repeat < walk.repeats; ++repeat) {
                for (Int call = 0; call < walk.calls; ++call) {
                    std::byte* to = buffers.dst + static_cast<size_t>(call) * copyBytes;
                    std::memcpy(to, buffers.src + static_cast<size_t>(call) * copyBytes, copyBytes);
                    __asm__ volatile("" : : "r"(to) : "memory");
                }
            }
        });
        if (round == 0)
            continue;  // warms up
        own.push_back(ownSeconds);
        copy.push_back(copySeconds);
    }
    return {Median(own), Median(copy) / Median(own)};
}

Row MakeRow(const std::string& name, const Walk& walk, const Ratio& ratio) {
    const double pixels = static_cast<double>(walk.run * walk.calls * walk.repeats);
    return {name, pixels / ratio.seconds / 1e6, "Mpixel/s", ratio.ofCopy, "memcpy"};
}

PixelRun FindRun(const PixelFormat& src, const PixelFormat& dst) {
    bool isColorProfileConversion = false;
    Result<ConvertPixelFunc> convert =
        dst->GetConvertPixelFunc(src, src->GetChannelOffsets(), dst->GetChannelOffsets(), nullptr, nullptr,
                                 CONVERTPIXELFLAGS::NONE, isColorProfileConversion);
    if (!convert)
        return nullptr;
    return [function = *convert, srcBits = src->GetBitsPerPixel(), dstBits = dst->GetBitsPerPixel()](
               const void* from, void* to, int count) mutable {
        (void)function({to, dstBits, 0}, count, {from, srcBits, 0}, CONVERTPIXELFLAGS::NONE);
    };
}
PixelFormat FormatOf(const char* name) {
    const Result<Id> id = Id::Create(std::string("net.orvik.image.pixelformat.") + name);
    return id ? PixelFormats::Get(*id) : PixelFormat();
}
Int BytesOf(const PixelFormat& format) { return format->GetBitsPerPixel().GetBits() / 8; }

void MeasurePairs(const Buffers& buffers, const std::regex& wanted, std::vector<Row>& rows) {
    const std::vector<PixelPeer> peers = GetPixelPeers();
    for (const Pair& pair : kPairs) {
        const PixelFormat src = FormatOf(pair.src), dst = FormatOf(pair.dst);
        const PixelRun own = FindRun(src, dst);
        for (const Walk& walk : {kBig, kCache, kShort}) {
            const std::string name = std::string("pixel.") + pair.name + "." + walk.name;
            if (!own || !std::regex_search(name, wanted))
                continue;
            const auto measure = [&](const std::string& row, const PixelRun& run) {
                rows.push_back(MakeRow(row, walk, Measure(buffers, walk, BytesOf(src), BytesOf(dst), run, kRounds)));
            };
            measure(name, own);
            for (const PixelPeer& peer : peers) {
                if (peer.pair == pair.name)
                    measure(name + "." + peer.name, peer.run);
            }
        }
    }
}

void MeasureAllDirect(const Buffers& buffers, std::vector<Row>& rows) {
    std::vector<PixelFormat> formats;
    Result<BaseArray<PixelFormat>> all = PixelFormats::GetAll();
    for (Int i = 0; all && i < all->GetCount(); ++i) {
        const PixelFormat& format = (*all)[i];
        const std::string id(format->GetId().GetText());
        const bool isApart = std::any_of(std::begin(kApart), std::end(kApart),
                                         [&](const char* word) { return id.find(word) != std::string::npos; });
        if (!isApart && format->GetChannels()[0]->GetComponentType() != ComponentType::None)
            formats.push_back(format);
    }
    const Walk& kRows = kBig;
    struct Slow {
        double ratio;
        std::string name;
    };
    std::vector<Slow> ratios;
    double logarithms = 0;
    for (const PixelFormat& src : formats) {
        if (src->GetId() == Id("net.orvik.image.pixelformat.alpha.f16"))
            continue;  // it is converted channel by channel
        for (const PixelFormat& dst : formats) {
            const PixelRun run = FindRun(src, dst);
            if (!run)
                continue;
            const Ratio ratio = Measure(buffers, kRows, BytesOf(src), BytesOf(dst), run, kQuickRounds);
            logarithms += std::log(ratio.ofCopy);
            const auto nameOf = [](const PixelFormat& format) { return std::string(format->GetShortName().GetText()); };
            ratios.push_back({ratio.ofCopy, nameOf(src) + " to " + nameOf(dst)});
        }
    }
    if (ratios.empty())
        return;
    std::sort(ratios.begin(), ratios.end(), [](const Slow& a, const Slow& b) { return a.ratio < b.ratio; });
    std::printf("%zu direct pairs, the slowest of them as parts of memcpy:\n", ratios.size());
    for (size_t i = 0; i < std::min<size_t>(10, ratios.size()); ++i)
        std::printf("  %5.2f  %s\n", ratios[i].ratio, ratios[i].name.c_str());
    const double mean = std::exp(logarithms / static_cast<double>(ratios.size()));
    rows.push_back({"pixel.direct.geomean.big", mean, "of memcpy", mean, "memcpy"});
    rows.push_back({"pixel.direct.slowest.big", ratios[0].ratio, "of memcpy", ratios[0].ratio, "memcpy"});
}

}  // namespace

std::vector<Row> MeasurePixels(const std::string& wanted) {
    const std::regex expression(wanted);
    std::vector<Row> rows;
    const Buffers buffers;
    MeasurePairs(buffers, expression, rows);
    if (std::regex_search("pixel.direct.geomean.big", expression) ||
        std::regex_search("pixel.direct.slowest.big", expression))
        MeasureAllDirect(buffers, rows);
    return rows;
}

}  // namespace bench
