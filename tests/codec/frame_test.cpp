// What all importers and exporters share: phases, capabilities, cancellation, streams that are always finished.

#include "format_table.h"
#include "session/mediasession_imagetexture_export.h"

#include "orvik/threadservices.h"

namespace codectest {
namespace {

class FrameTest : public CodecTest {
protected:
    static MediaConverterRef MakeImporter(const Sample& sample) {
        const MediaSessionFileFormatHandler handler = FindHandlerByFormat(Format(sample.format).format);
        return Cast<MediaConverterInterface>(*handler->CreateHandler(Mount(sample.bytes)));
    }
    /// With a session, but without an output.
    MediaConverterRef MakeConnectedImporter(const Sample& sample) {
        _session = *ClassRef(mediaclasses::kSession).Create<MediaSessionInterface>();
        MediaConverterRef importer = MakeImporter(sample);
        EXPECT_TRUE(importer->ConnectToSession(_session));
        return importer;
    }
    static Result<void> Analyze(const MediaConverterRef& converter, MediaConverterInterface::Inputs inputs = {}) {
        return converter->Analyze(inputs, TimeValue(), MEDIASESSIONFLAGS::NONE);
    }
    static Result<void> Prepare(const MediaConverterRef& converter, MediaConverterInterface::Inputs inputs = {}) {
        return converter->PrepareExecute(inputs, TimeValue(), MEDIASESSIONFLAGS::NONE);
    }
    static Result<void> Execute(const MediaConverterRef& converter, MediaConverterInterface::Inputs inputs = {}) {
        return converter->Execute(inputs, TimeValue(), MEDIASESSIONFLAGS::NONE);
    }
    /// What `Analyze` refused does not get any further.
    void ExpectNoLaterPhase(const ImageTextureRef& texture, std::string_view format) {
        _session = *ClassRef(mediaclasses::kSession).Create<MediaSessionInterface>();
        const auto input =
            *ClassRef(mediaclasses::kExportFromTexture).Create<MediaStreamExportFromImageTextureInterface>();
        ASSERT_TRUE(input->SetInputTexture(texture));
        const auto exporter = *ClassRef(Format(format).exporter).Create<MediaOutputUrlInterface>();
        ASSERT_TRUE(_session->ConnectMediaConverter(input, exporter));
        const MediaConverterRef inputs[] = {input};
        EXPECT_EQ(KindOf(Analyze(exporter, inputs)), "illegalargument");
        EXPECT_EQ(KindOf(Prepare(exporter, inputs)), "illegalstate");
        EXPECT_EQ(KindOf(Execute(exporter, inputs)), "illegalstate");
    }
    enum { kAnalyze, kPrepare, kExecute, kClose, kPhases };
    static bool Runs(const MediaConverterRef& converter, int phase, MediaConverterInterface::Inputs inputs = {}) {
        switch (phase) {
            case kAnalyze:
                return bool(Analyze(converter, inputs));
            case kPrepare:
                return bool(Prepare(converter, inputs));
            case kExecute:
                return bool(Execute(converter, inputs));
            default:
                return bool(converter->Close(inputs));
        }
    }

