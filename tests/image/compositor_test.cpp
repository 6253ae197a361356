#include <cmath>

#include "pixel/blend_tools.h"
#include "pixel/level_scope.h"
#include "support/faults.h"
#include "support/layer_tree.h"
#include "support/module_fixture.h"

namespace orvik {
namespace {

using Colour = std::array<double, 4>;
using Bytes = std::array<uint8_t, 4>;
constexpr Id kMultiply = blendmodes::kMultiply;

class CompositorTest : public ModuleFixture {
protected:
    void SetUp() override {
        ModuleFixture::SetUp();
        texture = LayerTree::MakeTexture();
    }
    ImageRef AddImage(Int width, Int height) {
        return LayerTree::AddImage(texture, {.width = width, .height = height}, LayerTree::Plain(0, 0, 0.2));
    }
    /// What is seen of a node, in bytes.
    static std::vector<Bytes> See(const ImageBaseRef& node, const LayerSet& layers = MakeLayerSet({})) {
        return ReadPixels<uint8_t>(node, pixelformats::kRgbaU8, layers);
    }
    static Result<GetPixelHandlerStruct> Reader(const ImageBaseRef& node) {
        return node->GetPixelHandler(PixelFormats::Get(pixelformats::kRgbaU8), {}, {}, GETPIXELHANDLERFLAGS::NONE,
                                     MakeLayerSet({}));
    }
    ImageTextureRef texture;
};

/// What is seen of a layered image, worked out pixel by pixel from the nodes' own pixels and keys.
class PlainView {
public:
    explicit PlainView(const ImageBaseRef& image) : _image(image) {}

    Colour At(Int x, Int y) {
        std::vector<ImageBaseRef> layers;
        Gather(_image, layers);
        if (layers.empty())
            return PixelOf(_image, x, y, {});
        Colour seen{};
        for (auto layer = layers.rbegin(); layer != layers.rend(); ++layer) {
            const double opacity = (*layer)->Get(image::kLayerOpacity, 1.0);
            const Colour front = Masked(*layer, x, y);
            const bool isBottom = layer == layers.rbegin();
            seen = isBottom && opacity == 1 ? front : Over(seen, front, opacity, ModeOf(*layer));
        }
        return seen;
    }

private:
    static void Gather(const ImageBaseRef& parent, std::vector<ImageBaseRef>& layers) {
        for (const HierarchyObjectRef& child : parent->GetChildren(Int(IMAGEHIERARCHY::LAYER))) {
            const auto layer = Cast<ImageBaseInterface>(child);
            if (!layer->Get(image::kLayerEnabled, true))
                continue;
            if (layer->Get(image::kType, ITYPE::UNDEFINED) == ITYPE::FOLDER)
                Gather(layer, layers);
            else if (layer->GetWidth() > 0 && layer->GetHeight() > 0)
                layers.push_back(layer);
        }
    }
    static std::string ModeOf(const ImageBaseRef& layer) {
        const auto mode = layer->Get(image::kLayerBlendMode, ImagePixelBlend());
        const std::string id(mode ? mode->GetId().GetText() : "over");
        return id.substr(id.rfind('.') + 1);
    }
    static Colour Over(const Colour& back, const Colour& front, double opacity, const std::string& mode) {
        const RealPixel blended = BlendReal(mode, back.data(), front.data(), opacity);
        return {double(blended.c[0]), double(blended.c[1]), double(blended.c[2]), double(blended.c[3])};
    }
    Colour Masked(const ImageBaseRef& layer, Int x, Int y) {
        Colour pixel = PixelOf(layer, x, y, {});
        for (const HierarchyObjectRef& child : layer->GetChildren(Int(IMAGEHIERARCHY::MASK))) {
            const auto mask = Cast<ImageBaseInterface>(child);
            if (!mask->Get(image::kLayerEnabled, true))
                continue;
            const double outside = double(mask->Get(image::kLayerMaskDefColor, 0)) / 255;
            const bool isGrey = !mask->GetPixelFormat()->HasAlpha();
            const Colour value = PixelOf(mask, x, y, {outside, outside, outside, outside});
            pixel[3] *= isGrey ? value[0] : value[3];
        }
        return pixel;
    }
    /// A pixel of a node by coordinates of the image.
    const Colour& PixelOf(const ImageBaseRef& node, Int x, Int y, const Colour& outside) {
        const Int left = x - node->Get(image::kLayerBoundingBoxX, 0), top = y - node->Get(image::kLayerBoundingBoxY, 0);
        if (left < 0 || top < 0 || left >= node->GetWidth() || top >= node->GetHeight())
            return _outside = outside;
        auto& pixels = _pixels[node.GetPointer()];
        if (pixels.empty())
            pixels = ReadPixels<double>(node, pixelformats::kRgbaF64, LayerSet());
        return pixels[size_t(top * node->GetWidth() + left)];
    }

