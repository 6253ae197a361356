// The module as a host meets it: a shared object that is opened at run time. This program does not link its objects.
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <memory>
#include <regex>

#include "support/result_matchers.h"

#include "orvik/declarations.h"
#include "orvik/iomemory.h"
#include "orvik/lockservices.h"
#include "orvik/mediasession_output.h"
#include "orvik/module.h"

namespace orvik {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

Module LoadModule(const char* path) {
    Result<Module> module = Module::Load(Url(path));
    EXPECT_THAT(module, Succeeds());
    return module ? std::move(module).TakeValue() : Module();
}

std::vector<std::string> g_undone;
void NoteUndone(const char* kind, const Id& id) {
    g_undone.push_back(std::string(kind) + ' ' + std::string(id.GetText()));
}

class Plugin : public testing::Test {
protected:
    void SetUp() override {
        g_undone.clear();
        Publisher::SetUndoObserver(NoteUndone);
    }
    void TearDown() override { Publisher::SetUndoObserver(nullptr); }
};

void ExpectUnresolved(const char* when) {
    SCOPED_TRACE(when);
    EXPECT_THAT(ClassRef(mediaclasses::kSession).Create(), FailsAs(errorid::kUnresolved));
    EXPECT_THAT(ClassRef(mediaclasses::kSession).Create<MediaSessionInterface>(), FailsAs(errorid::kUnresolved));
    const auto object = FindPublished<MediaSessionInterface>(Id("net.orvik.image.pixelformat.rgb.u8"));
    EXPECT_FALSE(object);
    EXPECT_THAT(object->Convert({}, MEDIASESSIONFLAGS::NONE), FailsAs(errorid::kUnresolved));
    const auto entry = Registry::Find<FileFormatHandlerInterface>(kFileFormatHandlerRegistry,
                                                                  Id("net.orvik.fileformathandler.imageloaderbmp"));
    EXPECT_THAT(entry->CreateHandler(Url()), FailsAs(errorid::kUnresolved));
    EXPECT_TRUE(Registry::GetEntries(kFileFormatRegistry).IsEmpty());
    EXPECT_FALSE(FindHandlerBySuffix("bmp"));
    EXPECT_THAT(ImageTextureInterface::LoadTexture(Url("picture.bmp"), {}, MEDIASESSIONFLAGS::NONE, {}, {}),
                FailsAs(errorid::kUnresolved));
}

TEST_F(Plugin, IsThereWhileItIsLoaded) {
    ExpectUnresolved("before");
    {
        const Module module = LoadModule(IMAGE_MODULE);
        ASSERT_TRUE(module);
        EXPECT_EQ(module.GetId().GetText(), "net.orvik.image.module");
        std::vector<Id> classes = {mediaclasses::kMediaBase,         mediaclasses::kStreamImport,
                                   mediaclasses::kStreamExport,      mediaclasses::kStreamExif,
                                   mediaclasses::kStreamAudioExport, mediaclasses::kAudioObject,
                                   mediaclasses::kOutputUrlBase,     mediaclasses::kSession,
                                   mediaclasses::kOutputTexture,     mediaclasses::kExportFromTexture};
        // File formats and handlers are classes as well as entries of registries.
        for (const Id& registry : {kFileFormatRegistry, kFileFormatHandlerRegistry}) {
            for (const Registry::Entry& entry : Registry::GetEntries(registry))
                classes.push_back(entry.id);
        }
        ASSERT_GE(classes.size(), 20u);
        for (const Id& id : classes) {
            const Result<ObjectRef> object = ClassRef(id).Create();
            ASSERT_TRUE(object) << id.GetText();
            EXPECT_EQ((*object)->GetClassId(), id);
        }
        // Objects of the module work through the framework's interfaces alone.
        const Result<MediaSessionRef> session = ClassRef(mediaclasses::kSession).Create<MediaSessionInterface>();
        ASSERT_TRUE(session);
        EXPECT_TRUE((*session)->Convert({}, MEDIASESSIONFLAGS::NONE));
        const Result<Url> resources = GetModuleResourceDirectory(Id("net.orvik.image.module"));
        ASSERT_TRUE(resources);
        EXPECT_EQ(resources->GetName(), "image.module");
    }
    ExpectUnresolved("after");
    EXPECT_EQ(dlopen(IMAGE_MODULE, RTLD_NOW | RTLD_NOLOAD), nullptr) << "the library is closed";
    EXPECT_TRUE(LoadModule(IMAGE_MODULE)) << "and can be opened again";
}

/// Whoever has an id finds the key, interface or data type that a public header declares under it.
TEST_F(Plugin, DeclarationsAreFoundById) {
    const Module module = LoadModule(IMAGE_MODULE);
    const struct {
        std::regex pattern;  ///< the id, and the name unless it is the id
        Id registry;
        const char* prefix;
        int found = 0;
    } kinds[] = {
        {std::regex(R"x(constexpr Key<[^{;]*>\s+k\w+\{"([^"]+)"\})x"), kKeyRegistry, nullptr},
        {std::regex(R"x(ORVIK_INTERFACE\((\w+),\s+"([^"]+)"\))x"), kInterfaceRegistry, "orvik."},
        {std::regex(R"x(constexpr const char\* kDataTypeName<\w+> = "([^"]+)")x"), kDataTypeRegistry, nullptr},
    };
    for (auto [pattern, registry, prefix, found] : kinds) {
        for (const auto& entry : std::filesystem::directory_iterator(IMAGE_HEADERS)) {
            std::ifstream file(entry.path());
            const std::string text{std::istreambuf_iterator<char>(file), {}};
            for (std::sregex_iterator match(text.begin(), text.end(), pattern), end; match != end; ++match, ++found) {
                const std::string id = (*match)[prefix ? 2 : 1];
                const Result<Id> made = Id::Create(id);
                const auto declared = Registry::Find<DeclarationInterface>(registry, *made);
                EXPECT_EQ(declared->GetName(), prefix ? prefix + (*match)[1].str() : id);
                EXPECT_EQ(declared->GetDataType() == nullptr, prefix != nullptr) << id;
            }
        }
        EXPECT_EQ(Registry::GetEntries(registry).GetCount(), found + (registry == kDataTypeRegistry ? 13 : 0))
            << registry.GetText();  // plain value types have an id beside their name
    }
    const auto width = Registry::Find<DeclarationInterface>(kKeyRegistry, mediaformat::kWidth.GetId());
    EXPECT_TRUE(*width->GetDataType() == GetDataType<Int>());
    const auto region = Registry::Find<DeclarationInterface>(kDataTypeRegistry, datatypes::kUpdateRegion);
    EXPECT_TRUE(*region->GetDataType() == GetDataType<UpdateRegion>());
}

TEST_F(Plugin, GetsItsLinksFromTheHost) {
    const Module module = LoadModule(IMAGE_MODULE);
    const std::unique_ptr<void, int (*)(void*)> library(dlopen(IMAGE_MODULE, RTLD_NOW | RTLD_NOLOAD), dlclose);
    ASSERT_NE(library, nullptr);
    auto** words = static_cast<void**>(dlsym(library.get(), "g_orvik"));
    ASSERT_NE(words, nullptr);
    int at = 1;
    for (const char* text : {"net.orvik.image", "net.orvik.image.module", "net.orvik.core.framework", "image.module"})
        EXPECT_STREQ(static_cast<const char*>(words[at++]), text);
    // The sixth word resolves what is declared, on demand.
    const auto resolve = reinterpret_cast<Object* (*)(const Id&)>(words[5]);
    ASSERT_NE(resolve, nullptr);
    Publisher publisher;
    const ObjectRef object(NewObj<MediaSessionInterface>().GetValueOr(nullptr));
    ASSERT_TRUE(publisher.PublishObject(Id("net.orvik.test.object"), object));
    EXPECT_EQ(resolve(Id("net.orvik.test.object")), object.GetPointer());
    EXPECT_EQ(resolve(Id("net.orvik.test.unknown")), nullptr);

    auto** yield = static_cast<void (**)()>(dlsym(library.get(), "g_CpuYieldDelegate"));
    ASSERT_NE(yield, nullptr);
    EXPECT_EQ(*yield, DefaultCpuYield);
}

TEST_F(Plugin, UnloadingUndoesEverythingBackwards) {
    Module module = LoadModule(IMAGE_MODULE);
    const auto published = static_cast<size_t>(module.GetRecordCount());
    // Units are published in a fixed order; a few landmarks of it, and the entries of a registry, come back reversed.
    std::vector<std::string> expected;
    for (const Registry::Entry& entry : Registry::GetEntries(kFileFormatRegistry))
        expected.push_back("entry " + std::string(entry.id.GetText()));
    for (const char* unit : {"mediabase", "mediasessionobject", "mediaoutputtexture", "mediaoutputurlbase"})
        expected.push_back("class net.orvik.image.class." + std::string(unit));
    EXPECT_THAT(g_undone, IsEmpty());
    module.Unload();
    EXPECT_EQ(g_undone.size(), published);
    std::vector<std::string> landmarks;
    std::copy_if(g_undone.rbegin(), g_undone.rend(), std::back_inserter(landmarks), [&](const std::string& undone) {
        return std::find(expected.begin(), expected.end(), undone) != expected.end();
    });
    EXPECT_EQ(landmarks, expected);
}

TEST_F(Plugin, TwoModules) {
    const ClassRef second(Id("net.orvik.test.second.class.last"));
    EXPECT_THAT(Module::Load(Url(SECOND_MODULE)), FailsAs(errorid::kUnresolved)) << "it needs the image module";
    Module image = LoadModule(IMAGE_MODULE);
    Module other = LoadModule(SECOND_MODULE);
    EXPECT_TRUE(second.Create());
    EXPECT_TRUE(ClassRef(mediaclasses::kSession).Create());
    other.Unload();
    EXPECT_THAT(g_undone,
                ElementsAre("class net.orvik.test.second.class.last", "class net.orvik.test.second.class.first"));
    EXPECT_THAT(second.Create(), FailsAs(errorid::kUnresolved));
    EXPECT_TRUE(ClassRef(mediaclasses::kSession).Create());
}

}  // namespace
}  // namespace orvik
