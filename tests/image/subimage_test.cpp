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
        return of->CreateSubImagePart({{x, y}, {width, height}}).TakeValue();
    }
    Result<GetPixelHandlerStruct> Reader(const ImageBaseRef& node) const {
        return node->GetPixelHandler(_format, {}, {}, GETPIXELHANDLERFLAGS::NONE, {});
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
    const DrawRectInt fitting[] = {{{0, 0}, {kWidth, kHeight - 1}},
                                   {{kWidth, kHeight}, {0, 0}},
                                   {{-5, -5}, {10, 10}},
                                   {{kMin, kMin}, {kMax, kMax}}};
    const DrawRectInt outside[] = {{{1, 0}, {kWidth, 1}}, {{0, 1}, {1, kHeight}}, {{kWidth + 1, 0}, {0, 1}},
                                   {{kMax, 0}, {1, 1}},   {{0, kMax}, {1, kMax}}, {{0, 0}, {-1, 1}},
                                   {{0, 0}, {1, kMin}}};
    for (const DrawRectInt& rectangle : fitting)
        EXPECT_TRUE(_image->CreateSubImagePart(rectangle)) << rectangle.position.x;
    for (const DrawRectInt& rectangle : outside) {
        const auto part = _image->CreateSubImagePart(rectangle);
        EXPECT_TRUE(ErrorIdOf(part) == errorid::kIllegalArgument && MessageOf(part) == "") << rectangle.position.x;
    }
    const auto untyped = ClassRef(imageclasses::kBase).Create<ImageBaseInterface>().TakeValue();
    EXPECT_EQ(MessageOf(untyped->CreateSubImagePart({{0, 0}, {0, -1}})), "");
    EXPECT_EQ(MessageOf(untyped->CreateSubImagePart({{-1, 0}, {0, 0}})), "Key net.orvik.image.type not found.");
}

TEST_F(SubImageTest, ReadsTheParentShifted) {
    const ImageBaseRef part = Part(_image, 10, 5, 20, 10);
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
    // The first pixel that is read, -1 for an illegal argument. To the left of a part the test is behind the shift, so
    // the parent's pixels there can be read; a part that starts outside can be read where it lies inside.
    const ImageBaseRef outside = Part(_image, -5, -5, 20, 10), far = Part(_image, kMin, 0, kMax, 1),
                       inner = Part(Part(part, 3, 2, 4, 4), 1, 1, 2, 2);
    const std::tuple<ImageBaseRef, PixelSpan, Int> cases[] = {
        {part, {0, 0, 20}, 510},  {part, {19, 9, 1}, 1429}, {part, {0, 10, 1}, -1},      {part, {0, -1, 1}, -1},
        {part, {1, 0, 20}, -1},   {part, {0, 0, -1}, -1},   {part, {kMax, 0, kMax}, -1}, {part, {0, kMin, 1}, -1},
        {part, {5, 0, kMax}, -1}, {part, {-10, 0, 5}, 500}, {part, {-11, 0, 5}, -1},     {outside, {5, 5, 3}, 0},
        {outside, {4, 5, 3}, -1}, {outside, {5, 4, 3}, -1}, {far, {0, 0, 1}, -1},        {far, {kMin, 0, 1}, -1},
        {inner, {1, 1, 1}, 915},
    };
    for (const auto& [node, span, first] : cases) {
        SCOPED_TRACE(testing::Message() << first << ": " << span.x << ", " << span.y << ", " << span.count);
        uint16_t row[kWidth] = {};
        const Result<void> read = Reader(node)->read(span, {row, BITS(16)}, {});
        EXPECT_EQ(ErrorIdOf(read), first < 0 ? errorid::kIllegalArgument : Id());
        EXPECT_EQ(MessageOf(read), "");
        EXPECT_EQ(row[0], std::max(first, Int(0)));
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
    EXPECT_EQ(ErrorIdOf(Reader(part)), errorid::kIllegalState);
    for (const ImageBaseRef& node : {part, inner})
        EXPECT_EQ(MessageOf(Reader(node)), "Subimage reference to original image lost.");
    EXPECT_TRUE(part->GetWidth() == 20 && inner->GetHeight() == 2);
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
        uint16_t pixel = 0;
        EXPECT_TRUE(Reader(Part(image, 1, 1, 2, 2))->read({0, 0, 1}, {&pixel, BITS(16)}, {}));
        EXPECT_EQ(pixel, 101);
    }
    EXPECT_GT(parts.GetErrorCount(), 5);
    const ImageBaseRef part = Part(_image, 1, 1, 2, 2);
    ASSERT_TRUE(Reader(part));  // conversions are cached now
    while (readers.Next())
        (void)readers.Run([&] { return Reader(part); });
    EXPECT_GT(readers.GetErrorCount(), 1);
}

