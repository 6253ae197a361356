// The catalogue of fixed formats: every id, name, channel, offset and default.

#include <gmock/gmock.h>

#include <set>

#include "support/module_fixture.h"

#include "orvik/gfx_image_pixelformat.h"

namespace orvik {
namespace {

class CatalogueTest : public ModuleFixture {};

TEST_F(CatalogueTest, HasAllFormats) {
    Result<BaseArray<PixelFormat>> all = PixelFormats::GetAll();
    ASSERT_TRUE(all);
    EXPECT_EQ(all->GetCount(), 83 + 16);
}

TEST_F(CatalogueTest, Converts) {
    const PixelFormat rgba = PixelFormats::Get(pixelformats::kRgbaU8), rgb = PixelFormats::Get(pixelformats::kRgbU16);
    const uint16_t in[6] = {0x1234, 0x5678, 0x9ABC, 0xFFFF, 0x00FF, 0};
    uint8_t out[8] = {};
    const Result<void> done = rgba->ConvertPixelFromSlow({out, BITS(32), 0}, 2, {in, BITS(48), 0}, rgb, nullptr, nullptr,
                                                         CONVERTPIXELFLAGS::NONE);
    ASSERT_TRUE(done) << done.GetError()->ToString().GetCString();
    EXPECT_THAT(out, testing::ElementsAre(0x12, 0x56, 0x9A, 255, 0xFF, 0, 0, 255));
}

}  // namespace
}  // namespace orvik
