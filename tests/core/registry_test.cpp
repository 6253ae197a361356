#include "test_helpers.h"

#include "orvik/datadictionaryobject.h"
#include "orvik/module.h"

namespace orvik {
namespace {

class Thing : public virtual Object {
    ORVIK_INTERFACE(Thing, "net.orvik.test.interface.thing");

public:
    virtual Int GetNumber() const { return Unbound(); }
    virtual Result<Int> TryNumber() const { return Unbound(); }
};
class Seven : public Thing {
public:
    Seven() { ++instances; }
    ~Seven() override {
        --instances;
        (void)FindPublishedObject("net.orvik.test.anything");  // the end of an object may look things up
    }
    Int GetNumber() const override { return 7; }
    static inline std::atomic<int> instances = 0;
};

ObjectRef MakeSeven() { return NewObj<Seven>().TakeValue(); }

constexpr Id kRegistry{"net.orvik.test.registry"};
std::vector<std::string> g_undone;

std::vector<std::string> EntriesOf(const Id& registry) {
    std::vector<std::string> names;
    for (const Registry::Entry& entry : Registry::GetEntries(registry))
        names.emplace_back(entry.id.GetText());
    return names;
}

TEST(Registry, FindsWhatIsPublishedAndUndoesItInReverse) {
    Publisher publisher;
    ASSERT_TRUE(publisher.PublishClass<Seven>("net.orvik.test.class"));
    ASSERT_TRUE(publisher.PublishObject("net.orvik.test.object", MakeSeven()));
    for (const char* name : {"z", "a"})
        ASSERT_TRUE(publisher.AddToRegistry(kRegistry, Id::Create(name).TakeValue(), MakeSeven()));
    EXPECT_EQ(ClassRef(Id("net.orvik.test.class")).Create<Thing>().TakeValue()->GetNumber(), 7);
    EXPECT_EQ(FindPublished<Thing>("net.orvik.test.object")->GetNumber(), 7);
    EXPECT_EQ(Registry::Find<Thing>(kRegistry, "a")->GetNumber(), 7);
    EXPECT_THAT(EntriesOf(kRegistry), testing::ElementsAre("z", "a")) << "in the order of insertion";
    const Int generation = Registry::GetGeneration();
    Publisher::SetUndoObserver(
        [](const char* kind, const Id& id) { g_undone.push_back(kind + (" " + std::string(id.GetText()))); });
    publisher.UndoAll();
    Publisher::SetUndoObserver(nullptr);
    EXPECT_THAT(g_undone, testing::ElementsAre("entry a", "entry z", "object net.orvik.test.object",
                                               "class net.orvik.test.class"));
    EXPECT_EQ(Seven::instances, 0);
    EXPECT_TRUE(EntriesOf(kRegistry).empty());
    EXPECT_NE(Registry::GetGeneration(), generation);
}

TEST(Registry, MissingEntitiesAnswerUnresolved) {
    class Unrelated : public Object {};
    Publisher publisher;
    ASSERT_TRUE(publisher.PublishClass<Unrelated>("net.orvik.test.class"));
    ASSERT_TRUE(publisher.PublishObject("net.orvik.test.object", NewObj<Unrelated>().TakeValue()));
    const ClassRef missing(Id("net.orvik.test.none")), other(Id("net.orvik.test.class"));
    const std::pair<Id, Id> cases[] = {
        {ErrorIdOf(missing.Create()), errorid::kUnresolved},
        {ErrorIdOf(missing.Create<Thing>()), errorid::kUnresolved},
        {ErrorIdOf(ClassRef().Create()), errorid::kNullptr},
        {ErrorIdOf(other.Create<Thing>()), errorid::kUnexpected},
        {ErrorIdOf(FindPublished<Thing>("net.orvik.test.none")->TryNumber()), errorid::kUnresolved},
        {ErrorIdOf(FindPublished<Thing>("net.orvik.test.object")->TryNumber()), errorid::kUnresolved},
        {ErrorIdOf(FindPublishedObject("net.orvik.test.none")->Clone()), errorid::kUnresolved},
        {ErrorIdOf(Registry::Find<Thing>(kRegistry, "none")->TryNumber()), errorid::kUnresolved},
    };
    for (size_t i = 0; i < std::size(cases); ++i)
        EXPECT_EQ(cases[i].first, cases[i].second) << i;
    EXPECT_TRUE(EntriesOf("net.orvik.test.unknownregistry").empty());
}

TEST(Registry, RefusesASecondOfTheSameId) {
    Publisher first, second;
    ASSERT_TRUE(first.PublishClass<Seven>("net.orvik.test.class"));
    ASSERT_TRUE(first.PublishObject("net.orvik.test.object", MakeSeven()));
    ASSERT_TRUE(first.AddToRegistry(kRegistry, "a", MakeSeven()));
    EXPECT_EQ(MessageOf(second.PublishClass<Seven>("net.orvik.test.class")),
              "net.orvik.test.class is already published.");
    EXPECT_EQ(ErrorIdOf(second.PublishObject("net.orvik.test.object", MakeSeven())), errorid::kIllegalArgument);
    EXPECT_EQ(ErrorIdOf(second.AddToRegistry(kRegistry, "a", MakeSeven())), errorid::kIllegalArgument);
    EXPECT_EQ(ErrorIdOf(second.PublishObject("net.orvik.test.null", nullptr)), errorid::kIllegalArgument);
    ASSERT_TRUE(second.AddToRegistry(kRegistry, "b", MakeSeven()));
    first.UndoAll();
    EXPECT_THAT(EntriesOf(kRegistry), testing::ElementsAre("b")) << "each takes back only what is its own";
}

TEST(Registry, SurvivesEachFailedAllocation) {
    EXPECT_GE(FailEachAllocation([]() -> Result<void> {
                  Publisher publisher;
                  TRY(publisher.PublishClass<Seven>("net.orvik.test.class"));
                  Ref<Seven> object = TRY(NewObj<Seven>());
                  TRY(publisher.PublishObject("net.orvik.test.object", object));
                  for (const char* name : {"a", "b", "c"}) {
                      const Id id = TRY(Id::Create(name));
                      TRY(publisher.AddToRegistry(kRegistry, id, object));
                  }
                  return {};
              }),
              10);
    EXPECT_EQ(Seven::instances, 0);
    EXPECT_TRUE(EntriesOf(kRegistry).empty());
    EXPECT_FALSE(FindPublishedObject("net.orvik.test.object"));
}

TEST(Registry, ReadersAndPublishersInParallel) {
    std::atomic<int> wrong = 0, found = 0;
    std::vector<std::jthread> readers;
    for (int t = 0; t < 2; ++t) {
        readers.emplace_back([&](std::stop_token stop) {
            while (!stop.stop_requested()) {
                if (const Ref<Thing> thing = Registry::Find<Thing>(kRegistry, "a")) {
                    ++found;
                    wrong += thing->GetNumber() != 7;
                }
                for (const Registry::Entry& entry : Registry::GetEntries(kRegistry))
                    wrong += !Cast<Thing>(entry.object);
                if (Result<Ref<Thing>> made = ClassRef(Id("net.orvik.test.class")).Create<Thing>())
                    wrong += made->GetPointer()->GetNumber() != 7;
            }
        });
    }
    Publisher classes;
    ASSERT_TRUE(classes.PublishClass<Seven>("net.orvik.test.class"));
    for (int i = 0; i < 500 || (found == 0 && i < 1000000); ++i) {
        Publisher publisher;
        ASSERT_TRUE(publisher.AddToRegistry(kRegistry, "a", MakeSeven()));
    }
    readers.clear();
    EXPECT_GT(found, 0);
    EXPECT_EQ(wrong, 0);
}

Url TestModule(const char* name) { return Url::FromSystemPath(std::string(ORVIK_TEST_MODULES) + "/" + name); }

TEST(Module, LoadsPublishesAndUnloads) {
    const ClassRef published{Id("net.orvik.test.module.class")};
    EXPECT_EQ(ErrorIdOf(published.Create()), errorid::kUnresolved);
    for (int round = 0; round < 3; ++round) {
        Result<Module> loaded = Module::Load(TestModule("good.module"), round == 0 ? Url() : Url("/resources"));
        ASSERT_TRUE(loaded) << MessageOf(loaded);
        Module module = std::move(loaded).TakeValue();
        EXPECT_EQ(module.GetId(), Id("net.orvik.test.good"));
        EXPECT_EQ(module.GetRecordCount(), 3);
        // The module's object holds what it found in its slots: 1 the resolver works, 2 the yield function is set.
        EXPECT_EQ(published.Create().TakeValue()->GetClassId(), published.GetId());
        EXPECT_EQ(FindPublished<DataDictionaryObjectInterface>("net.orvik.test.module.object")
                      ->Get(Key<Int>("net.orvik.test.slots"), 0),
                  3);
        EXPECT_EQ(ErrorIdOf(Module::Load(TestModule("good.module"))), errorid::kIllegalState);
        EXPECT_TRUE(published.Create()) << "the refused second load leaves the first alone";
        const std::string resources =
            round == 0
                ? (std::filesystem::read_symlink("/proc/self/exe").parent_path() / "../share/orvik/modules/good.module")
                      .lexically_normal()
                : "/resources/modules/good.module";
        EXPECT_EQ(GetModuleResourceDirectory(module.GetId()).GetValueOr(Url()).GetSystemPath(), resources);
        module.Unload();
        EXPECT_FALSE(module);
        EXPECT_EQ(ErrorIdOf(GetModuleResourceDirectory("net.orvik.test.good")), errorid::kUnresolved);
        EXPECT_EQ(ErrorIdOf(published.Create()), errorid::kUnresolved);
        EXPECT_TRUE(EntriesOf("net.orvik.test.module.registry").empty());
    }
}

TEST(Module, FailuresLeaveNothingBehind) {
    const TempFolder folder;
    const std::tuple<Url, Id, const char*> cases[] = {
        {folder / "none.module", errorid::kIo, "cannot load module: cannot open shared object file: No such file"},
        {folder.Write("text.module", "not an object"), errorid::kIo, "cannot load module: "},
        {folder / "", errorid::kIo, "cannot load module: "},
        {TestModule("plain.module"), errorid::kIllegalArgument, ""},
        {TestModule("needy.module"), errorid::kUnresolved, ""},
        {TestModule("failing.module"), errorid::kUnsupportedOperation, "no start today: 17"},
        {Url("memory:x"), errorid::kIo, "cannot load a module from memory"},
    };
    for (const auto& [url, error, message] : cases) {
        const Result<Module> loaded = Module::Load(url);
        EXPECT_EQ(ErrorIdOf(loaded), error) << url.GetSystemPath();
        EXPECT_THAT(MessageOf(loaded), testing::StartsWith(message));
    }
    EXPECT_FALSE(FindPublishedObject("net.orvik.test.module.object"));
}

TEST(Module, IsFoundThroughTheEnvironment) {
    const TempFolder folder;
    const Url expected = folder.Write("some.module", "");
    setenv("ORVIK_MODULE_PATH", (":/nonexistent:" + folder.GetPath().native() + ":/tmp").c_str(), 1);
    EXPECT_EQ(FindModule("some.module").GetValueOr(Url()), expected);
    EXPECT_EQ(MessageOf(FindModule("other.module")), "cannot find module: No such file or directory");
    unsetenv("ORVIK_MODULE_PATH");
    EXPECT_FALSE(FindModule("some.module"));
}

}  // namespace
}  // namespace orvik