class Listener : public ImageRegionObserverInterface {
public:
    void OnConnect(Int width, Int height) override { Note("connect ", {0, 0, width, height}); }
    void OnResize(Int width, Int height) override { Note("resize ", {0, 0, width, height}); }
    void OnRegionDirty(const UpdateRegion& region) override { Note("dirty ", region); }
    void OnDisconnect(Bool final) override { calls.push_back(final ? "disconnect 1" : "disconnect 0"); }
    std::vector<std::string> Take() { return std::exchange(calls, {}); }

private:
    std::vector<std::string> calls;
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

TEST_F(SubImageTest, PartsAreNotifiedAfterTheirImageHasGone) {
    const ImageBaseRef part = Part(_image, 10, 5, 20, 10);
    const auto listener = NewObj<Listener>().TakeValue();
    const auto ofImage = ImageBaseHelpers::RegisterRegionChangedObserver(_image, listener).TakeValue();
    _image = nullptr;
    EXPECT_EQ(listener->Take(), (Calls{"connect 0 0 40 30", "disconnect 0", "disconnect 1"}));
    const auto ofPart = ImageBaseHelpers::RegisterRegionChangedObserver(part, listener).TakeValue();
    EXPECT_TRUE(ImageBaseHelpers::MarkRegionChanged(part, {0, 0, 1, 1}));
    EXPECT_EQ(listener->Take(), (Calls{"connect 0 0 20 10", "dirty 0 0 1 1"}));
    ofImage->Free();  // the observable has gone
    EXPECT_EQ(MessageOf(ImageBaseHelpers::MarkRegionChanged(nullptr, {})),
              "Illegal state: Condition impl != nullptr not fulfilled. ");
    EXPECT_FALSE(ImageBaseHelpers::RegisterRegionChangedObserver(nullptr, listener));
    EXPECT_EQ(ErrorIdOf(ImageBaseHelpers::RegisterRegionChangedObserver(part, nullptr)), errorid::kNullptr);
}

TEST_F(SubImageTest, PartsAreNotifiedWithoutTheHost) {
    _publisher.UndoAll();
    ASSERT_TRUE(StartImageModule(_publisher));
    _image = MakeImage();
    const ImageBaseRef part = Part(_image, 10, 5, 20, 10);
    UpdateRegion seen;
    ASSERT_TRUE(part->ObservableRegionChanged()->AddObserver([&](ImageBaseInterface*, const UpdateRegion& region) {
        seen = region;
        return Result<void>();
    }));
    SetPixelHandlerStruct writer = _image->SetPixelHandler(_format, {}, {}, SETPIXELHANDLERFLAGS::NONE).TakeValue();
    writer.Widen({0, 6, 15});
    _image->FreePixelHandler(writer);
    EXPECT_EQ(seen, (UpdateRegion{0, 1, 5, 1}));
    EXPECT_EQ(ErrorIdOf(ImageBaseHelpers::MarkRegionChanged(_image, {})), errorid::kNullptr);
}

}  // namespace
}  // namespace orvik
