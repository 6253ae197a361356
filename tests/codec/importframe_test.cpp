// The frame under formats that no file here has: inputs inside inputs, time, sound, many pictures, several written.

#include "codec_support.h"
#include "imexport/frame/media_io_audioimporter.h"
#include "imexport/frame/media_io_imageexporter.h"
#include "imexport/frame/media_io_imageimporter.h"
#include "png_direct.h"
#include "session/mediasession_imagetexture_export.h"

namespace codectest {
namespace {

constexpr Id kPng{"net.orvik.fileformat.imagepng"};
const Id kNoFormat;

/// "BOX" and a PNG file; or "URL" and the URL of another box or of a PNG file.
class BoxImporter : public ImageImporter {
public:
    BoxImporter() : ImageImporter(kNoFormat, "box") {}

protected:
    Result<void> ReadHeader(const InputStreamRef& stream) override;
    Result<void> Prepare() override { return {}; }
    Result<void> DecodePixels(const InputStreamRef&) override { return {}; }
};

class BoxHandler : public FileFormatHandlerInterface {
public:
    Result<ObjectRef> CreateHandler(const Url& url) const override {
        const Ref<BoxImporter> importer = TRY(NewObj<BoxImporter>());
        importer->SetSourceUrl(url);
        return ObjectRef(importer);
    }
};

Result<void> BoxImporter::ReadHeader(const InputStreamRef& stream) {
    Bytes all(size_t(GetBytesLeft(stream)));
    TRY(stream->Read(all.data(), all.size()));
    const std::string tag(all.begin(), all.begin() + 3), rest(all.begin() + 3, all.end());
    const auto change = [](MediaStreamFormat& format) { return format.Set(mediaformat::kSubImageIndex, Int(7)); };
    if (tag == "BOX") {
        const InputStreamRef part = TRY(OpenSubStream(stream, 3, Int(rest.size())));
        NestedInput nested = TRY(NestedInput::Open(*this, kPng, part));
        return Adopt(std::move(nested), change);
    }
    FileFormatHandler handler(FindHandlerByFormat(kPng));
    if (!rest.ends_with("png"))
        handler = FileFormatHandler(TRY(NewObj<BoxHandler>()));
    NestedInput nested = TRY(NestedInput::Open(*this, handler, Url(rest.c_str())));
    return Adopt(std::move(nested), change);
}

/// Gray pictures of one pixel, one a second: the value is the time. A file holds nothing.
class ClockImporter : public ImageImporter {
public:
    ClockImporter() : ImageImporter(kNoFormat, "clock") {}

protected:
    bool HasTime() const override { return true; }
    Result<void> ReadHeader(const InputStreamRef&) override {
        StreamDescription description;
        description.pixelFormat = PixelFormats::Get(pixelformats::kGreyU8);
        description.width = description.height = 1;
        const MediaStreamFormat format = TRY(DescribeStream(description));
        _stream = TRY(AddImageStream(format));
        return {};
    }
    Result<void> DecodePixels(const InputStreamRef&) override {
        const RowSinkRef sink = TRY(OpenSink(_stream, PixelFormats::Get(pixelformats::kGreyU8)));
        TRY(sink->GetProperties().Set(mediaproperty::kSampleTime, GetTargetTime()));
        std::byte* const row = TRY(sink->BeginRow(0));
        *row = std::byte(uint8_t(GetTargetTime().GetSeconds()));
        return sink->EndRow();
    }

private:
    ImageImportStreamRef _stream;
};

/// A folder without pixels that holds as many pictures of one pixel as the file's first byte says; the second one names
/// the first picture whose pixels are not there.
class AlbumImporter : public ImageImporter {
public:
    AlbumImporter() : ImageImporter(kNoFormat, "album") {}

protected:
    Result<void> ReadHeader(const InputStreamRef& stream) override {
        uint8_t head[2];
        TRY(stream->Read(head, 2));
        _missing = head[1];
        StreamDescription description;
        description.pixelFormat = PixelFormats::Get(pixelformats::kGreyU8);
        description.width = description.height = 1;
        const MediaStreamFormat format = TRY(DescribeStream(description));
        for (Int i = 0; i < head[0]; ++i) {
            const ImageImportStreamRef picture = TRY(AddImageStream(format));
            TRY(_pictures.Append(picture));
        }
        return {};
    }
    Result<void> DecodePixels(const InputStreamRef&) override {
        BaseArray<RowSinkRef> sinks;
        for (const ImageImportStreamRef& picture : _pictures) {
            const RowSinkRef sink = TRY(OpenSink(picture, PixelFormats::Get(pixelformats::kGreyU8)));
            TRY(sinks.Append(sink));
        }
        for (Int i = 0; i < sinks.GetCount(); ++i) {
            if (i == _missing)
                return UnsupportedOperationError();
            const auto value = std::byte(uint8_t(i));
            TRY(sinks[i]->PushRow(0, {&value, BITS(8)}));
        }
        EXPECT_EQ(KindOf(sinks[0]->PushRow(1, {nullptr, BITS(8)})), "illegalargument");
        EXPECT_EQ(KindOf(sinks[0]->BeginRow(-1)), "illegalargument");
        EXPECT_EQ(KindOf(sinks[0]->EndRow()), "illegalstate");
        return {};
    }

private:
    Int _missing = 0;
    BaseArray<ImageImportStreamRef> _pictures;
};

/// A file of samples of one byte; a zero is damage.
class BeepImporter : public AudioImporter {
public:
    BeepImporter() : AudioImporter(kNoFormat) {}

protected:
    Result<void> ReadHeader(const InputStreamRef&) override {
        MediaStreamFormat format;
        TRY(format.Set(mediaformat::kAudioBitsPerChannel, Int(8)));
        return AddSound(format);
    }
    Result<void> DecodeSamples(const InputStreamRef& stream) override {
        CodecBuffer samples;
        TRY(samples.ReadFromFile(GetBytesLeft(stream), stream));
        if (*samples.GetFirst() == std::byte(0))
            return MediaSessionWrongTypeError();
        return PushSamples(samples.ToBlock());
    }
};

/// Writes the first pixels of all pictures and alphas as bytes of grey; fails after a byte of 255.
class SheetExporter : public FileExporter {
public:
    SheetExporter() : FileExporter(kNoFormat) {}

protected:
    Result<void> ChooseStreams(Block<const OfferedStream> streams) override {
        for (const OfferedStream& offered : streams) {
            if (!offered.image)
                continue;
            EXPECT_EQ(offered.parent < 0, offered.type == MEDIAFORMATTYPE::IMAGE);
            TRY(Subscribe(offered.stream));
            TRY(_chosen.Append(offered));
        }
        return {};
    }
    Result<void> OpenRows() override { return {}; }
    Result<void> WriteFile(const OutputStreamRef& output) override {
        for (const OfferedStream& chosen : _chosen) {
            const bool isAlpha = chosen.type == MEDIAFORMATTYPE::ALPHA;
            const PixelFormat format = PixelFormats::Get(isAlpha ? pixelformats::kAlphaU8 : pixelformats::kGreyU8);
            const RowSourceRef source = TRY(OpenSource(chosen.image, format, {}));
            const std::byte* const row = TRY(source->GetRow(0));
            const std::byte pixel = *row;
            TRY(FinishSource(source));
            TRY(output->Write(&pixel, 1));
            if (pixel == std::byte(255))
                return UnsupportedOperationError();
        }
        return {};
    }
    void ForgetStreams() override { _chosen.Reset(); }

private:
    BaseArray<OfferedStream> _chosen;
};

class ImportFrameTest : public CodecTest {
protected:
    /// A session from an importer of a file into a texture.
    template <class Importer>
    void Connect(const Bytes& file) {
        const Ref<Importer> importer = *NewObj<Importer>();
        importer->SetSourceStream(*OpenMemoryInput(*CreateMemoryFile(AsBlock(file))));
        input = MediaConverterRef(importer);
        texture = *ClassRef(imageclasses::kTexture).Create<ImageTextureInterface>();
        const auto output = *ClassRef(mediaclasses::kOutputTexture).Create<MediaOutputTextureInterface>();
        ASSERT_TRUE(output->SetOutputTexture(texture, ClassRef(storageclasses::kNormal)));
        session = *ClassRef(mediaclasses::kSession).Create<MediaSessionInterface>();
        ASSERT_TRUE(session->ConnectMediaConverter(input, output));
    }
    Result<void> Convert(Float seconds = 0) {
        return session->Convert(TimeValue::FromSeconds(seconds), MEDIASESSIONFLAGS::NONE);
    }
    static Bytes Tagged(std::string_view tag, const Bytes& rest) {
        Bytes bytes(tag.begin(), tag.end());
        bytes.insert(bytes.end(), rest.begin(), rest.end());
        return bytes;
    }
    static Bytes SmallPng() { return WritePng({.width = 2, .height = 1, .rows = {1, 2, 3, 4, 5, 6}}); }

