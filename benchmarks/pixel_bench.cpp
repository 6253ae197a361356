#include "pixel_bench.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <regex>
#include <sys/mman.h>
#include <time.h>

#include "pixel_peers.h"

#include "orvik/gfx_image_pixelformat.h"

using namespace orvik;

namespace bench {
namespace {

constexpr Int kWidth = 4096, kHeight = 2160, kCacheRun = 65536, kShortRun = 64;
constexpr size_t kBufferBytes = size_t(kWidth) * kHeight * 32;  // four doubles a pixel
constexpr int kRounds = 7, kQuickRounds = 3;
constexpr int kSlowest = 10;  ///< direct pairs listed by name

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
/// Families of whole components without direct conversion into other formats.
constexpr const char* kApart[] = {"cmyk", "dynamic"};

/// Source and destination of all measurements, with all pages touched.
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

/// Processor time: on a shared machine, wall time includes other programs.
double Now() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}
template <class F>
double SecondsOf(const F& work) {
    const double start = Now();
    work();
    return Now() - start;
}
double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

/// How the pixels are split into calls.
struct Walk {
    const char* name;
    Int run;      ///< pixels per call
    Int calls;    ///< on consecutive runs
    Int repeats;  ///< of all calls
};
constexpr Walk kBig{"big", kWidth, kHeight, 1}, kCache{"cache", kCacheRun, 1, 40}, kShort{"64", kShortRun, 1, 40000};

struct Ratio {
    double seconds = 0;  ///< for all pixels of a walk
    double ofCopy = 0;   ///< speed relative to memcpy
};

/// One conversion, called as a program calls it.
struct OwnRun {
    ConvertPixelFunc function;
    BITS srcBits, dstBits;

