#include "image/layers/layerset_impl.h"
#include "support/described.h"
#include "support/faults.h"
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

TEST_F(LayersTest, PathsPickNodes) {
    const std::tuple<M, int, std::vector<std::vector<const char*>>> cases[] = {
        {M::LAYERS, 10, {{}, {"top"}}},
        {M::LAYERALPHA, 10, {{}}},
        {M::LAYERS, 60, {{"bottom"}}},
        {M::LAYERS, 30, {{"bottom", "folder\\b"}}},
        {M::LAYERS, 20, {{"folder"}, {"folder", "folder\\a"}}},
        {M::LAYERS, 40, {{"folder\\"}, {"folder\\\\a"}}},  // the inner folder has no name, and paths skip it
        {M::LAYERS, 50, {{"folder\\hidden"}}},             // who asks for it sees it
        {M::LAYERALPHA, 50, {{"folder\\hidden", "bottom"}}},
        {M::LAYERS, 1, {{"Top"}, {"picture"}, {"a"}, {"first"}}},  // nothing of this name: the image itself
        {M::DISABLED, 1, {{}, {"top"}}},
        {M::ALPHAS, 2, {{"\\first"}, {"first"}, {"first", "Alpha"}}},
        {M::ALPHAS, 3, {{"\\Alpha"}, {"Alpha"}}},  // the first of two that answer to it
        {M::ALPHAS, -1, {{"top"}, {}}},
        {M::LAYERMASKS, 80, {{"masked"}, {"bottom", "masked"}}},
        {M::LAYERMASKS, -1, {{"masked\\m"}, {"bottom"}, {}}},
    };
    for (const auto& [mode, expected, sets] : cases) {
        for (const auto& paths : sets) {
            for (const ImageBaseRef& node : {ImageBaseRef(texture), ImageBaseRef(image)})
                EXPECT_EQ(Read(MakeLayerSet(paths, mode), node), expected)
                    << "mode " << int(mode) << ": " << testing::PrintToString(paths);
        }
    }
}

TEST_F(LayersTest, PathsStartAtTheNodeThatIsAsked) {
    const ImageRef group = LayerTree::AddLayer(image, Named("group"), Red(90));
    const ImageRef inner = LayerTree::AddLayer(group, Named("inner"), Red(100));
    LayerTree::AddLayer(inner, Named("leaf"), Red(110));
    EXPECT_EQ(Read(MakeLayerSet({"inner\\leaf"}), group), 110);
    EXPECT_EQ(Read(MakeLayerSet({"group\\inner\\leaf"}), group), 90);
    EXPECT_EQ(Read(MakeLayerSet({"group\\inner\\leaf"}), image), 110);
    EXPECT_EQ(Read(MakeLayerSet({}), group), 100);  // layers directly below; what hangs below a layer is not seen
    EXPECT_EQ(
        GetLayerPath(Cast<ImageBaseInterface>(inner->GetFirstChild(Int(IMAGEHIERARCHY::LAYER))), group).TakeValue(),
        String("inner\\leaf"));
}

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
    constexpr Id kFormat("net.orvik.image.pixelformat.rgba.u32");
    const ImageRef layer = LayerTree::AddLayer(wide, {.x = 1, .width = 1, .height = 1, .format = kFormat});
    const PixelFormat format = layer->GetPixelFormat();
    const std::array<uint32_t, 4> value{0x01234567, 0x89ABCDEF, 0xFFFFFFFE, 0x7FFFFFFF}, nothing{};
    auto writer = layer->SetPixelHandler(format, {}, {}, SETPIXELHANDLERFLAGS::NONE);
    ASSERT_TRUE(writer);
    ASSERT_TRUE(writer->write({0, 0, 1}, {value.data(), BITS(128)}, {}));
    const auto read = [&] { return ReadPixels<uint32_t>(wide, kFormat, MakeLayerSet({})); };
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
        EXPECT_EQ(read, (std::vector<std::array<uint8_t, 1>>{{200}, {255}, {255}, {200}}));
        ASSERT_TRUE(layer->RemoveChild(mask));
    }
    LayerTree::AddAlpha(wide, {.x = 2, .width = 9, .height = 1, .format = pixelformats::kAlphaU8},
                        LayerTree::Plain(0, 0, 0, 1));
    const auto read = ReadPixels<uint8_t, 1>(wide, pixelformats::kAlphaU8, MakeLayerSet({"Alpha"}, M::ALPHAS));
    EXPECT_EQ(read, (std::vector<std::array<uint8_t, 1>>{{0}, {0}, {255}, {255}}));
}

