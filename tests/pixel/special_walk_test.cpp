// Every format into every other, against a composition of the same rules from slow evaluations.

#include <optional>
#include <set>

#include "slow_special.h"

namespace orvik {
namespace {

using Bytes = std::vector<uint8_t>;
using Answer = std::optional<Bytes>;

/// Partners that a format knows in both directions.
const char* const kU8Colors = " rgb.u8 rgba.u8 rgbx.u8 argb.u8 xrgb.u8 bgr.u8 bgra.u8 bgrx.u8 rgb.u16 rgb.f32 rgb.f64 ";
const char* const kInkPartners = " rgba.u16 rgba.f32 rgba.f64 ";
const char* const kPackedPartners = " rgb.u8 argb.u8 rgb.u16 argb.u16 rgb.f32 argb.f32 rgb.f64 argb.f64 ";
const char* const kRgbePartners = " rgb.u8 rgb.u16 rgb.f16 rgb.f32 rgb.f64 ";

bool Lists(const std::string& list, const std::string& name) {
    return list.find(" " + name + " ") != std::string::npos;
}

std::string NameOf(const PixelFormat& format) {
    return TextOf(format->GetId()).substr(std::string("net.orvik.image.pixelformat.").size());
}
bool StartsWith(const std::string& text, const char* prefix) { return text.rfind(prefix, 0) == 0; }

/// Finds the route as the rules say, and takes it pixel by pixel.
class SlowRoutes {
public:
    Answer Convert(const PixelFormat& dst, const PixelFormat& src, const Bytes& in, size_t count) {
        if (!_searching.insert({dst.GetPointer(), src.GetPointer()}).second)
            return {};
        Answer answer = TakeDirect(dst, src, in, count);
        if (!answer)
            answer = TakeChannels(Describe(dst), Describe(src), in, count);
        if (!answer)
            answer = TakeIntermediate(dst, src, in, count);
        _searching.erase({dst.GetPointer(), src.GetPointer()});
        return answer;
    }

private:
    static size_t StrideOf(const PixelFormat& format) { return size_t(format->GetBitsPerPixel().GetBytes()); }
    /// @param evaluate  from the bytes of one source pixel to those of one destination pixel
    template <class Evaluate>
    static Answer ForEach(const PixelFormat& dst, const PixelFormat& src, const Bytes& in, size_t count,
                          Evaluate evaluate) {
        Bytes out(count * StrideOf(dst));
        for (size_t i = 0; i < count; ++i)
            evaluate(&in[i * StrideOf(src)], &out[i * StrideOf(dst)]);
        return out;
    }