    explicit operator bool() const { return static_cast<bool>(function); }
    void operator()(const void* from, void* to, int count) const {
        (void)function({to, dstBits, 0}, count, {from, srcBits, 0}, CONVERTPIXELFLAGS::NONE);
    }
};

/// Alternates a conversion, its peers and a copy of as many bytes. The copy reads and writes the mean of what the
/// conversion reads and writes, in as many calls.
/// @return  one for the conversion and one for each peer
std::vector<Ratio> Measure(const Buffers& buffers, const Walk& walk, Int srcBytes, Int dstBytes, const OwnRun& own,
                           const std::vector<PixelPeer>& peers, int rounds) {
    const auto walkThrough = [&](Int srcStep, Int dstStep, const auto& call) {
        return SecondsOf([&] {
            for (Int repeat = 0; repeat < walk.repeats; ++repeat) {
                for (Int i = 0; i < walk.calls; ++i)
                    call(buffers.src + i * srcStep, buffers.dst + i * dstStep);
            }
        });
    };
    const Int srcStep = srcBytes * walk.run, dstStep = dstBytes * walk.run, copyStep = (srcStep + dstStep) / 2;
    std::vector<double> copy;
    std::vector<std::vector<double>> sides(1 + peers.size());
    for (int round = 0; round <= rounds; ++round) {
        std::vector<double> seconds;
        const auto convert = [&](const auto& run) {
            seconds.push_back(walkThrough(srcStep, dstStep, [&](const std::byte* from, std::byte* to) {
                run(from, to, static_cast<int>(walk.run));
            }));
        };
        convert(own);
        const double copySeconds = walkThrough(copyStep, copyStep, [&](const std::byte* from, std::byte* to) {
            std::memcpy(to, from, static_cast<size_t>(copyStep));
            __asm__ volatile("" : : "r"(to) : "memory");
        });
        for (const PixelPeer& peer : peers)
            convert(peer.run);
        if (round == 0)
            continue;  // warms up
        copy.push_back(copySeconds);
        for (size_t i = 0; i < sides.size(); ++i)
            sides[i].push_back(seconds[i]);
    }
    std::vector<Ratio> ratios;
    for (const std::vector<double>& side : sides)
        ratios.push_back({Median(side), Median(copy) / Median(side)});
    return ratios;
}

Row MakeRow(const std::string& name, const Walk& walk, const Ratio& ratio) {
    const double pixels = static_cast<double>(walk.run * walk.calls * walk.repeats);
    return {name, pixels / ratio.seconds / 1e6, "Mpixel/s", ratio.ofCopy, "memcpy"};
}

OwnRun FindRun(const PixelFormat& src, const PixelFormat& dst) {
    bool isColorProfileConversion = false;
    Result<ConvertPixelFunc> convert =
        dst->GetConvertPixelFunc(src, src->GetChannelOffsets(), dst->GetChannelOffsets(), nullptr, nullptr,
                                 CONVERTPIXELFLAGS::NONE, isColorProfileConversion);
    return {convert ? *convert : ConvertPixelFunc(), src->GetBitsPerPixel(), dst->GetBitsPerPixel()};
}
PixelFormat FormatOf(const char* name) {
    const Result<Id> id = Id::Create(std::string("net.orvik.image.pixelformat.") + name);
    return id ? PixelFormats::Get(*id) : PixelFormat();
}
/// The last two parts of a format's id, such as "rgb.u8".
std::string TailOf(const PixelFormat& format) {
    const std::string id(format->GetId().GetText());
    return id.substr(id.rfind('.', id.rfind('.') - 1) + 1);
}
Int BytesOf(const PixelFormat& format) { return format->GetBitsPerPixel().GetBits() / 8; }

void MeasurePairs(const Buffers& buffers, const std::regex& wanted, std::vector<Row>& rows) {
    const std::vector<PixelPeer> allPeers = GetPixelPeers();
    for (const Pair& pair : kPairs) {
        const PixelFormat src = FormatOf(pair.src), dst = FormatOf(pair.dst);
        const OwnRun own = FindRun(src, dst);
        std::vector<PixelPeer> peers;
        std::copy_if(allPeers.begin(), allPeers.end(), std::back_inserter(peers),
                     [&](const PixelPeer& peer) { return peer.pair == pair.name; });
        double big = 0;
        for (const Walk& walk : {kBig, kCache, kShort}) {
            const std::string name = std::string("pixel.") + pair.name + "." + walk.name;
            if (!own || !std::regex_search(name, wanted))
                continue;
            const std::vector<Ratio> ratios = Measure(buffers, walk, BytesOf(src), BytesOf(dst), own, peers, kRounds);
            rows.push_back(MakeRow(name, walk, ratios[0]));
            const double speed = rows.back().value;
            for (size_t i = 0; i < peers.size(); ++i)
                rows.push_back(MakeRow(name + "." + peers[i].name, walk, ratios[i + 1]));
            if (walk.run == kBig.run)
                big = speed;
            else if (walk.run == kShortRun && big > 0)
                rows.push_back({name + ".of_big", speed, "Mpixel/s", speed / big, "big"});
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
    std::vector<Row> pairs;
    double logarithms = 0;
    for (const PixelFormat& src : formats) {
        if (src->GetId() == Id("net.orvik.image.pixelformat.alpha.f16"))
            continue;  // it is converted channel by channel
        for (const PixelFormat& dst : formats) {
            const OwnRun run = FindRun(src, dst);
            if (!run)
                continue;
            const Ratio ratio = Measure(buffers, kBig, BytesOf(src), BytesOf(dst), run, {}, kQuickRounds)[0];
            logarithms += std::log(ratio.ofCopy);
            pairs.push_back(MakeRow("pixel.direct." + TailOf(src) + "_to_" + TailOf(dst) + ".big", kBig, ratio));
        }
    }
    if (pairs.empty())
        return;
    std::sort(pairs.begin(), pairs.end(), [](const Row& a, const Row& b) { return a.ratio < b.ratio; });
    const double mean = std::exp(logarithms / static_cast<double>(pairs.size()));
    rows.push_back({"pixel.direct.geomean.big", mean, "of memcpy", mean, "memcpy"});
    rows.push_back({"pixel.direct.slowest.big", pairs[0].ratio, "of memcpy", pairs[0].ratio, "memcpy"});
    rows.insert(rows.end(), pairs.begin(), pairs.begin() + std::min<std::ptrdiff_t>(kSlowest, std::ssize(pairs)));
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