    ImageBaseRef _image;
    std::map<const ImageBaseInterface*, std::vector<Colour>> _pixels;
    Colour _outside{};
};

/// One tree for each seed: up to six layers, of which some lie in folders, with masks of all kinds.
class RandomTree {
public:
    RandomTree(const ImageRef& image, unsigned seed, const std::vector<std::string>& modes)
        : _random(seed), _modes(modes), _width(image->GetWidth()), _height(image->GetHeight()) {
        std::vector<ImageBaseRef> parents{image};
        for (unsigned left = 1 + Draw(6); left > 0; --left) {
            const ImageBaseRef parent = parents[Draw(unsigned(parents.size()))];
            if (Draw(5) == 0)
                parents.push_back(LayerTree::AddFolder(parent, {.name = "folder", .enabled = Draw(6) != 0}));
            AddLayer(parents[Draw(unsigned(parents.size()))]);
        }
    }

private:
    unsigned Draw(unsigned limit) { return unsigned(_random() % limit); }

    void AddLayer(const ImageBaseRef& parent) {
        static const Id kFormats[] = {pixelformats::kRgbaU8, pixelformats::kRgbU8,   pixelformats::kRgbaU16,
                                      pixelformats::kBgraU8, pixelformats::kRgbaF32, pixelformats::kGreyaU8};
        NodeSpec spec = DrawBox();
        spec.format = kFormats[Draw(std::size(kFormats))];
        if (Draw(3) != 0)
            spec.opacity = Draw(4) == 0 ? Draw(2) : double(Draw(100)) / 100;
        if (Draw(4) != 0)
            spec.mode = BlendOf(_modes[Draw(unsigned(_modes.size()))])->GetId();
        if (Draw(8) == 0)
            spec.enabled = false;
        const ImageRef layer = LayerTree::AddLayer(parent, spec, LayerTree::Noise(Draw(1000000)));
        for (unsigned masks = Draw(3); masks > 0; --masks) {
            NodeSpec mask = DrawBox();
            mask.format = Draw(3) == 0   ? pixelformats::kGreyU8
                          : Draw(2) == 0 ? pixelformats::kAlphaU16
                                         : pixelformats::kAlphaU8;
            if (Draw(3) != 0)
                mask.maskColor = Draw(2) ? 255 : Int(Draw(256));
            if (Draw(5) == 0)
                mask.enabled = false;
            LayerTree::AddMask(layer, mask, LayerTree::Noise(Draw(1000000)));
        }
    }
    /// Half of the nodes lie exactly under the image, the others anywhere, also beside it.
    NodeSpec DrawBox() {
        if (Draw(2) == 0)
            return {.width = _width, .height = _height};
        const auto side = unsigned(2 * _width);
        return {.x = Int(Draw(side)) - _width / 2,
                .y = Int(Draw(7)) - 3,
                .width = 1 + Int(Draw(side)),
                .height = 1 + Int(Draw(7))};
    }

