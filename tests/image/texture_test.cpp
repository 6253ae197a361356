#include "image_fakes.h"

#include "orvik/iomemory.h"

namespace orvik {
namespace {

using T = MEDIAFORMATTYPE;

/// What the one fake file holds, as its importer finds it.
std::vector<StreamSpec> g_file;

class FakeFileFormat : public FileFormatInterface {
public:
    Result<Bool> Detect(const Url&, const InputStreamRef& stream) const override {
        char magic[4];
        TRY(stream->Read(std::as_writable_bytes(std::span(magic))));
        return std::string_view(magic, 4) == "FAKE";
    }
    Id GetFormatId() const override { return Id("net.orvik.test.fileformat"); }
    DETECTIONSTRENGTH GetDetectionStrength() const override { return DETECTIONSTRENGTH::SIGNATURE; }
};

class FakeHandler : public MediaSessionFileFormatHandlerInterface {
public:
    FileFormat GetFileFormat() const override { return _format; }
    const DataType* GetHandlerType() const override { return &GetDataType<MediaInputRef>(); }
    FILEFORMAT_PRIORITY GetDependends() const override { return FILEFORMAT_PRIORITY::GENERALFORMAT; }
    Result<ObjectRef> CreateHandler(const Url&) const override {
        return ObjectRef(TRY(NewObj<FakeImport>(g_file, pixelFormat)));
    }

    Ref<FakeFormat> pixelFormat = MakeFormat({8, 8});

private:
    FileFormat _format = NewObj<FakeFileFormat>().TakeValue();
};

class TextureTest : public ImageFixture {
protected:
    void SetUp() override {
        ImageFixture::SetUp();
        g_file = {{.type = T::IMAGE, .seed = 1}, {.type = T::ALPHA, .parent = 0, .seed = 2}};
        const auto handler = NewObj<FakeHandler>().TakeValue();
        const FileFormat format = handler->GetFileFormat();
        pixelFormat = handler->pixelFormat;
        ASSERT_TRUE(_publisher.AddToRegistry(kFileFormatRegistry, "net.orvik.test.fileformat", format));
        ASSERT_TRUE(_publisher.AddToRegistry(kFileFormatHandlerRegistry, "net.orvik.test.handler", handler));
        fake = Mount("image_test_fake", "FAKE file");
        other = Mount("image_test_other", "another file");
    }
    void TearDown() override {
        UnmountMemoryFile("image_test_fake");
        UnmountMemoryFile("image_test_other");
        g_file.clear();
    }
    static Url Mount(const char* name, std::string_view content) {
        return MountMemoryFile(name, CreateMemoryFile(std::as_bytes(std::span(content))).TakeValue()).TakeValue();
    }
    static Result<MediaSessionRef> Load(const ImageTextureRef& texture, const Url& url, const LayerSet& layers = {},
                                        MEDIASESSIONFLAGS flags = MEDIASESSIONFLAGS::NONE) {
        return texture->Load(url, TimeValue(), flags, ClassRef(), layers);
    }
    static std::vector<Rows> AllRows(const ImageTextureRef& texture, bool reads = true) {
        std::vector<Rows> all;
        EXPECT_TRUE(WalkImages(texture, [&](const ImageBaseRef& node, IMAGEHIERARCHY branch) -> Result<Bool> {
            if (branch != IMAGEHIERARCHY::TEXTURE)
                all.push_back(reads ? ReadRows(node) : Rows());
            return true;
        }));
        return all;
    }
    /// Loads with a layer set: which streams come, and how many nodes stand then.
    void ExpectDelivered(const LayerSet& layers, const std::vector<int>& streams, size_t nodes) const {
        std::string text(layers->GetSelectedImage().GetText());
        for (const String& path : layers->GetSelectedLayers())
            text += ", " + std::string(path.GetText());
        SCOPED_TRACE(text);
        std::vector<std::string> expected = {"analyze"};
        for (const int stream : streams)
            expected.push_back("deliver " + std::to_string(stream));
        const ImageTextureRef texture = MakeTexture();
        g_log.clear();
        const auto session = Load(texture, fake, layers);
        ASSERT_TRUE(session) << MessageOf(session);
        EXPECT_EQ(g_log, expected);
        EXPECT_EQ(AllRows(texture, false).size(), nodes);
    }