    Answer TakeDirect(const PixelFormat& dst, const PixelFormat& src, const Bytes& in, size_t count) {
        const std::string to = NameOf(dst), from = NameOf(src);
        const SlowFormat slowDst = Describe(dst), slowSrc = Describe(src);
        const bool fromGeneral = IsFixedGeneral(from, src) && from != "alpha.f16";
        if (IsFixedGeneral(to, dst) && fromGeneral)
            return ForEach(dst, src, in, count, [&](const uint8_t* pixel, uint8_t* out) {
                SlowPixel result(slowDst.types.size());
                const SlowPixel raw = LoadPixel(slowSrc, pixel);
                ConvertPixelSlowly(slowDst, result.data(), slowSrc, raw.data());
                StorePixel(slowDst, result, out);
            });
        if (dst == src)
            return in;
        const auto colors = Cast<PixelFormatIndexedColorInterface>(src);
        if (colors && colors->GetColorTableSize() > 0 && IsFixedGeneral(to, dst))
            return Convert(dst, colors->GetColorTablePixelFormat(), LookUp(colors, in, count), count);
        const auto named = [&](const uint8_t* pixel) { return slow::NameChannels(slowSrc, LoadPixel(slowSrc, pixel)); };
        const auto store = [&](const slow::Channels& channels, uint8_t* out) {
            StorePixel(slowDst, slow::TakeChannels(slowDst, channels), out);
        };
        const auto& words = slow::kPackedBits;
        if (words.count(to) && Lists(kPackedPartners, from))
            return ForEach(dst, src, in, count, [&](const uint8_t* pixel, uint8_t* out) {
                const uint16_t word = slow::CompressWord(named(pixel), words.at(to));
                std::memcpy(out, &word, 2);
            });
        if (words.count(from) && Lists(kPackedPartners, to))
            return ForEach(dst, src, in, count, [&](const uint8_t* pixel, uint8_t* out) {
                store(slow::ExpandWord(uint16_t(pixel[0] + 256 * pixel[1]), words.at(from)), out);
            });
        if (words.count(from) && words.count(to) && AreSiblings(from, to))
            return ForEach(dst, src, in, count, [&](const uint8_t* pixel, uint8_t* out) {
                const uint16_t word =
                    slow::RearrangeWord(uint16_t(pixel[0] + 256 * pixel[1]), words.at(from), words.at(to));
                std::memcpy(out, &word, 2);
            });
        if (to == "rgb.rgbe" && Lists(kRgbePartners, from))
            return ForEach(dst, src, in, count, [&](const uint8_t* pixel, uint8_t* out) {
                const auto bytes = slow::EncodeRgbe(named(pixel));
                std::copy(bytes.begin(), bytes.end(), out);
            });
        if (from == "rgb.rgbe" && Lists(kRgbePartners, to))
            return ForEach(dst, src, in, count,
                           [&](const uint8_t* pixel, uint8_t* out) { store(slow::DecodeRgbe(pixel), out); });
        if (StartsWith(to, "yuv") && Lists(kU8Colors, from))
            return EncodePairs(to.back() == 'a', in, count, StrideOf(src), named);
        if (StartsWith(from, "yuv") && Lists(kU8Colors, to))
            return DecodePairs(from.back() == 'a', in, count, StrideOf(dst), store);
        const bool toInks = IsFixedInks(to), fromInks = IsFixedInks(from);
        const bool inverted = to.find("_inv.") != std::string::npos;
        if (toInks && (Lists(kU8Colors, from) || Lists(kInkPartners, from)))
            return ForEach(dst, src, in, count, [&](const uint8_t* pixel, uint8_t* out) {
                store(slow::EncodeInks(named(pixel), inverted), out);
            });
        if (fromInks && (Lists(kU8Colors, to) || Lists(kInkPartners, to)))
            return ForEach(dst, src, in, count,
                           [&](const uint8_t* pixel, uint8_t* out) { store(slow::DecodeInks(named(pixel)), out); });
        if (toInks && fromInks && to[0] == from[0] && inverted != (from.find("_inv.") != std::string::npos))
            return ForEach(dst, src, in, count, [&](const uint8_t* pixel, uint8_t* out) {
                store(slow::InvertInks(named(pixel), slowDst.component), out);
            });
        return {};
    }

    /// The entries that indices stand for; those without one are zeros.
    static Bytes LookUp(const PixelFormatIndexedColor& format, const Bytes& in, size_t count) {
        const PixelFormat entry = format->GetColorTablePixelFormat();
        const auto width = size_t(format->GetBitsPerPixel().GetBits());
        Bytes run(count * StrideOf(entry));
        for (size_t i = 0; i < count; ++i) {
            Int index = 0;
            for (size_t bit = i * width; bit < (i + 1) * width; ++bit)
                index = index * 2 + (in[bit / 8] >> (7 - bit % 8) & 1);
            if (width == 16)
                index = in[2 * i] + 256 * in[2 * i + 1];
            if (index < format->GetColorTableSize()) {
                EXPECT_TRUE(format->GetIndex(index, entry, &run[i * StrideOf(entry)]));
            }
        }
        return run;
    }