    std::mt19937 _random;
    const std::vector<std::string>& _modes;
    Int _width, _height;
};

/// Values far from 0 ... 1 come from modes that do not clamp; errors grow with them.
bool IsNear(double value, double expected, double tolerance) {
    return (std::isnan(value) && std::isnan(expected)) ||
           std::fabs(value - expected) <= tolerance * std::max(1.0, std::fabs(expected));
}

TEST_F(CompositorTest, AgreesWithThePlainEvaluation) {
    std::vector<std::string> allModes = FrameModes();
    // These two jump where sums and products of bytes come out even, which a rounding error decides.
    std::erase_if(allModes, [](const std::string& mode) { return mode == "hardmix" || mode == "xor"; });
    // Where a tiny difference of a float can tip the scales, only doubles are held against the evaluation.
    const std::vector<std::string> smooth = {"over",    "darken",    "lighten", "multiply",  "screen",    "difference",
                                             "average", "exclusion", "overlay", "hardlight", "softlight", "linearburn"};
    const LayerSet all = MakeLayerSet({});
    for (unsigned seed = 0; seed < 150; ++seed) {
        SCOPED_TRACE(seed);
        texture = LayerTree::MakeTexture();
        const bool isSmooth = seed % 2 == 0;
        const ImageRef image = AddImage(seed % 3 == 0 ? 7 : 130, 3);
        const RandomTree tree(image, seed, isSmooth ? smooth : allModes);
        PlainView view(image);
        const auto doubles = ReadPixels<double>(texture, pixelformats::kRgbaF64, all);
        const auto floats = ReadPixels<float>(texture, pixelformats::kRgbaF32, all);
        const auto bytes = ReadPixels<uint8_t>(texture, pixelformats::kRgbaU8, all);
        const Int width = image->GetWidth();
        for (Int i = 0; i < width * 3; ++i) {
            const Colour expected = view.At(i % width, i / width);
            const auto at = size_t(i);
            for (size_t c = 0; c < 4; ++c) {
                ASSERT_TRUE(IsNear(doubles[at][c], expected[c], 1e-6))
                    << i << ": " << doubles[at][c] << " for " << expected[c];
                ASSERT_TRUE(!isSmooth || IsNear(floats[at][c], expected[c], 1e-4))
                    << i << ": " << floats[at][c] << " for " << expected[c];
                ASSERT_TRUE(!isSmooth || std::fabs(bytes[at][c] - std::clamp(expected[c], 0.0, 1.0) * 255) <= 0.6)
                    << i << ": " << int(bytes[at][c]) << " for " << expected[c] * 255;
            }
        }
    }
}

/// A bottom layer of opacity 1 replaces, whatever its mode; any other is blended over nothing.
TEST_F(CompositorTest, BottomIsReadStraightAtFullOpacityOnly) {
    const std::tuple<std::optional<double>, Id, Colour> cases[] = {
        {{}, kMultiply, {0.5, 0.25, 1, 0.5}},
        {1.0, blendmodes::kSubtract, {0.5, 0.25, 1, 0.5}},
        {0.5, kMultiply, {0.5, 0.25, 1, 0.25}},
        {0.5, {}, {0.5, 0.25, 1, 0.25}},
        {0.0, {}, {0, 0, 0, 0}},
        {7.0, kMultiply, {0.5, 0.25, 1, 0.5}},
        {-1.0, {}, {0, 0, 0, 0}},
        {std::nan(""), {}, {0.5, 0.25, 1, 0.5}},
        {0x1.fffffep-1, {}, {0.5, 0.25, 1, 0x1.fffffep-2}},
    };
    for (const auto& [opacity, mode, expected] : cases) {
        SCOPED_TRACE(testing::Message() << opacity.value_or(-9) << " " << mode.GetText());
        texture = LayerTree::MakeTexture();
        const ImageRef image = AddImage(3, 1);
        const ImageRef layer = LayerTree::AddLayer(
            image, {.width = 3, .height = 1, .format = pixelformats::kRgbaF64, .opacity = opacity, .mode = mode},
            LayerTree::Plain(0.5, 0.25, 1, 0.5));
        LayerTree::AddMask(layer, {.width = 3, .height = 1, .format = pixelformats::kAlphaU8},
                           LayerTree::Plain(0, 0, 0));
        for (const Colour& pixel : ReadPixels<double>(texture, pixelformats::kRgbaF64, MakeLayerSet({})))
            for (size_t c = 0; c < 4; ++c)
                EXPECT_NEAR(pixel[c], expected[c], 1e-12);
    }
}

TEST_F(CompositorTest, MasksMultiplyAlpha) {
    constexpr auto kWithout = GETPIXELHANDLERFLAGS::DONTAPPLYMASK;
    const std::tuple<const char*, NodeSpec, GETPIXELHANDLERFLAGS, std::array<int, 4>> cases[] = {
        {"whole", {.width = 4, .height = 1}, {}, {64, 64, 64, 64}},
        {"left out by the caller", {.width = 4, .height = 1}, kWithout, {255, 255, 255, 255}},
        {"disabled", {.width = 4, .height = 1, .enabled = false}, {}, {255, 255, 255, 255}},
        {"shows around", {.x = 1, .width = 2, .height = 1, .maskColor = 255}, {}, {255, 64, 64, 255}},
        {"hides around", {.x = 1, .width = 2, .height = 1, .maskColor = 0}, {}, {0, 64, 64, 0}},
        {"half around", {.x = -1, .width = 2, .height = 1, .maskColor = 128}, {}, {64, 128, 128, 128}},
        {"no colour hides", {.x = 3, .width = 1, .height = 1}, {}, {0, 0, 0, 64}},
        {"colours are bytes", {.x = 3, .width = 1, .height = 1, .maskColor = 700}, {}, {255, 255, 255, 64}},
        {"below the line", {.y = 1, .width = 4, .height = 1, .maskColor = 20}, {}, {20, 20, 20, 20}},
        {"no area, colour", {.maskColor = 100}, {}, {100, 100, 100, 100}},
        {"no area, no colour", {}, {}, {255, 255, 255, 255}},
        {"no pixels", {.width = 4, .height = 1, .hasPixels = false}, {}, {255, 255, 255, 255}},
    };
    for (const Id& format : {pixelformats::kAlphaU8, pixelformats::kGreyU8}) {
        for (auto [what, mask, flags, alphas] : cases) {
            SCOPED_TRACE(testing::Message() << what << ", " << format.GetText());
            texture = LayerTree::MakeTexture();
            const ImageRef image = AddImage(4, 1);
            const ImageRef layer = LayerTree::AddLayer(image, {.width = 4, .height = 1}, LayerTree::Plain(1, 0, 1));
            mask.format = format;
            const double value = 64.0 / 255;
            LayerTree::AddMask(layer, mask, LayerTree::Plain(value, value, value, value));
            const auto pixels = ReadPixels<uint8_t>(texture, pixelformats::kRgbaU8, MakeLayerSet({}), flags);
            for (size_t i = 0; i < 4; ++i)
                EXPECT_EQ(pixels[i], (Bytes{255, 0, 255, uint8_t(alphas[i])})) << i;
        }
    }
}

/// A layer that stands for an image composites what hangs below it, through its own mask, where it lies itself.
TEST_F(CompositorTest, LayerReadsItsOwnLayers) {
    const ImageRef image = AddImage(10, 1);
    const ImageRef group = LayerTree::AddLayer(image, {.name = "group", .x = 4, .width = 3, .height = 1});
    LayerTree::AddLayer(group, {.x = 5, .width = 9, .height = 1}, LayerTree::Plain(1, 0, 0));
    LayerTree::AddMask(group, {.x = 6, .width = 4, .height = 1, .format = pixelformats::kAlphaU8, .maskColor = 255},
                       LayerTree::Plain(0, 0, 0, 0.2));
    EXPECT_EQ(See(group), (std::vector<Bytes>{{0, 0, 0, 0}, {255, 0, 0, 255}, {255, 0, 0, 51}}));
}

TEST_F(CompositorTest, SpansAreIndependentOfRuns) {
    constexpr Int kWidth = 200;
    const ImageRef image = AddImage(kWidth, 2);
    LayerTree::AddLayer(image, {.x = 3, .width = 120, .height = 2, .mode = kMultiply}, LayerTree::Noise(1));
    LayerTree::AddLayer(image, {.width = kWidth, .height = 2, .opacity = 0.7}, LayerTree::Noise(2));
    const auto whole = See(image);
    auto reader = Reader(image);
    ASSERT_TRUE(reader);
    for (const Int begin : {0, 1, 2, 63, 64, 65, 130}) {
        for (const Int count : {0, 1, 63, 64, 65, 70}) {
            std::vector<Bytes> line(size_t(count) + 1, Bytes{9, 9, 9, 9});
            ASSERT_TRUE(reader->read({begin, 1, count}, {line.data(), BITS(32)}, {}));
            EXPECT_TRUE(std::equal(line.begin(), line.end() - 1, whole.begin() + kWidth + begin));
            EXPECT_EQ(line.back(), (Bytes{9, 9, 9, 9}));
        }
    }
    for (const PixelSpan& span : {PixelSpan{-1, 0, 1}, {0, -1, 1}, {0, 2, 1}, {1, 0, kWidth}, {0, 0, -1}})
        EXPECT_EQ(ErrorIdOf(reader->read(span, {nullptr, BITS(32)}, {})), errorid::kIllegalArgument);
}

/// RGBA bytes in the normal mode have a loop of their own, for lines without gaps. Its bytes are those of the long way,
/// which a line from right to left takes.
TEST_F(CompositorTest, BytesInNormalModeAreTheSameBothWays) {
    std::mt19937 random(7);
    const auto draw = [&](int limit) { return int(random() % unsigned(limit)); };
    for (int tree = 0; tree < 60; ++tree) {
        SCOPED_TRACE(tree);
        const auto levels = pixel::GetKernelSets();
        const LevelScope level(*levels[size_t(tree) % levels.size()]);
        const Int width = 1 + draw(tree % 2 ? 40 : 300);
        texture = LayerTree::MakeTexture();
        const ImageRef image = AddImage(width, 2);
        static const Id kModes[] = {blendmodes::kOver, blendmodes::kDissolve, blendmodes::kPassFolder};
        for (int layers = 2 + draw(5); layers > 0; --layers) {
            NodeSpec spec{.x = draw(3) ? 0 : draw(60) - 30,
                          .width = draw(3) ? width : 1 + draw(200),
                          .height = 2,
                          .mode = kModes[draw(3)]};
            static constexpr double kOpacities[] = {0, 0.25, 0.999999, 1 - 0x1p-40};
            if (draw(2))
                spec.opacity = kOpacities[draw(4)];
            LayerTree::AddLayer(image, spec, LayerTree::Noise(unsigned(draw(1000000))));
        }
        auto reader = Reader(image);
        ASSERT_TRUE(reader);
        const Int begin = draw(int(width)), count = 1 + draw(int(width - begin));
        std::vector<Bytes> line(size_t(count) + 2, Bytes{9, 9, 9, 9}), mirror = line;
        ASSERT_TRUE(reader->read({begin, 1, count}, {&line[1], BITS(32)}, {}));
        ASSERT_TRUE(reader->read({begin, 1, count}, {&mirror[size_t(count)], BITS(-32)}, {}));
        std::reverse(mirror.begin(), mirror.end());
        EXPECT_EQ(line, mirror);
        EXPECT_EQ(line.front(), (Bytes{9, 9, 9, 9}));
    }
}

TEST_F(CompositorTest, LayersFarOutsideAreNotSeen) {
    constexpr Int kMost = std::numeric_limits<Int>::max(), kLeast = std::numeric_limits<Int>::min();
    const ImageRef image = AddImage(5, 1);
    for (const Int x : {kMost, kLeast, Int(5), Int(-5), kMost - 4}) {
        for (const Int y : {kMost, kLeast, Int(1), Int(-1)}) {
            const ImageRef layer =
                LayerTree::AddLayer(image, {.x = x, .y = y, .width = 5, .height = 1}, LayerTree::Plain(1, 1, 1));
            LayerTree::AddMask(layer, {.x = x, .width = 2, .height = 2, .format = pixelformats::kAlphaU8});
        }
    }
    LayerTree::AddLayer(image, {.width = 5, .height = 1}, LayerTree::Plain(0, 1, 0));
    EXPECT_EQ(See(image), std::vector<Bytes>(5, Bytes{0, 255, 0, 255}));
}

/// A mode that is stored by its id counts; what cannot be understood is the normal mode.
TEST_F(CompositorTest, BlendModeByObjectOrId) {
    const ImageRef image = AddImage(1, 1);
    const ImageRef upper = LayerTree::AddLayer(image, {.width = 1, .height = 1}, LayerTree::Plain(1, 0, 1));
    LayerTree::AddLayer(image, {.width = 1, .height = 1}, LayerTree::Plain(0, 1, 1));
    const Id key = image::kLayerBlendMode.GetId();
    const Bytes normal{255, 0, 255, 255}, multiplied{0, 0, 255, 255};
    const std::pair<Data, Bytes> cases[] = {
        {Data(blendmodes::Get(kMultiply)), multiplied},
        {Data(kMultiply), multiplied},
        {Data(Id("net.orvik.test.nomode")), normal},
        {Data(String("multiply")), normal},
        {Data(ImagePixelBlend()), normal},
    };
    for (const auto& [data, expected] : cases) {
        ASSERT_TRUE(upper->SetData(key, data));
        EXPECT_EQ(See(image)[0], expected) << data.ToString().GetCString();
    }
}

/// Whatever allocation fails while a handler is made, an error comes back and nothing stays. Lines need none.
TEST_F(CompositorTest, HandlersSurviveEveryFailedAllocationAndLinesNeedNone) {
    const ImageRef image = AddImage(300, 1);
    const ImageRef folder = LayerTree::AddFolder(image, {.name = "folder"});
    for (const Int x : {0, 20}) {
        const ImageRef layer = LayerTree::AddLayer(
            folder, {.name = "layer", .x = x, .width = 300, .height = 1, .opacity = 0.5, .mode = kMultiply});
        LayerTree::AddMask(layer, {.width = 100, .height = 1, .format = pixelformats::kAlphaU8});
    }
    LayerTree::AddLayer(image, {.name = "other", .width = 30, .height = 1, .opacity = 0.5});
    const LayerSet set = MakeLayerSet({"folder\\layer", "other", "folder"});
    for (const bool sticky : {false, true}) {
        AllocationFaults faults(sticky);
        while (faults.Next()) {
            auto reader = faults.Run([&] {
                return texture->GetPixelHandler(PixelFormats::Get(pixelformats::kRgbaU8), {}, {},
                                                GETPIXELHANDLERFLAGS::NONE, set);
            });
            if (!reader)
                continue;
            std::vector<Bytes> line(300);
            SetAllocationFault(0);
            EXPECT_TRUE(reader->read({0, 0, 300}, {line.data(), BITS(32)}, {}));
            EXPECT_EQ(GetAllocationCount(), 0);
            texture->FreePixelHandler(*reader);
        }
        EXPECT_GT(faults.GetErrorCount(), 10);
    }
}

/// A storage that gives out handlers, of which the second line fails; or that gives none.
class Failing : public ImagePixelStorageInterface {
public:
    Result<void> Init(Int, Int, const PixelFormat&, Block<const std::byte>) override { return {}; }
    Result<GetPixelHandlerStruct> GetPixelHandler(const PixelFormat&, ChannelOffsets, const ColorProfile&,
                                                  const ColorProfile&, GETPIXELHANDLERFLAGS) override {
        if (refuses)
            return UnsupportedOperationError();
        GetPixelHandlerStruct handler;
        handler.read = [](const PixelSpan& span, const PixelLine&, GETPIXELFLAGS) -> Result<void> {
            return span.y == 1 ? Result<void>(UnsupportedArgumentError()) : Result<void>();
        };
        handler.release = [] { ++released; };
        return handler;
    }
    static inline bool refuses = false;
    static inline int released = 0;
};

TEST_F(CompositorTest, FailingLayerEndsTheLine) {
    constexpr Id kClass{"net.orvik.test.failing"};
    ASSERT_TRUE(_publisher.PublishClass<Failing>(kClass));
    const ImageRef image = AddImage(4, 3);
    LayerTree::AddLayer(image, {.width = 4, .height = 3, .opacity = 0.5});
    const ImageRef failing = LayerTree::AddLayer(image, {.width = 4, .height = 3});
    ASSERT_TRUE(failing->Init(4, 3, ClassRef(kClass), PixelFormats::Get(pixelformats::kRgbaU8), {}));
    Bytes line[4];
    auto reader = Reader(image);
    ASSERT_TRUE(reader);
    for (const Int y : {0, 1, 2})
        EXPECT_EQ(ErrorIdOf(reader->read({0, y, 4}, {line, BITS(32)}, {})),
                  y == 1 ? errorid::kUnsupportedArgument : Id());
    EXPECT_EQ(Failing::released, 0);
    image->FreePixelHandler(*reader);
    EXPECT_EQ(Failing::released, 1);
    Failing::refuses = true;
    EXPECT_EQ(ErrorIdOf(Reader(image)), errorid::kUnsupportedOperation);
}

}  // namespace
}  // namespace orvik
