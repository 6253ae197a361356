// The session: who may be connected with whom, in which order the phases run, and what ends them.
#include <gmock/gmock.h>
#include <set>

#include "session/media_session_impl.h"
#include "session/mediasession_streamimpl.h"
#include "session_fakes.h"
#include "support/module_fixture.h"

namespace orvik {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr TimeValue kTime = TimeValue::FromSeconds(2.5);

class Session : public ModuleFixture {
protected:
    void SetUp() override {
        ModuleFixture::SetUp();
        _session = Create<MediaSessionInterface>(mediaclasses::kSession);
    }
    Ref<FakeInput> Input(const char* name = "in") { return Make<FakeInput>(FakeBehaviour{name, &_log, true, false}); }
    Ref<FakeOutput> Output(const char* name = "out", bool drives = true) {
        return Make<FakeOutput>(FakeBehaviour{name, &_log, true, false}, drives);
    }
    CallLog _log;
    MediaSessionRef _session;
};

TEST_F(Session, ConnectsByStrategies) {
    constexpr const char* kOutputLacks = "Output doesn't support required import strategy.";
    constexpr const char* kInputLacks = "Input doesn't support required export strategy.";
    const struct {
        const char* what;
        bool inputImport, inputExport, outputImport, outputExport;
        const char* refusal;  ///< null when the pair connects
    } cases[] = {
        {"importer to texture", true, false, true, false, nullptr},
        {"texture to exporter", false, true, false, true, nullptr},
        {"importer to exporter", true, false, false, true, kOutputLacks},
        {"texture to texture", false, true, true, false, nullptr},
        {"nothing to exporter", false, false, false, true, kInputLacks},
        {"importer to both", true, false, true, true, kInputLacks},
        {"both to both", true, true, true, true, nullptr},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.what);
        const auto input = Make<FakeInput>(FakeBehaviour{"in", nullptr, row.inputImport, row.inputExport});
        const auto output = Make<FakeOutput>(FakeBehaviour{"out", nullptr, row.outputImport, row.outputExport});
        const Result<void> connected = _session->ConnectMediaConverter(input, output);
        if (row.refusal) {
            EXPECT_THAT(connected, FailsWith(errorid::kIllegalState, row.refusal));
            EXPECT_FALSE(input->GetSession());
            EXPECT_THAT(TakeList(_session->GetInputsOf(output.GetPointer())), IsEmpty());
        } else {
            EXPECT_THAT(connected, Succeeds());
            EXPECT_EQ(input->GetSession(), _session);
            EXPECT_EQ(output->GetSession(), _session);
        }
    }
}

TEST_F(Session, RefusesMissingEqualAndForeignConverters) {
    const MediaConverterRef one = Output(), null;
    for (const auto& [input, output] : {std::pair(null, null), {null, one}, {one, null}, {one, one}})
        EXPECT_THAT(_session->ConnectMediaConverter(input, output), FailsWith(errorid::kIllegalArgument, ""));
    EXPECT_FALSE(one->GetSession());
    const auto other = Create<MediaSessionInterface>(mediaclasses::kSession);
    const auto takenInput = Input();
    const auto takenOutput = Output();
    ASSERT_THAT(other->ConnectMediaConverter(takenInput, takenOutput), Succeeds());
    EXPECT_THAT(_session->ConnectMediaConverter(takenInput, Output()),
                FailsWith(errorid::kIllegalArgument, "input is already part of another session"));
    EXPECT_THAT(_session->ConnectMediaConverter(Input(), takenOutput),
                FailsWith(errorid::kIllegalArgument, "output is already part of another session"));
    EXPECT_THAT(_session->Convert(kTime, MEDIASESSIONFLAGS::NONE), Succeeds());
    EXPECT_THAT(_log, IsEmpty());  // the refused pairs are not part of this session
}

