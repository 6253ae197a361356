#include "image_fakes.h"

namespace orvik {
namespace {

using T = MEDIAFORMATTYPE;
using S = SELECTIONHANDLERRESULT;

/// A texture output on a fake input in one session.
class TextureOutputTest : public ImageFixture {
protected:
    void Connect(std::vector<StreamSpec> specs, std::function<Result<void>(FakeImport&)> addOthers = {}) {
        import = NewObj<FakeImport>(std::move(specs), PixelFormat(format), std::move(addOthers)).TakeValue();
        texture = MakeTexture();
        output = Make<MediaOutputTextureInterface>(mediaclasses::kOutputTexture);
        session = Make<MediaSessionInterface>(mediaclasses::kSession);
        ASSERT_TRUE(output->SetOutputTexture(texture, ClassRef(storageclasses::kNormal)));
        ASSERT_TRUE(session->ConnectMediaConverter(import, output));
        g_log.clear();
    }
    Result<void> Run(MEDIASESSIONFLAGS flags = MEDIASESSIONFLAGS::NONE) { return session->Convert(TimeValue(), flags); }
    /// The tree below the texture, one text a node: its depth, branch, class, type and name.
    std::vector<std::string> Describe() const {
        std::vector<std::string> nodes;
        EXPECT_TRUE(WalkImages(texture, [&](const ImageBaseRef& node, IMAGEHIERARCHY branch) -> Result<Bool> {
            if (branch != IMAGEHIERARCHY::TEXTURE) {
                int depth = 0;
                for (HierarchyObjectRef up = node->GetParent(); up; up = up->GetParent())
                    ++depth;
                nodes.push_back(std::to_string(depth) + " branch " + std::to_string(int(branch)) +
                                (Cast<ImageLayerInterface>(node) ? " layer" : " image") + " type " +
                                std::to_string(int(node->Get(image::kType, ITYPE::UNDEFINED))) + " " +
                                std::string(node->Get(image::kName, String("?")).GetText()));
            }
            return true;
        }));
        return nodes;
    }
    ImageBaseRef Node(Int index, IMAGEHIERARCHY branch = IMAGEHIERARCHY::IMAGE, ImageBaseRef parent = {}) const {
        const auto children = (parent ? parent : ImageBaseRef(texture))->GetChildren(Int(branch));
        return index < Int(children.size()) ? Cast<ImageBaseInterface>(children[size_t(index)]) : nullptr;
    }

