// TGA: files put together byte by byte, a slow decoder as judge, and files written here compared byte by byte.

#include <filesystem>

#include "tga_parts.h"
#include "tool_support.h"

namespace codectest {
namespace {

class TgaTest : public CodecTest {};

/// Past detection, straight into the importer.
Result<ImageTextureRef> LoadAsTga(const Url& url) {
    ImageTextureRef texture = TRY(ClassRef(imageclasses::kTexture).Create<ImageTextureInterface>());
    const auto output = TRY(ClassRef(mediaclasses::kOutputTexture).Create<MediaOutputTextureInterface>());
    TRY(output->SetOutputTexture(texture, ClassRef(storageclasses::kNormal)));
    TRY(MediaSessionImport(url, TimeValue(), MEDIASESSIONFLAGS::NONE, output, {}, {}, FindHandlerBySuffix("tga")));
    return texture;
}
Result<ImageTextureRef> LoadAsTga(const Bytes& file) { return LoadAsTga(Mount(file)); }

struct GoodFile {
    const char* what;
    TgaParts parts;
    const char* format;  ///< of the image, the end of its id
    Bytes rgba;          ///< top row first
};

TEST_F(TgaTest, ReadsEveryType) {
    const Bytes map24 = {1, 2, 3, 4, 5, 6, 7, 8, 9};
    const Bytes bgr = {1, 2, 3, 4, 5, 6, 11, 12, 13, 14, 15, 16};
    const Bytes bottomUp = {13, 12, 11, 255, 16, 15, 14, 255, 3, 2, 1, 255, 6, 5, 4, 255};
    const Bytes topDown = {3, 2, 1, 255, 6, 5, 4, 255, 13, 12, 11, 255, 16, 15, 14, 255};
    const Bytes mapped = {3, 2, 1, 255, 6, 5, 4, 255, 9, 8, 7, 255, 3, 2, 1, 255};
    const TgaParts indexed{.mapType = 1,
                           .imageType = 1,
                           .mapLength = 3,
                           .mapBits = 24,
                           .depth = 8,
                           .descriptor = 0x20,
                           .map = map24,
                           .pixels = {0, 1, 2, 0}};
    TgaParts indexed16 = indexed, indexedRuns = indexed, map15 = indexed, map32 = indexed;
    indexed16.depth = 16, indexed16.pixels = {0, 0, 1, 0, 2, 0, 0, 1};  // index 256 is no entry
    indexedRuns.imageType = 9, indexedRuns.pixels = {0x82, 1, 0x00, 2};
    map15.mapBits = 15, map15.map = {0x1F, 0x00, 0xE0, 0x03, 0x00, 0xFC};
    map32.mapBits = 32, map32.map = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
    const GoodFile files[] = {
        {"24 bits", {.pixels = bgr}, "bgr.u8", bottomUp},
        {"top down", {.descriptor = 0x20, .pixels = bgr}, "bgr.u8", topDown},
        {"with id, map and footer",
         {.id = {9, 9, 9}, .mapType = 1, .mapLength = 3, .mapBits = 24, .map = map24, .pixels = bgr, .footer = true},
         "bgr.u8",
         bottomUp},
        {"a map of strange entries is passed over",
         {.mapType = 7, .mapLength = 2, .mapBits = 5, .map = {1, 2}, .pixels = bgr},
         "bgr.u8",
         bottomUp},
        {"16 bits, attribute bit",
         {.height = 1, .depth = 16, .descriptor = 1, .pixels = {0x1F, 0x80, 0xE0, 0x7F}},
         "rgb.u555",
         {0, 0, 248, 255, 248, 248, 0, 255}},
        {"15 bits", {.width = 1, .height = 1, .depth = 15, .pixels = {0x1F, 0x00}}, "rgb.u555", {0, 0, 248, 255}},
        {"32 bits", {.height = 1, .depth = 32, .pixels = {1, 2, 3, 4, 5, 6, 7, 8}}, "bgr.u8", {3, 2, 1, 4, 7, 6, 5, 8}},
        {"40 bits",
         {.height = 1, .depth = 40, .pixels = {1, 2, 3, 4, 99, 5, 6, 7, 8, 98}},
         "bgr.u8",
         {3, 2, 1, 4, 7, 6, 5, 8}},
        {"grey", {.imageType = 3, .height = 1, .depth = 8, .pixels = {7, 8}}, "grey.u8", {7, 7, 7, 255, 8, 8, 8, 255}},
        {"grey of 16 bits",
         {.imageType = 3, .height = 1, .depth = 16, .pixels = {99, 7, 0, 8}},
         "grey.u16",
         {7, 7, 7, 255, 8, 8, 8, 255}},
        {"indices", indexed, "indexed.u8bit", mapped},
        {"indices of 16 bits", indexed16, "indexed.u16bit", {3, 2, 1, 255, 6, 5, 4, 255, 9, 8, 7, 255, 0, 0, 0, 255}},
        {"indices in runs", indexedRuns, "indexed.u8bit", {6, 5, 4, 255, 6, 5, 4, 255, 6, 5, 4, 255, 9, 8, 7, 255}},
        {"map of 15 bits", map15, "indexed.u8bit", {0, 0, 248, 255, 0, 248, 0, 255, 248, 0, 0, 255, 0, 0, 248, 255}},
        {"map of 32 bits", map32, "indexed.u8bit", {4, 3, 2, 1, 8, 7, 6, 5, 12, 11, 10, 9, 4, 3, 2, 1}},
        {"runs across rows",
         {.imageType = 10, .width = 3, .pixels = {0x83, 1, 2, 3, 0x01, 4, 5, 6, 7, 8, 9}},
         "bgr.u8",
         {3, 2, 1, 255, 6, 5, 4, 255, 9, 8, 7, 255, 3, 2, 1, 255, 3, 2, 1, 255, 3, 2, 1, 255}},
        {"grey in runs",
         {.imageType = 11, .height = 1, .depth = 8, .pixels = {0x81, 5}},
         "grey.u8",
         {5, 5, 5, 255, 5, 5, 5, 255}},
        {"right to left: backwards from the row's first byte, through the row before",
         {.height = 2, .descriptor = 0x30, .pixels = bgr},
         "bgr.u8",
         {3, 2, 1, 255, 0, 0, 0, 255, 13, 12, 11, 255, 6, 5, 4, 255}},
        {"right to left and up, with alpha",
         {.width = 1, .depth = 32, .descriptor = 0x10, .pixels = {1, 2, 3, 4, 5, 6, 7, 8}},
         "bgr.u8",
         {7, 6, 5, 8, 3, 2, 1, 4}},
    };
    for (const GoodFile& file : files) {
        SCOPED_TRACE(file.what);
        const Bytes bytes = file.parts.Make();
        const Result<ImageTextureRef> texture = LoadAsTga(bytes);
        ASSERT_TRUE(texture) << texture.GetError()->ToString().GetCString();
        EXPECT_EQ(RgbaOf(*texture), file.rgba);
        EXPECT_EQ(DecodeTgaSlowly(bytes), file.rgba);  // the judge knows this too
        EXPECT_EQ(FirstImage(*texture)->GetPixelFormat()->GetId().GetText(),
                  "net.orvik.image.pixelformat." + std::string(file.format));
    }
}

TEST_F(TgaTest, DescribesItsStreams) {
    Result<ImageTextureRef> texture =
        LoadAsTga(TgaParts{.height = 1, .depth = 48, .pixels = {1, 2, 3, 4, 5, 6, 11, 12, 13, 14, 15, 16}}.Make());
    ASSERT_TRUE(texture) << texture.GetError()->ToString().GetCString();
    const ImageBaseRef image = FirstImage(*texture);
    EXPECT_EQ(image->Get(image::kName, String()), String("Image"));
    EXPECT_EQ(image->Get(image::kSubImageIndex, 9), 0);
    EXPECT_FALSE(image->Get(image::kColorProfile, ColorProfile()).HasProfile());
    EXPECT_FALSE(image->Has(image::kDpi.GetId()));
    std::vector<std::string> names;
    for (auto child = image->GetFirstChild(Int(IMAGEHIERARCHY::ALPHA)); child; child = child->GetNext()) {
        const auto alpha = Cast<ImageBaseInterface>(child);
        names.emplace_back(alpha->Get(image::kAlphaName, String()).GetText());
        EXPECT_EQ(PixelsOf(alpha, pixelformats::kAlphaU8), (Bytes{4, 14})) << names.back();
    }
    EXPECT_EQ(names, (std::vector<std::string>{"Alpha", "Alpha#2", "Alpha#3"}));
    EXPECT_FALSE((*texture)->Has(image::kExportSettings.GetId()));

    texture = LoadAsTga(TgaParts{.height = 1, .depth = 16, .descriptor = 1, .pixels = Bytes(4)}.Make());
    ASSERT_TRUE(texture);
    EXPECT_FALSE(AlphaOf(FirstImage(*texture)));
}

TEST_F(TgaTest, PalettesAreAsLongAsTheirMap) {
    const struct {
        uint16_t first, length;
        Int entries;
    } cases[] = {{0, 3, 3}, {10, 20, 30}, {250, 10, 256}, {0, 300, 256}, {300, 2, 256}, {0xFFFF, 1, 256}};
    for (const auto& c : cases) {
        for (const uint8_t depth : Bytes{8, 16}) {
            SCOPED_TRACE(testing::Message() << c.first << " " << c.length << " " << int(depth));
            Noise noise(c.first);
            const Result<ImageTextureRef> texture = LoadAsTga(TgaParts{.mapType = 1,
                                                                       .imageType = 1,
                                                                       .mapFirst = c.first,
                                                                       .mapLength = c.length,
                                                                       .mapBits = 24,
                                                                       .depth = depth,
                                                                       .map = noise.Make(size_t(c.length) * 3),
                                                                       .pixels = noise.Make(8)}
                                                                  .Make());
            ASSERT_TRUE(texture) << texture.GetError()->ToString().GetCString();
            const auto palette = Cast<PixelFormatIndexedColorInterface>(FirstImage(*texture)->GetPixelFormat());
            ASSERT_TRUE(palette);
            EXPECT_EQ(palette->GetColorTableSize(), c.entries);
            EXPECT_EQ(palette->GetColorTablePixelFormat()->GetId(), pixelformats::kBgrU8);
        }
    }
}

/// One good file, one wrong field a case.
TEST_F(TgaTest, RefusesDamage) {
    const TgaParts good{.imageType = 10, .pixels = {0x83, 1, 2, 3}};
    const TgaParts indexed{
        .mapType = 1, .imageType = 1, .mapLength = 1, .mapBits = 24, .depth = 8, .map = {1, 2, 3}, .pixels = Bytes(4)};
    const auto with = [](TgaParts parts, auto change) {
        change(parts);
        return parts.Make();
    };
    ASSERT_TRUE(LoadAsTga(good.Make()));
    ASSERT_TRUE(LoadAsTga(indexed.Make()));
    const struct {
        const char* what;
        Bytes file;
        const char* kind;
        const char* message;
    } cases[] = {
        {"width 0", with(good, [](auto& p) { p.width = 0; }), "mediasessionwrongtype", ""},
        {"width 40000", with(good, [](auto& p) { p.width = 40000; }), "mediasessionwrongtype", ""},
        {"height 0", with(good, [](auto& p) { p.height = 0; }), "mediasessionwrongtype", ""},
        {"height 32768", with(good, [](auto& p) { p.height = 32768; }), "mediasessionwrongtype", ""},
        {"type 0", with(good, [](auto& p) { p.imageType = 0; }), "mediasessionwrongtype", ""},
        {"type 4", with(good, [](auto& p) { p.imageType = 4; }), "mediasessionwrongtype", ""},
        {"type 8", with(good, [](auto& p) { p.imageType = 8; }), "mediasessionwrongtype", ""},
        {"type 32", with(good, [](auto& p) { p.imageType = 32; }), "mediasessionwrongtype", ""},
        {"true colour of 8 bits", with(good, [](auto& p) { p.depth = 8; }), "mediasessionwrongtype", ""},
        {"true colour of no bits", with(good, [](auto& p) { p.depth = 0; }), "mediasessionwrongtype", ""},
        {"grey of 24 bits", with(good, [](auto& p) { p.imageType = 11; }), "mediasessionwrongtype", ""},
        {"indices of 24 bits", with(indexed, [](auto& p) { p.depth = 24; }), "mediasessionwrongtype", ""},
        {"empty map", with(indexed, [](auto& p) { p.mapLength = 0; }), "mediasessionwrongtype", ""},
        {"map of 0 bits", with(indexed, [](auto& p) { p.mapBits = 0; }), "mediasessionwrongtype", ""},
        {"map of 8 bits", with(indexed, [](auto& p) { p.mapBits = 8; }), "mediasessionwrongtype", ""},
        {"map of 33 bits", with(indexed, [](auto& p) { p.mapBits = 33; }), "mediasessionwrongtype", ""},
        {"more pixels than bytes", with(indexed, [](auto& p) { p.height = 3; }), "mediasessionwrongtype", ""},
        {"more pixels than packets can give", with(good, [](auto& p) { p.width = 65; }), "mediasessionwrongtype", ""},
        {"run past the last pixel", with(good, [](auto& p) { p.pixels[0] = 0x84; }), "illegalstate",
         "Decode scan line error."},
        {"literals past the last pixel", with(good, [](auto& p) { p.pixels[0] = 0x04; }), "illegalstate",
         "Decode scan line error."},
        {"no pixels", with(good, [](auto& p) { p.id = Bytes(3), p.pixels.clear(); }), "mediasessionwrongtype", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const Result<ImageTextureRef> loaded = LoadAsTga(c.file);
        EXPECT_EQ(KindOf(loaded), c.kind);
        EXPECT_EQ(MessageOf(loaded), c.message);
        const std::string text = loaded ? "" : loaded.GetError()->ToString().GetCString();
        EXPECT_THAT(text, testing::HasSubstr(*c.message ? c.message : "The file is damaged"));
    }
}

TEST_F(TgaTest, IdAndMapMustLieInsideTheFile) {
    Bytes file = TgaParts{.pixels = Bytes(12)}.Make();
    file[0] = 200;
    EXPECT_EQ(KindOf(LoadAsTga(file)), "io");
    for (const uint8_t type : Bytes{1, 2}) {
        const TgaParts parts{
            .mapType = 1, .imageType = type, .mapLength = 0xFFFF, .mapBits = 24, .depth = 16, .pixels = Bytes(100)};
        EXPECT_EQ(KindOf(LoadAsTga(parts.Make())), "io");
    }
}

TEST_F(TgaTest, IndicesWithoutAMapAreDescribedOnly) {
    const Bytes file = TgaParts{.imageType = 1, .depth = 8, .pixels = Bytes(4)}.Make();
    EXPECT_THAT(MessageOf(Load(file)), testing::StartsWith("No pixel conversion found"));
    EXPECT_TRUE(Load(file, MEDIASESSIONFLAGS::RUNONLYANALYZE));
}

TEST_F(TgaTest, RowsBeforeABrokenPacketArrive) {
    const Bytes file = TgaParts{.imageType = 11,
                                .width = 128,
                                .height = 2000,
                                .depth = 8,
                                .descriptor = 0x20,
                                .pixels =
                                    [] {
                                        Bytes packets;
                                        for (int i = 0; i < 2000; ++i)
                                            packets.insert(packets.end(), {0xFF, uint8_t(i == 0 ? 77 : 5)});
                                        packets[3998] = 0x7F;  // more literals than there are bytes
                                        return packets;
                                    }()}
                           .Make();
    ImageTextureRef texture = *ClassRef(imageclasses::kTexture).Create<ImageTextureInterface>();
    const auto output = *ClassRef(mediaclasses::kOutputTexture).Create<MediaOutputTextureInterface>();
    ASSERT_TRUE(output->SetOutputTexture(texture, ClassRef(storageclasses::kNormal)));
    const auto imported = MediaSessionImport(Mount(file), TimeValue(), MEDIASESSIONFLAGS::NONE, output, {}, {}, {});
    EXPECT_EQ(KindOf(imported), "io");
    const Bytes grey = PixelsOf(FirstImage(texture), pixelformats::kGreyU8);
    EXPECT_EQ(grey[0], 77);
    EXPECT_EQ(grey[128], 5);
}

TEST_F(TgaTest, TheWeakTestComesLast) {
    const auto claims = [](const Bytes& file) {
        const auto format = Registry::Find<FileFormatInterface>(kFileFormatRegistry, Format("tga").format);
        return *format->Detect(Url(), *OpenMemoryInput(AsBlock(file)));
    };
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
    int compared = 0;
    const struct {
        uint8_t type, depth, mapBits;
    } kinds[] = {{1, 8, 15}, {1, 8, 24}, {1, 8, 32}, {1, 16, 16}, {1, 16, 24}, {2, 15, 0}, {2, 16, 0}, {2, 24, 0},
                 {2, 32, 0}, {2, 40, 0}, {2, 64, 0}, {2, 255, 0}, {3, 8, 0},   {3, 16, 0}, {3, 12, 0}};
    const struct { uint16_t width, height; } sizes[] = {{1, 1}, {1, 7}, {7, 1}, {3, 5}, {127, 3}, {129, 3}, {300, 220}};
    for (const auto& kind : kinds) {
        for (const auto& size : sizes) {
            for (const uint8_t descriptor : Bytes{0x00, 0x20, 0x10, 0x3F}) {
                for (const bool inRuns : {false, true}) {
                    TgaParts parts{.imageType = kind.type,
                                   .width = size.width,
                                   .height = size.height,
                                   .depth = kind.depth,
                                   .descriptor = descriptor};
                    if (kind.mapBits) {
                        parts.mapType = 1, parts.mapBits = kind.mapBits, parts.mapFirst = 5, parts.mapLength = 100;
                        parts.map = noise.Make(size_t((kind.mapBits + 7) / 8) * 100);
                    }
                    const int pixelBytes = (kind.depth + 7) / 8;
                    parts.pixels = noise.Make(size_t(size.width) * size.height * size_t(pixelBytes));
                    if (inRuns) {
                        for (uint8_t& byte : parts.pixels)
                            byte = byte % 8 == 0 ? 1 : 0;  // so that there are runs
                        parts.imageType |= 8;
                        parts.pixels = PackInRuns(parts.pixels, pixelBytes, noise);
                    }
                    const Bytes file = parts.Make();
                    const Result<ImageTextureRef> texture = LoadAsTga(file);
                    ASSERT_TRUE(texture) << texture.GetError()->ToString().GetCString();
                    ASSERT_EQ(RgbaOf(*texture), DecodeTgaSlowly(file))
                        << "type " << int(parts.imageType) << ", depth " << int(kind.depth) << ", " << size.width
                        << " x " << size.height << ", descriptor " << int(descriptor);
                    ++compared;
                }
            }
        }
    }
    EXPECT_EQ(compared, 15 * 7 * 4 * 2);
}

TEST_F(TgaTest, CorpusAgreesWithTheSlowDecoder) {
    const std::filesystem::path corpus = std::filesystem::path(SharedDirectory()) / "corpus/tga";
    if (!std::filesystem::exists(corpus))
        GTEST_SKIP() << "no corpus at " << corpus;
    int pictures = 0, refused = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(corpus)) {
        const std::string path = entry.path().string();
        if (!entry.is_regular_file() || entry.path().extension() == ".png")
            continue;
        const Result<ImageTextureRef> texture = LoadAsTga(Url(path));
        EXPECT_EQ(texture ? RgbaOf(*texture) : Bytes(), DecodeTgaSlowly(ReadFile(path))) << path;
        ++(texture ? pictures : refused);
    }
    EXPECT_GE(pictures, 60);
    EXPECT_GE(refused, 15);
}

// --- Writing ---------------------------------------------------------------------------------------------------------

Bytes Footer() {
    const std::string_view text("\0\0\0\0\0\0\0\0TRUEVISION-XfileHelper.\0", 32);
    return Bytes(text.begin(), text.end());
}

Bytes Header(uint8_t width, uint8_t height, uint8_t depth) {
    return {0, 0, 2, 0, 0, 0, 0, 24, 0, 0, 0, 0, width, 0, height, 0, depth, 0};
}

Bytes Joined(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

TEST_F(TgaTest, WritesFromTheBottomUp) {
    const Result<Bytes> rgb = Save(MakeTexture({1, 2, pixelformats::kRgbU8, {1, 2, 3, 4, 5, 6}}), "tga");
    ASSERT_TRUE(rgb) << rgb.GetError()->ToString().GetCString();
    EXPECT_EQ(*rgb, Joined({Header(1, 2, 24), {6, 5, 4, 3, 2, 1}, Footer()}));
    const Result<Bytes> rgba = Save(MakeTexture({1, 1, pixelformats::kRgbaU8, {1, 2, 3, 4}}), "tga");
    ASSERT_TRUE(rgba) << rgba.GetError()->ToString().GetCString();
    EXPECT_EQ(*rgba, Joined({Header(1, 1, 32), {3, 2, 1, 4}, Footer()}));
    EXPECT_EQ(rgba->size(), 18u + 4 + 32);
    const Result<Bytes> child = Save(MakeTexture({2, 1, pixelformats::kGreyU8, {100, 200}, {7, 9}}), "tga");
    ASSERT_TRUE(child) << child.GetError()->ToString().GetCString();
    EXPECT_EQ(*child, Joined({Header(2, 1, 32), {100, 100, 100, 7, 200, 200, 200, 9}, Footer()}));
}

TEST_F(TgaTest, ConvertsToSrgbUnlessToldNotTo) {
    const ImageTextureRef texture = MakeTexture({1, 1, pixelformats::kRgbU8, {128, 128, 128}});
    ASSERT_TRUE(FirstImage(texture)->Set(image::kColorProfile, colorprofiles::Get(colorprofiles::kLinearRgb)));
    Result<Bytes> file = Save(texture, "tga");
    ASSERT_TRUE(file) << file.GetError()->ToString().GetCString();
    EXPECT_NEAR((*file)[18], 188, 1);
    DataDictionary settings;
    ASSERT_TRUE(settings.Set(mediaexport::kDisableSrgbConversion, true));
    ASSERT_TRUE(texture->Set(image::kExportSettings, settings));
    file = Save(texture, "tga");
    ASSERT_TRUE(file) << file.GetError()->ToString().GetCString();
    EXPECT_EQ((*file)[18], 128);
}

}  // namespace
}  // namespace codectest