TEST_F(Session, ConvertersBelongToOneLiveSession) {
    const auto input = Input();
    const auto output = Output();
    EXPECT_THAT(input->ConnectToSession(nullptr), FailsAs(errorid::kNullptr));
    ASSERT_THAT(input->ConnectToSession(_session), Succeeds());
    EXPECT_THAT(input->ConnectToSession(_session), FailsAs(errorid::kIllegalState));
    ASSERT_THAT(_session->ConnectMediaConverter(input, output), Succeeds());  // bound to this one: stays
    _session = nullptr;
    EXPECT_FALSE(input->GetSession());
    EXPECT_THAT(output->GetInputConverter(), FailsAs(errorid::kNullptr));
    const auto fresh = Create<MediaSessionInterface>(mediaclasses::kSession);
    ASSERT_THAT(fresh->ConnectMediaConverter(input, output), Succeeds());
    EXPECT_EQ(input->GetSession(), fresh);
    EXPECT_EQ(TakeList(output->GetInputConverter()).size(), 1u);
}

TEST_F(Session, RunsThePhasesThroughOutputAndInput) {
    const auto input = Input();
    ASSERT_THAT(_session->ConnectMediaConverter(input, Output()), Succeeds());
    ASSERT_THAT(_session->Convert(kTime, MEDIASESSIONFLAGS::FORCELOAD), Succeeds());
    EXPECT_THAT(_log, ElementsAre("out.Analyze(1)", "in.Analyze(0)", "out.PrepareExecute(1)", "in.PrepareExecute(0)",
                                  "out.Execute(1)", "in.Execute(0)"));
    EXPECT_EQ(input->lastTime, kTime);
    EXPECT_EQ(input->lastFlags, MEDIASESSIONFLAGS::FORCELOAD);
    _log.clear();
    ASSERT_THAT(_session->Close(), Succeeds());
    ASSERT_THAT(_session->Close(), Succeeds());  // the connections stay
    EXPECT_THAT(_log, ElementsAre("out.Close(1)", "in.Close(0)", "out.Close(1)", "in.Close(0)"));
}

TEST_F(Session, TheFirstErrorEndsAPhaseUnchanged) {
    const Error error = MediaConverterError("it broke");
    for (const std::string phase : {"Analyze", "PrepareExecute", "Execute", "Close"}) {
        for (const bool inInput : {false, true}) {
            _log.clear();
            const auto session = Create<MediaSessionInterface>(mediaclasses::kSession);
            for (int i = 0; i < 3; ++i) {
                const auto input = Input();
                const auto output = Output();
                FakeBehaviour& failing = inInput ? input->behaviour : output->behaviour;
                failing.failingPhase = phase;
                failing.error = error;
                ASSERT_THAT(session->ConnectMediaConverter(input, output), Succeeds());
            }
            const auto result = phase == "Close" ? session->Close() : session->Convert(kTime, MEDIASESSIONFLAGS::NONE);
            ASSERT_FALSE(result) << phase;
            EXPECT_EQ(result.GetError().Get(), error.Get()) << phase;
            // All three fail, so the failing call is the last, and there is one of it.
            const std::string last = inInput ? "in." + phase + "(0)" : "out." + phase + "(1)";
            EXPECT_EQ(_log.back(), last);
            EXPECT_EQ(std::count(_log.begin(), _log.end(), last), 1) << phase;
        }
    }
}

