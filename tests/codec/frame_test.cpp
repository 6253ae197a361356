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
    /// A session from a picture to an exporter.
    MediaOutputUrlRef MakeConnectedExporter(const ImageTextureRef& texture, const FileFormatEntry& entry) {
        const auto input =
            *ClassRef(mediaclasses::kExportFromTexture).Create<MediaStreamExportFromImageTextureInterface>();
        EXPECT_TRUE(input->SetInputTexture(texture));
        const auto exporter = *ClassRef(entry.exporter).Create<MediaOutputUrlInterface>();
        EXPECT_TRUE(exporter->SetOutputUrl(Mount({})));
        _session = *ClassRef(mediaclasses::kSession).Create<MediaSessionInterface>();
        EXPECT_TRUE(_session->ConnectMediaConverter(input, exporter));
        return exporter;
    }
    enum Phase { kAnalyze, kPrepare, kExecute, kClose, kPhases };
    /// @return the kind of error, or "ok"
    static std::string Run(int phase, const MediaConverterRef& converter, MediaConverterInterface::Inputs inputs = {}) {
        constexpr auto kFlags = MEDIASESSIONFLAGS::NONE;
        return KindOf(phase == kAnalyze   ? converter->Analyze(inputs, TimeValue(), kFlags)
                      : phase == kPrepare ? converter->PrepareExecute(inputs, TimeValue(), kFlags)
                      : phase == kExecute ? converter->Execute(inputs, TimeValue(), kFlags)
                                          : converter->Close(inputs));
    }

    MediaSessionRef _session;
};

TEST_F(FrameTest, PhasesOutOfOrderAreIllegalStates) {
    for (const Sample& sample : MakeSamples()) {
        const MediaConverterRef importer = MakeImporter(sample);
        _session = *ClassRef(mediaclasses::kSession).Create<MediaSessionInterface>();
        ASSERT_TRUE(importer->ConnectToSession(_session));
        const struct {
            Phase phase;
            size_t inputs;
            const char* kind;
        } steps[] = {
            {kPrepare, 0, "illegalstate"},
            {kExecute, 0, "illegalstate"},
            {kAnalyze, 1, "illegalstate"},
            {kAnalyze, 0, "ok"},
            {kExecute, 0, "illegalstate"},
            {kPrepare, 1, "illegalstate"},
            {kPrepare, 0, "ok"},
            {kExecute, 1, "illegalstate"},
            {kExecute, 0, "ok"},  // without a subscriber
            {kExecute, 0, "mediastreameof"},
            {kAnalyze, 0, TestedFormatOf(sample.format).analyzesAgain ? "ok" : "illegalstate"},
            {kClose, 1, "illegalstate"},
            {kClose, 0, "ok"},
            {kExecute, 0, "illegalstate"},
        };
        for (const auto& step : steps)
            EXPECT_EQ(Run(step.phase, importer, {&importer, step.inputs}), step.kind)
                << sample.name << " step " << &step - steps;
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
                EXPECT_EQ(Run(phase, importer) == "ok", phase == kClose);
                const bool ran = Run(phase, exporter, {&source, 1}) == "ok";
                EXPECT_FALSE(ran && (phase == kPrepare || phase == kExecute));
            }
            EXPECT_TRUE(importer->GetOutputStreams(true)->IsEmpty());
        }
    }
}

TEST_F(FrameTest, EveryStreamThatBeganIsFinishedOnce) {
    for (const Sample& sample : MakeSamples()) {
        for (const auto& [failing, failingNth] : {std::pair("nothing", 0), {"init", 0}, {"row", 0}, {"row", 1}}) {
            SCOPED_TRACE(sample.name + ": " + failing + " fails");
            Delivery delivery =
                Deliver(MakeImporter(sample), {.answer = [&](const std::string& call, Int nth) {
                            return call == failing && nth == failingNth ? Result<void>(UnknownError()) : Result<void>();
                        }});
            EXPECT_EQ(delivery.kind, failing == std::string("nothing") ? "ok" : "unknown");
            EXPECT_EQ(delivery.jobs, TestedFormatOf(sample.format).announcesLate ? 0 : 1);
            const bool begins = failing != std::string("init");
            EXPECT_EQ(delivery.calls["init"], begins ? delivery.streams : 1);
            EXPECT_EQ(delivery.calls["finish"], delivery.calls["init"]);
            EXPECT_EQ(delivery.calls["row"] > 0, begins);
        }
        Delivery second = Deliver(MakeImporter(sample), {.skippedStreams = 1});  // for instance the alpha alone
        EXPECT_EQ(second.kind, "ok") << sample.name;
        EXPECT_EQ(second.calls["init"], second.streams) << sample.name;
        EXPECT_EQ(second.calls["finish"], second.streams) << sample.name;
        EXPECT_EQ(second.calls["row"] > 0, second.streams > 0) << sample.name;
    }
}

TEST_F(FrameTest, CancellationEndsALoadAndASave) {
    for (const Sample& sample : MakeSamples()) {
        SCOPED_TRACE(sample.name);
        const Result<ImageTextureRef> texture = Load(sample.bytes);
        ASSERT_TRUE(texture);
        CancelToken token;
        const CancelScope scope(token);
        Delivery delivery = Deliver(MakeImporter(sample), {.answer = [&token](const std::string&, Int) {
                                        token.Cancel();
                                        return Result<void>();
                                    }});
        EXPECT_EQ(delivery.kind, "threadcancelled");
        EXPECT_GT(delivery.calls["init"], 0);
        EXPECT_EQ(delivery.calls["finish"], delivery.calls["init"]);
        if (Format(sample.format).makeExporter) {
            EXPECT_EQ(KindOf(Save(*texture, sample.format)), "threadcancelled");
        }
    }
}

