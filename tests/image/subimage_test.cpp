#include "image_fakes.h"
#include "support/module_fixture.h"

#include "orvik/gfx_image_functions.h"
#include "orvik/gfx_imagebasehelpers.h"
#include "orvik/regionobservable.h"

namespace orvik {
namespace {

constexpr Int kMax = std::numeric_limits<Int>::max();
constexpr Int kMin = std::numeric_limits<Int>::min();
constexpr Int kWidth = 40, kHeight = 30;

class SubImageTest : public ModuleFixture {
protected:
    void SetUp() override {
        ModuleFixture::SetUp();
        ASSERT_TRUE(PublishRegionObservable(_publisher));
        _format = PixelFormats::Get(pixelformats::kGreyU16);
        _image = MakeImage();
    }
    /// Each pixel holds its place.
    ImageRef MakeImage() const {
        ImageRef image = ClassRef(imageclasses::kImage).Create<ImageInterface>().TakeValue();
        EXPECT_TRUE(image->Init(kWidth, kHeight, ClassRef(), _format, {}));
        SetPixelHandlerStruct writer = image->SetPixelHandler(_format, {}, {}, SETPIXELHANDLERFLAGS::NONE).TakeValue();
        for (Int y = 0; y < kHeight; ++y) {
            uint16_t row[kWidth];
            for (Int x = 0; x < kWidth; ++x)
                row[x] = uint16_t(y * 100 + x);
            EXPECT_TRUE(writer.write({0, y, kWidth}, {row, BITS(16)}, {}));
        }
        image->FreePixelHandler(writer);
        return image;
    }
    static ImageBaseRef Part(const ImageBaseRef& of, Int x, Int y, Int width, Int height) {
        Result<ImageBaseRef> part = of->CreateSubImagePart({{x, y}, {width, height}});
        EXPECT_TRUE(part) << MessageOf(part);
        return part ? part.GetValue() : ImageBaseRef();
    }
    Result<GetPixelHandlerStruct> Reader(const ImageBaseRef& node) const {
        return node->GetPixelHandler(_format, {}, {}, GETPIXELHANDLERFLAGS::NONE, {});
    }
    /// The first pixel of a span: 100 times y plus x.
    Int ReadFirst(const ImageBaseRef& node, const PixelSpan& span) const {
        uint16_t row[kWidth] = {};
        auto handler = Reader(node);
        EXPECT_TRUE(handler) << MessageOf(handler);
        const Result<void> read = handler->read(span, {row, BITS(16)}, {});
        EXPECT_TRUE(read) << MessageOf(read);
        node->FreePixelHandler(*handler);
        EXPECT_FALSE(*handler);
        return row[0];
    }