    Ref<FakeFormat> pixelFormat;
    Url fake, other;
};

TEST_F(TextureTest, LoadsWhatAHandlerClaims) {
    const auto loadTexture = [](const Url& url) {
        return ImageTextureInterface::LoadTexture(url, TimeValue(), MEDIASESSIONFLAGS::NONE, ClassRef(), LayerSet());
    };
    const std::vector wanted = {RowsOf(g_file[0], pixelFormat), RowsOf(g_file[1], pixelFormat)};
    EXPECT_EQ(AllRows(loadTexture(fake).TakeValue()), wanted);
    const ImageTextureRef texture = MakeTexture();
    g_log.clear();
    const auto session = Load(texture, fake, {}, MEDIASESSIONFLAGS::RUNONLYANALYZE);
    EXPECT_EQ(g_log, std::vector<std::string>{"analyze"});
    EXPECT_EQ(texture->GetWidth(), 3);
    ASSERT_TRUE(session && (*session)->Convert(TimeValue(), MEDIASESSIONFLAGS::NONE));
    EXPECT_EQ(AllRows(texture), wanted);
    EXPECT_EQ(MessageOf(Load(texture, other)), "Image memory:image_test_other is not of a supported type.");
    EXPECT_EQ(ErrorIdOf(loadTexture(other)), errorid::kIllegalArgument);
}

TEST_F(TextureTest, LayerSetSelectsImages) {
    const auto indexed = [](Int index, const char* name) {
        return [=](MediaStreamFormat& format) {
            EXPECT_TRUE(format.Set(mediaformat::kSubImageIndex, index) && format.Set(mediaformat::kStreamName, name));
        };
    };
    // Three images, the second with an alpha that comes and goes with it.
    g_file = {{.type = T::IMAGE, .describe = Named("front")},
              {.type = T::IMAGE, .describe = indexed(1, "back")},
              {.type = T::ALPHA, .parent = 1},
              {.type = T::IMAGE, .describe = indexed(2, "#1")}};
    const std::pair<const char*, std::vector<int>> cases[] = {
        {"", {0, 1, 2, 3}}, {"#2", {1, 2}}, {"back", {1, 2}}, {"#1", {0, 3}},  // by number and by name
        {"#3", {3}},        {"Back", {}},   {"#4", {}},
    };
    for (const auto& [selected, delivered] : cases)
        ExpectDelivered(MakeLayerSet({}, LAYERSETMODE::LAYERS, selected), delivered, delivered.size());
}

/// A set of paths loads the pixels of what it names; all else below the image keeps its place without them.
TEST_F(TextureTest, LayerSetSelectsLayers) {
    g_file = {{.type = T::IMAGE, .describe = Named("i")},                          // 0
              {.type = T::ALPHA, .parent = 0},                                     // 1
              {.type = T::LAYER, .parent = 0, .describe = Named("top")},           // 2
              {.type = T::LAYERMASK, .parent = 2, .describe = Named("m")},         // 3
              {.type = T::LAYERFOLDER, .parent = 0, .describe = Named("folder")},  // 4
              {.type = T::LAYER, .parent = 4, .describe = Named("a")},             // 5
              {.type = T::LAYERFOLDER, .parent = 4, .describe = Named("")},        // 6
              {.type = T::LAYER, .parent = 6, .describe = Named("a")},             // 7
              {.type = T::LAYERADJUSTMENT, .parent = 0, .describe = Named("adjust")},
              {.type = T::IMAGE, .describe = Named("other")},  // 9
              {.type = T::LAYER, .parent = 9, .describe = Named("top")}};
    using M = LAYERSETMODE;
    const std::vector<int> all = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10}, ofImage = {0, 1, 2, 3, 4, 5, 6, 7, 8};
    const std::tuple<const char*, M, std::vector<const char*>, std::vector<int>, size_t> cases[] = {
        {"", M::LAYERS, {}, all, 11},
        {"", M::LAYERS, {"top"}, {0, 1, 2, 3, 9, 10}, 11},
        {"i", M::LAYERS, {"top"}, {0, 1, 2, 3}, 9},
        {"i", M::LAYERALPHA, {"adjust", "nothing"}, {0, 1, 8}, 9},
        {"i", M::LAYERS, {"folder"}, {0, 1, 4, 5, 6, 7}, 9},
        {"i", M::LAYERS, {"folder\\a"}, {0, 1, 5}, 9},
        {"i", M::LAYERS, {"folder\\"}, {0, 1, 6, 7}, 9},
        {"i", M::LAYERS, {"folder\\\\a"}, {0, 1, 7}, 9},
        {"i", M::LAYERS, {"i", "i\\top", "Top", "m", "top\\m"}, {0, 1}, 9},
        {"i", M::ALPHAS, {"Alpha"}, ofImage, 9},
        {"i", M::LAYERMASKS, {"top"}, ofImage, 9},
        {"other", M::LAYERS, {"folder"}, {9}, 2},
        {"none", M::LAYERS, {"top"}, {}, 0},
    };
    for (const auto& [image, mode, paths, delivered, nodes] : cases)
        ExpectDelivered(MakeLayerSet(paths, mode, image), delivered, nodes);
}

/// A stream names its blend mode, a node holds it. The name of an unpublished mode comes back as it was.
TEST_F(TextureTest, BlendModesTravel) {
    ASSERT_TRUE(RegisterPixelBlends(_publisher));
    for (const Id& mode : {blendmodes::kMultiply, Id("net.orvik.test.nomode")}) {
        g_file = {{.type = T::IMAGE}, {.type = T::LAYER, .parent = 0, .describe = [mode](MediaStreamFormat& format) {
                                           EXPECT_TRUE(format.Set(mediaformat::kLayerBlendMode, mode));
                                       }}};
        const ImageTextureRef texture = MakeTexture();
        ASSERT_TRUE(Load(texture, fake));
        const auto image = Cast<ImageBaseInterface>(texture->GetFirst());
        const auto layer = Cast<ImageBaseInterface>(image->GetFirst());
        const bool isKnown = mode == blendmodes::kMultiply;
        EXPECT_EQ(layer->Get(image::kLayerBlendMode, ImagePixelBlend()),
                  isKnown ? blendmodes::Get(mode) : ImagePixelBlend());
        EXPECT_EQ(GetLayerBlendMode(layer), blendmodes::Get(isKnown ? mode : blendmodes::kOver));
        const auto output = NewObj<FakeExport>().TakeValue();
        MediaSessionRef session;
        ASSERT_TRUE(texture->Save(output, MEDIASESSIONFLAGS::NONE, &session));
        EXPECT_EQ(output->streams[1]->GetFormat(Data(Int(0))).Get(mediaformat::kLayerBlendMode, Id()), mode);
    }
}

TEST_F(TextureTest, SavesWhatItLoaded) {
    DataDictionary settings;
    ASSERT_TRUE(settings.Set(mediaexport::kQuality, 0.5));
    const auto named = [&](const char* name) {
        return [=](MediaStreamFormat& format) {
            EXPECT_TRUE(format.Set(mediaformat::kStreamName, name) && format.Set(mediaformat::kAlphaName, "alpha"));
            EXPECT_TRUE(format.Set(mediaformat::kSubImageIndex, 3) && format.Set(mediaformat::kDpi, 96));
            EXPECT_TRUE(format.Set(mediaformat::kLayerOpacity, 0.25) && format.Set(mediaformat::kVideoFps, 25));
            EXPECT_TRUE(format.Set(mediaformat::kExportSettings, settings));
        };
    };
    g_file = {{.type = T::IMAGE, .seed = 1, .describe = named("i")},
              {.type = T::ALPHA, .parent = 0, .seed = 2, .describe = named("a")},
              {.type = T::LAYERFOLDER, .parent = 0, .seed = 3},
              {.type = T::LAYER, .parent = 2, .width = 4, .height = 1, .seed = 4, .describe = named("l")},
              {.type = T::LAYERMASK, .parent = 3, .seed = 5},
              {.type = T::LAYERADJUSTMENT, .parent = 0, .width = 0, .height = 0, .seed = 0},
              {.type = T::IMAGE, .seed = 6},
              {.type = T::ALPHA, .parent = 6, .seed = 1}};
    const ImageTextureRef texture = MakeTexture();
    ASSERT_TRUE(Load(texture, fake));
    const auto output = NewObj<FakeExport>().TakeValue();
    MediaSessionRef session;
    g_log.clear();
    const Result<void> saved = texture->Save(output, MEDIASESSIONFLAGS::NONE, &session);
    ASSERT_TRUE(saved && session) << MessageOf(saved);
    EXPECT_TRUE(g_log.empty());  // still open
    ASSERT_EQ(output->streams.size(), g_file.size());
    for (size_t i = 0; i < g_file.size(); ++i) {
        SCOPED_TRACE(i);
        const MediaStreamRef& stream = output->streams[i];
        const MediaStreamFormat format = stream->GetFormat(stream->GetSelectedFormat());
        const StreamSpec& spec = g_file[i];
        EXPECT_EQ(output->rows[i], RowsOf(spec, pixelFormat));
        EXPECT_EQ(format.Get(mediaformat::kType, T::UNDEFINED), spec.type);
        EXPECT_TRUE(format.Get(mediaformat::kWidth, 0) == spec.width &&
                    format.Get(mediaformat::kHeight, 0) == spec.height);
        EXPECT_EQ(format.Get(mediaformat::kPixelFormat, PixelFormat()), PixelFormat(pixelFormat));
        EXPECT_EQ(format.Get(mediaformat::kVideoFps, 0), 25);
        EXPECT_EQ(format.Get(mediaformat::kExportSettings, DataDictionary()).Get(mediaexport::kQuality, 0), 0.5);
        const bool isAlpha = spec.type == T::ALPHA, isNamed = static_cast<bool>(spec.describe);
        EXPECT_EQ(format.Get(mediaformat::kSubImageIndex, -1), isNamed ? 3 : 0);
        EXPECT_EQ(format.Get(mediaformat::kDpi, 0), isNamed ? 96 : 0);
        EXPECT_EQ(format->Has(mediaformat::kAlphaName.GetId()), isAlpha);
        EXPECT_EQ(format->Has(mediaformat::kStreamName.GetId()), !isAlpha);
        EXPECT_EQ(format.Get(mediaformat::kLayerOpacity, 0), spec.type == T::LAYER ? 0.25 : 0);
        EXPECT_FALSE(format->Has(mediaformat::kLayerEnabled.GetId()));
        const auto parent = Cast<MediaStreamInterface>(stream->GetParent());
        EXPECT_EQ(parent, spec.parent < 0 ? MediaStreamRef() : output->streams[size_t(spec.parent)]);
    }
    EXPECT_EQ(output->streams[1]->GetFormat(Data(Int(0))).Get(mediaformat::kAlphaName, String()), String("alpha"));
    EXPECT_EQ(output->streams[3]->GetFormat(Data(Int(0))).Get(mediaformat::kStreamName, String()), String("l"));
    ASSERT_TRUE(session->Close());
    EXPECT_EQ(g_log, std::vector<std::string>{"close export"});
    g_log.clear();
    ASSERT_TRUE(texture->Save(NewObj<FakeExport>().TakeValue(), MEDIASESSIONFLAGS::NONE, nullptr));
    EXPECT_EQ(g_log, std::vector<std::string>{"close export"});
    session = nullptr;
    EXPECT_EQ(texture->GetStrongCount(), 1);
    EXPECT_EQ(ErrorIdOf(texture->Save(nullptr, MEDIASESSIONFLAGS::NONE, nullptr)), errorid::kIllegalArgument);
}

/// Sound goes in front of the pictures, so that a format can place it before them.
TEST_F(TextureTest, SavesItsSound) {
    const ImageTextureRef texture = MakeTexture();
    ASSERT_TRUE(Load(texture, fake));
    const auto sound = Make<AudioObjectInterface>(mediaclasses::kAudioObject);
    ASSERT_TRUE(sound->Init(2, 16, 100, 22050, {}, {}));
    for (const bool hasSound : {false, true}) {
        const auto output = NewObj<FakeExport>().TakeValue();
        MediaSessionRef session;
        ASSERT_TRUE(!hasSound || texture->Set(image::kAudioData, sound));
        ASSERT_TRUE(texture->Save(output, MEDIASESSIONFLAGS::NONE, &session));
        EXPECT_EQ(output->audio, hasSound ? sound : AudioObjectRef());
        EXPECT_EQ(output->rows.size(), 2u);
        const MediaStreamFormat format = output->streams[0]->GetFormat(Data(Int(0)));
        EXPECT_EQ(format.Get(mediaformat::kAudioSampleRate, 0), hasSound ? 22050 : 0);
        EXPECT_EQ(format.Get(mediaformat::kAudioChannelCount, 0) * format.Get(mediaformat::kAudioBitsPerChannel, 0),
                  hasSound ? 32 : 0);
    }
}

/// A node in a layer branch is what its own key says; one that says nothing is no stream, its children stay.
TEST_F(TextureTest, ExportTakesTheTypeFromTheNode) {
    using I = ITYPE;
    using B = IMAGEHIERARCHY;
    const std::pair<I, T> cases[] = {
        {I::LAYER, T::LAYER},     {I::LAYERMASK, T::LAYERMASK}, {I::FOLDER, T::LAYERFOLDER},
        {I::IMAGE, T::UNDEFINED}, {I::ALPHA, T::UNDEFINED},     {I::ADJUSTMENT, T::LAYERADJUSTMENT},
    };
    for (const B branch : {B::LAYER, B::MASK}) {
        for (const auto& [type, expected] : cases) {
            SCOPED_TRACE(testing::Message() << int(branch) << " type " << int(type));
            const ImageTextureRef texture = MakeTexture();
            ImageBaseRef parent = texture;
            for (const auto& [where, nodeType] :
                 {std::pair(B::IMAGE, I::IMAGE), {B::LAYER, I::LAYER}, {branch, type}, {B::LAYER, I::LAYER}}) {
                const auto node = Make<ImageInterface>(imageclasses::kRasterLayer);
                ASSERT_TRUE(node->Init(2, 1, ClassRef(), pixelFormat, {}) && node->Set(image::kType, nodeType));
                ASSERT_TRUE(parent->AddChildren(where, node, nullptr));
                parent = node;
            }
            const auto output = NewObj<FakeExport>().TakeValue();
            MediaSessionRef session;
            ASSERT_TRUE(texture->Save(output, MEDIASESSIONFLAGS::NONE, &session));
            std::vector<T> types, wanted = {T::IMAGE, T::LAYER, expected, T::LAYER};
            for (const MediaStreamRef& stream : output->streams)
                types.push_back(stream->GetFormat(Data(Int(0))).Get(mediaformat::kType, T::UNDEFINED));
            std::erase(wanted, T::UNDEFINED);
            EXPECT_EQ(types, wanted);
        }
    }
}

TEST_F(TextureTest, SaveReportsProgressAndStopsWhereTheObserverFails) {
    g_file = {{.type = T::IMAGE, .height = 4}, {.type = T::ALPHA, .parent = 0, .height = 12}};
    const ImageTextureRef texture = MakeTexture();
    ASSERT_TRUE(Load(texture, fake));
    class Watching : public FakeExport {
    public:
        Result<void> PrepareExecute(Inputs inputs, TimeValue time, MEDIASESSIONFLAGS flags) override {
            TRY(FakeExport::PrepareExecute(inputs, time, flags));
            TRY(GetSessionProgress()->InitProgress(TimeValue::FromSeconds(-1), TimeValue::FromSeconds(-1)));
            TRY(GetSessionProgress()->ObservableProgressNotification()->AddObserver(
                [this](const MediaSessionProgressRef&, Float fraction, TimeValue, TimeValue) -> Result<void> {
                    fractions.push_back(fraction);
                    return int(fractions.size()) == stopAt ? Result<void>(ThreadCancelledError()) : Result<void>();
                }));
            return {};
        }
        std::vector<Float> fractions;
        int stopAt = 0;
    };
    const auto output = NewObj<Watching>().TakeValue(), stopped = NewObj<Watching>().TakeValue();
    ASSERT_TRUE(texture->Save(output, MEDIASESSIONFLAGS::NONE, nullptr));
    ASSERT_EQ(output->fractions.size(), 16u);  // one a row
    for (size_t i = 0; i < 16; ++i)
        EXPECT_DOUBLE_EQ(output->fractions[i], Float(i + 1) / 16);
    stopped->stopAt = 3;
    MediaSessionRef session;
    EXPECT_EQ(ErrorIdOf(texture->Save(stopped, MEDIASESSIONFLAGS::NONE, &session)), errorid::kThreadCancelled);
    EXPECT_EQ(stopped->fractions.size(), 3u);
    EXPECT_FALSE(session);  // out values stay empty after an error
}

TEST_F(TextureTest, ExportInputNeedsATexture) {
    const auto input = Make<MediaInputInterface>(mediaclasses::kExportFromTexture);
    EXPECT_EQ(ErrorIdOf(input->Analyze({}, {}, MEDIASESSIONFLAGS::NONE)), errorid::kIllegalState);
}

TEST_F(TextureTest, SurvivesEveryFailedAllocation) {
    PublishRegionService();
    const auto describe = [](MediaStreamFormat& format) {
        // Not tested: what is missing here shows as an error of the load.
        (void)format.Set(mediaformat::kStreamName, "name");
        (void)format.Set(mediaformat::kLayerBlendMode, blendmodes::kMultiply);
        (void)format.Set(mediaformat::kLayerMaskDefColor, 128);
    };
    g_file = {{.type = T::IMAGE, .seed = 1},
              {.type = T::ALPHA, .parent = 0, .seed = 2},
              {.type = T::LAYERFOLDER, .parent = 0, .describe = describe},
              {.type = T::LAYER, .parent = 2, .describe = describe},
              {.type = T::LAYERMASK, .parent = 3, .describe = describe}};
    const LayerSet layers = MakeLayerSet({"name"});
    const ImageTextureRef source = MakeTexture();
    ASSERT_TRUE(Load(source, fake, layers));
    for (const bool saves : {false, true}) {
        for (const bool sticky : {false, true}) {
            AllocationFaults faults(sticky);
            while (faults.Next()) {
                const ImageTextureRef texture = MakeTexture();
                const auto output = NewObj<FakeExport>().TakeValue();
                g_log.clear();
                const auto work = [&]() -> Result<void> {
                    if (saves)
                        return source->Save(output, MEDIASESSIONFLAGS::NONE, nullptr);
                    TRY(Load(texture, fake, layers));
                    return {};
                };
                // Detection may take short memory for a file of no format; from the importer on it is reported as such.
                const Result<void> ran = faults.Run(work, false);
                EXPECT_TRUE(ran || (!saves && g_log.empty()) || ErrorIdOf(ran) == errorid::kOutOfMemory)
                    << MessageOf(ran);
                output->streams.clear();
            }
            EXPECT_GT(faults.GetErrorCount(), 20);
        }
    }
    ASSERT_TRUE(Load(MakeTexture(), fake));
}

}  // namespace
}  // namespace orvik
