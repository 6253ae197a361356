#include "image_fakes.h"
#include "support/described.h"

namespace orvik {
namespace {

constexpr auto kNormal = storageclasses::kNormal;

/// A storage whose Init fails on request.
class FakeStorage : public ImagePixelStorageInterface {
public:
    Result<void> Init(Int width, Int height, const PixelFormat&, Block<const std::byte> defaultColor) override {
        g_log.push_back("init " + std::to_string(width) + "x" + std::to_string(height) + " default " +
                        std::to_string(defaultColor.size()));
        return fail ? Result<void>(UnsupportedArgumentError()) : Result<void>();
    }
    Result<GetPixelHandlerStruct> GetPixelHandler(const PixelFormat&, ChannelOffsets, const ColorProfile& stored,
                                                  const ColorProfile& wanted, GETPIXELHANDLERFLAGS flags) override {
        g_log.push_back(Describe("get", stored, wanted, int(flags)));
        return GetPixelHandlerStruct();
    }
    Result<SetPixelHandlerStruct> SetPixelHandler(const PixelFormat&, ChannelOffsets, const ColorProfile& stored,
                                                  const ColorProfile& given, SETPIXELHANDLERFLAGS flags,
                                                  const RegionDelegate& region) override {
        g_log.push_back(Describe("set", stored, given, int(flags)));
        SetPixelHandlerStruct handler;
        handler.region = region;
        return handler;
    }
    static inline bool fail = false;
    static constexpr Id kClass{"net.orvik.test.storage"};

private:
    static std::string Describe(std::string what, const ColorProfile& stored, const ColorProfile& other, int flags) {
        return what + (stored.HasProfile() ? " stored" : "") + (other.HasProfile() ? " other " : " ") +
               std::to_string(flags);
    }
};

class ImageTest : public ImageFixture {
protected:
    void SetUp() override {
        ImageFixture::SetUp();
        FakeStorage::fail = false;
        ASSERT_TRUE(_publisher.PublishClass<FakeStorage>(FakeStorage::kClass));
    }
    Ref<FakeFormat> _format = MakeFormat({8, 8});
};

TEST_F(ImageTest, TakesChildrenByBranchAndClass) {
    using B = IMAGEHIERARCHY;
    constexpr Id kImage = imageclasses::kImage, kLayer = imageclasses::kRasterLayer, kTexture = imageclasses::kTexture;
    const std::pair<Id, std::vector<std::pair<B, Id>>> cases[] = {
        {kTexture, {{B::IMAGE, kImage}, {B::IMAGE, kLayer}}},
        {kImage, {{B::ALPHA, kLayer}, {B::LAYER, kLayer}, {B::DEEPIMAGEDATA, kLayer}}},
        {kLayer, {{B::LAYER, kLayer}, {B::MASK, kLayer}}},
    };
    for (const auto& [parentClass, accepted] : cases) {
        for (int branch = -1; branch <= int(B::MAX_ELEMENTS); ++branch) {
            for (const Id& child : {Id(), imageclasses::kBase, kImage, kLayer, kTexture}) {
                SCOPED_TRACE(testing::Message() << parentClass.GetText() << ' ' << branch << ' ' << child.GetText());
                const auto parent = Make<ImageBaseInterface>(parentClass);
                const auto node = child.IsEmpty() ? ImageBaseRef() : Make<ImageBaseInterface>(child);
                const bool fits = std::count(accepted.begin(), accepted.end(), std::pair(B(branch), child)) > 0;
                const Result<void> added = parent->AddChildren(B(branch), node, nullptr);
                EXPECT_EQ(ErrorIdOf(added), fits ? Id() : errorid::kIllegalArgument);
                EXPECT_EQ(MessageOf(added), "");
                EXPECT_EQ(parent->GetChildren(branch).size(), fits ? 1u : 0u);
            }
        }
    }
}

TEST_F(ImageTest, InitRunsInOrderAndLeavesNoStorageOnFailure) {
    PublishRegionService();
    const std::byte color[2] = {};
    const std::vector<std::string> both = {"init 4x3 default 2", "resize 4x3"};
    const std::tuple<const char*, Id, bool, bool, Id, std::vector<std::string>> cases[] = {
        {"fine", FakeStorage::kClass, false, false, {}, both},
        {"storage fails", FakeStorage::kClass, true, false, errorid::kUnsupportedArgument, {"init 4x3 default 2"}},
        {"observer fails", FakeStorage::kClass, false, true, errorid::kUnexpected, both},
        {"no such class", "net.orvik.test.missing", false, false, errorid::kUnresolved, {}},
        {"no storage", imageclasses::kBase, false, false, errorid::kUnexpected, {}},
    };
    for (const auto& [what, storage, failStorage, failObserver, error, expected] : cases) {
        SCOPED_TRACE(what);
        FakeStorage::fail = FakeRegionObservable::failResize = false;
        const ImageRef image = MakeImage();
        ASSERT_TRUE(image->Init(9, 9, ClassRef(kNormal), _format, {}));
        FakeStorage::fail = failStorage;
        FakeRegionObservable::failResize = failObserver;
        g_log.clear();
        EXPECT_EQ(ErrorIdOf(image->Init(4, 3, ClassRef(storage), _format, color)), error);
        std::erase_if(g_log, [](const std::string& line) { return line.starts_with("disconnect"); });
        EXPECT_EQ(g_log, expected);
        const auto handler = image->GetPixelHandler(_format, {}, {}, GETPIXELHANDLERFLAGS::NONE, {});
        EXPECT_EQ(ErrorIdOf(handler), error.IsEmpty() ? Id() : errorid::kNullptr);
        EXPECT_TRUE(!error.IsEmpty() ||
                    (image->GetWidth() == 4 && image->GetHeight() == 3 && image->GetChannelCount() == 2));
    }
}

TEST_F(ImageTest, PassesItsProfileToTheStorage) {
    const ImageRef image = MakeImage();
    ASSERT_TRUE(image->Init(4, 3, ClassRef(FakeStorage::kClass), _format, {}));
    g_log.clear();
    ASSERT_TRUE(image->GetPixelHandler(_format, {}, MakeProfile(), GETPIXELHANDLERFLAGS::DEEPIMAGE, {}));
    ASSERT_TRUE(image->Set(image::kColorProfile, MakeProfile()));
    // Without layers its own pixels are what it shows.
    const LayerSet layers = MakeLayerSet({}, LAYERSETMODE::LAYERS, "#1");
    ASSERT_TRUE(image->GetPixelHandler(_format, {}, {}, GETPIXELHANDLERFLAGS::DONTAPPLYMASK, layers));
    ASSERT_TRUE(image->SetPixelHandler(_format, {}, {}, SETPIXELHANDLERFLAGS::FORCECOLORPROFILECONVERSION));
    EXPECT_EQ(g_log, (std::vector<std::string>{"get other 2", "get stored 4", "set stored 1"}));
}

TEST_F(ImageTest, SerialisesItsStorage) {
    class Described : public FakeStorage, public virtual DataDescriptionObjectInterface {
    public:
        Result<void> DescribeIO(DataSerialize& io) override { return io.Field("sides", sides); }
        Int GetWidth() const override { return sides; }
        Int GetHeight() const override { return sides + 1; }
        Int sides = 7;
    };
    constexpr Id kDescribed{"net.orvik.test.describedstorage"};
    ASSERT_TRUE(_publisher.PublishClass<Described>(kDescribed));
    const ImageRef image = MakeImage(), back = Make<ImageInterface>(imageclasses::kRasterLayer);
    ASSERT_TRUE(image->Init(7, 8, ClassRef(kDescribed), _format, {}));
    const MemoryFileRef file = Written(*image);
    const Block<const std::byte> bytes = BytesOf(file);
    ASSERT_TRUE(back->Init(3, 2, ClassRef(kNormal), _format, {}));
    ASSERT_TRUE(back->Set(image::kType, ITYPE::LAYER));
    for (size_t length = 0; length < bytes.size(); ++length) {
        EXPECT_FALSE(ReadFrom(*back, bytes.first(length))) << length;
        EXPECT_EQ(ReadRows(back).size(), 2u);  // as it was
    }
    ASSERT_TRUE(ReadFrom(*back, bytes));
    EXPECT_EQ(back->GetWidth() * 10 + back->GetHeight(), 78);
    EXPECT_EQ(back->Get(image::kType, ITYPE::UNDEFINED), ITYPE::LAYER);
    // No storage is described as such; one that cannot be described is refused.
    ASSERT_TRUE(ReadFrom(*back, BytesOf(Written(*MakeImage()))));
    EXPECT_EQ(ErrorIdOf(back->GetPixelHandler(_format, {}, {}, GETPIXELHANDLERFLAGS::NONE, {})), errorid::kNullptr);
    ASSERT_TRUE(image->Init(4, 3, ClassRef(FakeStorage::kClass), _format, {}));
    DataSerialize io(OpenMemoryOutput(CreateMemoryFile().TakeValue()).TakeValue());
    EXPECT_EQ(ErrorIdOf(image->DescribeIO(io)), errorid::kFunctionNotImplemented);
}

/// The host's observable and the plain one that stands in for it behave alike.
TEST_F(ImageTest, NotifiesOnceOfWhatWasWidened) {
    for (const bool hasService : {false, true}) {
        SCOPED_TRACE(hasService);
        if (hasService)
            PublishRegionService();
        std::vector<UpdateRegion> told;
        {
            const ImageRef image = MakeImage();
            ASSERT_TRUE(image->Init(10, 10, ClassRef(kNormal), _format, {}));
            ASSERT_TRUE(image->ObservableRegionChanged()->AddObserver(
                [&](ImageBaseInterface* from, const UpdateRegion& region) {
                    EXPECT_EQ(from, static_cast<ImageBaseInterface*>(image.GetPointer()));
                    told.push_back(region);
                    return Result<void>();
                }));
            for (const bool widens : {false, true}) {
                auto handler = image->SetPixelHandler(_format, {}, {}, SETPIXELHANDLERFLAGS::NONE).TakeValue();
                for (const PixelSpan& span : {PixelSpan{2, 3, 4}, {5, 7, 2}, {0, 0, 0}}) {
                    if (widens)
                        handler.Widen(span);
                }
                // The node may go another way meanwhile.
                ASSERT_TRUE(image->Init(10, 10, ClassRef(kNormal), _format, {}));
                image->FreePixelHandler(handler);
                EXPECT_FALSE(handler);
                image->FreePixelHandler(handler);
            }
            g_log.clear();
        }
        EXPECT_EQ(told, (std::vector<UpdateRegion>{{2, 3, 5, 5}}));
        EXPECT_EQ(g_log,
                  hasService ? (std::vector<std::string>{"disconnect 0", "disconnect 1"}) : std::vector<std::string>());
    }
}

TEST_F(ImageTest, TextureAnswersForItsFirstImage) {
    const ImageTextureRef texture = MakeTexture();
    EXPECT_EQ(texture->GetWidth() | texture->GetHeight() | texture->GetChannelCount(), 0);
    EXPECT_FALSE(texture->GetPixelFormat());
    EXPECT_EQ(MessageOf(texture->GetPixelHandler(_format, {}, {}, GETPIXELHANDLERFLAGS::NONE, {})),
              "Illegal argument: Condition image not fulfilled. ");
    for (const Int width : {4, 7}) {
        const ImageRef image = MakeImage();
        ASSERT_TRUE(image->Init(width, width - 1, ClassRef(kNormal), width == 4 ? _format : MakeFormat({8}), {}));
        ASSERT_TRUE(texture->AddChildren(IMAGEHIERARCHY::IMAGE, image, nullptr));
    }
    EXPECT_EQ(texture->GetWidth() * 10 + texture->GetHeight(), 43);
    EXPECT_EQ(texture->GetPixelFormat(), PixelFormat(_format));
    EXPECT_EQ(ReadRows(texture).size(), 3u);
    EXPECT_EQ(ErrorIdOf(texture->SetPixelHandler(_format, {}, {}, SETPIXELHANDLERFLAGS::NONE)),
              errorid::kFunctionNotImplemented);
}

TEST_F(ImageTest, WalksUntilItIsStoppedAndNotTooDeep) {
    const ImageTextureRef texture = MakeTexture();
    const ImageRef image = MakeImage();
    ASSERT_TRUE(texture->AddChildren(IMAGEHIERARCHY::IMAGE, image, nullptr));
    ImageBaseRef bottom = image;
    const auto addLevels = [&](int count) {
        for (; count > 0; --count) {
            const auto layer = Make<ImageBaseInterface>(imageclasses::kRasterLayer);
            ASSERT_TRUE(bottom->AddChildren(IMAGEHIERARCHY::LAYER, layer, nullptr));
            bottom = layer;
        }
    };
    int calls = 0, stopAfter = 3;
    const ImageVisitor visit = [&](const ImageBaseRef&, IMAGEHIERARCHY) -> Result<Bool> {
        return ++calls != stopAfter;
    };
    addLevels(254);  // the texture, its image and 254 layers: 256 levels
    EXPECT_FALSE(WalkImages(texture, visit).GetValueOr(true));
    EXPECT_EQ(calls, 3);
    EXPECT_TRUE(WalkImages(texture, visit).GetValueOr(false));
    addLevels(1);
    EXPECT_EQ(ErrorIdOf(WalkImages(texture, visit)), errorid::kIllegalState);
    EXPECT_EQ(ErrorIdOf(WalkImages(nullptr, visit)), errorid::kNullptr);
}

}  // namespace
}  // namespace orvik