    PixelFormat _format;
    ImageRef _image;
};

TEST_F(SubImageTest, OneRectangleIsOneObject) {
    EXPECT_EQ(Part(_image, 0, 0, kWidth, kHeight), ImageBaseRef(_image));
    const ImageBaseRef part = Part(_image, 10, 5, 20, 10);
    for (const ImageBaseRef& other : {ImageBaseRef(_image), Part(_image, 5, 10, 20, 10), Part(_image, 10, 5, 10, 20)})
        EXPECT_NE(other, part);
    EXPECT_EQ(ImageFunctions::CreateSubImagePart(_image, {{10, 5}, {20, 10}}).TakeValue(), part);
    EXPECT_EQ(ErrorIdOf(ImageFunctions::CreateSubImagePart(nullptr, {{0, 0}, {1, 1}})), errorid::kNullptr);
    EXPECT_EQ(part->GetWidth() * 100 + part->GetHeight(), 2010);
    EXPECT_EQ(part->GetPixelFormat(), _format);
    EXPECT_EQ(part->Get(image::kType, ITYPE::UNDEFINED), ITYPE::IMAGE);
    // Many more than the first table has places for.
    std::vector<ImageBaseRef> parts;
    for (Int i = 0; i < 600; ++i) {
        const ImageBaseRef again = Part(_image, i % 20, i % 300 / 20, 3, 3);
        if (i < 300)
            parts.push_back(again);
        EXPECT_EQ(again, parts[size_t(i % 300)]);
    }
}

TEST_F(SubImageTest, ChecksTheRectangle) {
    const struct {
        DrawRectInt rectangle;
        bool fits;
    } cases[] = {
        {{{0, 0}, {kWidth, kHeight - 1}}, true},
        {{{kWidth, kHeight}, {0, 0}}, true},
        {{{-5, -5}, {10, 10}}, true},
        {{{kMin, kMin}, {kMax, kMax}}, true},
        {{{1, 0}, {kWidth, 1}}, false},
        {{{0, 1}, {1, kHeight}}, false},
        {{{kWidth + 1, 0}, {0, 1}}, false},
        {{{kMax, 0}, {1, 1}}, false},
        {{{0, kMax}, {1, kMax}}, false},
        {{{0, 0}, {-1, 1}}, false},
        {{{0, 0}, {1, kMin}}, false},
    };
    for (const auto& [rectangle, fits] : cases) {
        const auto part = _image->CreateSubImagePart(rectangle);
        EXPECT_EQ(ErrorIdOf(part), fits ? Id() : errorid::kIllegalArgument) << rectangle.position.x;
        EXPECT_EQ(MessageOf(part), "");
    }
    const auto untyped = ClassRef(imageclasses::kBase).Create<ImageBaseInterface>().TakeValue();
    EXPECT_EQ(MessageOf(untyped->CreateSubImagePart({{0, 0}, {0, -1}})), "");
    EXPECT_EQ(MessageOf(untyped->CreateSubImagePart({{-1, 0}, {0, 0}})), "Key net.orvik.image.type not found.");
}

TEST_F(SubImageTest, ReadsTheParentShifted) {
    const ImageBaseRef part = Part(_image, 10, 5, 20, 10);
    EXPECT_EQ(ReadFirst(Part(Part(part, 3, 2, 4, 4), 1, 1, 2, 2), {1, 1, 1}), 915);
    auto nothing = Reader(Part(_image, 7, 7, 0, 3));
    ASSERT_TRUE(nothing);
    EXPECT_TRUE(nothing->read({0, 1, 0}, {nullptr, BITS(16)}, {}));
    // It converts as its parent, and is read only.
    uint8_t pixel[3] = {};
    auto rgb = part->GetPixelHandler(PixelFormats::Get(pixelformats::kRgbU8), {}, {}, GETPIXELHANDLERFLAGS::NONE, {});
    ASSERT_TRUE(rgb && rgb->read({0, 9, 1}, {pixel, BITS(24)}, {}));
    EXPECT_EQ(pixel[1], 1410 >> 8);
    EXPECT_EQ(ErrorIdOf(part->SetPixelHandler(_format, {}, {}, SETPIXELHANDLERFLAGS::NONE)),
              errorid::kFunctionNotImplemented);

    const DrawRectInt inside{{10, 5}, {20, 10}};
    const struct {
        DrawRectInt rectangle;
        PixelSpan span;
        Int first;  ///< -1: illegal argument
    } cases[] = {
        {inside, {0, 0, 20}, 510},
        {inside, {19, 9, 1}, 1429},
        {inside, {0, 10, 1}, -1},
        {inside, {0, -1, 1}, -1},
        {inside, {1, 0, 20}, -1},
        {inside, {0, 0, -1}, -1},
        {inside, {kMax, 0, kMax}, -1},
        {inside, {0, kMin, 1}, -1},
        {inside, {5, 0, kMax}, -1},
        // To the left the test is behind the shift, so the parent's pixels there can be read.
        {inside, {-10, 0, 5}, 500},
        {inside, {-11, 0, 5}, -1},
        // A rectangle that starts outside can be read where it lies inside.
        {{{-5, -5}, {20, 10}}, {5, 5, 3}, 0},
        {{{-5, -5}, {20, 10}}, {4, 5, 3}, -1},
        {{{-5, -5}, {20, 10}}, {5, 4, 3}, -1},
        {{{kMin, 0}, {kMax, 1}}, {0, 0, 1}, -1},
        {{{kMin, 0}, {kMax, 1}}, {kMin, 0, 1}, -1},
    };
    for (const auto& [rectangle, span, first] : cases) {
        SCOPED_TRACE(testing::Message() << rectangle.position.x << " + " << span.x << ", " << span.y << ", "
                                        << span.count);
        const ImageBaseRef view =
            Part(_image, rectangle.position.x, rectangle.position.y, rectangle.size.width, rectangle.size.height);
        auto handler = Reader(view);
        ASSERT_TRUE(handler);
        uint16_t row[kWidth] = {};
        const Result<void> read = handler->read(span, {row, BITS(16)}, {});
        EXPECT_EQ(ErrorIdOf(read), first < 0 ? errorid::kIllegalArgument : Id());
        EXPECT_EQ(MessageOf(read), "");
        if (first >= 0) {
            EXPECT_EQ(row[0], first);
        }
    }
}

TEST_F(SubImageTest, ParentOwnsThePartAndHandlersOwnTheParent) {
    const ImageBaseRef part = Part(_image, 10, 5, 20, 10), inner = Part(part, 1, 1, 2, 2);
    auto handler = Reader(part);
    ASSERT_TRUE(handler);
    const WeakRef<ImageInterface> watched(_image);
    _image = nullptr;
    EXPECT_TRUE(watched.Get());  // by the handler
    uint16_t pixel = 0;
    ASSERT_TRUE(handler->read({0, 0, 1}, {&pixel, BITS(16)}, {}));
    EXPECT_EQ(pixel, 510);
    EXPECT_TRUE(Reader(part));
    part->FreePixelHandler(*handler);
    EXPECT_FALSE(watched.Get());

    const auto lost = Reader(part);
    EXPECT_EQ(ErrorIdOf(lost), errorid::kIllegalState);
    EXPECT_EQ(MessageOf(lost), "Subimage reference to original image lost.");
    EXPECT_EQ(MessageOf(Reader(inner)), "Subimage reference to original image lost.");
    EXPECT_EQ(part->GetWidth(), 20);
    EXPECT_EQ(inner->GetHeight(), 2);

    // Copies of a handler that were never freed give the parent back with the last of them.
    _image = MakeImage();
    const WeakRef<ImageInterface> again(_image);
    {
        auto first = Reader(Part(_image, 1, 1, 2, 2));
        const GetPixelHandlerStruct copy = *first;
        _image = nullptr;
        first->Free();
        EXPECT_TRUE(copy.read({0, 0, 1}, {&pixel, BITS(16)}, {}));
    }
    EXPECT_FALSE(again.Get());
}

TEST_F(SubImageTest, EveryFailedAllocationLeavesTheMapAsItWas) {
    AllocationFaults parts, readers;
    while (parts.Next()) {
        const ImageRef image = MakeImage();
        if (parts.Run([&] { return image->CreateSubImagePart({{1, 1}, {2, 2}}); }))
            continue;  // the name of an observable may be missing; everything else needs its memory
        // No part of the failed attempt is notified or answers.
        EXPECT_TRUE(ImageBaseHelpers::MarkRegionChanged(image, {0, 0, 5, 5}));
        EXPECT_EQ(ReadFirst(Part(image, 1, 1, 2, 2), {0, 0, 1}), 101);
    }
    EXPECT_GT(parts.GetErrorCount(), 5);
    const ImageBaseRef part = Part(_image, 1, 1, 2, 2);
    ASSERT_TRUE(Reader(part));  // conversions are cached now
    while (readers.Next())
        (void)readers.Run([&] { return Reader(part); });
    EXPECT_GT(readers.GetErrorCount(), 1);
}

/// Notes its calls.
class Listener : public ImageRegionObserverInterface {
public:
    void OnConnect(Int width, Int height) override { Note("connect ", {0, 0, width, height}); }
    void OnResize(Int width, Int height) override { Note("resize ", {0, 0, width, height}); }
    void OnRegionDirty(const UpdateRegion& region) override { Note("dirty ", region); }
    void OnDisconnect(Bool final) override { calls.push_back(final ? "disconnect 1" : "disconnect 0"); }
    std::vector<std::string> Take() { return std::exchange(calls, {}); }