    static bool IsFixedGeneral(const std::string& name, const PixelFormat& format) {
        static const std::string kFamilies = " rgb rgba argb rgbx xrgb bgr bgra abgr bgrx alpha grey agrey greya ";
        return name.find('_') == std::string::npos && Lists(kFamilies, name.substr(0, name.find('.'))) &&
               IsWhole(Describe(format)) && name.find("s8") == std::string::npos &&
               name.find("s16") == std::string::npos && name != "alpha.u32";
    }
    static bool IsFixedInks(const std::string& name) {
        static const std::string kFamilies = " cmyk acmyk cmyk_inv acmyk_inv ";
        return Lists(kFamilies, name.substr(0, name.find('.')));
    }
    /// The same colours in the same bits.
    static bool AreSiblings(const std::string& a, const std::string& b) {
        const std::string &x = slow::kPackedBits.at(a), &y = slow::kPackedBits.at(b);
        for (size_t i = 0; i < 16; ++i) {
            const bool isColor = x[i] != 'x' && x[i] != 'A';
            if (isColor ? x[i] != y[i] : y[i] != 'x' && y[i] != 'A')
                return false;
        }
        return true;
    }
    template <class Named>
    static Answer EncodePairs(bool isA, const Bytes& in, size_t count, size_t stride, Named named) {
        Bytes out;
        for (size_t i = 0; i + 1 < count; i += 2) {
            const auto a = slow::EncodeYuv(named(&in[i * stride])), b = slow::EncodeYuv(named(&in[(i + 1) * stride]));
            const Bytes pair = isA ? Bytes{a[0], a[1], b[0], a[2]} : Bytes{a[1], a[0], a[2], b[0]};
            out.insert(out.end(), pair.begin(), pair.end());
        }
        return out;
    }
    template <class Store>
    static Answer DecodePairs(bool isA, const Bytes& in, size_t count, size_t stride, Store store) {
        Bytes out(count * stride);
        for (size_t i = 0; i < count; ++i) {
            const uint8_t* pair = &in[i / 2 * 4];
            const int y = pair[(isA ? 0 : 1) + 2 * (i & 1)], u = pair[isA ? 1 : 0], v = pair[isA ? 3 : 2];
            store(slow::DecodeYuv(y, u, v), &out[i * stride]);
        }
        return out;
    }

    static bool IsWhole(const SlowFormat& format) {
        return std::count(format.components.begin(), format.components.end(), ComponentType::None) == 0;
    }
    static std::string SpaceOf(const std::string& type) {
        if (type == "red" || type == "green" || type == "blue")
            return "rgb";
        return StartsWith(type, "cmyk_") ? "cmyk" : type == "grey" || type == "alpha" ? type : "";
    }
    static Answer TakeChannels(const SlowFormat& dst, const SlowFormat& src, const Bytes& in, size_t count) {
        if (!IsWhole(dst) || !IsWhole(src))
            return {};
        std::string space;
        for (const std::string& type : src.types) {
            if (space.empty() || space == "alpha")
                space = SpaceOf(type).empty() ? space : SpaceOf(type);
        }
        static const std::string kTolerated = " alpha unknown depth depthback unused ";
        std::vector<Int> partners;
        std::vector<bool> used(src.types.size());
        int colors = 0;
        for (const std::string& type : dst.types) {
            size_t partner = 0;
            while (partner < used.size() && (used[partner] || src.types[partner] != type))
                ++partner;
            const bool found = partner < used.size();
            if (found)
                used[partner] = true;
            else if (!Lists(kTolerated, type) && SpaceOf(type) != space)
                return {};
            colors += found && SpaceOf(type) == space;
            partners.push_back(found ? Int(partner) : -1);
        }
        if (colors == 0)
            return {};
        return ForEach(dst.format, src.format, in, count, [&](const uint8_t* pixel, uint8_t* out) {
            const SlowPixel raw = LoadPixel(src, pixel);
            SlowPixel result;
            for (size_t c = 0; c < dst.types.size(); ++c) {
                const bool isFull = dst.types[c] == "alpha" || StartsWith(dst.types[c], "cmyk_i");
                const auto p = size_t(partners[c]);
                result.push_back(partners[c] < 0 ? slow::Convert(ComponentType::U8, dst.components[c], isFull ? 255 : 0)
                                                 : slow::Convert(src.components[p], dst.components[c], raw[p]));
            }
            StorePixel(dst, result, out);
        });
    }

    Answer TakeIntermediate(const PixelFormat& dst, const PixelFormat& src, const Bytes& in, size_t count) {
        const bool alpha = src->HasAlpha() && dst->HasAlpha();
        const PixelFormat middle = FormatOf(NameOf(src) == "rgb.rgbe" ? "rgb.f16" : alpha ? "argb.u8" : "rgb.u8");
        const Answer half = Convert(middle, src, in, count);
        return half ? Convert(dst, middle, *half, count) : Answer();
    }