    Ref<FakeFormat> format = MakeFormat({8, 8});
    Ref<FakeImport> import;
    ImageTextureRef texture;
    MediaOutputTextureRef output;
    MediaSessionRef session;
};

/// Images stand below the texture in the order of the walk, whatever stream they hang below; all else below its parent.
TEST_F(TextureOutputTest, BuildsTheTreeAndFillsIt) {
    const std::vector<StreamSpec> specs = {
        {.type = T::IMAGE, .seed = 1, .describe = Named("picture")},
        {.type = T::ALPHA, .parent = 0, .seed = 2},
        {.type = T::LAYERFOLDER, .parent = 0, .width = 0, .height = 0, .seed = 0, .describe = Named("folder")},
        {.type = T::LAYER, .parent = 2, .width = 5, .seed = 4, .describe = Named("layer")},
        {.type = T::LAYERMASK, .parent = 3, .seed = 5},
        {.type = T::LAYERADJUSTMENT, .parent = 0, .width = 7, .height = 0, .seed = 0},
        {.type = T::IMAGE, .parent = 0, .width = 2, .seed = 1, .describe = Named("half")},
        {.type = T::IMAGE, .parent = 6, .width = 1, .seed = 3, .describe = Named("quarter")},
        {.type = T::IMAGE, .seed = 1, .describe = Named("second")},
        {.type = T::ALPHA, .parent = 8, .seed = 6},
        {.type = T::ALPHA, .parent = 6, .width = 2, .seed = 2},
        {.type = T::IMAGE, .parent = 0, .seed = 2, .describe = Named("element")},
    };
    const std::vector<std::string> tree = {
        "1 branch 1 image type 2 picture", "2 branch 2 layer type 3 ",       "2 branch 3 layer type 6 folder",
        "3 branch 3 layer type 4 layer",   "4 branch 4 layer type 5 ",       "2 branch 3 layer type 7 ",
        "1 branch 1 image type 2 half",    "2 branch 2 layer type 3 ",       "1 branch 1 image type 2 quarter",
        "1 branch 1 image type 2 element", "1 branch 1 image type 2 second", "2 branch 2 layer type 3 ",
    };
    Connect(specs);
    ASSERT_TRUE(Run(MEDIASESSIONFLAGS::RUNONLYANALYZE));
    EXPECT_EQ(Describe(), tree);
    std::byte row[16];
    const auto handler = texture->GetPixelHandler(format, {}, {}, GETPIXELHANDLERFLAGS::NONE, {});
    ASSERT_TRUE(handler) << MessageOf(handler);
    EXPECT_EQ(ErrorIdOf(handler->read({0, 0, 1}, {row, BITS(16)}, {})),
              errorid::kFunctionNotImplemented);  // a description only, so far
    ASSERT_TRUE(Run());
    EXPECT_EQ(Describe(), tree);  // nothing was added twice, and every type stands after the second Init too
    EXPECT_EQ(std::count(g_log.begin(), g_log.end(), "analyze"), 1);
    constexpr size_t kOrder[] = {0, 1, 2, 3, 4, 5, 6, 10, 7, 11, 8, 9};  // of the streams, as the tree has their nodes
    size_t next = 0;
    EXPECT_TRUE(WalkImages(texture, [&](const ImageBaseRef& node, IMAGEHIERARCHY branch) -> Result<Bool> {
        if (branch != IMAGEHIERARCHY::TEXTURE) {
            const StreamSpec& spec = specs[kOrder[next++]];
            EXPECT_EQ(ReadRows(node), RowsOf(spec, format)) << next;
        }
        return true;
    }));
    EXPECT_EQ(texture->Get(image::kSampleTime, TimeValue()).GetSeconds(), 11.5);  // the last sample that finished
    ASSERT_TRUE(session->Close());
    EXPECT_EQ(std::count(g_log.begin(), g_log.end(), "close import"), 0);  // the input stays open
}

/// Session, importer, streams, output and texture are freed with their last reference, though nothing was closed.
TEST_F(TextureOutputTest, LeavesNoCircleOfReferences) {
    Connect({{.type = T::IMAGE}, {.type = T::ALPHA, .parent = 0}});
    ASSERT_TRUE(Run());
    const WeakRef<FakeImport> weakImport(import);
    const WeakRef<MediaOutputTextureInterface> weakOutput(output);
    const WeakRef<ImageBaseInterface> weakTexture(texture), weakNode(Node(0));
    import = nullptr, output = nullptr, session = nullptr;
    EXPECT_FALSE(weakImport.Get() || weakOutput.Get());
    EXPECT_EQ(texture->GetStrongCount(), 1);
    texture = nullptr;
    EXPECT_FALSE(weakTexture.Get() || weakNode.Get());
}

TEST_F(TextureOutputTest, RefusesWhatIsIncompleteOrMisplaced) {
    const auto without = [](const auto& key) {
        return [key = key.GetId()](MediaStreamFormat& f) {
            MediaStreamFormat rest;
            f->GetDictionary().ForEach([&](const Id& id, const Data& data) {
                if (id != key) {
                    EXPECT_TRUE(rest.SetData(id, data));
                }
            });
            f = rest;
        };
    };
    const auto below = [](T type) { return std::vector<StreamSpec>{{}, {.type = type, .parent = 0}}; };
    const Id no = errorid::kIllegalArgument, misplaced = errorid::kMediaConverter;
    const std::tuple<const char*, std::vector<StreamSpec>, Id, const char*, size_t> cases[] = {
        {"no pixel format", {{.describe = without(mediaformat::kPixelFormat)}}, no, "pixelformat", 0},
        {"no width", {{.describe = without(mediaformat::kWidth)}}, no, "width", 0},
        {"no height", {{}, {.describe = without(mediaformat::kHeight)}}, no, "height", 1},
        {"no streams", {}, errorid::kMediaSessionWrongType, "", 0},
        {"untyped below an image", below(T::UNDEFINED), misplaced, "", 1},
        {"deep data below an image", below(T::DEEPIMAGEDATA), misplaced, "", 1},
        {"mip level below an image", below(T::MIPMAP), misplaced, "", 1},
        {"alpha below a layer", {{}, {.type = T::LAYER, .parent = 0}, {.type = T::ALPHA, .parent = 1}}, no, "", 2},
        {"negative size", {{.width = -3}}, no, "", 0}};
    for (const auto& [what, specs, error, message, nodes] : cases) {
        SCOPED_TRACE(what);
        Connect(specs);
        const Result<void> ran = Run();
        EXPECT_EQ(ErrorIdOf(ran), error);
        EXPECT_EQ(MessageOf(ran), *message ? "Key net.orvik.mediaformat." + std::string(message) + " not found." : "");
        EXPECT_EQ(Describe().size(), nodes);
        EXPECT_EQ(std::count(g_log.begin(), g_log.end(), "deliver 0"), 0);
    }
}

/// Sound beside pictures is passed over, alone it is a file of the wrong kind. A picture below it has no parent.
TEST_F(TextureOutputTest, PassesOverAudioStreams) {
    bool hasPictureBelow = false;
    const auto addAudio = [&](FakeImport& input) -> Result<void> {
        const auto audio = TRY(ClassRef(mediaclasses::kStreamAudioImport).Create<MediaStreamInterface>());
        TRY(input.AddOutputStream(audio));
        if (!hasPictureBelow)
            return {};
        const auto image = TRY(ClassRef(mediaclasses::kStreamImport).Create<MediaStreamInterface>());
        TRY(image->AddFormat(Data(Int(0)), input.streams[0]->GetFormat(Data(Int(0)))));
        return audio->AddChild(MediaStreamInterface::kChildBranch, image);
    };
    Connect({}, addAudio);
    EXPECT_EQ(ErrorIdOf(Run()), errorid::kMediaSessionWrongType);
    Connect({{}, {}}, addAudio);
    EXPECT_TRUE(Run());
    EXPECT_EQ(Describe().size(), 2u);
    Connect({{}}, addAudio);
    hasPictureBelow = true;
    EXPECT_EQ(MessageOf(Run()), "Parent stream not found.");
}

TEST_F(TextureOutputTest, FollowsTheSelection) {
    const std::vector<StreamSpec> specs = {
        {.describe = Named("a")}, {.type = T::ALPHA, .parent = 0, .describe = Named("b")}, {.describe = Named("c")}};
    const std::string a = "1 branch 1 image type 2 a", b = "2 branch 2 layer type 3 b", c = "1 branch 1 image type 2 c";
    constexpr S kContent = S::CONTENT_FLAG;
    using Texts = std::vector<std::string>;
    const std::tuple<const char*, std::vector<S>, Texts, Texts> cases[] = {
        {"all", {S::ALL, S::ALL, S::ALL}, {a, b, c}, {"deliver 0", "deliver 1", "deliver 2"}},
        {"structure", {S::STRUCTURE, S::STRUCTURE, S::STRUCTURE}, {a, b, c}, {}},
        {"none", {S::NONE, S::NONE, S::NONE}, {}, {}},
        {"content without structure", {kContent, kContent, kContent}, {}, {}},
        {"mixed", {S::STRUCTURE, S::ALL, S::NONE}, {a, b}, {"deliver 1"}},
        {"a child brings its parent", {S::NONE, S::ALL, S::NONE}, {a, b}, {"deliver 1"}},
        {"a child image does not", {S::NONE, S::ALL, S::NONE}, {"1 branch 1 image type 2 b"}, {"deliver 1"}}};
    for (const auto& [what, answers, nodes, delivered] : cases) {
        SCOPED_TRACE(what);
        std::vector<StreamSpec> streams = specs;
        if (nodes.size() == 1)
            streams[1].type = T::IMAGE;
        Connect(streams);
        size_t next = 0;
        std::vector<std::string> seen;
        ASSERT_TRUE(output->SetSelectionHandler([&](const MediaStreamRef&, const MediaStreamFormat& f) -> Result<S> {
            seen.emplace_back(f.Get(mediaformat::kStreamName, String()).GetText());
            return answers[next++];
        }));
        ASSERT_EQ(ErrorIdOf(Run()), Id());
        EXPECT_EQ(seen, (std::vector<std::string>{"a", "b", "c"}));
        EXPECT_EQ(Describe(), nodes);
        std::erase(g_log, "analyze");
        EXPECT_EQ(g_log, delivered);
    }
    Connect(specs);
    ASSERT_TRUE(output->SetSelectionHandler(
        [](const MediaStreamRef&, const MediaStreamFormat&) -> Result<S> { return UnsupportedOperationError(); }));
    EXPECT_EQ(ErrorIdOf(Run()), errorid::kUnsupportedOperation);
}

TEST_F(TextureOutputTest, CopiesKeys) {
    const ColorProfile profile = MakeProfile();
    const auto describe = [&](Float quality, bool withProfile, Float dpi) {
        return [=](MediaStreamFormat& f) {
            DataDictionary settings;
            EXPECT_TRUE(settings.Set(mediaexport::kQuality, quality));
            EXPECT_TRUE(f.Set(mediaformat::kExportSettings, settings));
            EXPECT_TRUE(!withProfile || f.Set(mediaformat::kColorProfile, profile));
            EXPECT_TRUE(dpi == 0 || f.Set(mediaformat::kDpi, dpi));
            EXPECT_TRUE(f.Set(mediaformat::kHotspotX, 2) && f.Set(mediaformat::kLayerOpacity, 0.75));
            EXPECT_TRUE(f.Set(mediaformat::kLayerMaskDefColor, 200));
        };
    };
    Connect({{.type = T::IMAGE, .describe = describe(0.5, true, 0)},
             {.type = T::LAYER, .parent = 0, .describe = describe(0.25, false, 300)},
             {.type = T::IMAGE, .describe = describe(0.25, false, 0)}});
    ASSERT_TRUE(Run());
    const ImageBaseRef image = Node(0), layer = Node(0, IMAGEHIERARCHY::LAYER, image), second = Node(1);
    EXPECT_TRUE(image->Get(image::kColorProfile, ColorProfile()) == profile);
    const auto stored = second->Get(image::kColorProfile);  // nothing given is stored all the same
    ASSERT_TRUE(stored);
    EXPECT_FALSE(stored->HasProfile());
    for (const ImageBaseRef& node : {image, layer, second}) {
        EXPECT_EQ(node->Get(image::kHotspotX, 0), 2);
        EXPECT_FALSE(node->Has(image::kHotspotY.GetId()) || node->Has(image::kAspectRatio.GetId()));
        EXPECT_EQ(node->Get(image::kLayerOpacity, 0), node == layer ? 0.75 : 0);  // only layers have layer keys
        EXPECT_EQ(node->Get(image::kDpi, 0), node == layer ? 300 : 0);
    }
    EXPECT_FALSE(layer->Has(image::kLayerEnabled.GetId()) || texture->Has(image::kAspectRatio.GetId()));
    EXPECT_EQ(texture->Get(image::kDpi, 0), 300);
    EXPECT_EQ(texture->Get(image::kExportSettings, DataDictionary()).Get(mediaexport::kQuality, 0),
              0.5);  // the first image's
}

/// The first stream decides, also with a rate of 0. Closing keeps what is known, a reset asks anew.
TEST_F(TextureOutputTest, TakesTimingFromTheFirstStream) {
    const auto timed = [](Float fps) {
        return StreamSpec{.describe = [fps](MediaStreamFormat& f) {
            EXPECT_TRUE(fps == 0 || (f.Set(mediaformat::kVideoFps, fps) &&
                                     f.Set(mediaformat::kVideoDuration, TimeValue::FromSeconds(fps / 10))));
        }};
    };
    for (const auto& [first, second] : {std::pair(25.0, 30.0), {0.0, 30.0}, {12.0, 0.0}}) {
        Connect({timed(first), timed(second)});
        ASSERT_TRUE(Run());
        EXPECT_EQ(texture->Has(image::kFps.GetId()), first != 0);
        EXPECT_EQ(texture->Get(image::kFps, 0), first);
        EXPECT_EQ(texture->Get(image::kDuration, TimeValue()).GetSeconds(), first / 10);
    }
    for (const bool resets : {false, true}) {
        Connect({{}});
        ASSERT_TRUE(Run());
        ASSERT_TRUE(resets ? output->ResetConverter() : output->Close({}));
        session = Make<MediaSessionInterface>(mediaclasses::kSession);
        ASSERT_TRUE(session->ConnectMediaConverter(
            NewObj<FakeImport>(std::vector{timed(24)}, PixelFormat(format)).TakeValue(), output));
        ASSERT_TRUE(Run());
        EXPECT_EQ(Describe().size(), 2u);
        EXPECT_EQ(texture->Get(image::kFps, 0), resets ? 24 : 0);
    }
}

TEST_F(TextureOutputTest, KeepsWhatWasDeliveredBeforeAFailure) {
    const std::vector<StreamSpec> specs = {
        {.type = T::IMAGE, .seed = 1},
        {.type = T::LAYERFOLDER, .parent = 0, .width = 0, .height = 0},  // initialised all the same
        {.type = T::LAYER, .parent = 1, .width = 4, .height = 3, .seed = 2},
        {.type = T::LAYERMASK, .parent = 2, .height = 1, .seed = 3},
        {.type = T::ALPHA, .parent = 0, .height = 1, .seed = 4},
    };
    constexpr int kSteps = 5 * 3 + 7;  // beginning, handler and end of each stream, and the rows
    for (int step = 1; step <= kSteps + 1; ++step) {
        SCOPED_TRACE(step);
        Connect(specs);
        import->failingStep = step;
        EXPECT_EQ(ErrorIdOf(Run()), step <= kSteps ? errorid::kIo : Id());
        import->rowsOf.resize(specs.size());
        const ImageBaseRef image = Node(0), folder = Node(0, IMAGEHIERARCHY::LAYER, image);
        const ImageBaseRef layer = Node(0, IMAGEHIERARCHY::LAYER, folder);
        const ImageBaseRef nodes[] = {image, folder, layer, Node(0, IMAGEHIERARCHY::MASK, layer),
                                      Node(0, IMAGEHIERARCHY::ALPHA, image)};
        for (size_t i = 0; i < specs.size(); ++i) {
            ASSERT_TRUE(nodes[i]);
            if (import->rowsOf[i] == 0)
                continue;
            auto expected = RowsOf(specs[i], format);
            // They come bottom up.
            for (Int y = 0; y < specs[i].height - import->rowsOf[i]; ++y)
                std::fill(expected[size_t(y)].begin(), expected[size_t(y)].end(), std::byte());
            EXPECT_EQ(ReadRows(nodes[i]), expected) << i;
        }
    }
    EXPECT_EQ(import->rowsOf, (std::vector<Int>{2, 0, 3, 1, 1}));
}

TEST_F(TextureOutputTest, HandsTheMaskColourToTheStorage) {
    for (const auto& [color, expected] : {std::pair(-1, 0), {0, 0}, {200, 200}, {300, 255}}) {
        Connect({{},
                 {.type = T::LAYER, .parent = 0},
                 {.type = T::LAYERMASK, .parent = 1, .height = 0, .describe = [color = color](MediaStreamFormat& f) {
                      EXPECT_TRUE(f.Set(mediaformat::kLayerMaskDefColor, color) && f.Set(mediaformat::kHeight, 1));
                  }}});
        ASSERT_TRUE(output->SetOutputTexture(texture, ClassRef(storageclasses::kVoxel)));
        ASSERT_TRUE(Run());  // without any row for the mask
        const ImageBaseRef mask =
            Node(0, IMAGEHIERARCHY::MASK, Node(0, IMAGEHIERARCHY::LAYER, Node(0, IMAGEHIERARCHY::IMAGE)));
        EXPECT_EQ(ReadRows(mask).at(0), std::vector<std::byte>(6, std::byte(expected)));
    }
}

TEST_F(TextureOutputTest, HandsExifToTheTexture) {
    class FakeExif : public ExifInterface {};
    for (const S answer : {S::ALL, S::NONE}) {
        Ref<MediaStreamExifDataInterface> exif;
        Connect({{}}, [&](FakeImport& input) -> Result<void> {
            exif = TRY(ClassRef(mediaclasses::kStreamExif).Create<MediaStreamExifDataInterface>());
            TRY(exif->AddFormat(Data(Int(0)), input.streams[0]->GetFormat(Data(Int(0)))));
            return input.AddOutputStream(exif);
        });
        ASSERT_TRUE(output->SetSelectionHandler(
            [answer](const MediaStreamRef&, const MediaStreamFormat&) -> Result<S> { return answer; }));
        ASSERT_TRUE(Run());
        const ExifRef data = NewObj<FakeExif>().TakeValue();
        EXPECT_EQ(exif->IsSubscribed(), answer == S::ALL);
        EXPECT_EQ(ErrorIdOf(exif->HandleExifData(data)), answer == S::ALL ? Id() : errorid::kNullptr);
        EXPECT_EQ(texture->Get(image::kExifData, ExifRef()) == ExifRef(data), answer == S::ALL);
    }
}

}  // namespace
}  // namespace orvik
