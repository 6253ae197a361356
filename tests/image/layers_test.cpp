#include "support/layer_tree.h"
#include "support/module_fixture.h"

namespace orvik {
namespace {

using Bytes = std::array<uint8_t, 4>;
using M = LAYERSETMODE;

/// Every node of the tree is one pixel of a colour of its own, so that what is read tells where it comes from.
class LayersTest : public ModuleFixture {
protected:
    static constexpr NodeSpec kPixel{.width = 1, .height = 1};

    void SetUp() override {
        ModuleFixture::SetUp();
        texture = LayerTree::MakeTexture();
        image = LayerTree::AddImage(texture, Named("picture"), Red(1));
        LayerTree::AddAlpha(image, Named("first", pixelformats::kGreyU8), Red(2));
        LayerTree::AddAlpha(image, Named("", pixelformats::kGreyU8), Red(3));
        LayerTree::AddAlpha(image, Named("Alpha", pixelformats::kGreyU8), Red(4));
        const ImageRef top = LayerTree::AddLayer(image, Named("top"), Red(10));
        LayerTree::AddMask(top, Named("mask of top", pixelformats::kAlphaU8), LayerTree::Plain(0, 0, 0, 1));
        const ImageRef folder = LayerTree::AddFolder(image, {.name = "folder"});
        LayerTree::AddLayer(folder, Named("a"), Red(20));
        LayerTree::AddLayer(folder, Named("b"), Red(30));
        const ImageRef inner = LayerTree::AddFolder(folder, {.name = ""});
        LayerTree::AddLayer(inner, Named("a"), Red(40));
        NodeSpec hidden = Named("hidden");
        hidden.enabled = false;
        LayerTree::AddLayer(folder, hidden, Red(50));
        LayerTree::AddLayer(image, Named("bottom"), Red(60));
        const ImageRef masked = LayerTree::AddLayer(image, Named("masked"), Red(70));
        LayerTree::AddMask(masked, Named("m", pixelformats::kGreyU8), Red(80));
    }
    static NodeSpec Named(const char* name, const Id& format = pixelformats::kRgbaU8) {
        NodeSpec spec = kPixel;
        spec.name = name;
        spec.format = format;
        return spec;
    }
    static LayerTree::Paint Red(int value) {
        const double level = value / 255.0;
        return LayerTree::Plain(level, level, level);
    }
    /// The red byte that is read, or -1 after an error, which must then be an illegal argument.
    int Read(const LayerSet& set, const ImageBaseRef& from = {}) {
        const PixelFormat rgba = PixelFormats::Get(pixelformats::kRgbaU8);
        const ImageBaseRef node = from ? from : ImageBaseRef(texture);
        auto reader = node->GetPixelHandler(rgba, {}, {}, GETPIXELHANDLERFLAGS::NONE, set);
        if (!reader) {
            EXPECT_EQ(reader.GetError()->GetErrorId(), errorid::kIllegalArgument);
            return -1;
        }
        Bytes pixel{};
        EXPECT_TRUE(reader->read({0, 0, 1}, {pixel.data(), BITS(32)}, {}));
        node->FreePixelHandler(*reader);
        return pixel[3] == 0 ? 0 : pixel[0];
    }

