// The stand-alone host: its services and its modules.

#include "orvik/host.h"

#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vector>

#include "orvik/gfx_image.h"
#include "orvik/mediasession_limits.h"
#include "orvik/mediasession_session.h"

namespace orvik {

namespace {

using testing::ElementsAre;

constexpr std::string_view kNoSuchModules[] = {"missing.module", "absent.module"};

/// Writes down what it hears, and can act on it.
class Listener : public ImageRegionObserverInterface {
public:
    Listener(std::vector<std::string>& heard, std::string name) : _heard(heard), _name(std::move(name)) {}

    void OnConnect(Int width, Int height) override { Hear(FormatString("connect @ x @", width, height)); }
    void OnResize(Int width, Int height) override { Hear(FormatString("resize @ x @", width, height)); }
    void OnRegionDirty(const UpdateRegion& r) override {
        Hear(FormatString("dirty @ @ @ @", r.x, r.y, r.width, r.height));
    }
    void OnDisconnect(Bool final) override { Hear(final ? "gone" : "going"); }

    std::function<void()> react;

private:
    void Hear(const String& what) {
        _heard.push_back(_name + " " + std::string(what.GetText()));
        if (react)
            react();
    }

    std::vector<std::string>& _heard;
    std::string _name;
};

class RegionService : public testing::Test {
protected:
    void SetUp() override {
        Result<Host> host = Host::Start({.modules = {}});
        ASSERT_TRUE(host);
        _host = std::make_unique<Host>(std::move(*host));
        const auto handler =
            FindPublished<ImageRegionObservableHandlerInterface>(ImageRegionObservableHandlerInterface::kInterfaceId);
        auto made = handler->Create("_ObservableRegionChanged");
        ASSERT_TRUE(made);
        observable = *made;
    }
    Ref<Listener> Listen(const std::string& name) {
        Ref<Listener> listener = NewObj<Listener>(heard, name).GetValue();
        registrations.push_back(observable->RegisterObserver(listener).GetValue());
        return listener;
    }
    std::vector<std::string> TakeHeard() { return std::exchange(heard, {}); }

