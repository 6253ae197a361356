// The import driver: which handler is tried, what ends an import, and what is left behind.
#include <gmock/gmock.h>

#include "session_fakes.h"
#include "support/module_fixture.h"

#include "orvik/crashreport.h"
#include "orvik/iomemory.h"
#include "orvik/mediasession_output.h"

namespace orvik {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

constexpr std::string_view kSuffixes[] = {"fak", "fake"};

/// Claims files that start with its letter.
class FakeFormat : public FileFormatInterface {
public:
    FakeFormat(char letter, const Id& id) : _letter(static_cast<std::byte>(letter)), _id(id) {}
    Result<Bool> Detect(const Url& url, const InputStreamRef& stream) const override {
        std::byte first{};
        return TRY(stream->ReadEOS({&first, 1})) == 1 && first == _letter;
    }
    Id GetFormatId() const override { return _id; }
    Block<const std::string_view> GetSuffixes() const override { return kSuffixes; }
    DETECTIONSTRENGTH GetDetectionStrength() const override { return DETECTIONSTRENGTH::SIGNATURE; }

private:
    std::byte _letter;
    Id _id;
};

/// Makes fake inputs with a behaviour that the test can change.
class FakeHandler : public MediaSessionFileFormatHandlerInterface {
public:
    FakeHandler(FileFormat of, FakeBehaviour fake) : behaviour(std::move(fake)), format(std::move(of)) {}
    FileFormat GetFileFormat() const override { return format; }
    const DataType* GetHandlerType() const override {
        return makesInputs ? &GetDataType<MediaInputRef>() : &GetDataType<Int>();
    }
    Result<ObjectRef> CreateHandler(const Url&) const override {
        behaviour.log->push_back(behaviour.name + ".Create");
        if (behaviour.failingPhase == "Create")
            return behaviour.error;
        if (makesNull)
            return ObjectRef();
        const Ref<FakeInput> input = TRY(NewObj<FakeInput>(behaviour));
        lastInput = input;
        return ObjectRef(input);
    }
    FILEFORMAT_PRIORITY GetDependends() const override { return FILEFORMAT_PRIORITY::NATIVEFORMAT; }

    FakeBehaviour behaviour;
    FileFormat format;
    bool makesInputs = true;
    bool makesNull = false;
    mutable WeakRef<FakeInput> lastInput;
};

constexpr Id kFormatA{"net.orvik.test.format.a"}, kFormatB{"net.orvik.test.format.b"};

class MediaImport : public ModuleFixture {
protected:
    void SetUp() override {
        ModuleFixture::SetUp();
        _first = Publish('A', kFormatA, "net.orvik.test.handler.first", "first");
        _second = Publish('A', kFormatA, "net.orvik.test.handler.second", "second");
        _other = Publish('B', kFormatB, "net.orvik.test.handler.other", "other");
        _output = Make<FakeOutput>(FakeBehaviour{"out", &_log, true, false}, true);
    }
    void TearDown() override { UnmountMemoryFile("import"); }

