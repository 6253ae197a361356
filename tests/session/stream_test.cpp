// Streams: formats and subscription, delegates and their absence, properties made from a stream, and the walk.
#include <gmock/gmock.h>
#include <map>

#include "session/mediasession_streamimpl.h"
#include "session_fakes.h"
#include "support/module_fixture.h"
#include "support/results.h"

#include "orvik/mediasession_audiodata.h"

namespace orvik {
namespace {

using testing::ElementsAre;
using Stream = ModuleFixture;

MediaStreamFormat FormatOfWidth(Int width) {
    MediaStreamFormat format;
    EXPECT_THAT(format.Set(mediaformat::kWidth, width), Succeeds());
    return format;
}
Int WidthOf(const MediaStreamFormat& format) { return format.Get(mediaformat::kWidth, -1); }

TEST_F(Stream, TheFirstFormatSelectsItselfAndUnknownIdsChangeNothing) {
    const auto stream = Create<MediaStreamInterface>(mediaclasses::kStreamBase);
    EXPECT_TRUE(stream->GetSelectedFormat().IsEmpty());
    EXPECT_THAT(stream->SubscribeStream(Data(Int(0))), FailsAs(errorid::kIllegalArgument));
    for (const auto& [id, width] : {std::pair(Data(Int(5)), 10), {Data(Int(6)), 20}, {Data(String("best")), 30}})
        ASSERT_THAT(stream->AddFormat(id, FormatOfWidth(width)), Succeeds());
    ASSERT_THAT(stream->AddFormat(Data(Int(6)), FormatOfWidth(21)), Succeeds());  // replaced
    std::map<std::string, Int> listed;
    for (const MediaStreamFormatEntry& entry : Take(stream->GetFormats())) {
        listed[std::string(entry.id.ToString().GetText())] = WidthOf(entry.format);
        EXPECT_EQ(WidthOf(stream->GetFormat(entry.id)), WidthOf(entry.format));
    }
    EXPECT_EQ(listed, (std::map<std::string, Int>{{"5", 10}, {"6", 21}, {"best", 30}}));
    EXPECT_THAT(stream->SetSelectedFormat(Data(Int(2))), FailsWith(errorid::kIllegalArgument, ""));
    EXPECT_THAT(stream->SubscribeStream(Data(Float(5))), FailsAs(errorid::kIllegalArgument)) << "of another type";
    EXPECT_EQ(stream->GetSelectedFormat(), Data(Int(5)));
    EXPECT_FALSE(stream->IsSubscribed());
    ASSERT_THAT(stream->SubscribeStream(Data(Int(6))), Succeeds());
    EXPECT_THAT(stream->SubscribeStream(Data(Int(2))), FailsAs(errorid::kIllegalArgument));
    EXPECT_TRUE(stream->IsSubscribed());
    ASSERT_THAT(stream->UnsubscribeStream(), Succeeds());
    EXPECT_FALSE(stream->IsSubscribed());
    EXPECT_EQ(stream->GetSelectedFormat(), Data(Int(6)));
}

TEST_F(Stream, OnlyImageStreamsRefuseFormatsWithoutAType) {
    MediaStreamFormat typed;
    ASSERT_THAT(typed.Set(mediaformat::kType, MEDIAFORMATTYPE::UNDEFINED), Succeeds());
    for (const Id& id : {mediaclasses::kStreamImport, mediaclasses::kStreamExport, mediaclasses::kStreamBase,
                         mediaclasses::kStreamImageBase, mediaclasses::kStreamExif, mediaclasses::kStreamAudioImport,
                         mediaclasses::kStreamAudioExport}) {
        const auto stream = Create<MediaStreamInterface>(id);
        const bool carriesPixels = id == mediaclasses::kStreamImport || id == mediaclasses::kStreamExport;
        EXPECT_EQ(!stream->AddFormat(Data(Int(0)), FormatOfWidth(3)), carriesPixels) << id.GetText();
        EXPECT_EQ(!stream->AddFormat(Data(Int(0)), {}), carriesPixels) << id.GetText();
        EXPECT_EQ(stream->GetSelectedFormat().IsEmpty(), carriesPixels) << id.GetText();
        EXPECT_THAT(stream->AddFormat(Data(Int(0)), typed), Succeeds());
    }
}

/// Without delegates pixels go nowhere, while Exif data and samples that find no taker are errors.
TEST_F(Stream, DelegatesAndTheirAbsence) {
    const MediaStreamProperties properties = Take(MediaStreamProperties::FromFormat(FormatOfWidth(9)));
    const auto import = Create<MediaStreamImageDataImportInterface>(mediaclasses::kStreamImport);
    const auto out = Create<MediaStreamImageDataExportInterface>(mediaclasses::kStreamExport);
    const auto exif = Create<MediaStreamExifDataInterface>(mediaclasses::kStreamExif);
    const auto audio = Create<MediaStreamAudioDataImportInterface>(mediaclasses::kStreamAudioImport);
    const auto begin = [&](const auto& stream) {
        EXPECT_THAT(stream->InitStream(properties), Succeeds());
        EXPECT_THAT(stream->FinishStream(properties), Succeeds());
    };
    begin(import);
    begin(out);
    begin(audio);
    const SetPixelHandlerStruct set = Take(import->SetPixelStream(properties, {}, {}));
    EXPECT_FALSE(set);
    EXPECT_FALSE(set.IsDirty());
    EXPECT_FALSE(Take(out->GetPixelStream(properties, {}, {}, {})));
    EXPECT_THAT(exif->HandleExifData({}), FailsWith(errorid::kNullptr, ""));
    EXPECT_THAT(audio->SetAudioDataCallback({}), FailsWith(errorid::kIllegalArgument, ""));
    // What importers and the texture deliver is tested with them; here the errors, and the samples.
    const Error refused = MediaConverterError("no");
    const auto refuse = [&](const MediaStreamProperties& got) -> Result<void> {
        EXPECT_EQ(got.Get(mediaformat::kWidth, -1), 9);
        return refused;
    };
    size_t samples = 0;
    const auto take = [&](Block<const std::byte> block) -> Result<void> { return samples = block.size(), refused; };
    ASSERT_THAT(audio->SetCallbackHandler(refuse, take, refuse), Succeeds());
    const auto get = [&](const MediaStreamProperties&, const PixelFormat&, const ColorProfile&, GETPIXELHANDLERFLAGS) {
        return Result<GetPixelHandlerStruct>(refused);
    };
    ASSERT_THAT(out->SetCallbackHandler(refuse, get, refuse), Succeeds());
    const std::byte bytes[12] = {};
    for (const Error& error :
         {audio->InitStream(properties).GetError(), audio->SetAudioDataCallback(bytes).GetError(),
          audio->FinishStream(properties).GetError(), out->InitStream(properties).GetError(),
          out->GetPixelStream(properties, {}, {}, {}).GetError(), out->FinishStream(properties).GetError()})
        EXPECT_EQ(error.Get(), refused.Get());
    EXPECT_EQ(samples, 12u);
}

TEST_F(Stream, AudioObjectsCopyTheirSamples) {
    const auto audio = Create<AudioObjectInterface>(mediaclasses::kAudioObject);
    EXPECT_EQ(audio->GetDataPtr(), nullptr);
    std::byte samples[] = {std::byte(1), std::byte(2), std::byte(3), std::byte(4)};
    ASSERT_THAT(audio->Init(2, 8, 2, 44100, {}, samples), Succeeds());
    samples[1] = {};
    ASSERT_NE(audio->GetDataPtr(), nullptr);
    const Block<const std::byte> own(audio->GetDataPtr() + 1, 3);  // a part of itself
    ASSERT_THAT(audio->Init(1, 16, 1, 8000.5, TimeValue::FromSeconds(2), own), Succeeds());
    EXPECT_EQ(audio->GetDataPtr()[0], std::byte(2));
    EXPECT_EQ(std::tuple(audio->GetChannelCount(), audio->GetBitsPerChannel(), audio->GetSampleCount(),
                         audio->GetSampleRate(), audio->GetLength()),
              std::tuple(1, 16, 1, 8000.5, TimeValue::FromSeconds(2)));
    ASSERT_THAT(audio->Init(0, 0, 0, 0, {}, {}), Succeeds());
    EXPECT_EQ(audio->GetDataPtr(), nullptr);
}

/// Properties gather the entries of formats. A missing object is an error, and no other missing object gets to see
/// what was meant for it.
TEST_F(Stream, PropertiesCopyFormatsIntoWhatTheyHave) {
    const auto stream = Create<MediaStreamInterface>(mediaclasses::kStreamBase);
    for (const Int id : {0, 1})
        ASSERT_THAT(stream->AddFormat(Data(id), FormatOfWidth(10 * id + 10)), Succeeds());
    ASSERT_THAT(stream->SubscribeStream(Data(Int(1))), Succeeds());
    MediaStreamProperties properties = Take(MediaStreamProperties::FromStream(stream));
    EXPECT_EQ(Take(properties.Get(mediaformat::kWidth)), 20);
    EXPECT_TRUE(stream->IsSubscribed());
    ASSERT_THAT(properties.Set(mediaformat::kWidth, 99), Succeeds());
    EXPECT_EQ(WidthOf(stream->GetFormat(Data(Int(1)))), 20);  // the format keeps its value
    const auto object = Create<MediaStreamPropertiesInterface>(mediaclasses::kStreamProperties);
    ASSERT_THAT(object->Set(mediaformat::kHeight, 4), Succeeds());
    ASSERT_THAT(object->Init(FormatOfWidth(7)), Succeeds());
    EXPECT_EQ(object->Get(mediaformat::kWidth, 0), 7);
    ASSERT_THAT(object->Init(stream), Succeeds());
    EXPECT_EQ(object->Get(mediaformat::kWidth, 0), 20);
    EXPECT_THAT(object->Init(MediaStreamFormat()), Succeeds());
    EXPECT_THAT(object->Init(MediaStreamRef()), Succeeds());
    EXPECT_EQ(object->Get(mediaformat::kHeight, 0), 4);
    EXPECT_EQ(object->GetDictionary().GetCount(), 2);
    const Ref<MediaStreamPropertiesInterface> null;
    for (const Error& error :
         {null->Init(FormatOfWidth(7)).GetError(), null->Init(stream).GetError(), null->Clone().GetError(),
          Ref<MediaStreamFormatInterface>()->Clone().GetError(), AudioMarkersRef()->AddMarker({}).GetError(),
          MediaStreamProperties().Get(mediaformat::kWidth).GetError()})
        EXPECT_EQ(error->GetErrorId(), errorid::kNullptr);
    for (MediaStreamProperties empty : {Take(MediaStreamProperties::FromStream({})), MediaStreamProperties()}) {
        EXPECT_EQ(empty->GetDictionary().GetCount(), 0);
        EXPECT_THAT(empty.Set(mediaformat::kHeight, 4), Succeeds());
    }
    MediaStreamFormat first = FormatOfWidth(1), second = first;
    ASSERT_THAT(second.Set(mediaformat::kWidth, 2), Succeeds());
    EXPECT_EQ(WidthOf(first), 1);
}

// --- The walk --------------------------------------------------------------------------------------------------------

MediaStreamRef NamedStream(const char* name) {
    MediaStreamRef stream = Create<MediaStreamInterface>(mediaclasses::kStreamBase);
    EXPECT_THAT(stream->Set(mediaformat::kStreamName, name), Succeeds());
    return stream;
}
std::string NameOf(const MediaStreamRef& stream) {
    return std::string(stream->Get(mediaformat::kStreamName, "-").GetText());
}

/// root with children a (with grandchild x) and b in branch 0, an object that is no stream, and c in branch 2.
MediaStreamRef Tree() {
    const MediaStreamRef root = NamedStream("root"), a = NamedStream("a");
    EXPECT_THAT(root->AddChild(0, a), Succeeds());
    EXPECT_THAT(root->AddChild(0, Make<HierarchyObjectInterface>()), Succeeds());
    EXPECT_THAT(root->AddChild(0, NamedStream("b")), Succeeds());
    EXPECT_THAT(root->AddChild(2, NamedStream("c")), Succeeds());
    EXPECT_THAT(a->AddChild(0, NamedStream("x")), Succeeds());
    return root;
}

/// Parents before children, branch by branch; it stops where the visitor says so, with an error or without.
TEST_F(Stream, WalkVisitsUntilItIsStopped) {
    const CallLog all = {"root<-0", "a<root1", "x<a2", "b<root1", "c<root1"};
    const Error error = MediaConverterError("stop");
    for (size_t stop = 1; stop <= all.size() + 1; ++stop) {
        for (const bool fails : {false, true}) {
            CallLog visited;
            const Result<Bool> walked = WalkStreams(
                Tree(), [&](const MediaStreamRef& stream, const MediaStreamRef& parent, Int depth) -> Result<Bool> {
                    visited.push_back(NameOf(stream) + '<' + NameOf(parent) + std::to_string(depth));
                    if (visited.size() < stop)
                        return true;
                    return fails ? Result<Bool>(error) : Result<Bool>(false);
                });
            EXPECT_EQ(visited, CallLog(all.begin(), all.begin() + Int(std::min(stop, all.size()))));
            if (fails && stop <= all.size())
                EXPECT_EQ(walked.GetError().Get(), error.Get());
            else
                EXPECT_EQ(Take(walked), stop > all.size());
        }
    }
}

TEST_F(Stream, WalkSeesChildrenThatAreAddedMeanwhile) {
    CallLog visited;
    const MediaStreamRef tree = Tree();
    EXPECT_TRUE(Take(WalkStreams(tree, [&](const MediaStreamRef& stream, const MediaStreamRef&, Int) -> Result<Bool> {
        visited.push_back(NameOf(stream));
        if (visited.back() == "a") {
            for (int i = 0; i < 20; ++i)  // moves the list that is being walked
                TRY(tree->AddChild(0, NamedStream("new")));
        }
        return true;
    })));
    EXPECT_EQ(visited.size(), 25u);
    EXPECT_EQ(visited.back(), "c");
}

TEST_F(Stream, WalkRefusesTreesDeeperThan256Levels) {
    const auto converter = Create<MediaConverterInterface>(mediaclasses::kConverterBase);
    for (const int levels : {256, 257}) {
        const MediaStreamRef root = NamedStream("root");
        MediaStreamRef last = root;
        for (int i = 1; i < levels; ++i) {
            const MediaStreamRef next = NamedStream("next");
            ASSERT_THAT(last->AddChild(0, next), Succeeds());
            last = next;
        }
        ASSERT_THAT(converter->AddOutputStream(root), Succeeds());
        const auto streams = converter->GetOutputStreams(true);
        EXPECT_EQ(ErrorIdOf(streams), levels > 256 ? errorid::kIllegalState : Id());
        EXPECT_TRUE(!streams || streams->GetCount() == 256);
    }
}

}  // namespace
}  // namespace orvik
