// Every importer and exporter that is registered, called in the wrong order and with the wrong inputs.
#include <gmock/gmock.h>

#include "session_fakes.h"
#include "support/module_fixture.h"

#include "orvik/iomemory.h"
#include "orvik/mediasession_output.h"

namespace orvik {
namespace {

constexpr auto kNoFlags = MEDIASESSIONFLAGS::NONE;
using Inputs = MediaConverterInterface::Inputs;

class Codecs : public ModuleFixture {
protected:
    void SetUp() override {
        ModuleFixture::SetUp();
        for (const Registry::Entry& entry : Registry::GetEntries(kFileFormatHandlerRegistry)) {
            const auto handler = Cast<MediaSessionFileFormatHandlerInterface>(entry.object);
            ASSERT_TRUE(handler) << entry.id.GetText();
            _handlers.push_back(handler);
        }
        ASSERT_FALSE(_handlers.empty());
        _url = Take(MountMemoryFile("order", Take(CreateMemoryFile(std::as_bytes(std::span("of no format"))))));
    }
    void TearDown() override { UnmountMemoryFile("order"); }

    static std::string NameOf(const MediaSessionFileFormatHandler& handler) {
        return std::string(handler->GetFileFormat()->GetFormatId().GetText());
    }
    MediaInputRef Importer(const MediaSessionFileFormatHandler& handler) const {
        return Cast<MediaInputInterface>(Take(handler->CreateHandler(_url)));
    }
    /// The exporters of the formats that have one.
    template <class F>
    void ForEachExporter(F&& check) const {
        for (const MediaSessionFileFormatHandler& handler : _handlers) {
            if (!handler->GetExporterClass().IsEmpty())
                check(handler);
        }
    }
    static Ref<MediaOutputUrlInterface> Exporter(const MediaSessionFileFormatHandler& handler) {
        return Create<MediaOutputUrlInterface>(handler->GetExporterClass());
    }

