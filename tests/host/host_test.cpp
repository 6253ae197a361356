#include "orvik/host.h"

#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vector>

#include "support/results.h"

#include "orvik/gfx_image.h"
#include "orvik/mediasession_limits.h"
#include "orvik/mediasession_session.h"

namespace orvik {
namespace {

using testing::ElementsAre;

/// Records events, and can react to them.
class Listener : public ImageRegionObserverInterface {
public:
    Listener(std::vector<std::string>& events, std::string name) : _events(events), _name(std::move(name)) {}

    void OnConnect(Int width, Int height) override { Record(FormatString("connect @ x @", width, height)); }
    void OnResize(Int width, Int height) override { Record(FormatString("resize @ x @", width, height)); }
    void OnRegionDirty(const UpdateRegion& r) override {
        Record(FormatString("dirty @ @ @ @", r.x, r.y, r.width, r.height));
    }
    void OnDisconnect(Bool final) override { Record(final ? "gone" : "going"); }

    std::function<void()> react;

private:
    void Record(const String& what) {
        _events.push_back(_name + " " + std::string(what.GetText()));
        if (react)
            react();
    }

    std::vector<std::string>& _events;
    std::string _name;
};

class RegionService : public testing::Test {
protected:
    Ref<Listener> Listen(const std::string& name) {
        Ref<Listener> listener = NewObj<Listener>(events, name).GetValue();
        registrations.push_back(observable->RegisterObserver(listener).GetValue());
        return listener;
    }
    std::vector<std::string> TakeEvents() { return std::exchange(events, {}); }