LayerSet MakeSet(const std::vector<const char*>& paths, const char* image = "", M mode = M::LAYERS,
                 Bool calculateAlpha = false) {
    LayerSet set = MakeLayerSet(paths, mode, image);
    EXPECT_TRUE(set.SetCalculateAlpha(calculateAlpha));
    return set;
}

using LayerSetTest = ModuleFixture;

TEST_F(LayerSetTest, EqualityAndHashGoByValue) {
    const LayerSet sets[] = {
        MakeSet({"A", "B\\C", "D"}),
        MakeSet({"A", "B\\C"}),
        MakeSet({"a", "B\\C", "D"}),  // case counts
        MakeSet({"A", "B", "C", "D"}),
        MakeSet({}),
        MakeSet({""}),
        MakeSet({"\\"}),
        MakeSet({"A", "B\\C", "D"}, "#2"),
        MakeSet({"A", "B\\C", "D"}, "", M::ALPHAS),
        MakeSet({"A", "B\\C", "D"}, "", M::LAYERS, true),
    };
    for (size_t i = 0; i < std::size(sets); ++i) {
        for (size_t k = 0; k < std::size(sets); ++k) {
            EXPECT_EQ(sets[i] == sets[k], i == k) << i << " and " << k;
            EXPECT_EQ(sets[i].GetHashCode() == sets[k].GetHashCode(), i == k) << i << " and " << k;
        }
    }
    for (const LayerSet& other : {MakeSet({"D", "B\\C", "A"}), MakeSet({"B\\C", "A", "D", "A"})}) {
        EXPECT_TRUE(other == sets[0]);
        EXPECT_EQ(other.GetHashCode(), sets[0].GetHashCode());
    }
}

TEST_F(LayerSetTest, CopiesAreIndependentAndModesAreChecked) {
    const LayerSet null, original = MakeSet({"A"});
    EXPECT_TRUE(null->GetSelectedLayers().IsEmpty());
    EXPECT_FALSE(null == MakeSet({}));
    LayerSet copy = original;
    ASSERT_TRUE(copy.SetMode(M::DISABLED));
    EXPECT_TRUE(original == MakeSet({"A"}) && copy == MakeSet({"A"}, "", M::DISABLED));
    for (const int mode : {-1, 5})
        EXPECT_FALSE(copy.SetMode(M(mode)));
    EXPECT_EQ(copy->GetMode(), M::DISABLED);
}

TEST_F(LayerSetTest, SerialisesItsFieldsByName) {
    LayerSet set = MakeSet({"Folder\\Layer", "", "\xC3\x84"}, "#3", M::LAYERMASKS, true), back;
    LayerSet sameOtherOrder = MakeSet({"\xC3\x84", "Folder\\Layer", ""}, "#3", M::LAYERMASKS, true);
    const MemoryFileRef file = Written(set), fileOfSame = Written(sameOtherOrder);
    const Block<const std::byte> bytes = BytesOf(file);
    EXPECT_TRUE(std::ranges::equal(bytes, BytesOf(fileOfSame)));
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    size_t at = 0;  // each field behind the one before
    for (const std::string name : {"_layers", "_selectedImage", "_layersetMode", "_calculateAlpha"})
        ASSERT_NE(at = text.find(char(name.size()) + name, at), std::string_view::npos) << name;
    ASSERT_TRUE(ReadFrom(back, bytes));
    EXPECT_TRUE(back == set);
    // Cut anywhere, it is an error and changes nothing.
    LayerSet kept = MakeSet({"kept"});
    for (size_t length = 0; length < bytes.size(); ++length)
        EXPECT_FALSE(ReadFrom(kept, bytes.first(length))) << length;
    EXPECT_TRUE(kept == MakeSet({"kept"}));
}

TEST_F(LayerSetTest, EveryFailedAllocationLeavesTheSetAsItWas) {
    const LayerSet before = MakeSet({"A", "B", "C"}), after = MakeSet({"4", "3", "2", "1"});
    AllocationFaults faults;
    while (faults.Next()) {
        LayerSet set = before;
        const Result<void> done = faults.Run([&] { return set.SetSelectedLayers(after->GetSelectedLayers()); });
        EXPECT_TRUE(set == (done ? after : before));
    }
    EXPECT_GT(faults.GetErrorCount(), 4);
}

}  // namespace
}  // namespace orvik
