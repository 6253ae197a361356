#include "pixel_peers.h"

#ifdef ORVIK_BENCH_BABL
#include <babl/babl.h>
#endif
#ifdef ORVIK_BENCH_SWSCALE
extern "C" {
#include <libswscale/swscale.h>
}
#include <memory>
#endif

namespace bench {
namespace {

#ifdef ORVIK_BENCH_BABL
// Linear and non-linear types are not mixed, so no transfer curve is applied. There is no unweighted mean.
void AppendBabl(std::vector<PixelPeer>& peers) {
    babl_init();
    const auto format = [](const char* model, const char* type, int count) {
        return count == 4 ? babl_format_new(babl_model(model), babl_type(type), babl_component("R'"),
                                            babl_component("G'"), babl_component("B'"), babl_component("A"), nullptr)
                          : babl_format_new(babl_model(model), babl_type(type), babl_component("R'"),
                                            babl_component("G'"), babl_component("B'"), nullptr);
    };
    const Babl *rgb8 = format("R'G'B'", "u8", 3), *rgb16 = format("R'G'B'", "u16", 3),
               *rgbh = format("R'G'B'", "half", 3), *rgbf = format("R'G'B'", "float", 3),
               *rgba8 = format("R'G'B'A", "u8", 4), *rgbaf = format("R'G'B'A", "float", 4);
    const auto add = [&](const char* pair, const Babl* src, const Babl* dst) {
        const Babl* fish = babl_fish(src, dst);
        peers.push_back(
            {pair, "babl", [fish](const void* from, void* to, int count) { babl_process(fish, from, to, count); }});
    };
    add("rgba8_rgbaf", rgba8, rgbaf);
    add("rgbaf_rgba8", rgbaf, rgba8);
    add("rgb8_rgba8", rgb8, rgba8);
    add("rgb16_rgb8", rgb16, rgb8);
    add("rgb8_rgb16", rgb8, rgb16);
    add("rgbh_rgbf", rgbh, rgbf);
    add("rgbf_rgbh", rgbf, rgbh);
}
#endif

#ifdef ORVIK_BENCH_SWSCALE
// Contexts have a fixed width, so each count has its own, made on first use outside the measured time.
void AppendSwscale(std::vector<PixelPeer>& peers) {
    struct Pair {
        const char* name;
        AVPixelFormat src, dst;
        int srcBytes, dstBytes;
    };
    static constexpr Pair kPairs[] = {
        {"rgb8_rgba8", AV_PIX_FMT_RGB24, AV_PIX_FMT_RGBA, 3, 4},
        {"bgr8_rgb8", AV_PIX_FMT_BGR24, AV_PIX_FMT_RGB24, 3, 3},
        {"rgb8_bgra8", AV_PIX_FMT_RGB24, AV_PIX_FMT_BGRA, 3, 4},
        {"rgb16_rgb8", AV_PIX_FMT_RGB48LE, AV_PIX_FMT_RGB24, 6, 3},
        {"rgb8_rgb16", AV_PIX_FMT_RGB24, AV_PIX_FMT_RGB48LE, 3, 6},
    };
    for (const Pair& pair : kPairs) {
        struct State {
            std::unique_ptr<SwsContext, decltype(&sws_freeContext)> context{nullptr, &sws_freeContext};
            int width = 0;
        };
        auto state = std::make_shared<State>();
        peers.push_back({pair.name, "swscale", [&pair, state](const void* src, void* dst, int count) {
                             if (state->width != count) {
                                 state->context.reset(sws_getContext(count, 1, pair.src, count, 1, pair.dst, SWS_POINT,
                                                                     nullptr, nullptr, nullptr));
                                 state->width = count;
                             }
                             const uint8_t* const from[] = {static_cast<const uint8_t*>(src)};
                             uint8_t* const to[] = {static_cast<uint8_t*>(dst)};
                             const int fromStride[] = {count * pair.srcBytes}, toStride[] = {count * pair.dstBytes};
                             sws_scale(state->context.get(), from, fromStride, 0, 1, to, toStride);
                         }});
    }
}
#endif

}  // namespace

std::vector<PixelPeer> GetPixelPeers() {
    std::vector<PixelPeer> peers;
#ifdef ORVIK_BENCH_BABL
    AppendBabl(peers);
#endif
#ifdef ORVIK_BENCH_SWSCALE
    AppendSwscale(peers);
#endif
    return peers;
}

}  // namespace bench
