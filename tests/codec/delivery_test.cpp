// What every importer guarantees its listeners: files from any place of a stream, progress in steps, bounded buffers.

#include <map>

#include "jpeg_direct.h"
#include "parts.h"
#include "png_direct.h"
#include "tool_support.h"

#include "orvik/mediasession_limits.h"

namespace codectest {
namespace {

class DeliveryTest : public CodecTest {
protected:
    void TearDown() override { SetDecodeBufferLimit(0); }
    static Delivery DeliverFile(const Sample& sample, const Delegate<void()>& beforeExecute = {}) {
        return Deliver(MakeImporter(sample.format, *OpenMemoryInput(AsBlock(sample.bytes))),
                       {.beforeExecute = beforeExecute});
    }
};

/// The file begins in the middle of a stream, for instance as a part of another file.
TEST_F(DeliveryTest, LoadsFromTheMiddleOfAStream) {
    for (const Sample& sample : MakeSamples()) {
        SCOPED_TRACE(sample.name);
        const Bytes container = Joined({Bytes(37, 0x5A), sample.bytes});
        const InputStreamRef stream = *OpenMemoryInput(AsBlock(container));
        ASSERT_TRUE(stream->Seek(37));
        const ImageTextureRef embedded = MakeTexture();
        EXPECT_EQ(MessageOf(LoadInto(embedded, sample.format, stream)), "");
        if (TestedFormatOf(sample.format).hasPictures) {
            EXPECT_EQ(PixelsOfAll(embedded), PixelsOfAll(Loaded(sample.bytes)));
        }
    }
}

/// The listener has no place to decode into, so each format needs a buffer for at least one row.
TEST_F(DeliveryTest, ProgressRisesInStepsToOneAndBuffersAreBounded) {
    std::map<std::string_view, bool> hasSteps;
    for (const Sample& sample : MakeSamples()) {
        SCOPED_TRACE(sample.name);
        EXPECT_EQ(DeliverFile(sample, [] { SetDecodeBufferLimit(1); }).kind, "outofmemory");
        SetDecodeBufferLimit(0);
        Delivery delivery = DeliverFile(sample);
        EXPECT_EQ(delivery.kind, "ok");
        EXPECT_GT(delivery.streams, 0);
        EXPECT_EQ(delivery.calls["row"] > 0, TestedFormatOf(sample.format).hasPictures);
        ASSERT_FALSE(delivery.progress.empty());
        EXPECT_TRUE(std::is_sorted(delivery.progress.begin(), delivery.progress.end()));
        EXPECT_EQ(delivery.progress.back(), 1.0);
        hasSteps[sample.format] |= delivery.progress.front() > 0 && delivery.progress.front() < 1;
    }
    for (const auto& [format, rises] : hasSteps)
        EXPECT_TRUE(rises) << format << ": nothing between the beginning and the end";
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
        for (const bool keepsColors : {false, true}) {
            DataDictionary settings;
            ASSERT_TRUE(settings.Set(mediaexport::kDisableSrgbConversion, keepsColors));
            ASSERT_TRUE(texture->Set(image::kExportSettings, settings));
            const std::vector<float> rgb = FloatsOf(FirstImage(Loaded(*Save(texture, c.format))));
            ASSERT_EQ(rgb.size(), 3u);
            EXPECT_NEAR(rgb[0], keepsColors ? c.value / 255.0 : c.converted, 0.01) << c.format << keepsColors;
        }
    }
}

}  // namespace
}  // namespace codectest