    MediaConverterRef input;
    ImageTextureRef texture;
    MediaSessionRef session;
};

TEST_F(ImportFrameTest, TakesStreamsOfNestedInputsOver) {
    Bytes file = Tagged("BOX", SmallPng());
    Connect<BoxImporter>(file);
    ASSERT_EQ(KindOf(Convert()), "ok");
    EXPECT_EQ(PixelsOfAll(texture), PixelsOfAll(Loaded(SmallPng())));
    EXPECT_EQ(FirstImage(texture)->Get(image::kSubImageIndex, Int(0)), 7);
    EXPECT_EQ(*session->GetProgress()->AddProgressJob(1, "counts the jobs before it"), 1);
    EXPECT_EQ(KindOf(Convert()), "mediastreameof");
    ASSERT_TRUE(input->Close({}));
    EXPECT_TRUE(input->GetOutputStreams(true)->IsEmpty());

    file.resize(60);  // cut in the PNG
    Connect<BoxImporter>(file);
    EXPECT_NE(KindOf(Convert()), "ok");
}

TEST_F(ImportFrameTest, BoundsTheNestingOfInputs) {
    ASSERT_TRUE(MountMemoryFile("0.png", *CreateMemoryFile(AsBlock(SmallPng()))));
    for (int depth = 1; depth <= 6; ++depth) {
        const std::string inner = "memory:" + std::to_string(depth - 1) + (depth == 1 ? ".png" : "");
        const Bytes file = Tagged("URL", Bytes(inner.begin(), inner.end()));
        ASSERT_TRUE(MountMemoryFile(std::to_string(depth), *CreateMemoryFile(AsBlock(file))));
        Connect<BoxImporter>(file);
        EXPECT_EQ(KindOf(Convert()), depth <= NestedInput::kMaxNesting ? "ok" : "mediasessionwrongtype") << depth;
    }
    const std::string itself = "memory:loop";
    ASSERT_TRUE(
        MountMemoryFile("loop", *CreateMemoryFile(AsBlock(Tagged("URL", Bytes(itself.begin(), itself.end()))))));
    Connect<BoxImporter>(Tagged("URL", Bytes(itself.begin(), itself.end())));
    EXPECT_EQ(KindOf(Convert()), "mediasessionwrongtype");
}

TEST_F(ImportFrameTest, DeliversASampleForEachTime) {
    Connect<ClockImporter>({0});
    for (const int seconds : {0, 5, 2}) {
        ASSERT_EQ(KindOf(Convert(seconds)), "ok");
        EXPECT_EQ(PixelsOf(FirstImage(texture), pixelformats::kGreyU8), Bytes({uint8_t(seconds)}));
        EXPECT_EQ(texture->Get(image::kSampleTime, TimeValue()).GetSeconds(), seconds);
    }
    EXPECT_EQ(KindOf(input->Execute({}, TimeValue(), MEDIASESSIONFLAGS::NONE)), "mediastreameof");
    EXPECT_EQ(*session->GetProgress()->AddProgressJob(1, "counts the jobs before it"), 1);
}

TEST_F(ImportFrameTest, DeliversAnyNumberOfPictures) {
    Connect<AlbumImporter>({100, 255});
    ASSERT_EQ(KindOf(Convert()), "ok");
    const auto images = texture->GetChildren(Int(IMAGEHIERARCHY::IMAGE));
    ASSERT_EQ(images.size(), 100u);
    for (size_t i = 0; i < 100; ++i)
        EXPECT_EQ(PixelsOf(Cast<ImageBaseInterface>(images[i]), pixelformats::kGreyU8), Bytes({uint8_t(i)}));
}

/// Damage comes first, then what the listeners answer at the end; all of them are told.
TEST_F(ImportFrameTest, FinishesAllStreamsAndKeepsTheFirstError) {
    for (const uint8_t missing : {uint8_t(1), uint8_t(255)}) {
        const Ref<AlbumImporter> importer = *NewObj<AlbumImporter>();
        importer->SetSourceStream(*OpenMemoryInput(*CreateMemoryFile(AsBlock({3, missing}))));
        session = *ClassRef(mediaclasses::kSession).Create<MediaSessionInterface>();
        ASSERT_TRUE(importer->ConnectToSession(session));
        ASSERT_TRUE(importer->Analyze({}, TimeValue(), MEDIASESSIONFLAGS::NONE));
        int finished = 0;
        const BaseArray<MediaStreamRef> streams = *importer->GetOutputStreams(true);
        for (const MediaStreamRef& stream : streams) {
            ASSERT_TRUE(stream->SubscribeStream(Data(Int(0))));
            ASSERT_TRUE(Cast<MediaStreamImageDataImportInterface>(stream)->SetCallbackHandler(
                {}, {}, [&finished](const MediaStreamProperties&) -> Result<void> {
                    switch (finished++) {
                        case 0:
                            return {};
                        case 1:
                            return IllegalStateError();
                        default:
                            return UnknownError();
                    }
                }));
        }
        ASSERT_TRUE(importer->PrepareExecute({}, TimeValue(), MEDIASESSIONFLAGS::NONE));
        const Result<void> executed = importer->Execute({}, TimeValue(), MEDIASESSIONFLAGS::NONE);
        EXPECT_EQ(KindOf(executed), missing == 1 ? "unsupportedoperation" : "illegalstate");
        EXPECT_EQ(finished, 3);
    }
}

TEST_F(ImportFrameTest, DeliversSoundBetweenInitAndFinish) {
    for (const bool isDamaged : {false, true}) {
        const Ref<BeepImporter> importer = *NewObj<BeepImporter>();
        importer->SetSourceStream(*OpenMemoryInput(*CreateMemoryFile(AsBlock({uint8_t(!isDamaged), 2, 3}))));
        session = *ClassRef(mediaclasses::kSession).Create<MediaSessionInterface>();
        ASSERT_TRUE(importer->ConnectToSession(session));
        ASSERT_TRUE(importer->Analyze({}, TimeValue(), MEDIASESSIONFLAGS::NONE));
        const auto sound = Cast<MediaStreamAudioDataImportInterface>((*importer->GetOutputStreams(false))[0]);
        ASSERT_TRUE(sound->SubscribeStream(Data(Int(0))));
        std::string calls;
        ASSERT_TRUE(sound->SetCallbackHandler(
            [&](const MediaStreamProperties&) -> Result<void> { return calls += "init ", Result<void>(); },
            [&](Block<const std::byte> samples) -> Result<void> {
                calls += std::to_string(samples.size()) + " samples ";
                return {};
            },
            [&](const MediaStreamProperties&) -> Result<void> { return calls += "finish", Result<void>(); }));
        ASSERT_TRUE(importer->PrepareExecute({}, TimeValue(), MEDIASESSIONFLAGS::NONE));
        const Result<void> executed = importer->Execute({}, TimeValue(), MEDIASESSIONFLAGS::NONE);
        EXPECT_EQ(KindOf(executed), isDamaged ? "mediasessionwrongtype" : "ok");
        EXPECT_EQ(calls, isDamaged ? "init finish" : "init 3 samples finish");
    }
}

/// The second picture has an alpha, which belongs to no other.
TEST_F(ImportFrameTest, WritesSeveralPicturesWithTheirAlphas) {
    const auto save = [this](uint8_t second, const Url& target) {
        const Picture pictures[] = {{1, 1, pixelformats::kGreyU8, {10}}, {1, 1, pixelformats::kGreyU8, {second}, {30}}};
        texture = MakeTexture(pictures);
        const auto from =
            *ClassRef(mediaclasses::kExportFromTexture).Create<MediaStreamExportFromImageTextureInterface>();
        EXPECT_TRUE(from->SetInputTexture(texture));
        const Ref<SheetExporter> exporter = *NewObj<SheetExporter>();
        EXPECT_TRUE(exporter->SetOutputUrl(target));
        session = *ClassRef(mediaclasses::kSession).Create<MediaSessionInterface>();
        EXPECT_TRUE(session->ConnectMediaConverter(from, MediaConverterRef(exporter)));
        return Convert();
    };
    const Url target = Mount({});
    ASSERT_EQ(KindOf(save(20, target)), "ok");
    const InputStreamRef written = *target.OpenInputStream();
    uint8_t pixels[3] = {};
    ASSERT_TRUE(written->Read(pixels, 3));
    EXPECT_THAT(pixels, testing::ElementsAre(10, 20, 30));

    // The error of writing comes before that of closing.
    EXPECT_EQ(KindOf(save(255, Url("/dev/full"))), "unsupportedoperation");
    EXPECT_EQ(KindOf(save(20, Url("/dev/full"))), "io");
}

}  // namespace
}  // namespace codectest
