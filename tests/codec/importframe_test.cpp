// The frame under formats that no file here has: inputs inside inputs, time, sound, many pictures, several written.

#include "imexport/frame/media_io_audioimporter.h"
#include "imexport/frame/media_io_imageexporter.h"
#include "imexport/frame/media_io_imageimporter.h"
#include "parts.h"
#include "png_direct.h"

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

/// As many pictures of one grey pixel as the file's first byte says; the second one names the first picture whose pixel
/// is not there. At each second the values are one higher.
class AlbumImporter : public ImageImporter {
public:
    AlbumImporter() : ImageImporter(kNoFormat, "album") {}

protected:
    bool HasTime() const override { return true; }
    Result<void> ReadHeader(const InputStreamRef& stream) override {
        uint8_t head[2];
        TRY(stream->Read(head, 2));
        _missing = head[1];
        StreamDescription description;
        description.pixelFormat = _grey;
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
            const RowSinkRef sink = TRY(OpenSink(picture, _grey));
            TRY(sink->GetProperties().Set(mediaproperty::kSampleTime, GetTargetTime()));
            TRY(sinks.Append(sink));
        }
        for (Int i = 0; i < sinks.GetCount(); ++i) {
            if (i == _missing)
                return UnsupportedOperationError();
            const auto value = std::byte(uint8_t(Float(i) + GetTargetTime().GetSeconds()));
            TRY(sinks[i]->PushRow(0, {&value, BITS(8)}));
        }
        EXPECT_EQ(KindOf(sinks[0]->PushRow(1, {nullptr, BITS(8)})), "illegalargument");
        EXPECT_EQ(KindOf(sinks[0]->BeginRow(-1)), "illegalargument");
        EXPECT_EQ(KindOf(sinks[0]->EndRow()), "illegalstate");
        return {};
    }

private:
    const PixelFormat _grey = PixelFormats::Get(pixelformats::kGreyU8);
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
    template <class Importer>
    static MediaConverterRef MakeImporter(const Bytes& file) {
        const Ref<Importer> importer = *NewObj<Importer>();
        importer->SetSourceStream(*OpenMemoryInput(*CreateMemoryFile(AsBlock(file))));
        return MediaConverterRef(importer);
    }
    template <class Importer>
    void Connect(const Bytes& file) {
        input = MakeImporter<Importer>(file);
        texture = MakeTexture();
        session = *ConnectToTexture(input, texture);
    }
    Result<void> Convert(Float seconds = 0) {
        return session->Convert(TimeValue::FromSeconds(seconds), MEDIASESSIONFLAGS::NONE);
    }
    static Bytes SmallPng() { return WritePng({.width = 2, .height = 1, .rows = {1, 2, 3, 4, 5, 6}}); }

    MediaConverterRef input;
    ImageTextureRef texture;
    MediaSessionRef session;
};

TEST_F(ImportFrameTest, TakesStreamsOfNestedInputsOver) {
    Bytes file = Joined({BytesOf("BOX"), SmallPng()});
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
    const auto mount = [](const std::string& name, const Bytes& file) {
        EXPECT_TRUE(MountMemoryFile(name, *CreateMemoryFile(AsBlock(file))));
    };
    const auto load = [&](const std::string& name, const std::string& inner) {
        const Bytes file = BytesOf("URLmemory:" + inner);
        mount(name, file);
        Connect<BoxImporter>(file);
        return KindOf(Convert());
    };
    mount("0.png", SmallPng());
    EXPECT_EQ(load("1", "0.png"), "ok");
    for (int depth = 2; depth <= 6; ++depth) {
        EXPECT_EQ(load(std::to_string(depth), std::to_string(depth - 1)),
                  depth <= NestedInput::kMaxNesting ? "ok" : "mediasessionwrongtype")
            << depth;
    }
    EXPECT_EQ(load("loop", "loop"), "mediasessionwrongtype");
}

TEST_F(ImportFrameTest, DeliversASampleForEachTime) {
    Connect<AlbumImporter>({1, 255});
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

/// Damage comes first, then what the listeners answer at the end, which all of them are asked.
TEST_F(ImportFrameTest, FinishesAllStreamsAndKeepsTheFirstError) {
    for (const uint8_t missing : {uint8_t(1), uint8_t(255)}) {
        const auto answer = [](const std::string& call, Int nth) -> Result<void> {
            if (call != "finish" || nth == 0)
                return {};
            return nth == 1 ? Error(IllegalStateError()) : Error(UnknownError());
        };
        Delivery delivery = Deliver(MakeImporter<AlbumImporter>({3, missing}), {.answer = answer});
        EXPECT_EQ(delivery.kind, missing == 1 ? "unsupportedoperation" : "illegalstate");
        EXPECT_EQ(delivery.calls["finish"], 3);
    }
}

TEST_F(ImportFrameTest, DeliversSoundBetweenInitAndFinish) {
    for (const bool isDamaged : {false, true}) {
        std::string calls;
        const auto answer = [&calls](const std::string& call, Int) { return calls += call + " ", Result<void>(); };
        const auto importer = MakeImporter<BeepImporter>({uint8_t(!isDamaged), 2, 3});
        EXPECT_EQ(Deliver(importer, {.answer = answer}).kind, isDamaged ? "mediasessionwrongtype" : "ok");
        EXPECT_EQ(calls, isDamaged ? "init finish " : "init 3 samples finish ");
    }
}

/// The second picture has an alpha, which belongs to no other.
TEST_F(ImportFrameTest, WritesSeveralPicturesWithTheirAlphas) {
    const Picture first{1, 1, pixelformats::kGreyU8, {10}};
    const auto save = [&](uint8_t second, const Url& target) -> Result<void> {
        const Picture pictures[] = {first, {1, 1, pixelformats::kGreyU8, {second}, {30}}};
        texture = MakeTexture(pictures);
        const Ref<SheetExporter> exporter = TRY(NewObj<SheetExporter>());
        TRY(exporter->SetOutputUrl(target));
        return texture->Save(MediaOutputUrlRef(exporter), MEDIASESSIONFLAGS::NONE, nullptr);
    };
    const Url target = Mount({});
    ASSERT_EQ(KindOf(save(20, target)), "ok");
    uint8_t pixels[3] = {};
    ASSERT_TRUE((*target.OpenInputStream())->Read(pixels, 3));
    EXPECT_THAT(pixels, testing::ElementsAre(10, 20, 30));
    for (const FileFormatEntry& entry : WrittenFormats())  // each holds the first picture only
        EXPECT_EQ(*Save(texture, entry.name), *Save(MakeTexture(first), entry.name)) << entry.name;

    // The error of writing comes before that of closing.
    EXPECT_EQ(KindOf(save(255, Url("/dev/full"))), "unsupportedoperation");
    EXPECT_EQ(KindOf(save(20, Url("/dev/full"))), "io");
}

}  // namespace
}  // namespace codectest
