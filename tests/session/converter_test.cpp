// What converters inherit: capabilities, root streams, the selection handler, and what the published bases answer.
#include <gmock/gmock.h>

#include "session/mediasession_streamimpl.h"
#include "session/mediasession_urloutput.h"
#include "session_fakes.h"
#include "support/module_fixture.h"

namespace orvik {
namespace {

using testing::ElementsAre;
using Converter = ModuleFixture;

constexpr auto kNoFlags = MEDIASESSIONFLAGS::NONE;

TEST_F(Converter, SupportsNothingUnlessItSaysSo) {
    const auto base = Create<MediaConverterInterface>(mediaclasses::kConverterBase);
    const Key<Bool> keys[] = {
        mediacapability::kInputSupportsImage,          mediacapability::kInputSupportsVideo,
        mediacapability::kInputSupportsAudio,          mediacapability::kOutputSupportsImage,
        mediacapability::kOutputSupportsVideo,         mediacapability::kOutputSupportsAudio,
        mediacapability::kOutputSupportsSystemOptions,
    };
    for (const Key<Bool>& key : keys) {
        EXPECT_EQ(Take(base->Get(key)), false) << key.GetId().GetText();
        EXPECT_THAT(base->Set(key, true), Succeeds());
        EXPECT_EQ(Take(base->Get(key)), false) << "an answer, not a stored value: " << key.GetId().GetText();
    }
    EXPECT_FALSE(base->Get(mediacapability::kOutputMaximalImageResolution));
    ASSERT_THAT(base->Set(mediaformat::kWidth, 7), Succeeds());
    EXPECT_EQ(Take(base->Get(mediaformat::kWidth)), 7);
    EXPECT_FALSE(base->SupportImportStrategy());
    EXPECT_FALSE(base->SupportExportStrategy());
}

TEST_F(Converter, PublishedBasesLackThePhases) {
    for (const Id& id : {mediaclasses::kConverterBase, mediaclasses::kOutputBase, mediaclasses::kOutputUrlBase}) {
        const auto base = Create<MediaConverterInterface>(id);
        EXPECT_THAT(base->Analyze({}, {}, kNoFlags), FailsAs(errorid::kFunctionNotImplemented));
        EXPECT_THAT(base->PrepareExecute({}, {}, kNoFlags), FailsAs(errorid::kFunctionNotImplemented));
        EXPECT_THAT(base->Execute({}, {}, kNoFlags), FailsAs(errorid::kFunctionNotImplemented));
        EXPECT_THAT(base->Close({}), FailsAs(errorid::kFunctionNotImplemented));
        EXPECT_THAT(base->GetInputConverter(), FailsAs(errorid::kNullptr)) << "not bound to a session";
    }
    const auto output = Create<MediaOutputInterface>(mediaclasses::kOutputBase);
    EXPECT_THAT(output->ResetConverter(), FailsAs(errorid::kFunctionNotImplemented));
}

TEST_F(Converter, ListsStreamsFlatAndAsRoots) {
    const auto base = Create<MediaConverterInterface>(mediaclasses::kConverterBase);
    const auto root = Create<MediaStreamInterface>(mediaclasses::kStreamBase);
    const auto child = Create<MediaStreamInterface>(mediaclasses::kStreamBase);
    const auto lone = Create<MediaStreamInterface>(mediaclasses::kStreamBase);
    ASSERT_THAT(root->AddChild(MediaStreamInterface::kChildBranch, child), Succeeds());
    EXPECT_TRUE(TakeList(base->GetOutputStreams(true)).empty());
    for (const MediaStreamRef& stream : {root, lone, root})
        ASSERT_THAT(base->AddOutputStream(stream), Succeeds());
    EXPECT_THAT(TakeList(base->GetOutputStreams(false)), ElementsAre(root, lone, root));
    EXPECT_THAT(TakeList(base->GetOutputStreams(true)), ElementsAre(root, child, lone, root, child));
    ASSERT_THAT(base->RemoveOutputStream(lone), Succeeds());
    ASSERT_THAT(base->RemoveOutputStream(nullptr), Succeeds());
    EXPECT_EQ(TakeList(base->GetOutputStreams(false)).size(), 3u);
}

TEST_F(Converter, SelectsEverythingWithoutAHandler) {
    const auto output = Create<MediaOutputInterface>(mediaclasses::kOutputBase);
    const auto stream = Create<MediaStreamInterface>(mediaclasses::kStreamBase);
    EXPECT_FALSE(output->GetSelectionHandler());
    EXPECT_EQ(Take(output->CallSelectionHandler(nullptr, {})), SELECTIONHANDLERRESULT::ALL);

    MediaStreamRef seen;
    const SelectionDelegate structureOnly = [&](const MediaStreamRef& asked,
                                                const MediaStreamFormat&) -> Result<SELECTIONHANDLERRESULT> {
        seen = asked;
        return SELECTIONHANDLERRESULT::STRUCTURE;
    };
    ASSERT_THAT(output->SetSelectionHandler(structureOnly), Succeeds());
    EXPECT_EQ(Take(output->CallSelectionHandler(stream, {})), SELECTIONHANDLERRESULT::STRUCTURE);
    EXPECT_EQ(seen, stream);
    EXPECT_TRUE(output->GetSelectionHandler());
    ASSERT_THAT(output->SetSelectionHandler({}), Succeeds());
    EXPECT_EQ(Take(output->CallSelectionHandler(stream, {})), SELECTIONHANDLERRESULT::ALL);
}

TEST_F(Converter, UrlOutputs) {
    const auto output = Create<MediaOutputUrlInterface>(mediaclasses::kOutputUrlBase);
    EXPECT_TRUE(output->GetOutputUrl().IsEmpty());
    const Url url("somewhere/picture.bmp");
    ASSERT_THAT(output->SetOutputUrl(url), Succeeds());
    EXPECT_EQ(output->GetOutputUrl(), url);
    EXPECT_THAT(output->EditSystemOptions(), FailsAs(errorid::kFunctionNotImplemented));
    const DrawDimensionInt size = output->CheckBitmapSize({33, 17});
    EXPECT_EQ(size, (DrawDimensionInt{33, 17}));
    EXPECT_TRUE(output->SupportExportStrategy());
    EXPECT_FALSE(output->SupportImportStrategy());
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

TEST_F(Converter, OutputsDriveExactlyOneInput) {
    CallLog log;
    const auto session = Create<MediaSessionInterface>(mediaclasses::kSession);
    const auto input = Make<FakeInput>(FakeBehaviour{"in", &log});
    const MediaConverterRef unbound = input;
    EXPECT_THAT(Driver::AnalyzeInput({&unbound, 1}, {}, kNoFlags), FailsAs(errorid::kNullptr));
    ASSERT_THAT(input->ConnectToSession(session), Succeeds());
    const MediaConverterRef two[] = {input, input};
    const Block<const MediaConverterRef> none, one(two, 1), both(two);
    const TimeValue t;
    for (const auto drive : {&Driver::AnalyzeInput, &Driver::PrepareExecuteInput, &Driver::ExecuteInput}) {
        const size_t calls = log.size();
        for (const auto& wrong : {none, both})
            EXPECT_THAT(drive(wrong, t, kNoFlags, SourceLocation::current()), FailsWith(errorid::kIllegalState, ""));
        EXPECT_EQ(log.size(), calls);
        EXPECT_THAT(drive(one, t, kNoFlags, SourceLocation::current()), Succeeds());
    }
    const MediaConverterRef missing[] = {nullptr, input};
    EXPECT_THAT(Driver::CloseInputs(missing), Succeeds());
    EXPECT_THAT(Driver::CloseInputs(none), Succeeds());
    EXPECT_THAT(log, ElementsAre("in.Analyze(0)", "in.PrepareExecute(0)", "in.Execute(0)", "in.Close(0)"));

    EXPECT_THAT(Importer::RequireNoInputs(none), Succeeds());
    EXPECT_THAT(Importer::RequireNoInputs(one), FailsWith(errorid::kIllegalState, ""));
}

}  // namespace
}  // namespace orvik
