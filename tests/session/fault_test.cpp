// Shortage of memory at every single allocation: an error comes back, nothing is lost and nothing crashes. What leaks
// shows in the count of live fakes, and to the leak checker in builds that have one.
#include <gmock/gmock.h>

#include "mediasession_streamimpl.h"
#include "session_fakes.h"
#include "support/module_fixture.h"

#include "orvik/mediasession_output.h"

namespace orvik {
namespace {

/// An importer with a picture and its alpha, and an output that subscribes to both. They count their instances.
class CountedInput : public virtual MediaInputInterface, public MediaInputBaseImpl {
public:
    CountedInput() { ++live; }
    ~CountedInput() override { --live; }
    Bool SupportImportStrategy() const override { return true; }
    Result<void> Analyze(Inputs inputs, TimeValue, MEDIASESSIONFLAGS) override {
        TRY(RequireNoInputs(inputs));
        const MediaStreamRef picture = TRY(AddStream(MEDIAFORMATTYPE::IMAGE));
        const MediaStreamRef alpha = TRY(AddStream(MEDIAFORMATTYPE::ALPHA));
        TRY(picture->AddChild(MediaStreamInterface::kChildBranch, alpha));
        return AddOutputStream(picture);
    }
    Result<void> PrepareExecute(Inputs, TimeValue, MEDIASESSIONFLAGS) override {
        _job = TRY(GetSessionProgress()->AddProgressJob(12, "rows"));
        return {};
    }
    Result<void> Execute(Inputs, TimeValue, MEDIASESSIONFLAGS) override {
        const BaseArray<MediaStreamRef> streams = TRY(GetOutputStreams(true));
        for (const MediaStreamRef& stream : streams) {
            const auto import = Cast<MediaStreamImageDataImportInterface>(stream);
            MediaStreamProperties properties = TRY(MediaStreamProperties::FromStream(stream));
            TRY(properties.Set(mediaproperty::kSampleTime, TimeValue::FromSeconds(1)));
            TRY(import->InitStream(properties));
            TRY(import->FinishStream(properties));
        }
        return GetSessionProgress()->SetProgressAndCheckBreak(_job, 1);
    }
    Result<void> Close(Inputs) override { return {}; }

    static inline int live = 0;

private:
    static Result<MediaStreamRef> AddStream(MEDIAFORMATTYPE type) {
        const auto stream = TRY(ClassRef(mediaclasses::kStreamImport).Create<MediaStreamInterface>());
        MediaStreamFormat format;
        TRY(format.Set(mediaformat::kType, type));
        TRY(format.Set(mediaformat::kStreamName, "picture"));
        TRY(format.Set(mediaformat::kWidth, 3));
        TRY(stream->AddFormat(Data(Int(0)), format));
        return stream;
    }
    Int _job = -1;
};

class CountedOutput : public virtual MediaOutputInterface, public MediaOutputBaseImpl {
public:
    CountedOutput() { ++live; }
    ~CountedOutput() override { --live; }
    Bool SupportImportStrategy() const override { return true; }
    Result<void> ResetConverter() override { return {}; }
    Result<void> Analyze(Inputs inputs, TimeValue time, MEDIASESSIONFLAGS flags) override {
        TRY(AnalyzeInput(inputs, time, flags));
        const BaseArray<MediaStreamRef> streams = TRY(inputs[0]->GetOutputStreams(true));
        for (const MediaStreamRef& stream : streams) {
            TRY(stream->SubscribeStream(stream->GetSelectedFormat()));
            const auto count = [this](const MediaStreamProperties&) -> Result<void> {
                ++finished;
                return {};
            };
            TRY(Cast<MediaStreamImageDataImportInterface>(stream)->SetCallbackHandler({}, {}, count));
        }
        return {};
    }
    Result<void> PrepareExecute(Inputs inputs, TimeValue time, MEDIASESSIONFLAGS flags) override {
        return PrepareExecuteInput(inputs, time, flags);
    }
    Result<void> Execute(Inputs inputs, TimeValue time, MEDIASESSIONFLAGS flags) override {
        return ExecuteInput(inputs, time, flags);
    }
    Result<void> Close(Inputs inputs) override { return CloseInputs(inputs); }

    static inline int live = 0;
    int finished = 0;
};

class CountedHandler : public MediaSessionFileFormatHandlerInterface {
public:
    Result<ObjectRef> CreateHandler(const Url&) const override { return ObjectRef(TRY(NewObj<CountedInput>())); }
};

Result<int> ConvertOnce() {
    const MediaSessionRef session = TRY(ClassRef(mediaclasses::kSession).Create<MediaSessionInterface>());
    const MediaConverterRef input(TRY(NewObj<CountedInput>()));
    const auto output = TRY(NewObj<CountedOutput>());
    TRY(session->ConnectMediaConverter(input, MediaConverterRef(output)));
    TRY(session->Convert({}, MEDIASESSIONFLAGS::NONE));
    TRY(session->Close());
    return output.GetPointer()->finished;
}

Result<int> ImportOnce() {
    const auto output = TRY(NewObj<CountedOutput>());
    const MediaSessionFileFormatHandler handler(TRY(NewObj<CountedHandler>()));
    const ProgressDelegate progress = [](const MediaSessionProgressRef&, Float, TimeValue, TimeValue) -> Result<void> {
        return {};
    };
    TRY(MediaSessionImport(Url("picture"), {}, MEDIASESSIONFLAGS::NONE, MediaOutputRef(output), {}, progress, handler));
    return output.GetPointer()->finished;
}

using Shortage = ModuleFixture;

TEST_F(Shortage, AtEveryAllocation) {
    struct Scenario {
        const char* name;
        Result<int> (*run)();
    };
    for (const Scenario& scenario : {Scenario{"convert", ConvertOnce}, Scenario{"import", ImportOnce}}) {
        for (const bool sticky : {false, true}) {
            Int failures = 0;
            for (Int n = 1;; ++n) {
                ASSERT_LT(n, 10000);
                SetAllocationFault(n, sticky);
                const Result<int> result = scenario.run();
                const bool struck = GetAllocationCount() >= n;
                SetAllocationFault(0);
                EXPECT_EQ(CountedInput::live, 0) << scenario.name << " allocation " << n;
                EXPECT_EQ(CountedOutput::live, 0) << scenario.name << " allocation " << n;
                if (!struck) {
                    EXPECT_THAT(result, Succeeds());
                    EXPECT_EQ(*result, 2);
                    break;
                }
                if (!result) {
                    ++failures;
                    EXPECT_THAT(result, FailsAs(errorid::kOutOfMemory)) << scenario.name << " allocation " << n;
                }
            }
            EXPECT_GT(failures, 20) << scenario.name << ": the road of a conversion allocates";
        }
    }
}

}  // namespace
}  // namespace orvik