    const Result<Host> host = Host::Start({.modules = {}});
    std::vector<std::string> events;
    std::vector<ObjectRef> registrations;
    ImageRegionObservableRef observable =
        *FindPublished<ImageRegionObservableHandlerInterface>(ImageRegionObservableHandlerInterface::kInterfaceId)
             ->Create("_ObservableRegionChanged");
};

TEST_F(RegionService, ReportsEveryEventInTheOrderOfAdding) {
    ASSERT_TRUE(observable->ResizeImage(4, 3));
    const auto a = Listen("a"), b = Listen("b");
    EXPECT_THAT(TakeEvents(), ElementsAre("a connect 4 x 3", "b connect 4 x 3"));
    ASSERT_TRUE(observable->ResizeImage(5, 6));
    ASSERT_TRUE(observable->MarkDirty(nullptr, {1, 2, 3, 4}));
    EXPECT_THAT(TakeEvents(), ElementsAre("a resize 5 x 6", "b resize 5 x 6", "a dirty 1 2 3 4", "b dirty 1 2 3 4"));
    observable->Disconnect(false);
    observable->Disconnect(true);
    EXPECT_THAT(TakeEvents(), ElementsAre("a going", "b going", "a gone", "b gone"));
    ASSERT_TRUE(observable->MarkDirty(nullptr, {}));
    EXPECT_TRUE(events.empty());
}

TEST_F(RegionService, DelegatesGetTheRegionAndReturnErrors) {
    UpdateRegion seen;
    ASSERT_TRUE(observable->GetObservable()->AddObserver(
        [&seen](ImageBaseInterface*, const UpdateRegion& region) -> Result<void> {
            seen = region;
            return IllegalStateError("refused");
        }));
    EXPECT_EQ(MessageOf(observable->MarkDirty(nullptr, {7, 8, 9, 10})), "refused");
    EXPECT_EQ(seen, (UpdateRegion{7, 8, 9, 10}));
}

TEST_F(RegionService, RegistrationEndsWithItsReferenceOrItsObserver) {
    auto a = Listen("a"), b = Listen("b"), c = Listen("c");
    EXPECT_FALSE(observable->RegisterObserver(nullptr));
    events.clear();
    registrations[0] = nullptr;
    c = nullptr;
    ASSERT_TRUE(observable->ResizeImage(1, 1));
    EXPECT_THAT(TakeEvents(), ElementsAre("b resize 1 x 1"));
    observable = nullptr;  // the registration outlives it
    registrations.clear();
}

TEST_F(RegionService, ObserversMayComeAndGoDuringAnEvent) {
    const auto a = Listen("a"), b = Listen("b"), c = Listen("c");
    Ref<Listener> late;
    bool reacted = false;
    a->react = [&] {
        if (std::exchange(reacted, true))
            return;
        registrations[1] = nullptr;
        late = Listen("late");
        registrations[0] = nullptr;
    };
    events.clear();
    ASSERT_TRUE(observable->ResizeImage(1, 1));
    EXPECT_THAT(TakeEvents(), ElementsAre("a resize 1 x 1", "late connect 1 x 1", "c resize 1 x 1"));
    ASSERT_TRUE(observable->ResizeImage(2, 2));
    EXPECT_THAT(TakeEvents(), ElementsAre("c resize 2 x 2", "late resize 2 x 2"));
}

TEST(Host, SaysWhichModulesAreMissing) {
    static constexpr std::string_view kNoSuchModules[] = {"missing.module", "absent.module"};
    const Result<Host> host = Host::Start({.modules = kNoSuchModules});
    EXPECT_EQ(host->GetModuleCount(), 0);
    EXPECT_THAT(host->GetMissingModules(), ElementsAre(String("missing.module"), String("absent.module")));
    EXPECT_EQ(ErrorIdOf(ImageTextureInterface::LoadTexture(Url("a.png"), {}, MEDIASESSIONFLAGS::NONE, {}, {})),
              errorid::kUnresolved);
}

TEST(Host, RunsOneAtATimeAndAnyNumberInTurn) {
    const Id service = ImageRegionObservableHandlerInterface::kInterfaceId, moduleId("net.orvik.image.module");
    for (int turn = 0; turn < 2; ++turn) {
        const Result<Host> host = Host::Start({.resourceDirectory = Url("/some/share")});
        ASSERT_EQ(MessageOf(host), "");
        EXPECT_EQ(host->GetModuleCount(), 1);
        EXPECT_TRUE(FindPublishedObject(service));
        EXPECT_TRUE(ClassRef(imageclasses::kTexture).Create());
        EXPECT_EQ(GetModuleResourceDirectory(moduleId).GetValueOr(Url()), Url("/some/share/modules/image.module"));
        const Result<Host> second = Host::Start({.modules = {}});
        EXPECT_EQ(MessageOf(second), "A host is running in this process already.");
        EXPECT_EQ(ErrorIdOf(second), errorid::kIllegalState);
        EXPECT_TRUE(FindPublishedObject(service)) << "a refused second host must not take the first one's service";
    }
    EXPECT_FALSE(FindPublishedObject(service));
    EXPECT_FALSE(ClassRef(imageclasses::kTexture).Create() || GetModuleResourceDirectory(moduleId));
}

TEST(Values, NullInstancesAreNotWrittenTo) {
    MediaStreamFormat format;
    ASSERT_TRUE(format.Set(mediaformat::kWidth, 5));
    EXPECT_EQ(ErrorIdOf(Ref<MediaStreamPropertiesInterface>()->Init(format)), errorid::kNullptr);
    EXPECT_EQ(MediaStreamProperties().Get(mediaformat::kWidth, -1), -1);
    const auto properties = *NewObj<MediaStreamPropertiesInterface>();
    ASSERT_TRUE(properties->Set(mediaformat::kHeight, 7));
    ASSERT_TRUE(properties->Init(format));
    ASSERT_TRUE(properties->Init(MediaStreamFormat()));
    EXPECT_EQ(properties->Get(mediaformat::kWidth, -1), 5);
    EXPECT_EQ(properties->Get(mediaformat::kHeight, -1), 7) << "other entries stay";
}

TEST(Host, BoundsTheBuffersOfItsModules) {
    const Result<Host> host = Host::Start();
    const auto image = *ClassRef(imageclasses::kImage).Create<ImageInterface>();
    for (const Int limit : {29999, 0}) {
        SetDecodeBufferLimit(limit);
        EXPECT_EQ(ErrorIdOf(image->Init(100, 100, ClassRef(storageclasses::kNormal),
                                        PixelFormats::Get(pixelformats::kRgbU8), {})),
                  limit ? errorid::kOutOfMemory : Id());
    }
}

}  // namespace
}  // namespace orvik