    MediaSessionRef _session;
};

/// Counts what reaches a stream.
struct Calls {
    int init = 0, rows = 0, finish = 0;
};

void Listen(const MediaConverterRef& importer, Calls& calls, Error initError = {}, int failAtRow = -1) {
    const BaseArray<MediaStreamRef> streams = *importer->GetOutputStreams(true);
    for (const MediaStreamRef& stream : streams) {
        const auto image = Cast<MediaStreamImageDataImportInterface>(stream);
        ASSERT_TRUE(image->SubscribeStream(Data(Int(0))));
        ASSERT_TRUE(image->SetCallbackHandler(
            [&calls, initError](const MediaStreamProperties&) -> Result<void> {
                ++calls.init;
                return initError;
            },
            [&calls, failAtRow](const MediaStreamProperties&, ChannelOffsets,
                                SETPIXELHANDLERFLAGS) -> Result<SetPixelHandlerStruct> {
                SetPixelHandlerStruct handler;
                handler.write = [&calls, failAtRow](const PixelSpan&, const PixelLineConst&,
                                                    SETPIXELFLAGS) -> Result<void> {
                    if (calls.rows++ == failAtRow)
                        return UnknownError();
                    return {};
                };
                return handler;
            },
            [&calls](const MediaStreamProperties&) -> Result<void> {
                ++calls.finish;
                return {};
            }));
    }
}

TEST_F(FrameTest, PhasesOutOfOrderAreIllegalStates) {
    for (const Sample& sample : MakeSamples()) {
        SCOPED_TRACE(sample.name);
        const MediaConverterRef importer = MakeConnectedImporter(sample);
        EXPECT_EQ(KindOf(Prepare(importer)), "illegalstate");
        EXPECT_EQ(KindOf(Execute(importer)), "illegalstate");
        const MediaConverterRef inputs[] = {importer};
        EXPECT_EQ(KindOf(Analyze(importer, inputs)), "illegalstate");
        EXPECT_EQ(KindOf(Analyze(importer)), "ok");
        EXPECT_EQ(KindOf(Execute(importer)), "illegalstate");
        EXPECT_EQ(KindOf(Prepare(importer, inputs)), "illegalstate");
        EXPECT_EQ(KindOf(Prepare(importer)), "ok");
        EXPECT_EQ(KindOf(Execute(importer, inputs)), "illegalstate");
        EXPECT_EQ(KindOf(Execute(importer)), "ok");  // nobody subscribed
        EXPECT_EQ(KindOf(Execute(importer)), "mediastreameof");
        EXPECT_EQ(KindOf(Analyze(importer)), TestedFormatOf(sample.format).analyzesAgain ? "ok" : "illegalstate");
        EXPECT_EQ(KindOf(importer->Close(inputs)), "illegalstate");
        EXPECT_EQ(KindOf(importer->Close({})), "ok");
        EXPECT_EQ(KindOf(Execute(importer)), "illegalstate");
    }
}

// Four phases in every order, without a session, on a file that is no picture and on no picture at all.
TEST_F(FrameTest, NoOrderOfPhasesGetsAnywhereWithoutAPicture) {
    const Url url = Mount({'n', 'o', 'n', 'e'});
    for (const FileFormatEntry& entry : GetFileFormatTable()) {
        for (int order = 0; order < kPhases * kPhases * kPhases * kPhases; ++order) {
            SCOPED_TRACE(testing::Message() << entry.name << " " << order);
            const auto importer = Cast<MediaConverterInterface>(*FindHandlerByFormat(entry.format)->CreateHandler(url));
            const auto exporter =
                entry.makeExporter ? *ClassRef(entry.exporter).Create<MediaOutputUrlInterface>() : MediaOutputUrlRef();
            (void)exporter->SetOutputUrl(Url("no/such/directory/picture"));
            const auto source = *ClassRef(mediaclasses::kExportFromTexture).Create<MediaConverterInterface>();
            for (int step = 0, phases = order; step < 4; ++step, phases /= kPhases) {
                const int phase = phases % kPhases;
                EXPECT_EQ(Runs(importer, phase), phase == kClose);
                const bool ran = Runs(exporter, phase, {&source, 1});
                EXPECT_FALSE(ran && (phase == kPrepare || phase == kExecute));
            }
            EXPECT_TRUE(importer->GetOutputStreams(true)->IsEmpty());
        }
    }
}

TEST_F(FrameTest, EveryStreamIsFinishedOnce) {
    for (const Sample& sample : MakeSamples()) {
        for (const int failAtRow : {-1, 0, 1}) {
            SCOPED_TRACE(testing::Message() << sample.name << " " << failAtRow);
            const MediaConverterRef importer = MakeConnectedImporter(sample);
            ASSERT_TRUE(Analyze(importer));
            Calls calls;
            Listen(importer, calls, {}, failAtRow);
            ASSERT_TRUE(Prepare(importer));
            const Int jobs = *_session->GetProgress()->AddProgressJob(1, "counts the jobs before it");
            EXPECT_EQ(jobs, TestedFormatOf(sample.format).announcesLate ? 0 : 1);
            EXPECT_EQ(KindOf(Execute(importer)), failAtRow < 0 ? "ok" : "unknown");
            EXPECT_EQ(calls.init, importer->GetOutputStreams(true)->GetCount());
            EXPECT_EQ(calls.finish, calls.init);
        }
        const MediaConverterRef importer = MakeConnectedImporter(sample);
        ASSERT_TRUE(Analyze(importer));
        Calls calls;
        Listen(importer, calls, UnsupportedOperationError());
        ASSERT_TRUE(Prepare(importer));
        EXPECT_EQ(KindOf(Execute(importer)), "unsupportedoperation");
        EXPECT_EQ(calls.init, 1);
        EXPECT_EQ(calls.finish, 1);
        EXPECT_EQ(calls.rows, 0);
    }
}

TEST_F(FrameTest, OnlyTheAlphaCanBeSubscribed) {
    const Sample sample = FindSample("bmp of 32 bits with masks");
    const MediaConverterRef importer = MakeConnectedImporter(sample);
    ASSERT_TRUE(Analyze(importer));
    Calls calls;
    Listen(importer, calls);
    ASSERT_TRUE((*importer->GetOutputStreams(false))[0]->UnsubscribeStream());
    ASSERT_TRUE(Prepare(importer));
    ASSERT_TRUE(Execute(importer));
    EXPECT_EQ(calls.init, 1);
    EXPECT_EQ(calls.rows, 3);
    EXPECT_EQ(calls.finish, 1);
}

TEST_F(FrameTest, CancellationEndsALoadAndASave) {
    for (const Sample& sample : MakeSamples()) {
        SCOPED_TRACE(sample.name);
        const MediaConverterRef importer = MakeConnectedImporter(sample);
        ASSERT_TRUE(Analyze(importer));
        Calls calls;
        CancelToken token;
        Listen(importer, calls);
        ASSERT_TRUE(Prepare(importer));
        token.Cancel();
        {
            const CancelScope scope(token);
            EXPECT_EQ(KindOf(Execute(importer)), "threadcancelled");
        }
        EXPECT_GT(calls.init, 0);
        EXPECT_EQ(calls.finish, calls.init);

        if (!Format(sample.format).makeExporter)
            continue;
        const Result<ImageTextureRef> texture = Load(sample.bytes);
        ASSERT_TRUE(texture);
        const CancelScope scope(token);
        EXPECT_EQ(KindOf(Save(*texture, sample.format)), "threadcancelled");
    }
}

/// Also where the file holds no alpha: nobody waits for its rows.
TEST_F(FrameTest, ProgressOfASaveEndsAtOne) {
    for (const FileFormatEntry& entry : GetFileFormatTable()) {
        SCOPED_TRACE(std::string(entry.name));
        const auto input =
            *ClassRef(mediaclasses::kExportFromTexture).Create<MediaStreamExportFromImageTextureInterface>();
        ASSERT_TRUE(input->SetInputTexture(MakeTexture({2, 3, pixelformats::kRgbU8, Bytes(18), Bytes(6)})));
        const auto exporter = *ClassRef(entry.exporter).Create<MediaOutputUrlInterface>();
        ASSERT_TRUE(exporter->SetOutputUrl(Mount({})));
        _session = *ClassRef(mediaclasses::kSession).Create<MediaSessionInterface>();
        ASSERT_TRUE(_session->ConnectMediaConverter(input, exporter));
        Float last = 0;
        ASSERT_TRUE(_session->GetProgress()->ObservableProgressNotification()->AddObserver(
            [&last](const MediaSessionProgressRef&, Float fraction, TimeValue, TimeValue) -> Result<void> {
                last = fraction;
                return {};
            }));
        ASSERT_TRUE(_session->Convert(TimeValue(), MEDIASESSIONFLAGS::NONE));
        EXPECT_EQ(last, 1.0);
    }
}

TEST_F(FrameTest, EmptyAndOversizedPicturesAreNotWritten) {
    for (const FileFormatEntry& entry : WrittenFormats()) {
        SCOPED_TRACE(std::string(entry.name));
        const ImageTextureRef empty = MakeTexture({0, 3, pixelformats::kRgbU8, {}});
        EXPECT_EQ(MessageOf(Save(empty, entry.name)), "resolution must not be 0.");
        EXPECT_EQ(KindOf(Save(empty, entry.name)), "illegalargument");
        const Result<ImageTextureRef> none = ClassRef(imageclasses::kTexture).Create<ImageTextureInterface>();
        ASSERT_TRUE(none);
        EXPECT_EQ(KindOf(Save(*none, entry.name)), "mediasessionwrongtype");
        EXPECT_EQ(MessageOf(Save(*none, entry.name)), "no image stream(s) found.");

        const Int side = TestedFormatOf(entry.name).largestSide;
        if (side > 100000)
            continue;
        const ImageTextureRef wide = MakeTexture({side + 1, 1, pixelformats::kGreyU8, Bytes(size_t(side) + 1)});
        EXPECT_EQ(MessageOf(Save(wide, entry.name)), "Maximum resolution exceeded.");
        ExpectNoLaterPhase(wide, entry.name);
        EXPECT_TRUE(Save(MakeTexture({1, side, pixelformats::kGreyU8, Bytes(size_t(side))}), entry.name));
    }
}

TEST_F(FrameTest, ExportersCheckTheirInputs) {
    for (const FileFormatEntry& entry : WrittenFormats()) {
        SCOPED_TRACE(std::string(entry.name));
        const auto makeExporter = [&] { return *ClassRef(entry.exporter).Create<MediaOutputUrlInterface>(); };
        const MediaConverterRef importer = MakeImporter(FindSample("bmp of 24 bits"));
        const MediaConverterRef two[] = {importer, importer};
        EXPECT_EQ(KindOf(Analyze(makeExporter())), "illegalstate");
        EXPECT_EQ(KindOf(Analyze(makeExporter(), two)), TestedFormatOf(entry.name).secondInputError);
        EXPECT_EQ(KindOf(Prepare(makeExporter())), "illegalstate");
        for (const size_t count : {0, 1, 2})
            EXPECT_FALSE(Execute(makeExporter(), {two, count}));

        const MediaOutputUrlRef exporter = makeExporter();
        EXPECT_FALSE(Analyze(exporter));
        EXPECT_TRUE(Analyze(exporter));  // runs once
        ASSERT_TRUE(exporter->ResetConverter());
        EXPECT_FALSE(Analyze(exporter));
        EXPECT_EQ(exporter->GetFileFormat()->GetFormatId(), entry.format);

        const MediaSessionRef session = *ClassRef(mediaclasses::kSession).Create<MediaSessionInterface>();
        EXPECT_EQ(MessageOf(session->ConnectMediaConverter(importer, makeExporter())),
                  "Output doesn't support required import strategy.");
    }
}

TEST_F(FrameTest, Capabilities) {
    using namespace mediacapability;
    for (const FileFormatEntry& entry : GetFileFormatTable()) {
        SCOPED_TRACE(std::string(entry.name));
        const TestedFormat& expected = TestedFormatOf(entry.name);
        const auto importer = *ClassRef(entry.importer).Create<MediaInputInterface>();
        EXPECT_EQ(importer->Get(kInputSupportsImage, false), true);
        EXPECT_EQ(importer->Get(kInputSupportsVideo, !expected.hasVideo), expected.hasVideo);
        EXPECT_EQ(importer->Get(kInputSupportsAudio, true), false);
        EXPECT_FALSE(importer->Has("net.orvik.media.unknown"));
        const auto handler = FindHandlerByFormat(entry.format);
        for (const std::string_view suffix : entry.suffixes)
            EXPECT_EQ(FindHandlerBySuffix(suffix), handler) << suffix;
        if (!entry.makeExporter)
            continue;

        const auto exporter = *ClassRef(entry.exporter).Create<MediaOutputUrlInterface>();
        EXPECT_EQ(exporter->Get(kOutputSupportsImage, false), true);
        EXPECT_EQ(exporter->Get(kOutputSupportsVideo, true), false);
        EXPECT_EQ(exporter->Get(kOutputSupportsAudio, true), false);
        EXPECT_EQ(exporter->Get(kOutputSupportsSystemOptions, true), false);
        EXPECT_EQ(exporter->Get(kOutputEmbedColorProfile, !expected.embedsProfiles), expected.embedsProfiles);
        EXPECT_EQ(exporter->Get(kOutputMaximalAlphaChannels, -1), expected.alphaChannels);
        EXPECT_EQ(exporter->Get(kOutputMaximalImageResolution, -1), expected.largestSide);
        EXPECT_EQ(exporter->Get(kOutputMaximalLayerResolution, 9), 0);
        EXPECT_THAT(*exporter->Get(kOutputBitDepthsImage), testing::ElementsAreArray(expected.bitDepths));
        EXPECT_TRUE(exporter->Get(kOutputBitDepthsLayer)->empty());
    }
}

TEST_F(FrameTest, FormatsClaimTheirOwnFilesOnly) {
    for (const Sample& sample : MakeSamples()) {
        for (const FileFormatEntry& entry : GetFileFormatTable()) {
            const auto format = Registry::Find<FileFormatInterface>(kFileFormatRegistry, entry.format);
            const auto claims = [&](size_t length) {
                const Result<Bool> claimed =
                    format->Detect(Url(), *OpenMemoryInput(AsBlock(sample.bytes).first(length)));
                EXPECT_TRUE(claimed);
                return claimed && *claimed;
            };
            SCOPED_TRACE(sample.name + " as " + std::string(entry.name));
            EXPECT_EQ(claims(sample.bytes.size()), entry.name == sample.format);
            const size_t needed = TestedFormatOf(entry.name).detectBytes;
            for (size_t length = 0; length <= std::min(sample.bytes.size(), size_t(64)); ++length) {
                const bool claimed = claims(length);
                if (needed != 0 || entry.name != sample.format) {
                    EXPECT_EQ(claimed, entry.name == sample.format && length >= needed) << length;
                }
            }
        }
    }
}

}  // namespace
}  // namespace codectest