    std::vector<std::string> heard;
    std::vector<ObjectRef> registrations;
    ImageRegionObservableRef observable;

private:
    std::unique_ptr<Host> _host;
};

TEST_F(RegionService, TellsEveryEventInTheOrderOfAdding) {
    ASSERT_TRUE(observable->ResizeImage(4, 3));
    const auto a = Listen("a"), b = Listen("b");
    EXPECT_THAT(TakeHeard(), ElementsAre("a connect 4 x 3", "b connect 4 x 3"));
    ASSERT_TRUE(observable->ResizeImage(5, 6));
    ASSERT_TRUE(observable->MarkDirty(nullptr, {1, 2, 3, 4}));
    EXPECT_THAT(TakeHeard(), ElementsAre("a resize 5 x 6", "b resize 5 x 6", "a dirty 1 2 3 4", "b dirty 1 2 3 4"));
    observable->Disconnect(false);
    observable->Disconnect(true);
    EXPECT_THAT(TakeHeard(), ElementsAre("a going", "b going", "a gone", "b gone"));
    ASSERT_TRUE(observable->MarkDirty(nullptr, {}));
    EXPECT_TRUE(heard.empty());
}

TEST_F(RegionService, DelegatesHearTheImageAndTheirErrorsComeBack) {
    UpdateRegion seen;
    ASSERT_TRUE(observable->GetObservable()->AddObserver(
        [&seen](ImageBaseInterface*, const UpdateRegion& region) -> Result<void> {
            seen = region;
            return IllegalStateError("refused");
        }));
    const Result<void> told = observable->MarkDirty(nullptr, {7, 8, 9, 10});
    EXPECT_EQ(seen, (UpdateRegion{7, 8, 9, 10}));
    ASSERT_FALSE(told);
    EXPECT_EQ(told.GetError()->GetMessage(), "refused");
}

TEST_F(RegionService, RegistrationEndsWhenItIsDropped) {
    const auto a = Listen("a"), b = Listen("b");
    heard.clear();
    registrations[0] = nullptr;
    ASSERT_TRUE(observable->ResizeImage(1, 1));
    EXPECT_THAT(TakeHeard(), ElementsAre("b resize 1 x 1"));
    observable = nullptr;  // the registration outlives it
    registrations.clear();
}

TEST_F(RegionService, ForgetsObserversThatAreGone) {
    auto a = Listen("a");
    const auto b = Listen("b");
    heard.clear();
    a = nullptr;
    ASSERT_TRUE(observable->ResizeImage(1, 1));
    EXPECT_THAT(TakeHeard(), ElementsAre("b resize 1 x 1"));
}

TEST_F(RegionService, ObserversMayComeAndGoWhileTheyHear) {
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
    heard.clear();
    ASSERT_TRUE(observable->ResizeImage(1, 1));
    EXPECT_THAT(TakeHeard(), ElementsAre("a resize 1 x 1", "late connect 1 x 1", "c resize 1 x 1"));
    ASSERT_TRUE(observable->ResizeImage(2, 2));
    EXPECT_THAT(TakeHeard(), ElementsAre("c resize 2 x 2", "late resize 2 x 2"));
}

TEST_F(RegionService, RefusesNoObserver) {
    const auto registered = observable->RegisterObserver(nullptr);
    ASSERT_FALSE(registered);
    EXPECT_TRUE(registered.GetError()->IsKindOf(errorid::kNullptr));
}

TEST(Host, SaysWhichModulesAreMissing) {
    const Result<Host> host = Host::Start({.modules = kNoSuchModules});
    ASSERT_TRUE(host);
    EXPECT_EQ(host->GetModuleCount(), 0);
    EXPECT_THAT(host->GetMissingModules(), ElementsAre(String("missing.module"), String("absent.module")));
    const auto picture = ImageTextureInterface::LoadTexture(Url("a.png"), {}, MEDIASESSIONFLAGS::NONE, {}, {});
    ASSERT_FALSE(picture);
    EXPECT_TRUE(picture.GetError()->IsKindOf(errorid::kUnresolved));
}

TEST(Host, OneAtATimeAndAnyNumberInTurn) {
    const Id service = ImageRegionObservableHandlerInterface::kInterfaceId;
    for (int turn = 0; turn < 2; ++turn) {
        const Result<Host> host = Host::Start();
        ASSERT_TRUE(host) << host.GetError()->ToString().GetText();
        EXPECT_EQ(host->GetModuleCount(), 1);
        EXPECT_TRUE(FindPublishedObject(service));
        EXPECT_TRUE(ClassRef(imageclasses::kTexture).Create());
        EXPECT_FALSE(Host::Start({.modules = {}}));
        EXPECT_TRUE(FindPublishedObject(service)) << "a refused second host must not take the first one's service";
    }
    EXPECT_FALSE(FindPublishedObject(service));
    EXPECT_FALSE(ClassRef(imageclasses::kTexture).Create());
}

TEST(Host, BoundsTheBuffersOfItsModules) {
    const Result<Host> host = Host::Start();
    ASSERT_TRUE(host);
    const auto image = *ClassRef(imageclasses::kImage).Create<ImageInterface>();
    const auto init = [&image] {
        return image->Init(100, 100, ClassRef(storageclasses::kNormal), PixelFormats::Get(pixelformats::kRgbU8), {});
    };
    SetDecodeBufferLimit(29999);
    const Result<void> refused = init();
    SetDecodeBufferLimit(0);
    ASSERT_FALSE(refused);
    EXPECT_TRUE(refused.GetError()->IsKindOf(errorid::kOutOfMemory));
    EXPECT_TRUE(init());
}

}  // namespace

}  // namespace orvik