/// Also where the file holds no alpha, whose rows are then not read.
TEST_F(FrameTest, ProgressOfASaveEndsAtOne) {
    for (const FileFormatEntry& entry : WrittenFormats()) {
        MakeConnectedExporter(MakeTexture({2, 3, pixelformats::kRgbU8, Bytes(18), Bytes(6)}), entry);
        Float last = 0;
        ASSERT_TRUE(_session->GetProgress()->ObservableProgressNotification()->AddObserver(
            [&last](const MediaSessionProgressRef&, Float fraction, TimeValue, TimeValue) -> Result<void> {
                last = fraction;
                return {};
            }));
        ASSERT_TRUE(_session->Convert(TimeValue(), MEDIASESSIONFLAGS::NONE));
        EXPECT_EQ(last, 1.0) << entry.name;
    }
}

TEST_F(FrameTest, EmptyAndOversizedPicturesAreNotWritten) {
    for (const FileFormatEntry& entry : WrittenFormats()) {
        SCOPED_TRACE(std::string(entry.name));
        const Result<Bytes> empty = Save(MakeTexture({0, 3, pixelformats::kRgbU8, {}}), entry.name);
        EXPECT_EQ(MessageOf(empty), "resolution must not be 0.");
        EXPECT_EQ(KindOf(empty), "illegalargument");
        const Result<Bytes> none = Save(MakeTexture(), entry.name);
        EXPECT_EQ(MessageOf(none), "no image stream(s) found.");
        EXPECT_EQ(KindOf(none), "mediasessionwrongtype");

        const Int side = TestedFormatOf(entry.name).largestSide;
        if (side > 100000)
            continue;
        const ImageTextureRef wide = MakeTexture({side + 1, 1, pixelformats::kGreyU8, Bytes(size_t(side) + 1)});
        EXPECT_EQ(MessageOf(Save(wide, entry.name)), "Maximum resolution exceeded.");
        const MediaOutputUrlRef exporter = MakeConnectedExporter(wide, entry);
        const BaseArray<MediaConverterRef> inputs = *exporter->GetInputConverter();
        EXPECT_EQ(Run(kAnalyze, exporter, inputs), "illegalargument");
        EXPECT_EQ(Run(kPrepare, exporter, inputs), "illegalstate");
        EXPECT_EQ(Run(kExecute, exporter, inputs), "illegalstate");
        EXPECT_TRUE(Save(MakeTexture({1, side, pixelformats::kGreyU8, Bytes(size_t(side))}), entry.name));
    }
}

TEST_F(FrameTest, ExportersCheckTheirInputs) {
    const MediaConverterRef importer = MakeImporter(MakeSamples()[0]), two[] = {importer, importer};
    for (const FileFormatEntry& entry : WrittenFormats()) {
        SCOPED_TRACE(std::string(entry.name));
        const auto makeExporter = [&] { return *ClassRef(entry.exporter).Create<MediaOutputUrlInterface>(); };
        EXPECT_EQ(Run(kAnalyze, makeExporter()), "illegalstate");
        EXPECT_EQ(Run(kAnalyze, makeExporter(), two), TestedFormatOf(entry.name).secondInputError);
        EXPECT_EQ(Run(kPrepare, makeExporter()), "illegalstate");
        EXPECT_NE(Run(kExecute, makeExporter(), two), "ok");
        const MediaOutputUrlRef exporter = makeExporter();
        EXPECT_NE(Run(kAnalyze, exporter), "ok");
        EXPECT_EQ(Run(kAnalyze, exporter), "ok");  // runs once
        ASSERT_TRUE(exporter->ResetConverter());
        EXPECT_NE(Run(kAnalyze, exporter), "ok");
        EXPECT_EQ(exporter->GetFileFormat()->GetFormatId(), entry.format);
        const auto session = *ClassRef(mediaclasses::kSession).Create<MediaSessionInterface>();
        EXPECT_FALSE(session->ConnectMediaConverter(importer, exporter));  // pixels go through a texture
    }
}

TEST_F(FrameTest, FormatsClaimTheirOwnFilesOnly) {
    for (const Sample& sample : MakeSamples()) {
        for (const FileFormatEntry& entry : GetFileFormatTable()) {
            SCOPED_TRACE(sample.name + " as " + std::string(entry.name));
            const auto format = Registry::Find<FileFormatInterface>(kFileFormatRegistry, entry.format);
            const bool isOwn = entry.name == sample.format;
            const size_t whole = sample.bytes.size(), needed = TestedFormatOf(entry.name).detectBytes;
            for (size_t length = 0; length <= whole; length = length < 64 ? length + 1 : whole + (length == whole)) {
                const bool claims = *format->Detect(Url(), *OpenMemoryInput(AsBlock(sample.bytes).first(length)));
                if (needed != 0 || !isOwn || length == whole) {
                    EXPECT_EQ(claims, isOwn && length >= needed) << length;
                }
            }
        }
    }
}

}  // namespace
}  // namespace codectest