    std::vector<MediaSessionFileFormatHandler> _handlers;
    Url _url;
};

TEST_F(Codecs, AreFoundByFormatAndSuffix) {
    for (const MediaSessionFileFormatHandler& handler : _handlers) {
        const FileFormat format = handler->GetFileFormat();
        EXPECT_TRUE(Registry::Find<FileFormatInterface>(kFileFormatRegistry, format->GetFormatId())) << NameOf(handler);
        EXPECT_EQ(FindHandlerByFormat(format->GetFormatId()), handler) << NameOf(handler);
        for (const std::string_view suffix : format->GetSuffixes())
            EXPECT_EQ(FindHandlerBySuffix(suffix), handler) << suffix;
    }
}

TEST_F(Codecs, ConnectAsTheirStrategiesSay) {
    for (const MediaSessionFileFormatHandler& handler : _handlers) {
        const auto session = Create<MediaSessionInterface>(mediaclasses::kSession);
        const auto texture = Create<MediaConverterInterface>(mediaclasses::kOutputTexture);
        EXPECT_THAT(session->ConnectMediaConverter(Importer(handler), texture), Succeeds()) << NameOf(handler);
    }
    ForEachExporter([&](const MediaSessionFileFormatHandler& handler) {
        const auto session = Create<MediaSessionInterface>(mediaclasses::kSession);
        const auto source = Create<MediaConverterInterface>(mediaclasses::kExportFromTexture);
        EXPECT_THAT(session->ConnectMediaConverter(source, Exporter(handler)), Succeeds()) << NameOf(handler);
        EXPECT_THAT(session->ConnectMediaConverter(Importer(handler), Exporter(handler)),
                    FailsWith(errorid::kIllegalState, "Output doesn't support required import strategy."))
            << NameOf(handler);
    });
}

TEST_F(Codecs, ImportersTakeNoInputs) {
    for (const MediaSessionFileFormatHandler& handler : _handlers) {
        const MediaInputRef importer = Importer(handler);
        const MediaConverterRef other = Importer(handler);
        const Inputs one(&other, 1);
        EXPECT_THAT(importer->Analyze(one, {}, kNoFlags), FailsWith(errorid::kIllegalState, "")) << NameOf(handler);
        EXPECT_THAT(importer->PrepareExecute(one, {}, kNoFlags), FailsWith(errorid::kIllegalState, ""))
            << NameOf(handler);
        EXPECT_THAT(importer->Execute(one, {}, kNoFlags), FailsWith(errorid::kIllegalState, "")) << NameOf(handler);
    }
}

// All runs of four phases, without a session and on a file that is of no format: nothing succeeds that needs the file.
TEST_F(Codecs, ImportersSurviveAnyOrder) {
    for (const MediaSessionFileFormatHandler& handler : _handlers) {
        for (int order = 0; order < 4 * 4 * 4 * 4; ++order) {
            const MediaInputRef importer = Importer(handler);
            int executed = 0;
            for (int step = 0; step < 4; ++step) {
                switch (order >> (2 * step) & 3) {
                    case 0:
                        EXPECT_FALSE(importer->Analyze({}, {}, kNoFlags)) << NameOf(handler) << ' ' << order;
                        break;
                    case 1:
                        (void)importer->PrepareExecute({}, {}, kNoFlags);
                        break;
                    case 2:
                        executed += importer->Execute({}, {}, kNoFlags) ? 1 : 0;
                        break;
                    case 3:
                        EXPECT_THAT(importer->Close({}), Succeeds()) << NameOf(handler) << ' ' << order;
                        break;
                }
            }
            EXPECT_EQ(executed, 0) << NameOf(handler) << ' ' << order;
            EXPECT_TRUE(TakeList(importer->GetOutputStreams(true)).empty()) << NameOf(handler) << ' ' << order;
        }
    }
}

TEST_F(Codecs, ExportersTakeOneInput) {
    ForEachExporter([&](const MediaSessionFileFormatHandler& handler) {
        const MediaConverterRef source = Create<MediaConverterInterface>(mediaclasses::kExportFromTexture);
        const MediaConverterRef two[] = {source, source};
        const Inputs none, both(two);
        EXPECT_THAT(Exporter(handler)->Analyze(none, {}, kNoFlags), FailsWith(errorid::kIllegalState, ""))
            << NameOf(handler);
        EXPECT_THAT(Exporter(handler)->PrepareExecute(none, {}, kNoFlags), FailsWith(errorid::kIllegalState, ""))
            << NameOf(handler);
        EXPECT_THAT(Exporter(handler)->Execute(none, {}, kNoFlags), FailsAs(errorid::kIllegalState)) << NameOf(handler);
        EXPECT_FALSE(Exporter(handler)->Analyze(both, {}, kNoFlags)) << NameOf(handler);
        EXPECT_FALSE(Exporter(handler)->PrepareExecute(both, {}, kNoFlags)) << NameOf(handler);
        EXPECT_FALSE(Exporter(handler)->Execute(both, {}, kNoFlags)) << NameOf(handler);
    });
}

TEST_F(Codecs, ExportersSurviveAnyOrder) {
    ForEachExporter([&](const MediaSessionFileFormatHandler& handler) {
        for (int order = 0; order < 4 * 4 * 4 * 4; ++order) {
            const auto exporter = Exporter(handler);
            EXPECT_THAT(exporter->SetOutputUrl(Url("no/such/directory/picture")), Succeeds());
            const MediaConverterRef source = Create<MediaConverterInterface>(mediaclasses::kExportFromTexture);
            const Inputs one(&source, 1);
            for (int step = 0; step < 4; ++step) {
                switch (order >> (2 * step) & 3) {
                    case 0:
                        (void)exporter->Analyze(one, {}, kNoFlags);
                        break;
                    case 1:
                        EXPECT_FALSE(exporter->PrepareExecute(one, {}, kNoFlags)) << NameOf(handler);
                        break;
                    case 2:
                        EXPECT_FALSE(exporter->Execute(one, {}, kNoFlags)) << NameOf(handler) << ' ' << order;
                        break;
                    case 3:
                        (void)exporter->Close(one);
                        break;
                }
            }
        }
    });
}

TEST_F(Codecs, ExportersAnswerTheirCapabilities) {
    ForEachExporter([&](const MediaSessionFileFormatHandler& handler) {
        const auto exporter = Exporter(handler);
        EXPECT_EQ(exporter->GetFileFormat(), handler->GetFileFormat());
        EXPECT_TRUE(exporter->GetOutputUrl().IsEmpty());
        EXPECT_EQ(Take(exporter->Get(mediacapability::kOutputSupportsImage)), true) << NameOf(handler);
        EXPECT_EQ(Take(exporter->Get(mediacapability::kInputSupportsImage)), false) << NameOf(handler);
        EXPECT_FALSE(Take(exporter->Get(mediacapability::kOutputBitDepthsImage)).empty()) << NameOf(handler);
        EXPECT_GT(Take(exporter->Get(mediacapability::kOutputMaximalImageResolution)), 0) << NameOf(handler);
    });
}

}  // namespace
}  // namespace orvik