    ImageTextureRef texture;
    ImageRef image;
};

/// The topmost of what a set picks is what is seen.
TEST_F(LayersTest, PathsPickNodes) {
    const struct {
        M mode;
        std::initializer_list<const char*> paths;
        int expected;
    } cases[] = {
        {M::LAYERS, {}, 10},
        {M::LAYERALPHA, {}, 10},
        {M::LAYERS, {"top"}, 10},
        {M::LAYERS, {"bottom"}, 60},
        {M::LAYERS, {"bottom", "folder\\b"}, 30},
        {M::LAYERS, {"folder"}, 20},
        {M::LAYERS, {"folder", "folder\\a"}, 20},
        {M::LAYERS, {"folder\\"}, 40},        // the inner folder has no name
        {M::LAYERS, {"folder\\\\a"}, 40},     // nor does it stand for anything in a path
        {M::LAYERS, {"folder\\hidden"}, 50},  // who asks for it sees it
        {M::LAYERALPHA, {"folder\\hidden", "bottom"}, 50},
        {M::LAYERS, {"Top"}, 1},  // nothing of this name: the image itself
        {M::LAYERS, {"picture"}, 1},
        {M::LAYERS, {"a"}, 1},
        {M::LAYERS, {"first"}, 1},
        {M::DISABLED, {}, 1},
        {M::DISABLED, {"top"}, 1},
        {M::ALPHAS, {"\\first"}, 2},
        {M::ALPHAS, {"first"}, 2},
        {M::ALPHAS, {"\\Alpha"}, 3},  // the first of two that answer to it
        {M::ALPHAS, {"Alpha"}, 3},
        {M::ALPHAS, {"first", "Alpha"}, 2},
        {M::ALPHAS, {"top"}, -1},
        {M::ALPHAS, {}, -1},
        {M::LAYERMASKS, {"masked"}, 80},
        {M::LAYERMASKS, {"bottom", "masked"}, 80},
        {M::LAYERMASKS, {"masked\\m"}, -1},
        {M::LAYERMASKS, {"bottom"}, -1},
        {M::LAYERMASKS, {}, -1},
    };
    for (const auto& [mode, paths, expected] : cases) {
        std::string text = "mode " + std::to_string(int(mode));
        for (const char* path : paths)
            text += std::string(", ") + path;
        EXPECT_EQ(Read(MakeLayerSet(paths, mode)), expected) << text;
        EXPECT_EQ(Read(MakeLayerSet(paths, mode), image), expected) << text;
    }
}

/// Paths start below the node that is asked.
TEST_F(LayersTest, PathsStartAtTheNodeThatIsAsked) {
    const ImageRef group = LayerTree::AddLayer(image, Named("group"), Red(90));
    const ImageRef inner = LayerTree::AddLayer(group, Named("inner"), Red(100));
    LayerTree::AddLayer(inner, Named("leaf"), Red(110));
    EXPECT_EQ(Read(MakeLayerSet({"inner\\leaf"}), group), 110);
    EXPECT_EQ(Read(MakeLayerSet({"leaf"}), inner), 110);
    EXPECT_EQ(Read(MakeLayerSet({"group\\inner\\leaf"}), group), 90);
    EXPECT_EQ(Read(MakeLayerSet({"group\\inner\\leaf"}), image), 110);
    EXPECT_EQ(Read(MakeLayerSet({}), group), 100);  // layers directly below; what hangs below a layer is not seen
    EXPECT_EQ(
        GetLayerPath(Cast<ImageBaseInterface>(inner->GetFirstChild(Int(IMAGEHIERARCHY::LAYER))), group).TakeValue(),
        String("inner\\leaf"));
}

/// Layers that are off or have no pixels do not hide the image's own, unless a path asks for them.
TEST_F(LayersTest, DisabledAndEmptyLayers) {
    const ImageTextureRef other = LayerTree::MakeTexture();
    const ImageRef flat = LayerTree::AddImage(other, kPixel, Red(1));
    EXPECT_EQ(Read(MakeLayerSet({}), flat), 1);
    NodeSpec hidden = kPixel, described = kPixel;
    hidden.enabled = false;
    described.hasPixels = false;
    described.name = "described";
    LayerTree::AddLayer(flat, hidden, Red(2));
    LayerTree::AddFolder(flat, {.name = "empty"});
    LayerTree::AddLayer(flat, described);
    LayerTree::AddLayer(flat, {.type = ITYPE::ADJUSTMENT, .hasPixels = false});
    EXPECT_EQ(Read(MakeLayerSet({}), flat), 1);
    EXPECT_EQ(Read(MakeLayerSet({"empty", "described"}), flat), 0);
    LayerTree::AddLayer(flat, kPixel, Red(3));
    EXPECT_EQ(Read(MakeLayerSet({}), flat), 3);
    const ImageRef folder = LayerTree::AddFolder(flat, {.name = "off", .enabled = false});
    LayerTree::AddLayer(folder, Named("in"), Red(4));
    EXPECT_EQ(Read(MakeLayerSet({}), flat), 3);
    for (const char* path : {"off\\in", "off"})
        EXPECT_EQ(Read(MakeLayerSet({path}), flat), 4);
}

/// One layer that needs no blending keeps its bits, which floats between would not: 16 bits, and a NaN.
TEST_F(LayersTest, SingleLayerIsNotTouched) {
    const ImageRef wide = LayerTree::AddImage(LayerTree::MakeTexture(), {.width = 3, .height = 1});
    const ImageRef layer = LayerTree::AddLayer(
        wide, {.x = 1, .width = 1, .height = 1, .format = Id("net.orvik.image.pixelformat.rgba.u32")});
    const PixelFormat format = layer->GetPixelFormat();
    const std::array<uint32_t, 4> value{0x01234567, 0x89ABCDEF, 0xFFFFFFFE, 0x7FFFFFFF};
    auto writer = layer->SetPixelHandler(format, {}, {}, SETPIXELHANDLERFLAGS::NONE);
    ASSERT_TRUE(writer);
    ASSERT_TRUE(writer->write({0, 0, 1}, {value.data(), BITS(128)}, {}));
    const auto read = [&] {
        return ReadPixels<uint32_t>(wide, Id("net.orvik.image.pixelformat.rgba.u32"), MakeLayerSet({}));
    };
    const std::array<uint32_t, 4> nothing{};
    EXPECT_EQ(read(), (std::vector{nothing, value, nothing}));
    ASSERT_TRUE(layer->Set(image::kLayerOpacity, 0.5));
    EXPECT_NE(read()[1], value);
}

/// A mask that is asked for as such shows its colour where it does not lie; an alpha shows nothing there.
TEST_F(LayersTest, SingleNodesAreFilledAround) {
    const ImageRef wide = LayerTree::AddImage(LayerTree::MakeTexture(), {.width = 4, .height = 1});
    const ImageRef layer = LayerTree::AddLayer(wide, {.name = "l", .width = 4, .height = 1});
    for (const auto& format : {pixelformats::kAlphaU8, pixelformats::kGreyU8}) {
        const ImageRef mask = LayerTree::AddMask(
            layer, {.x = 1, .width = 2, .height = 1, .format = format, .maskColor = 200}, LayerTree::Plain(1, 1, 1, 1));
        const auto read = ReadPixels<uint8_t, 1>(wide, format, MakeLayerSet({"l"}, M::LAYERMASKS));
        using P = std::array<uint8_t, 1>;
        EXPECT_EQ(read, (std::vector<P>{{200}, {255}, {255}, {200}}));
        ASSERT_TRUE(layer->RemoveChild(mask));
    }
    LayerTree::AddAlpha(wide, {.x = 2, .width = 9, .height = 1, .format = pixelformats::kAlphaU8},
                        LayerTree::Plain(0, 0, 0, 1));
    const auto read = ReadPixels<uint8_t, 1>(wide, pixelformats::kAlphaU8, MakeLayerSet({"Alpha"}, M::ALPHAS));
    EXPECT_EQ(read, (std::vector<std::array<uint8_t, 1>>{{0}, {0}, {255}, {255}}));
}

}  // namespace
}  // namespace orvik