    Ref<FakeHandler> Publish(char letter, const Id& formatId, const Id& handlerId, const char* name) {
        const FileFormat format = Make<FakeFormat>(letter, formatId);
        const auto handler = Make<FakeHandler>(format, FakeBehaviour{name, &_log, true, false});
        EXPECT_THAT(_publisher.AddToRegistry(kFileFormatHandlerRegistry, handlerId, handler), Succeeds());
        return handler;
    }
    static Url Mount(std::string_view content) {
        return Take(MountMemoryFile("import", Take(CreateMemoryFile(std::as_bytes(std::span(content))))));
    }
    Result<MediaSessionRef> Import(std::string_view content, const MediaSessionFileFormatHandler& preferred = {}) {
        return MediaSessionImport(Mount(content), TimeValue::FromSeconds(1), MEDIASESSIONFLAGS::NONE, _output, {}, {},
                                  preferred);
    }
    CallLog _log;
    Ref<FakeHandler> _first, _second, _other;
    Ref<FakeOutput> _output;
};

TEST_F(MediaImport, RunsTheFirstHandlerThatClaims) {
    const Int properties = GetCrashReportPropertyCount();
    Int during = -1;
    _first->behaviour.duringAnalyze = [&] { during = GetCrashReportPropertyCount(); };
    MediaSessionRef session = Take(Import("A picture"));
    EXPECT_THAT(_log,
                ElementsAre("first.Create", "out.ResetConverter(0)", "out.Analyze(1)", "first.Analyze(0)",
                            "out.PrepareExecute(1)", "first.PrepareExecute(0)", "out.Execute(1)", "first.Execute(0)"));
    const Ref<FakeInput> input = _first->lastInput.Get();
    ASSERT_TRUE(input);
    EXPECT_EQ(input->GetSession(), session);
    EXPECT_EQ(input->lastTime, TimeValue::FromSeconds(1));
    EXPECT_EQ(during, properties + 3);
    EXPECT_EQ(GetCrashReportPropertyCount(), properties);
    session = nullptr;
    EXPECT_EQ(input->GetStrongCount(), 1);  // the session alone keeps the importer
    EXPECT_THAT(Import("B"), Succeeds());   // the output can be used again
}

TEST_F(MediaImport, RefusesWhatDoesNotFit) {
    const auto isOfNoType = FailsWith(errorid::kIllegalArgument, "Image memory:import is not of a supported type.");
    const Int properties = GetCrashReportPropertyCount();
    for (const char* content : {"Zzz", ""})
        EXPECT_THAT(Import(content), isOfNoType);
    EXPECT_THAT(MediaSessionImport(Url("no/such/file.fak"), {}, MEDIASESSIONFLAGS::NONE, _output, {}),
                FailsAs(errorid::kIo));
    _other->makesInputs = false;  // claims, but makes something else
    EXPECT_THAT(Import("B"), isOfNoType);
    EXPECT_THAT(_log, IsEmpty());
    EXPECT_EQ(GetCrashReportPropertyCount(), properties);
    _first->makesNull = true;
    EXPECT_THAT(Import("A"), FailsWith(errorid::kIllegalArgument, ""));
    _first->makesNull = false;
    _output->behaviour.importStrategy = false;
    EXPECT_THAT(Import("A"), FailsWith(errorid::kIllegalState, "Output doesn't support required import strategy."));
    EXPECT_THAT(MediaSessionImport(Mount("A"), {}, MEDIASESSIONFLAGS::NONE, nullptr, {}), FailsAs(errorid::kNullptr));
}

TEST_F(MediaImport, FailuresEndTheImportUnchanged) {
    const Int properties = GetCrashReportPropertyCount();
    const Error error = MediaSessionWrongTypeError();
    _first->behaviour.error = _output->behaviour.error = error;
    for (const char* phase : {"Create", "Analyze", "PrepareExecute", "Execute"}) {
        for (const MediaSessionFileFormatHandler& preferred : {MediaSessionFileFormatHandler(), {_first}}) {
            _log.clear();
            _first->behaviour.failingPhase = phase;
            const Result<MediaSessionRef> imported = Import("A", preferred);
            ASSERT_FALSE(imported) << phase;
            EXPECT_EQ(imported.GetError().Get(), error.Get()) << phase;
            EXPECT_THAT(_log, Not(Contains("second.Create"))) << phase;
            EXPECT_FALSE(_first->lastInput.Get()) << phase << ": the session and its importer are dropped";
            EXPECT_FALSE(_output->GetSession()) << phase;
            EXPECT_EQ(GetCrashReportPropertyCount(), properties) << phase;
        }
    }
    _first->behaviour.failingPhase.clear();
    _output->behaviour.failingPhase = "ResetConverter";
    _log.clear();
    EXPECT_EQ(Import("A").GetError().Get(), error.Get());
    EXPECT_THAT(_log, ElementsAre("first.Create", "out.ResetConverter(0)"));
    EXPECT_EQ(GetCrashReportPropertyCount(), properties);
}

TEST_F(MediaImport, ThePreferredHandlerGoesFirstAndAlone) {
    EXPECT_THAT(Import("A", _second), Succeeds());
    EXPECT_EQ(_log.front(), "second.Create");
    EXPECT_THAT(_log, Not(Contains("first.Create")));
    // It is not asked whether it claims the file, and nothing opens the URL.
    EXPECT_THAT(Import("Zzz", _other), Succeeds());
    const Url missing("no/such/file.fak");
    EXPECT_THAT(MediaSessionImport(missing, {}, MEDIASESSIONFLAGS::NONE, _output, {}, {}, _other), Succeeds());
}

TEST_F(MediaImport, HandsSelectionAndProgressOn) {
    const SelectionDelegate selection = [](const MediaStreamRef&, const MediaStreamFormat&) {
        return Result<SELECTIONHANDLERRESULT>(SELECTIONHANDLERRESULT::STRUCTURE);
    };
    std::vector<Float> fractions;
    const ProgressDelegate progress = [&](const MediaSessionProgressRef&, Float fraction, TimeValue, TimeValue) {
        return fractions.push_back(fraction), Result<void>();
    };
    _first->behaviour.duringAnalyze = [&] {
        const MediaSessionProgressRef reporter = _first->lastInput.Get()->GetSession()->GetProgress();
        const Int job = Take(reporter->AddProgressJob(1, "rows"));
        for (const Float value : {0.25, 0.5, 0.75, 1.0})  // at once: only the last passes the first delay
            EXPECT_THAT(reporter->SetProgressAndCheckBreak(job, value), Succeeds());
    };
    EXPECT_THAT(MediaSessionImport(Mount("A"), {}, MEDIASESSIONFLAGS::NONE, _output, selection, progress), Succeeds());
    EXPECT_EQ(Take(_output->CallSelectionHandler({}, {})), SELECTIONHANDLERRESULT::STRUCTURE);
    EXPECT_THAT(fractions, ElementsAre(1.0));
    EXPECT_THAT(Import("B"), Succeeds());
    EXPECT_FALSE(_output->GetSelectionHandler()) << "each import sets its own";
}

TEST_F(MediaImport, ImportsInsideImportsAreBounded) {
    int running = 0, deepest = 0;
    Result<void> innermost;
    _first->behaviour.duringAnalyze = [&] {
        deepest = std::max(deepest, ++running);
        ASSERT_LT(running, 50);
        const auto output = Make<FakeOutput>(FakeBehaviour{"nested", nullptr, true, false}, true);
        const Result<MediaSessionRef> nested =
            MediaSessionImport(Url("nested"), {}, MEDIASESSIONFLAGS::NONE, output, {}, {}, _first);
        if (!nested && innermost)
            innermost = nested.GetError();
        --running;
    };
    EXPECT_THAT(Import("A"), Succeeds());
    EXPECT_EQ(deepest, 5) << "the outer one and four inside each other";
    EXPECT_THAT(innermost, FailsAs(errorid::kIllegalState));
    _log.clear();
    deepest = 0;
    EXPECT_THAT(Import("A"), Succeeds()) << "the count goes down again";
    EXPECT_EQ(deepest, 5);
}

TEST_F(MediaImport, FindsHandlersByFormatAndExactSuffix) {
    EXPECT_EQ(FindHandlerByFormat(kFormatB), MediaSessionFileFormatHandler(_other));
    EXPECT_FALSE(FindHandlerByFormat(Id("net.orvik.test.format.none")));
    EXPECT_EQ(FindHandlerBySuffix("fake"), MediaSessionFileFormatHandler(_first));
    for (const char* suffix : {"FAK", "", "fa"})
        EXPECT_FALSE(FindHandlerBySuffix(suffix));
}

}  // namespace
}  // namespace orvik