    std::vector<std::string> calls;

private:
    void Note(const char* what, const UpdateRegion& region) {
        calls.push_back(what + std::to_string(region.x) + " " + std::to_string(region.y) + " " +
                        std::to_string(region.width) + " " + std::to_string(region.height));
    }
};
using Calls = std::vector<std::string>;

TEST_F(SubImageTest, RegionsReachThePartsInTheirOwnCoordinates) {
    const ImageBaseRef part = Part(_image, 10, 5, 20, 10), inner = Part(part, 2, 2, 5, 5);
    const auto ofImage = NewObj<Listener>().TakeValue(), ofPart = NewObj<Listener>().TakeValue(),
               ofInner = NewObj<Listener>().TakeValue();
    const auto first = ImageBaseHelpers::RegisterRegionChangedObserver(_image, ofImage).TakeValue();
    const auto second = ImageBaseHelpers::RegisterRegionChangedObserver(part, ofPart).TakeValue();
    const auto third = ImageBaseHelpers::RegisterRegionChangedObserver(inner, ofInner).TakeValue();
    EXPECT_EQ(ofImage->Take(), (Calls{"connect 0 0 40 30"}));
    EXPECT_EQ(ofPart->Take(), (Calls{"connect 0 0 20 10"}));
    EXPECT_EQ(ofInner->Take(), (Calls{"connect 0 0 5 5"}));
    const std::tuple<UpdateRegion, Calls, Calls> cases[] = {
        {{0, 0, 40, 30}, {"dirty 0 0 20 10"}, {"dirty 0 0 5 5"}},
        {{13, 8, 2, 1}, {"dirty 3 3 2 1"}, {"dirty 1 1 2 1"}},
        {{0, 0, 11, 6}, {"dirty 0 0 1 1"}, {}},
        {{0, 0, 10, 30}, {}, {}},
        {{30, 5, 1, 1}, {}, {}},
        {{15, 5, 0, 5}, {}, {}},
        {{kMin, kMin, kMax, kMax}, {}, {}},
        {{0, 0, kMax, kMax}, {"dirty 0 0 20 10"}, {"dirty 0 0 5 5"}},
        {{16, 0, kMax, kMax}, {"dirty 6 0 14 10"}, {"dirty 4 0 1 5"}},
    };
    for (const auto& [region, part, inner] : cases) {
        SCOPED_TRACE(testing::Message() << region.x << ", " << region.y);
        ASSERT_TRUE(ImageBaseHelpers::MarkRegionChanged(_image, region));
        EXPECT_EQ(ofImage->Take().size(), 1u);
        EXPECT_EQ(ofPart->Take(), part);
        EXPECT_EQ(ofInner->Take(), inner);
    }
    // A freed set handler fires the same way, and delegates on the part get the part.
    Int fired = 0;
    ASSERT_TRUE(part->ObservableRegionChanged()->AddObserver([&](ImageBaseInterface* node, const UpdateRegion& region) {
        fired += node == part.GetPointer() && region == UpdateRegion{0, 1, 5, 1};
        return Result<void>();
    }));
    SetPixelHandlerStruct writer = _image->SetPixelHandler(_format, {}, {}, SETPIXELHANDLERFLAGS::NONE).TakeValue();
    writer.Widen({0, 6, 15});
    _image->FreePixelHandler(writer);
    EXPECT_EQ(ofPart->Take(), (Calls{"dirty 0 1 5 1"}));
    EXPECT_EQ(fired, 1);

    second->Free();
    second->Free();
    ASSERT_TRUE(ImageBaseHelpers::MarkRegionChanged(_image, {0, 0, 40, 30}));
    EXPECT_EQ(ofPart->Take(), Calls());
    EXPECT_EQ(ofInner->Take(), (Calls{"dirty 0 0 5 5"}));
}

TEST_F(SubImageTest, NotifiesObserversTwiceOnDestruction) {
    const ImageBaseRef part = Part(_image, 10, 5, 20, 10);
    const auto ofImage = NewObj<Listener>().TakeValue(), ofPart = NewObj<Listener>().TakeValue();
    const auto first = ImageBaseHelpers::RegisterRegionChangedObserver(_image, ofImage).TakeValue();
    const auto second = ImageBaseHelpers::RegisterRegionChangedObserver(part, ofPart).TakeValue();
    ASSERT_TRUE(_image->Init(50, 30, ClassRef(), _format, {}));
    EXPECT_EQ(ofImage->Take(), (Calls{"connect 0 0 40 30", "resize 0 0 50 30"}));
    EXPECT_EQ(ofPart->Take(), (Calls{"connect 0 0 20 10"}));
    _image = nullptr;
    EXPECT_EQ(ofImage->Take(), (Calls{"disconnect 0", "disconnect 1"}));
    EXPECT_EQ(ofPart->Take(), Calls());  // the part still lives
    EXPECT_TRUE(ImageBaseHelpers::MarkRegionChanged(part, {0, 0, 1, 1}));
    EXPECT_EQ(ofPart->Take(), (Calls{"dirty 0 0 1 1"}));
    first->Free();  // the observable has gone
}

TEST_F(SubImageTest, HelpersRefuseAMissingImage) {
    const auto listener = NewObj<Listener>().TakeValue();
    const auto marked = ImageBaseHelpers::MarkRegionChanged(nullptr, {});
    EXPECT_EQ(ErrorIdOf(marked), errorid::kIllegalState);
    EXPECT_EQ(MessageOf(marked), "Illegal state: Condition impl != nullptr not fulfilled. ");
    EXPECT_EQ(MessageOf(ImageBaseHelpers::RegisterRegionChangedObserver(nullptr, listener)), MessageOf(marked));
    EXPECT_EQ(ErrorIdOf(ImageBaseHelpers::RegisterRegionChangedObserver(_image, nullptr)), errorid::kNullptr);
}

using SubImageWithoutHostTest = ModuleFixture;

/// Without the host's service parts are still notified, by the node's own list of delegates.
TEST_F(SubImageWithoutHostTest, PartsAreNotifiedOfTheirParent) {
    const PixelFormat format = PixelFormats::Get(pixelformats::kGreyU16);
    const ImageRef image = ClassRef(imageclasses::kImage).Create<ImageInterface>().TakeValue();
    ASSERT_TRUE(image->Init(kWidth, kHeight, ClassRef(), format, {}));
    const ImageBaseRef part = image->CreateSubImagePart({{10, 5}, {20, 10}}).TakeValue();
    UpdateRegion calls;
    ASSERT_TRUE(part->ObservableRegionChanged()->AddObserver([&](ImageBaseInterface*, const UpdateRegion& region) {
        calls = region;
        return Result<void>();
    }));
    SetPixelHandlerStruct writer = image->SetPixelHandler(format, {}, {}, SETPIXELHANDLERFLAGS::NONE).TakeValue();
    writer.Widen({0, 6, 15});
    image->FreePixelHandler(writer);
    EXPECT_EQ(calls, (UpdateRegion{0, 1, 5, 1}));
    EXPECT_EQ(ErrorIdOf(ImageBaseHelpers::MarkRegionChanged(image, {})), errorid::kNullptr);
}

}  // namespace
}  // namespace orvik
