// TGA: files put together byte by byte, a slow decoder as judge, and files written here compared byte by byte.

#include "parts.h"

namespace codectest {
namespace {

class TgaTest : public CodecTest {};

/// Both the importer and the judge of the other tests, by pixels written down here.
TEST_F(TgaTest, ReadsEveryKind) {
    const Bytes bgr = {1, 2, 3, 4, 5, 6, 11, 12, 13, 14, 15, 16};
    const Bytes bottomUp = Rgba({0x0D0C0BFF, 0x100F0EFF, 0x030201FF, 0x060504FF});
    const TgaParts strange{.mapType = 7, .mapLength = 2, .mapBits = 5, .map = {1, 2}, .pixels = bgr};
    const TgaParts attribute{.height = 1, .depth = 16, .descriptor = 1, .pixels = {0x1F, 0x80, 0xE0, 0x7F}};
    const TgaParts grey{.imageType = 3, .height = 1, .depth = 16, .pixels = {99, 7, 0, 8}};
    const TgaParts packets{.imageType = 10, .width = 3, .pixels = {0x83, 1, 2, 3, 0x01, 4, 5, 6, 7, 8, 9}};
    // Index 256 is no entry.
    TgaParts indexed = Mapped(16, 24, 0, 3, {1, 2, 3, 4, 5, 6, 7, 8, 9}, {0, 0, 1, 0, 2, 0, 0, 1});
    indexed.descriptor = 0x20;
    TgaParts everything{.id = {9, 9, 9}, .mapType = 1, .mapLength = 1, .mapBits = 24, .map = {7, 8, 9}};
    everything.pixels = Joined({bgr, BytesOf({"\0\0\0\0\0\0\0\0TRUEVISION-XFILE.\0", 26})});
    TgaParts map15 = indexed, map32 = indexed;
    map15.mapBits = 15, map15.map = {0x1F, 0x00, 0xE0, 0x03, 0x00, 0xFC};
    map32.mapBits = 32, map32.map = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
    const struct {
        const char* what;
        TgaParts parts;
        Bytes rgba;  ///< top row first
    } files[] = {
        {"top down", {.descriptor = 0x20, .pixels = bgr}, Rgba({0x030201FF, 0x060504FF, 0x0D0C0BFF, 0x100F0EFF})},
        {"with id, map and footer", everything, bottomUp},
        {"a map of strange entries is passed over", strange, bottomUp},
        {"16 bits, attribute bit", attribute, Rgba({0x0000F8FF, 0xF8F800FF})},
        {"40 bits", {.height = 1, .depth = 40, .pixels = {1, 2, 3, 4, 99, 5, 6, 7, 8, 98}}, {3, 2, 1, 4, 7, 6, 5, 8}},
        {"grey of 16 bits", grey, Rgba({0x070707FF, 0x080808FF})},
        {"indices of 16 bits", indexed, Rgba({0x030201FF, 0x060504FF, 0x090807FF, 0x000000FF})},
        {"map of 15 bits", map15, Rgba({0x0000F8FF, 0x00F800FF, 0xF80000FF, 0x000000FF})},
        {"map of 32 bits", map32, Rgba({0x04030201, 0x08070605, 0x0C0B0A09, 0})},
        {"packets across rows", packets,
         Rgba({0x030201FF, 0x060504FF, 0x090807FF, 0x030201FF, 0x030201FF, 0x030201FF})},
        {"right to left: backwards from the row's first byte, through the row before",
         {.descriptor = 0x30, .pixels = bgr},
         Rgba({0x030201FF, 0x000000FF, 0x0D0C0BFF, 0x060504FF})},
    };
    for (const auto& file : files) {
        SCOPED_TRACE(file.what);
        const Bytes bytes = file.parts.Make();
        EXPECT_EQ(RgbaOf(LoadedAs("tga", bytes)), file.rgba);
        EXPECT_EQ(DecodeTgaSlowly(bytes), file.rgba);
    }
}

TEST_F(TgaTest, DescribesItsStreams) {
    const Bytes file = TgaParts{.height = 1, .depth = 48, .pixels = {1, 2, 3, 4, 5, 6, 11, 12, 13, 14, 15, 16}}.Make();
    const ImageTextureRef texture = LoadedAs("tga", file);
    const ImageBaseRef image = FirstImage(texture);
    EXPECT_EQ(image->Get(image::kName, String()), String("Image"));
    EXPECT_EQ(image->Get(image::kSubImageIndex, 9), 0);
    EXPECT_FALSE(ProfileOf(texture).HasProfile());
    EXPECT_FALSE(image->Has(image::kDpi.GetId()));
    EXPECT_FALSE(texture->Has(image::kExportSettings.GetId()));
    std::string names;
    for (auto child = image->GetFirstChild(Int(IMAGEHIERARCHY::ALPHA)); child; child = child->GetNext()) {
        const auto alpha = Cast<ImageBaseInterface>(child);
        names += std::string(alpha->Get(image::kAlphaName, String()).GetText()) + " ";
        EXPECT_EQ(PixelsOf(alpha, pixelformats::kAlphaU8), (Bytes{4, 14})) << names;
    }
    EXPECT_EQ(names, "Alpha Alpha#2 Alpha#3 ");

    const auto importer = Cast<MediaInputInterface>(*FindHandlerBySuffix("tpic")->CreateHandler(Mount(file)));
    ASSERT_TRUE(importer->Analyze({}, {}, MEDIASESSIONFLAGS::NONE));
    const BaseArray<MediaStreamRef> streams = *importer->GetOutputStreams(true);
    std::vector<MEDIAALPHATYPE> types;
    for (const MediaStreamRef& stream : streams) {
        EXPECT_EQ(stream->GetClassId(), Id("net.orvik.image.class.mediastreamimagelayertgaimport"));
        types.push_back(stream->GetFormat(Data(Int(0))).Get(mediaformat::kAlphaType, MEDIAALPHATYPE::UNDEFINED));
    }
    constexpr MEDIAALPHATYPE kStraight = MEDIAALPHATYPE::STRAIGHT;
    EXPECT_THAT(types, testing::ElementsAre(MEDIAALPHATYPE::UNDEFINED, kStraight, kStraight, kStraight));
}

TEST_F(TgaTest, PaletteLengthFollowsTheMap) {
    const struct {
        uint16_t first, length;
        Int entries;
    } cases[] = {{0, 3, 3}, {10, 20, 30}, {250, 10, 256}, {0, 300, 256}, {300, 2, 256}, {0xFFFF, 1, 256}};
    for (const auto& c : cases) {
        for (const uint8_t depth : Bytes{8, 16}) {
            SCOPED_TRACE(testing::Message() << c.first << " " << c.length << " " << int(depth));
            const TgaParts parts = Mapped(depth, 24, c.first, c.length, Bytes(size_t(c.length) * 3), Bytes(8));
            const PixelFormat format = FirstImage(LoadedAs("tga", parts.Make()))->GetPixelFormat();
            const auto palette = Cast<PixelFormatIndexedColorInterface>(format);
            ASSERT_TRUE(palette);
            EXPECT_EQ(palette->GetColorTableSize(), c.entries);
            EXPECT_EQ(palette->GetColorTablePixelFormat()->GetId(), pixelformats::kBgrU8);
        }
    }
}

/// One good file, one wrong field a case.
TEST_F(TgaTest, RefusesDamage) {
    const Bytes colors = TgaParts{.imageType = 10, .pixels = {0x83, 1, 2, 3}}.Make();
    const Bytes indices = Mapped(8, 24, 0, 1, {1, 2, 3}, Bytes(4)).Make();
    LoadedAs("tga", colors);
    LoadedAs("tga", indices);
    const std::string damaged = "mediasessionwrongtype: ", brokenLine = "illegalstate: Decode scan line error.";
    enum { kId, kMapType, kType, kMapLength = 5, kMapBits = 7, kWidth = 12, kHeight = 14, kDepth = 16, kPixels = 18 };
    const struct {
        const char* what;
        const Bytes& good;
        size_t at;
        Bytes values;  ///< each in a file of its own
        std::string error;
    } cases[] = {
        {"no width, and more than packets can give", colors, kWidth, {0, 65}, damaged},
        {"width from 32768", colors, kWidth + 1, {0x80, 0x9C}, damaged},
        {"no height", colors, kHeight, {0}, damaged},
        {"height from 32768", colors, kHeight + 1, {0x80}, damaged},
        {"unknown types", colors, kType, {0, 4, 8, 12, 32}, damaged},
        {"true colour of 8 and no bits", colors, kDepth, {8, 0}, damaged},
        {"grey of 24 bits", colors, kType, {11}, damaged},
        {"indices of 24 bits", indices, kDepth, {24}, damaged},
        {"empty map", indices, kMapLength, {0}, damaged},
        {"maps of 0, 8 and 33 bits", indices, kMapBits, {0, 8, 33}, damaged},
        {"map beyond the end", indices, kMapLength + 1, {0xFF}, "io"},
        {"map that is passed over, beyond the end", colors, kMapLength, {9}, "io"},
        {"id beyond the end", colors, kId, {200}, "io"},
        {"no pixels behind the id", colors, kId, {4}, damaged},
        {"more pixels than bytes", indices, kHeight, {3}, damaged},
        {"run and literals past the last pixel", colors, kPixels, {0x84, 0x04}, brokenLine},
    };
    for (const auto& c : cases) {
        for (const uint8_t value : c.values) {
            SCOPED_TRACE(testing::Message() << c.what << ": " << int(value));
            Bytes file = c.good;
            file[c.at] = value;
            if (c.at == kMapLength && c.good == colors)
                file[kMapType] = 1, file[kMapBits] = 8;
            const Result<ImageTextureRef> loaded = LoadAs("tga", file);
            EXPECT_EQ(c.error == "io" ? KindOf(loaded) : KindOf(loaded) + ": " + MessageOf(loaded), c.error);
            if (c.error == damaged) {
                EXPECT_THAT(loaded.GetError()->ToString().GetCString(), testing::HasSubstr("The file is damaged"));
            }
        }
    }
}

TEST_F(TgaTest, IndicesWithoutAMapAreNotDecoded) {
    const Bytes file = TgaParts{.imageType = 1, .depth = 8, .pixels = Bytes(4)}.Make();
    EXPECT_THAT(MessageOf(Load(file)), testing::StartsWith("No pixel conversion found"));
    EXPECT_TRUE(Load(file, MEDIASESSIONFLAGS::RUNONLYANALYZE));
}

TEST_F(TgaTest, DeliversRowsBeforeABrokenPacket) {
    TgaParts parts{.imageType = 11, .width = 128, .height = 2000, .depth = 8, .descriptor = 0x20};
    for (int y = 0; y < 1999; ++y)
        parts.pixels.insert(parts.pixels.end(), {0xFF, uint8_t(y == 0 ? 77 : 5)});
    parts.pixels.insert(parts.pixels.end(), {0x7F, 5});  // more literals than there are bytes
    const ImageTextureRef texture = MakeTexture();
    EXPECT_EQ(KindOf(LoadInto(texture, "tga", Mount(parts.Make()))), "io");
    const Bytes grey = PixelsOf(FirstImage(texture), pixelformats::kGreyU8);
    EXPECT_EQ(grey[0], 77);
    EXPECT_EQ(grey[128], 5);
}

TEST_F(TgaTest, DetectsPlausibleHeaders) {
    const auto format = Registry::Find<FileFormatInterface>(kFileFormatRegistry, Format("tga").format);
    const auto claims = [&](const Bytes& file) { return *format->Detect(Url(), *OpenMemoryInput(AsBlock(file))); };
    const struct {
        uint8_t mapType, imageType, depth;
        bool claimed;
    } cases[] = {{0, 2, 24, true},  {1, 9, 8, true},   {2, 2, 24, false}, {0, 0, 24, false}, {0, 4, 24, false},
                 {0, 8, 24, false}, {0, 11, 32, true}, {0, 2, 7, false},  {0, 2, 33, false}, {0, 18, 24, false}};
    for (const auto& c : cases) {
        Bytes file = TgaParts{.mapType = c.mapType, .imageType = c.imageType, .depth = c.depth}.Make();
        EXPECT_EQ(claims(file), c.claimed) << int(c.mapType) << " " << int(c.imageType) << " " << int(c.depth);
        file.resize(16);
        EXPECT_FALSE(claims(file));
    }
    EXPECT_EQ(Format("tga").strength, DETECTIONSTRENGTH::WEAK);
}

/// Every type, depth and direction over sizes at which something wraps or ends, plain and in packets.
TEST_F(TgaTest, AgreesWithTheSlowDecoder) {
    Noise noise(21);
    const struct {
        uint8_t type, depth, mapBits;
        const char* format;  ///< end of its id
    } kinds[] = {{1, 8, 15, "indexed.u8bit"},   {1, 8, 24, "indexed.u8bit"},   {1, 8, 32, "indexed.u8bit"},
                 {1, 16, 16, "indexed.u16bit"}, {1, 16, 24, "indexed.u16bit"}, {2, 15, 0, "rgb.u555"},
                 {2, 16, 0, "rgb.u555"},        {2, 24, 0, "bgr.u8"},          {2, 32, 0, "bgr.u8"},
                 {2, 40, 0, "bgr.u8"},          {2, 64, 0, "bgr.u8"},          {2, 255, 0, "bgr.u8"},
                 {3, 8, 0, "grey.u8"},          {3, 16, 0, "grey.u16"},        {3, 12, 0, "grey.u16"}};
    const struct { uint16_t width, height; } sizes[] = {{1, 1}, {1, 7}, {7, 1}, {3, 5}, {127, 3}, {129, 3}, {300, 220}};
    for (const auto& kind : kinds) {
        for (const auto& size : sizes) {
            for (const uint8_t descriptor : Bytes{0x00, 0x20, 0x10, 0x3F}) {
                for (const bool inRuns : {false, true}) {
                    TgaParts parts;
                    if (kind.mapBits)
                        parts = Mapped(0, kind.mapBits, 5, 100, noise.Make(size_t((kind.mapBits + 7) / 8) * 100), {});
                    parts.imageType = kind.type, parts.depth = kind.depth, parts.descriptor = descriptor;
                    parts.width = size.width, parts.height = size.height;
                    const size_t pixelBytes = size_t((kind.depth + 7) / 8);
                    parts.pixels = noise.Make(size_t(size.width) * size.height * pixelBytes);
                    if (inRuns) {
                        for (uint8_t& byte : parts.pixels)
                            byte = byte % 8 == 0 ? 1 : 0;  // so that there are runs
                        parts.imageType |= 8;
                        parts.pixels = PackInRuns(parts.pixels, pixelBytes, noise);
                    }
                    const Bytes file = parts.Make();
                    const ImageTextureRef texture = LoadedAs("tga", file);
                    EXPECT_EQ(FirstImage(texture)->GetPixelFormat()->GetId(), FormatId(kind.format));
                    ASSERT_EQ(RgbaOf(texture), DecodeTgaSlowly(file))
                        << "type " << int(parts.imageType) << ", depth " << int(kind.depth) << ", " << size.width
                        << " x " << size.height << ", descriptor " << int(descriptor);
                }
            }
        }
    }
}

TEST_F(TgaTest, WritesFromTheBottomUp) {
    const Bytes footer = BytesOf({"\0\0\0\0\0\0\0\0TRUEVISION-XfileHelper.\0", 32});
    const struct {
        Picture picture;
        uint8_t depth;
        Bytes pixels;
    } cases[] = {
        {{1, 2, pixelformats::kRgbU8, {1, 2, 3, 4, 5, 6}}, 24, {6, 5, 4, 3, 2, 1}},
        {{1, 1, pixelformats::kRgbaU8, {1, 2, 3, 4}}, 32, {3, 2, 1, 4}},
        {{2, 1, pixelformats::kGreyU8, {100, 200}, {7, 9}}, 32, {100, 100, 100, 7, 200, 200, 200, 9}},
    };
    for (const auto& c : cases) {
        const uint8_t width = uint8_t(c.picture.width), height = uint8_t(c.picture.height);
        const Bytes header = {0, 0, 2, 0, 0, 0, 0, 24, 0, 0, 0, 0, width, 0, height, 0, c.depth, 0};
        EXPECT_EQ(Save(MakeTexture(c.picture), "tga").GetValueOr(Bytes()), Joined({header, c.pixels, footer}));
    }
}

}  // namespace
}  // namespace codectest