TEST_F(Session, ConvertersMayConnectOthersMeanwhile) {
    const auto output = Output("first", false);
    int made = 0;
    output->behaviour.duringAnalyze = [&] {
        for (; made < 40; ++made) {  // enough to move both the table and the array of inputs
            EXPECT_THAT(_session->ConnectMediaConverter(Input(), Output("late", false)), Succeeds());
            EXPECT_THAT(_session->ConnectMediaConverter(Input(), output), Succeeds());
        }
    };
    ASSERT_THAT(_session->ConnectMediaConverter(Input(), output), Succeeds());
    ASSERT_THAT(_session->Convert(kTime, MEDIASESSIONFLAGS::NONE), Succeeds());
    EXPECT_EQ(_log.front(), "first.Analyze(1)");
    EXPECT_EQ(std::count(_log.begin(), _log.end(), "late.Analyze(1)"), 0);
    EXPECT_EQ(std::count(_log.begin(), _log.end(), "late.Execute(1)"), 40);
    EXPECT_EQ(std::count(_log.begin(), _log.end(), "first.Execute(41)"), 1);
}

TEST_F(Session, ListsStreamsFlatAndAsRoots) {
    const auto base = Create<MediaConverterInterface>(mediaclasses::kConverterBase);
    std::vector<MediaStreamRef> s(3);  // a root, its child, and one alone
    for (MediaStreamRef& stream : s)
        stream = Create<MediaStreamInterface>(mediaclasses::kStreamBase);
    ASSERT_THAT(s[0]->AddChild(MediaStreamInterface::kChildBranch, s[1]), Succeeds());
    for (const int i : {0, 2, 0})
        ASSERT_THAT(base->AddOutputStream(s[i]), Succeeds());
    for (const MediaStreamRef& stream : {s[2], MediaStreamRef()})
        ASSERT_THAT(base->RemoveOutputStream(stream), Succeeds());  // changes nothing
    EXPECT_THAT(TakeList(base->GetOutputStreams(false)), ElementsAre(s[0], s[2], s[0]));
    EXPECT_THAT(TakeList(base->GetOutputStreams(true)), ElementsAre(s[0], s[1], s[2], s[0], s[1]));
}

/// The calls of an output on its input, made reachable.
struct Driver : MediaOutputBaseImpl {
    using MediaOutputBaseImpl::AnalyzeInput;
    using MediaOutputBaseImpl::CloseInputs;
    using MediaOutputBaseImpl::ExecuteInput;
    using MediaOutputBaseImpl::PrepareExecuteInput;
};
struct Importer : MediaInputBaseImpl {
    using MediaInputBaseImpl::RequireNoInputs;
};

TEST_F(Session, OutputsDriveExactlyOneInput) {
    const MediaConverterRef input = Input(), two[] = {input, input}, missing[] = {nullptr, input};
    const Block<const MediaConverterRef> none, one(two, 1), both(two);
    const auto run = [](const auto& drive, Block<const MediaConverterRef> inputs) {
        return drive(inputs, TimeValue(), MEDIASESSIONFLAGS::NONE, SourceLocation::current());
    };
    EXPECT_THAT(run(&Driver::AnalyzeInput, one), FailsAs(errorid::kNullptr));  // without a session
    ASSERT_THAT(input->ConnectToSession(_session), Succeeds());
    for (const auto drive : {&Driver::AnalyzeInput, &Driver::PrepareExecuteInput, &Driver::ExecuteInput}) {
        for (const auto& wrong : {none, both})
            EXPECT_THAT(run(drive, wrong), FailsWith(errorid::kIllegalState, ""));
        EXPECT_THAT(run(drive, one), Succeeds());
    }
    EXPECT_THAT(Driver::CloseInputs(missing), Succeeds());
    EXPECT_THAT(Driver::CloseInputs(none), Succeeds());
    EXPECT_THAT(_log, ElementsAre("in.Analyze(0)", "in.PrepareExecute(0)", "in.Execute(0)", "in.Close(0)"));
    EXPECT_THAT(Importer::RequireNoInputs(none), Succeeds());
    EXPECT_THAT(Importer::RequireNoInputs(one), FailsWith(errorid::kIllegalState, ""));
}

TEST(SessionAlone, NeedsThePublishedProgress) { EXPECT_THAT(NewObj<MediaSessionImpl>(), FailsAs(errorid::kNullptr)); }

}  // namespace
}  // namespace orvik