    std::set<std::pair<const void*, const void*>> _searching;
};

class SpecialWalkTest : public ModuleFixture {
protected:
    static PixelFormat Make(std::initializer_list<std::pair<const char*, ComponentType>> list) {
        std::vector<ImageChannel> channels;
        for (const auto& [type, component] : list)
            channels.push_back(channeltypes::GetChannel(
                *Id::Create(std::string("net.orvik.image.imagechanneltype.") + type), component));
        const Result<PixelFormat> format = PixelFormats::FindOrCreatePixelFormat(channels);
        EXPECT_TRUE(format) << MessageOf(format);
        return format ? *format : PixelFormat();
    }
    static std::vector<PixelFormat> MakeDynamic() {
        using enum ComponentType;
        return {Make({{"red", S8}, {"green", S8}, {"blue", S8}}),
                Make({{"alpha", S16}, {"red", S16}, {"green", S16}, {"blue", S16}}),
                Make({{"grey", S32}, {"alpha", S32}}),
                Make({{"cmyk_k", F64}, {"cmyk_y", F64}, {"cmyk_m", F64}, {"cmyk_c", F64}}),
                Make({{"cmyk_ik", U8}, {"cmyk_ic", U8}}),
                Make({{"depth", F32}, {"red", F32}, {"green", F32}, {"blue", F32}}),
                Make({{"alpha", S8}}),
                Make({{"red", U16}, {"unused", U16}}),
                Make({{"uvu", F32}, {"uvv", F32}}),
                Make({{"grey", F16}, {"depth", F16}}),
                Make({{"cmyk_k", U8}, {"alpha", U8}}),
                Make({{"blue", F64}, {"green", F64}, {"red", F64}, {"alpha", F64}}),
                Make({{"red", U8}, {"green", F32}, {"blue", U16}, {"red", S32}})};
    }
    /// With tables of all sorts, the first one shorter than its indices reach.
    static std::vector<PixelFormat> MakeIndexed(std::mt19937_64& random) {
        const struct {
            Int width;
            const char* entry;
            Int count;
        } kTables[] = {{8, "rgb.u8", 200},   {4, "rgba.u8", 16},  {2, "alpha.u8", 4},  {8, "rgb.u565", 256},
                       {8, "cmyk.u16", 256}, {8, "grey.f32", 50}, {8, "rgb.rgbe", 256}};
        std::vector<PixelFormat> formats;
        for (const auto& table : kTables) {
            const PixelFormat entry = FormatOf(table.entry);
            const auto format = PixelFormats::CreateIndexed(table.width, entry, table.count);
            EXPECT_TRUE(format) << table.entry;
            for (Int i = 0; format && i < table.count; ++i)
                EXPECT_TRUE((*format)->SetIndex(i, entry, MakePixels(entry, 1, random).data()));
            formats.push_back(format.GetValueOr(PixelFormatIndexedColor()));
        }
        return formats;
    }
    static uint64_t Scaled(ComponentType type, double value) {
        return slow::IsFloat(type) ? slow::EncodeFloat(type, value) : uint64_t(value * double(slow::MaskOf(type)));
    }
    /// 0, 1, close neighbours of both, and for floats values outside.
    static uint64_t Special(ComponentType type, std::mt19937_64& random) {
        constexpr double kValues[] = {0.0, 1.0, 1 / 255.0, 254 / 255.0, 0.2501, 0.5, -0.25, 1.5};
        return Scaled(type, kValues[random() % (slow::IsFloat(type) ? 8 : 6)]);
    }
    /// The darkest pixel, the brightest, and others of which each third has special values.
    static Bytes MakePixels(const PixelFormat& format, size_t count, std::mt19937_64& random) {
        const SlowFormat slow = Describe(format);
        Bytes pixels(size_t(format->GetBytesPerLine(Int(count))));
        for (uint8_t& byte : pixels)
            byte = uint8_t(random());
        for (size_t i = 0; i < count && slow.component != ComponentType::None; ++i) {
            SlowPixel pixel;
            for (const ComponentType type : slow.components)
                pixel.push_back(i < 2   ? Scaled(type, double(i))
                                : i % 3 ? RandomComponent(type, random)
                                        : Special(type, random));
            StorePixel(slow, pixel, &pixels[i * size_t(format->GetBitsPerPixel().GetBytes())]);
        }
        return pixels;
    }
};

TEST_F(SpecialWalkTest, EveryPair) {
    std::mt19937_64 random(17);
    const Result<BaseArray<PixelFormat>> all = PixelFormats::GetAll();  // before others are made at run time
    ASSERT_TRUE(all);
    std::vector<PixelFormat> formats = MakeDynamic();
    for (const PixelFormat& format : MakeIndexed(random))
        formats.push_back(format);
    for (const PixelFormat& format : *all)
        formats.push_back(format);
    ASSERT_EQ(formats.size(), 13u + 7 + 83 + 16);

    constexpr size_t kCount = 66;  // two blocks of an intermediate conversion
    int converted = 0, refused = 0;
    for (const PixelFormat& src : formats) {
        const Bytes in = MakePixels(src, kCount, random);
        for (const PixelFormat& dst : formats) {
            const std::string what = TextOf(src->GetId()) + "' to '" + TextOf(dst->GetId()) + "'";
            const Answer wanted = SlowRoutes().Convert(dst, src, in, kCount);
            const Result<ConvertPixelFunc> found = FindConversion(dst, src);
            if (!wanted) {
                EXPECT_EQ(MessageOf(found), "No pixel conversion found from '" + what);
                ++refused;
                continue;
            }
            ASSERT_TRUE(found) << what << ": " << ChainOf(found.GetError());
            Bytes out(size_t(dst->GetBytesPerLine(kCount)));
            const Result<void> done =
                (*found)({out.data(), dst->GetBitsPerPixel()}, kCount, {in.data(), src->GetBitsPerPixel()}, {});
            ASSERT_TRUE(done) << what << ": " << MessageOf(done);
            if (dst->GetBitsPerPixel().GetBits() % 8 != 0) {
                // Indices are only copied to themselves; what fills the last byte is nobody's.
                const size_t bits = kCount * size_t(dst->GetBitsPerPixel().GetBits());
                EXPECT_EQ(src, dst);
                EXPECT_TRUE(std::equal(out.begin(), out.begin() + Int(bits / 8), in.begin())) << what;
            } else {
                EXPECT_EQ(out, *wanted) << what;
            }
            ++converted;
        }
    }
    EXPECT_EQ(converted + refused, 119 * 119);
    EXPECT_GT(converted, 95 * 95 + 7 * 95);
    // To indices, from indices without colours, and from alpha.f16 and lists without colours.
    EXPECT_GT(refused, 16 * 118 + 9 * 100);
}

/// What the slow evaluation is measured by.
TEST_F(SpecialWalkTest, KnownPixels) {
    const struct {
        const char* src;
        Bytes in;
        const char* dst;
        Bytes out;
        Int count = 1;
    } kCases[] = {
        {"alpha.u8", {17}, "rgba.u8", {17, 17, 17, 17}},
        {"alpha.u8", {17}, "agrey.u8", {17, 0}},
        {"rgb.u8", {10, 10, 11}, "grey.u8", {10}},
        {"rgbx.u8", {1, 2, 3, 99}, "rgbx.u8", {1, 2, 3, 0}},
        {"rgbx.u8", {1, 2, 3, 99}, "alpha.u8", {255}},
        {"grey.u8", {7}, "alpha.u16", {255, 255}},
        {"grey.u8", {7}, "bgra.u8", {7, 7, 7, 255}},
        {"rgba.u8", {1, 2, 3, 4}, "abgr.u8", {4, 3, 2, 1}},
        {"rgb.u16", {0xFF, 0x00, 0xFF, 0xFF, 0x00, 0x01}, "rgb.u8", {0, 255, 1}},
        {"rgb.u8", {1, 2, 3}, "rgba.f16", {0x04, 0x1C, 0x04, 0x20, 0x06, 0x22, 0x00, 0x3C}},
        {"grey.u8", {0}, "rgb.s32", {0, 0, 0, 0x80, 0, 0, 0, 0x80, 0, 0, 0, 0x80}},
        {"rgb.u565", {0xFF, 0xFF}, "rgb.u8", {248, 252, 248}},
        {"bgr.u565", {0x1F, 0x00}, "rgb.u8", {248, 0, 0}},
        {"rgb.u565", {0x00, 0xF8}, "bgr.u565", {0x1F, 0x00}},
        {"rgb.u565", {0xFF, 0xFF}, "grey.u8", {249}},
        {"argb.u4444", {0x12, 0x3F}, "argb.u8", {0x33, 255, 0x11, 0x22}},
        {"rgb.u444", {0x00, 0x0F}, "rgb.u8", {240, 0, 0}},
        {"argb.u1555", {0x00, 0x80}, "argb.u8", {255, 0, 0, 0}},
        {"argb.u8", {127, 255, 255, 255}, "argb.u1555", {0xFF, 0x7F}},
        {"rgb.u555", {0xFF, 0xFF}, "argb.u1555", {0xFF, 0xFF}},
        {"rgb.rgbe", {255, 128, 0, 140}, "bgr.u8", {255, 255, 255}},
        {"rgb.rgbe", {128, 0, 0, 129}, "rgb.f32", {0, 0x80, 0x80, 0x3F, 0, 0, 0x80, 0x3B, 0, 0, 0x80, 0x3B}},
        {"yuv.i422a", {16, 128, 235, 128}, "rgb.u8", {0, 0, 0, 255, 255, 255}, 2},
        {"yuv.i422b", {128, 16, 128, 235}, "bgra.u8", {0, 0, 0, 255, 255, 255, 255, 255}, 2},
        {"rgb.u8", {255, 0, 0, 0, 0, 255}, "yuv.i422a", {82, 90, 41, 240}, 2},
        {"rgb.u8", {255, 0, 0, 0, 0, 255}, "yuv.i422b", {90, 82, 240, 41}, 2},
        {"yuv.i422a", {16, 128, 235, 128}, "yuv.i422b", {128, 16, 128, 235}, 2},
        {"rgb.u8", {0, 0, 0}, "cmyk.u8", {0, 0, 0, 255}},
        {"rgb.u8", {255, 0, 0}, "cmyk.u8", {0, 255, 255, 0}},
        {"rgba.u8", {255, 255, 255, 7}, "acmyk_inv.u8", {255, 255, 255, 255, 7}},
        {"acmyk.u8", {255, 0, 0, 0, 9}, "rgba.u8", {0, 255, 255, 9}},
        {"acmyk.u8", {1, 2, 3, 4, 5}, "acmyk_inv.u8", {254, 253, 252, 251, 5}},
        {"cmyk.u8", {0, 1, 128, 255}, "acmyk.u16", {0, 0, 1, 1, 128, 128, 255, 255, 255, 255}},
        {"cmyk_inv.u8", {255, 0, 0, 255}, "acmyk.u8", {0, 255, 255, 0, 255}},
    };
    for (const auto& entry : kCases)
        EXPECT_EQ(ConvertBytes(FormatOf(entry.dst), FormatOf(entry.src), entry.in.data(), entry.count), entry.out)
            << entry.src << " to " << entry.dst;
}

TEST_F(SpecialWalkTest, OddFloatsAsInksGiveSomePixel) {
    constexpr float kInfinity = std::numeric_limits<float>::infinity(), kNan = std::numeric_limits<float>::quiet_NaN();
    const PixelFormat inks = FormatOf("cmyk.u8"), colors = FormatOf("rgb.f32");
    const float ink[4] = {kNan, kInfinity, -kInfinity, 0}, dark[3] = {-1, -2, 0}, odd[3] = {kInfinity, kNan, 0};
    EXPECT_EQ(ConvertBytes(FormatOf("rgb.u8"), FormatOf("cmyk.f32"), ink, 1), (Bytes{0, 0, 255}));
    EXPECT_EQ(ConvertBytes(inks, colors, dark, 1), (Bytes{0, 0, 0, 255})) << "no light, so no colour";
    EXPECT_EQ(ConvertBytes(inks, colors, odd, 1).size(), 4u);
}

/// Conversions of the special formats, whose lines take ways of their own: channels apart, in planes or with gaps, from
/// the last pixel to the first, on addresses of all kinds, and in runs around the length of a block.
TEST_F(SpecialWalkTest, LinesMayLieAnyhow) {
    std::mt19937_64 random(23);
    std::vector<std::pair<PixelFormat, PixelFormat>> pairs;
    for (const auto& [a, b] : {std::pair("acmyk.u8", "rgba.u8"),
                               {"cmyk_inv.f32", "rgb.f32"},
                               {"argb.u4444", "argb.u16"},
                               {"rgb.u565", "rgb.u8"},
                               {"rgb.rgbe", "rgb.f32"},
                               {"yuv.i422b", "rgb.u8"},
                               {"rgb.u555", "argb.u1555"}}) {
        pairs.emplace_back(FormatOf(a), FormatOf(b));
        pairs.emplace_back(FormatOf(b), FormatOf(a));
        pairs.emplace_back(FormatOf(a), FormatOf(a));
    }
    const PixelFormat indexed = MakeIndexed(random)[0];
    for (const PixelFormat& format : PixelFormats::GetAll().TakeValue()) {
        if (IsGeneral(format))
            pairs.emplace_back(indexed, format);
    }
    ASSERT_EQ(pairs.size(), 21u + 49);
    // Pixels of a special format, and the pairs that share their chroma, only lie apart from each other.
    const auto placesOf = [](const PixelFormat& format, Int count) {
        const SlowFormat slow = Describe(format);
        const Int bytes = format->GetBitsPerPixel().GetBytes(), gap = bytes + 1;
        const Placement dense = PlaceDense(format);
        std::vector<Placement> places = {dense, {1, gap, dense.offsets}};
        if (format->GetPackedPixelCount() == 1)
            places.push_back({(count - 1) * gap, -gap, dense.offsets});
        if (slow.component != ComponentType::None) {
            for (const bool backwards : {false, true})
                places.push_back(PlaceOddly(slow, count, backwards));
            places.push_back(PlaceInPlanes(slow, count));
        }
        return places;
    };
    const auto scatter = [](const PixelFormat& format, const Placement& to, const Bytes& pixels, Int count) {
        SlowFormat slow = Describe(format);
        if (slow.component != ComponentType::None)
            return Scatter(slow, to, pixels, count, count);
        const Int together = format->GetPackedPixelCount();  // as one channel
        slow.types.resize(1);
        slow.size = size_t(together * format->GetBitsPerPixel().GetBytes());
        return Scatter(slow, {to.first, to.stride * together, {BITS(0)}}, pixels, count / together, count / together);
    };
    for (const auto& [src, dst] : pairs) {
        for (const Int count : {2, 256, 258, 600}) {
            const Bytes in = MakePixels(src, size_t(count), random), out = ConvertBytes(dst, src, in.data(), count);
            ASSERT_FALSE(out.empty());
            for (const Placement& from : placesOf(src, count)) {
                for (const Placement& to : placesOf(dst, count)) {
                    const Bytes source = scatter(src, from, in, count), wanted = scatter(dst, to, out, count);
                    Bytes result(wanted.size(), 0xCD);
                    const auto convert = FindConversion(dst, src, to.offsets, from.offsets);
                    ASSERT_TRUE(convert && (*convert)({&result[size_t(to.first)], BITS(8 * to.stride)}, count,
                                                      {&source[size_t(from.first)], BITS(8 * from.stride)}, {}));
                    ASSERT_EQ(result, wanted)
                        << NameOf(src) << " to " << NameOf(dst) << ", " << count << " pixels, from " << from.first
                        << " + " << from.stride << " to " << to.first << " + " << to.stride;
                }
            }
        }
    }
    const PixelFormat packed = FormatOf("rgb.u565");
    EXPECT_FALSE(FindConversion(FormatOf("rgb.u8"), packed, {}, packed->GetChannelOffsets())) << "offsets are missing";
}

}  // namespace
}  // namespace orvik
