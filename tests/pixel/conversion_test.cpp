// Every format into every other, in every placement, against a composition of the same rules from slow evaluations.

#include <optional>
#include <set>

#include "slow_formats.h"

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

/// Finds the route by the rules, and takes it pixel by pixel.
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
    static Answer ForEach(const PixelFormat& dst, const PixelFormat& src, const Bytes& in, size_t count,
                          auto evaluate) {
        Bytes out(count * StrideOf(dst));
        for (size_t i = 0; i < count; ++i)
            evaluate(&in[i * StrideOf(src)], &out[i * StrideOf(dst)]);
        return out;
    }

    Answer TakeDirect(const PixelFormat& dst, const PixelFormat& src, const Bytes& in, size_t count) {
        const std::string to = NameOf(dst), from = NameOf(src);
        const SlowFormat slowDst = Describe(dst), slowSrc = Describe(src);
        const auto each = [&](auto evaluate) { return ForEach(dst, src, in, count, evaluate); };
        if (IsFixedGeneral(to, dst) && IsFixedGeneral(from, src) && from != "alpha.f16")
            return each([&](const uint8_t* pixel, uint8_t* out) {
                SlowPixel result(slowDst.types.size());
                ConvertPixelSlowly(slowDst, result.data(), slowSrc, LoadPixel(slowSrc, pixel).data());
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
        const auto load = [](const uint8_t* pixel) { return uint16_t(pixel[0] + 256 * pixel[1]); };
        const auto storeWord = [](uint16_t word, uint8_t* out) { std::memcpy(out, &word, 2); };
        const auto& words = slow::kPackedBits;
        if (words.count(to) && Lists(kPackedPartners, from))
            return each([&](auto pixel, auto out) { storeWord(slow::CompressWord(named(pixel), words.at(to)), out); });
        if (words.count(from) && Lists(kPackedPartners, to))
            return each([&](auto pixel, auto out) { store(slow::ExpandWord(load(pixel), words.at(from)), out); });
        if (words.count(from) && words.count(to) && AreSiblings(from, to))
            return each([&](auto pixel, auto out) {
                storeWord(slow::RearrangeWord(load(pixel), words.at(from), words.at(to)), out);
            });
        if (to == "rgb.rgbe" && Lists(kRgbePartners, from))
            return each([&](auto pixel, auto out) { std::ranges::copy(slow::EncodeRgbe(named(pixel)), out); });
        if (from == "rgb.rgbe" && Lists(kRgbePartners, to))
            return each([&](auto pixel, auto out) { store(slow::DecodeRgbe(pixel), out); });
        if (to.starts_with("yuv") && Lists(kU8Colors, from))
            return EncodePairs(to.back() == 'a', in, count, StrideOf(src), named);
        if (from.starts_with("yuv") && Lists(kU8Colors, to))
            return DecodePairs(from.back() == 'a', in, count, StrideOf(dst), store);
        const bool toInks = IsFixedInks(to), fromInks = IsFixedInks(from);
        const bool inverted = to.find("_inv.") != std::string::npos;
        if (toInks && (Lists(kU8Colors, from) || Lists(kInkPartners, from)))
            return each([&](auto pixel, auto out) { store(slow::EncodeInks(named(pixel), inverted), out); });
        if (fromInks && (Lists(kU8Colors, to) || Lists(kInkPartners, to)))
            return each([&](auto pixel, auto out) { store(slow::DecodeInks(named(pixel)), out); });
        if (toInks && fromInks && to[0] == from[0] && inverted != (from.find("_inv.") != std::string::npos))
            return each([&](auto pixel, auto out) { store(slow::InvertInks(named(pixel), slowDst.component), out); });
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
    static Answer EncodePairs(bool isA, const Bytes& in, size_t count, size_t stride, auto named) {
        Bytes out;
        for (size_t i = 0; i + 1 < count; i += 2) {
            const auto a = slow::EncodeYuv(named(&in[i * stride])), b = slow::EncodeYuv(named(&in[(i + 1) * stride]));
            const Bytes pair = isA ? Bytes{a[0], a[1], b[0], a[2]} : Bytes{a[1], a[0], a[2], b[0]};
            out.insert(out.end(), pair.begin(), pair.end());
        }
        return out;
    }
    static Answer DecodePairs(bool isA, const Bytes& in, size_t count, size_t stride, auto store) {
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
        return type.starts_with("cmyk_") ? "cmyk" : type == "grey" || type == "alpha" ? type : "";
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
                const bool isFull = dst.types[c] == "alpha" || dst.types[c].starts_with("cmyk_i");
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

class ConversionTest : public ModuleFixture {
protected:
    static constexpr Int kPeriod = 70;  ///< pixels of a pattern that longer lines repeat

    /// Lists of channels in orders, numbers and types that no fixed format has.
    static std::vector<PixelFormat> MakeDynamic() {
        using enum ComponentType;
        const std::pair<std::vector<const char*>, ComponentType> kLists[] = {
            {{"red", "green", "blue"}, S8},
            {{"alpha", "red", "green", "blue"}, S16},
            {{"grey", "alpha"}, S32},
            {{"cmyk_k", "cmyk_y", "cmyk_m", "cmyk_c"}, F64},
            {{"cmyk_ik", "cmyk_ic"}, U8},
            {{"depth", "red", "green", "blue"}, F32},
            {{"alpha"}, S8},
            {{"red", "unused"}, U16},
            {{"uvu", "uvv"}, F32},
            {{"grey", "depth"}, F16},
            {{"cmyk_k", "alpha"}, U8},
            {{"blue", "green", "red", "alpha"}, F64},
            {{"green", "red", "red", "red"}, U8},
            {{"unknown", "depth", "depthback", "unused", "red"}, U8},
            {{"cmyk_c", "cmyk_ik"}, U8},
            {{"uvv", "uvu"}, U8},
            {{"unused", "red"}, U8},
            {{"alpha", "depth"}, U8},
            {{"depth", "alpha"}, U8}};
        std::vector<PixelFormat> formats;
        for (const auto& [types, component] : kLists)
            formats.push_back(MakeFormat(types, component).GetValueOr(PixelFormat()));
        const ImageChannel mixed[] = {ChannelOf("red", U8), ChannelOf("green", F32), ChannelOf("blue", U16),
                                      ChannelOf("red", S32)};
        formats.push_back(PixelFormats::FindOrCreatePixelFormat(mixed).GetValueOr(PixelFormat()));
        return formats;
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
    /// Pixels of a special format, and the pairs that share their chroma, only lie apart from each other.
    static std::vector<Placement> PlacesOf(const PixelFormat& format, Int count) {
        const SlowFormat slow = Describe(format);
        const Placement dense = PlaceDense(format);
        const Int gap = format->GetBitsPerPixel().GetBytes() + 1;
        std::vector<Placement> places = {dense, {1, gap, dense.offsets}};
        if (format->GetPackedPixelCount() == 1)
            places.push_back({(count - 1) * gap, -gap, dense.offsets});
        if (slow.component != ComponentType::None) {
            for (const bool backwards : {false, true})
                places.push_back(PlaceOddly(slow, count, backwards));
            places.push_back(PlaceInPlanes(slow, count));
        }
        return places;
    }
    static Bytes ScatterAny(const PixelFormat& format, const Placement& to, const Bytes& pixels, Int count,
                            Int period) {
        SlowFormat slow = Describe(format);
        if (slow.component != ComponentType::None)
            return Scatter(slow, to, pixels, count, period);
        const Int together = format->GetPackedPixelCount();  // as one channel
        slow.types.resize(1);
        slow.size = size_t(together * format->GetBitsPerPixel().GetBytes());
        return Scatter(slow, {to.first, to.stride * together, {BITS(0)}}, pixels, count / together, period / together);
    }
};

TEST_F(ConversionTest, EveryPair) {
    std::mt19937_64 random(17);
    const BaseArray<PixelFormat> all = PixelFormats::GetAll().TakeValue();  // before more are registered
    std::vector<PixelFormat> formats = MakeDynamic();
    for (const PixelFormat& format : MakeIndexed(random))
        formats.push_back(format);
    formats.insert(formats.end(), all.begin(), all.end());
    ASSERT_EQ(formats.size(), 20u + 7 + 83 + 16);
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
                // Indices are only copied to themselves; what fills the last byte has no meaning.
                const size_t bits = kCount * size_t(dst->GetBitsPerPixel().GetBits());
                EXPECT_EQ(src, dst);
                EXPECT_TRUE(std::equal(out.begin(), out.begin() + Int(bits / 8), in.begin())) << what;
            } else {
                EXPECT_EQ(out, *wanted) << what;
                const PixelLine line{out.data(), dst->GetBitsPerPixel()};
                if (src->GetBitsPerPixel() == dst->GetBitsPerPixel()) {
                    out = in;
                    ASSERT_TRUE((*found)(line, kCount, line, {}));
                    EXPECT_EQ(out, *wanted) << what << " in place";
                }
            }
            ++converted;
        }
    }
    EXPECT_EQ(converted + refused, 126 * 126);
    EXPECT_GT(converted, 95 * 95 + 7 * 95);
    // To indices, from indices without colours, and from alpha.f16 and lists without colours.
    EXPECT_GT(refused, 16 * 125 + 9 * 100);
}

/// Floats of which the slow evaluation knows nothing, or that lie at a limit.
TEST_F(ConversionTest, KnownPixels) {
    constexpr float kInfinity = std::numeric_limits<float>::infinity(), kNan = std::numeric_limits<float>::quiet_NaN();
    constexpr float kGreatest = std::numeric_limits<float>::max();
    const std::tuple<const char*, std::vector<float>, const char*, Bytes> kCases[] = {
        {"cmyk.f32", {kNan, kInfinity, -kInfinity, 0}, "rgb.u8", {0, 0, 255}},
        {"rgb.f32", {-1, -2, 0}, "cmyk.u8", {0, 0, 0, 255}},  // no light, so no colour
        {"rgb.f32", {1e-32f, 1e-32f, 0}, "rgb.rgbe", {0, 0, 0, 0}},
        {"rgb.f32", {std::nextafter(1e-32f, 1.0f), 0, 0}, "rgb.rgbe", {207, 0, 0, 22}},
        {"rgb.f32", {-1, -1, -1}, "rgb.rgbe", {0, 0, 0, 0}},
        {"rgb.f32", {1, -1e30f, -kInfinity}, "rgb.rgbe", {127, 0, 0, 129}},
        {"rgb.f32", {kNan, 1, 0}, "rgb.rgbe", {0, 127, 0, 129}},
        {"rgb.f32", {kNan, kNan, kNan}, "rgb.rgbe", {0, 0, 0, 0}},
        {"rgb.f32", {kInfinity, 1, kGreatest}, "rgb.rgbe", {255, 0, 255, 255}},
        {"rgb.f32", {0x1p127f, 0x1p126f, 0}, "rgb.rgbe", {255, 127, 0, 255}},
    };
    for (const auto& [src, in, dst, out] : kCases)
        EXPECT_EQ(ConvertBytes(FormatOf(dst), FormatOf(src), in.data(), 1), out) << src << " to " << dst;
    const float odd[] = {kInfinity, kNan, 0};  // gives some pixel
    EXPECT_EQ(ConvertBytes(FormatOf("cmyk.u8"), FormatOf("rgb.f32"), odd, 1).size(), 4u);
}

/// Words, shared exponents and shared chroma over the range of their values, both ways.
TEST_F(ConversionTest, EveryValueOfSpecialFormats) {
    const auto convert = [](const std::string& dst, const std::string& src, const Bytes& in) {
        const PixelFormat to = FormatOf(dst), from = FormatOf(src);
        const size_t count = in.size() * 8 / size_t(from->GetBitsPerPixel().GetBits());
        Bytes out = ConvertBytes(to, from, in.data(), Int(count));
        const Answer wanted = SlowRoutes().Convert(to, from, in, count);
        EXPECT_TRUE(out == wanted) << src << " to " << dst;
        return out;
    };
    for (const auto& [name, bits] : slow::kPackedBits) {
        for (const std::string partner :
             {"rgb.u8", "argb.u8", "rgb.u16", "argb.u16", "rgb.f32", "argb.f32", "rgb.f64", "argb.f64"}) {
            Bytes words;  // odd steps, which reach every value of every channel
            for (int word = 0; word < 65536; word += partner.ends_with("u8") ? 3 : 13)
                words.insert(words.end(), {uint8_t(word), uint8_t(word >> 8)});
            convert(name, partner, convert(partner, name, words));
        }
    }

    Bytes exponents, pairs, colors;
    std::mt19937_64 random(9);
    std::uniform_real_distribution<float> mantissa(0.5f, 1.0f), share(-1.0f, 1.0f);
    std::vector<float> lights;
    for (int exponent = 0; exponent < 256; ++exponent) {
        for (int i = 0; i < 256; i += 3) {
            for (const int byte : {i, 255 - i, (i * 37 + exponent) & 255, exponent})
                exponents.push_back(uint8_t(byte));
        }
        for (int i = 0; i < 60 && exponent < 254; ++i) {
            const float kEnds[] = {0.5f, 0x1.fffffep-1f};
            const float brightest = std::ldexp(i < 2 ? kEnds[i] : mantissa(random), exponent - 126);
            float pixel[3] = {brightest * share(random), brightest * share(random), brightest * share(random)};
            pixel[i % 3] = brightest;
            lights.insert(lights.end(), pixel, pixel + 3);
        }
    }
    for (const char* partner : {"rgb.u8", "rgb.u16", "rgb.f16", "rgb.f32", "rgb.f64"}) {
        convert(partner, "rgb.rgbe", exponents);
        // The other formats get the colours that they can hold.
        convert("rgb.rgbe", partner,
                ConvertBytes(FormatOf(partner), FormatOf("rgb.f32"), lights.data(), Int(lights.size() / 3)));
    }

    for (int a = 0; a < 256; ++a) {
        for (int b = 0; b < 256; ++b) {
            for (int c = 0; c < 256; c += 51) {
                const auto sum = uint8_t(a + b + c);
                pairs.insert(pairs.end(), {uint8_t(c), uint8_t(a), sum, uint8_t(b)});
                colors.insert(colors.end(), {uint8_t(a), uint8_t(b), uint8_t(c), uint8_t(c), sum, uint8_t(a)});
            }
        }
    }
    convert("rgb.u8", "yuv.i422a", pairs);
    convert("yuv.i422b", "rgb.u8", colors);
}

/// All pairs of general formats, and conversions of special formats, which have code of their own for each placement:
/// channels apart, in planes or with gaps, from the last pixel to the first, on addresses of all kinds, in runs of
/// every length up to 70 and around the lengths of blocks.
TEST_F(ConversionTest, EveryPairAcceptsEveryPlacement) {
    std::mt19937_64 random(23);
    std::vector<PixelFormat> general;
    for (const PixelFormat& format : PixelFormats::GetAll().TakeValue()) {
        if (IsGeneral(format))
            general.push_back(format);
    }
    ASSERT_EQ(general.size(), 49u);
    std::vector<std::pair<PixelFormat, PixelFormat>> pairs;
    const PixelFormat indexed = MakeIndexed(random)[0];
    for (const PixelFormat& format : general) {
        for (const PixelFormat& other : general)
            pairs.emplace_back(format, other);
        pairs.emplace_back(indexed, format);
    }
    for (const auto& [a, b] : {std::pair("acmyk.u8", "rgba.u8"),
                               {"cmyk_inv.f32", "rgb.f32"},
                               {"argb.u4444", "argb.u16"},
                               {"rgb.u565", "rgb.u8"},
                               {"rgb.rgbe", "rgb.f32"},
                               {"yuv.i422b", "rgb.u8"},
                               {"rgb.u555", "argb.u1555"},
                               {"dynamic.redgreenu8", "grey.u8"}}) {
        pairs.emplace_back(FormatOf(a), FormatOf(b));
        pairs.emplace_back(FormatOf(b), FormatOf(a));
        pairs.emplace_back(FormatOf(a), FormatOf(a));
    }
    int converted = 0;
    for (const auto& [src, dst] : pairs) {
        SCOPED_TRACE(NameOf(src) + " to " + NameOf(dst));
        const Bytes in = MakePixels(src, kPeriod, random);
        const Answer out = SlowRoutes().Convert(dst, src, in, kPeriod);
        if (!out)
            continue;
        ++converted;
        const auto check = [&, &src = src, &dst = dst](const Placement& from, const Placement& to, Int count,
                                                       Int period = kPeriod) {
            const Bytes source = ScatterAny(src, from, in, count, period),
                        wanted = ScatterAny(dst, to, *out, count, period);
            Bytes result(wanted.size(), 0xCD);
            const auto convert = FindConversion(dst, src, to.offsets, from.offsets);
            ASSERT_TRUE(convert &&
                        (*convert)({&result[size_t(to.first)], BITS(8 * to.stride)}, count,
                                   {&source[size_t(from.first)], BITS(period == 1 ? 0 : 8 * from.stride)}, {}));
            ASSERT_EQ(result, wanted) << count << " pixels, from " << from.first << " + " << from.stride << " to "
                                      << to.first << " + " << to.stride;
        };
        const Placement denseSrc = PlaceDense(src), denseDst = PlaceDense(dst);
        if (src->GetBitsPerPixel() == dst->GetBitsPerPixel()) {
            Bytes pixels = ScatterAny(src, denseSrc, in, 600, kPeriod);
            const PixelLine line{pixels.data(), dst->GetBitsPerPixel()};
            const auto convert = FindConversion(dst, src);
            ASSERT_TRUE(convert && (*convert)(line, 600, line, {}));
            EXPECT_EQ(pixels, ScatterAny(dst, denseDst, *out, 600, kPeriod)) << "in place";
        }
        const bool isSpecial = !IsGeneral(src) || !IsGeneral(dst);
        const Int together = std::max(src->GetPackedPixelCount(), dst->GetPackedPixelCount());
        for (Int count = 0; count <= kPeriod; count += together)
            ASSERT_NO_FATAL_FAILURE(check(denseSrc, denseDst, count));
        check(denseSrc, denseDst, 9000);  // one-byte pixels fill more than one block of the composed form
        if (together == 1)
            check(denseSrc, denseDst, kPeriod, 1);  // one source pixel for all
        for (const Int count : {kPeriod, Int(258), Int(600)}) {
            const std::vector<Placement> froms = PlacesOf(src, count), tos = PlacesOf(dst, count);
            for (size_t i = 0; i < froms.size(); ++i) {
                for (size_t j = 0; j < tos.size(); ++j) {
                    if (isSpecial || (count < 600 && (i == j || i == 0 || j == 0)))
                        check(froms[i], tos[j], count);
                }
            }
        }
        if (HasFatalFailure())
            return;
    }
    EXPECT_EQ(converted, 48 * 49 + 5 + 49 + 24);
    const PixelFormat packed = FormatOf("rgb.u565");
    EXPECT_FALSE(FindConversion(FormatOf("rgb.u8"), packed, {}, packed->GetChannelOffsets())) << "offsets are missing";
}

TEST_F(ConversionTest, CountsBelowOneTouchNothingAndHalfAPairFails) {
    const PixelFormat yuv = FormatOf("yuv.i422a"), b = FormatOf("yuv.i422b");
    for (const char* name : {"rgb.u8", "bgrx.u8", "rgb.f64", "rgba.f32", "grey.u8", "yuv.i422b", "yuv.i422a"}) {
        const PixelFormat other = FormatOf(name);
        Bytes from(512), to(512 * 16);
        for (const auto& [src, dst] : {std::pair(yuv, other), {other, yuv}, {other, FormatOf("rgba.u16")}}) {
            const Result<ConvertPixelFunc> convert = FindConversion(dst, src);
            ASSERT_TRUE(convert) << name;
            const BITS toStride = dst->GetBitsPerPixel(), fromStride = src->GetBitsPerPixel();
            for (const Int count : {Int(0), Int(-1), std::numeric_limits<Int>::min()})
                EXPECT_TRUE((*convert)({nullptr, toStride}, count, {nullptr, fromStride}, {}));
            const bool inPairs = src->GetPackedPixelCount() == 2 || dst->GetPackedPixelCount() == 2;
            for (const Int count : {1, 3, 7})
                EXPECT_EQ(MessageOf((*convert)({to.data(), toStride}, count, {from.data(), fromStride}, {})),
                          inPairs ? "YUV needs an even number of pixels to convert." : "")
                    << name;
        }
    }
    // No partner of the other variant.
    const ChannelOffsets own = yuv->GetChannelOffsets(), other = b->GetChannelOffsets();
    EXPECT_EQ(MessageOf(yuv->GetConvertPixelFromFunc(b, other, own, true)), "YUV unsupported");
    EXPECT_EQ(MessageOf(yuv->GetConvertPixelToFunc(b, own, other, true)), "YUV unsupported");
}

}  // namespace
}  // namespace orvik
