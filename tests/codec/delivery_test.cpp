// What every importer guarantees its listeners: files from any place of a stream, progress in steps, bounded buffers.

#include <map>

#include "format_table.h"
#include "jpeg_direct.h"
#include "png_direct.h"
#include "tool_support.h"

#include "orvik/mediasession_limits.h"

namespace codectest {
namespace {

class DeliveryTest : public CodecTest {
protected:
    void TearDown() override { SetDecodeBufferLimit(0); }
    static Delivery DeliverFile(const Sample& sample, const Delegate<void()>& beforeExecute = {}) {
        return Deliver(sample.format, *OpenMemoryInput(AsBlock(sample.bytes)), beforeExecute);
    }
};

/// The file begins in the middle of a stream, for instance as a part of another file.
TEST_F(DeliveryTest, LoadsFromTheMiddleOfAStream) {
    for (const Sample& sample : MakeSamples()) {
        SCOPED_TRACE(sample.name);
        Bytes container(37, 0x5A);
        container.insert(container.end(), sample.bytes.begin(), sample.bytes.end());
        const InputStreamRef stream = *OpenMemoryInput(AsBlock(container));
        ASSERT_TRUE(stream->Seek(37));
        const Result<ImageTextureRef> embedded = LoadFromStream(sample.format, stream);
        EXPECT_TRUE(embedded) << embedded.GetError()->ToString().GetCString();
        if (embedded && TestedFormatOf(sample.format).hasPictures) {
            EXPECT_EQ(PixelsOfAll(*embedded), PixelsOfAll(Loaded(sample.bytes)));
        }
    }
}

TEST_F(DeliveryTest, ProgressRisesInStepsToOne) {
    std::map<std::string_view, bool> seen;
    for (const Sample& sample : MakeSamples()) {
        SCOPED_TRACE(sample.name);
        const Delivery delivery = DeliverFile(sample);
        ASSERT_EQ(delivery.kind, "ok");
        ASSERT_FALSE(delivery.progress.empty());
        EXPECT_TRUE(std::is_sorted(delivery.progress.begin(), delivery.progress.end()));
        EXPECT_EQ(delivery.progress.back(), 1.0);
        seen[sample.format] |= delivery.progress.front() > 0 && delivery.progress.front() < 1;
    }
    for (const auto& [format, hasSteps] : seen)
        EXPECT_TRUE(hasSteps) << format << ": nothing between the beginning and the end";
}

/// The listener has no place to decode into, so each format needs a buffer for at least one row.
TEST_F(DeliveryTest, BuffersOfEveryFormatAreBounded) {
    for (const Sample& sample : MakeSamples()) {
        SCOPED_TRACE(sample.name);
        EXPECT_EQ(DeliverFile(sample, [] { SetDecodeBufferLimit(1); }).kind, "outofmemory");
        SetDecodeBufferLimit(0);
        const Delivery whole = DeliverFile(sample);
        EXPECT_EQ(whole.kind, "ok");
        EXPECT_GT(whole.streams, 0);
        EXPECT_EQ(whole.rows > 0, TestedFormatOf(sample.format).hasPictures);
    }
}

/// All coefficients of a progressive JPEG are kept, all rows of an interlaced PNG.
TEST_F(DeliveryTest, WholePicturesInMemoryAreBounded) {
    const Bytes rows(400 * 400 * 3, 90);
    const Sample samples[] = {
        {"progressive", "jpg", WriteJpeg({.width = 400, .height = 400, .rows = rows, .progressive = true})},
        {"interlaced", "png", WritePng({.width = 400, .height = 400, .interlaced = true, .rows = rows})},
    };
    for (const Sample& sample : samples) {
        SetDecodeBufferLimit(300000);
        EXPECT_NE(DeliverFile(sample).kind, "ok") << sample.name;
        SetDecodeBufferLimit(0);
        EXPECT_EQ(DeliverFile(sample).kind, "ok") << sample.name;
    }
}

/// Equal formats are no reason to decode in place where the channels lie elsewhere.
TEST_F(DeliveryTest, RowsInPlanesAreNotUsedInPlace) {
    const auto image = Cast<ImageInterface>(FirstImage(MakeTexture({4, 3, pixelformats::kRgbU8, Bytes(36)})));
    const PixelFormat format = PixelFormats::Get(pixelformats::kRgbU8);
    const BITS planes[] = {BITS(0), BITS(32), BITS(64), BITS(8)};
    SetPixelHandlerStruct set = *image->SetPixelHandler(format, planes, ColorProfile(), SETPIXELHANDLERFLAGS::NONE);
    GetPixelHandlerStruct get =
        *image->GetPixelHandler(format, planes, ColorProfile(), GETPIXELHANDLERFLAGS::NONE, LayerSet());
    EXPECT_FALSE(set.locate || get.find);
    EXPECT_TRUE(set.Free());
    get.Free();
}

/// Colours become those that a file without a profile stands for, unless the settings keep them.
TEST_F(DeliveryTest, FilesWithoutProfilesGetTheirColorsConverted) {
    const struct {
        const char* format;
        Id profile;  ///< of the picture, grey of this value
        uint8_t value;
        double converted;  ///< as it stands in the file
    } cases[] = {{"hdr", colorprofiles::kSrgb, 188, 0.5}, {"tga", colorprofiles::kLinearRgb, 128, 188.0 / 255}};
    for (const auto& c : cases) {
        const ImageTextureRef texture = MakeTexture({1, 1, pixelformats::kRgbU8, Bytes(3, c.value)});
        ASSERT_TRUE(FirstImage(texture)->Set(image::kColorProfile, colorprofiles::Get(c.profile)));
        for (const auto& [keepsColors, expected] : {std::pair(false, c.converted), std::pair(true, c.value / 255.0)}) {
            DataDictionary settings;
            ASSERT_TRUE(settings.Set(mediaexport::kDisableSrgbConversion, keepsColors));
            ASSERT_TRUE(texture->Set(image::kExportSettings, settings));
            const Bytes bytes =
                PixelsOf(FirstImage(Loaded(Save(texture, c.format).GetValueOr(Bytes()))), pixelformats::kRgbF32);
            float red = 0;
            ASSERT_GE(bytes.size(), sizeof(red));
            std::memcpy(&red, bytes.data(), sizeof(red));
            EXPECT_NEAR(red, expected, 0.01) << c.format << (keepsColors ? " with kept colours" : "");
        }
    }
}

}  // namespace
}  // namespace codectest
