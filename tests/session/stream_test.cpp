// Streams: formats and subscription, the delegates and their absence, the walk, and properties made from a stream.
#include <gmock/gmock.h>

#include "session/mediasession_streamimpl.h"
#include "session_fakes.h"
#include "support/module_fixture.h"

namespace orvik {
namespace {

using testing::ElementsAre;
using Stream = ModuleFixture;

MediaStreamFormat FormatOfWidth(Int width) {
    MediaStreamFormat format;
    EXPECT_THAT(format.Set(mediaformat::kWidth, width), Succeeds());
    return format;
}
MediaStreamFormat ImageFormat(MEDIAFORMATTYPE type = MEDIAFORMATTYPE::IMAGE) {
    MediaStreamFormat format;
    EXPECT_THAT(format.Set(mediaformat::kType, type), Succeeds());
    return format;
}
Int WidthOf(const MediaStreamFormat& format) { return format.Get(mediaformat::kWidth, -1); }

TEST_F(Stream, TheFirstFormatSelectsItself) {
    const auto stream = Create<MediaStreamInterface>(mediaclasses::kStreamBase);
    EXPECT_TRUE(stream->GetSelectedFormat().IsEmpty());
    EXPECT_FALSE(stream->GetFormat(Data(Int(0))));
    ASSERT_THAT(stream->AddFormat(Data(Int(5)), FormatOfWidth(10)), Succeeds());
    ASSERT_THAT(stream->AddFormat(Data(Int(6)), FormatOfWidth(20)), Succeeds());
    ASSERT_THAT(stream->AddFormat(Data(String("best")), FormatOfWidth(30)), Succeeds());
    EXPECT_EQ(stream->GetSelectedFormat(), Data(Int(5)));
    ASSERT_THAT(stream->AddFormat(Data(Int(6)), FormatOfWidth(21)), Succeeds());  // replaced
    EXPECT_EQ(WidthOf(stream->GetFormat(Data(Int(5)))), 10);
    EXPECT_EQ(WidthOf(stream->GetFormat(Data(Int(6)))), 21);
    EXPECT_EQ(WidthOf(stream->GetFormat(Data(String("best")))), 30);

    std::map<std::string, Int> listed;
    for (const MediaStreamFormatEntry& entry : Take(stream->GetFormats()))
        listed[std::string(entry.id.ToString().GetText())] = WidthOf(entry.format);
    EXPECT_EQ(listed, (std::map<std::string, Int>{{"5", 10}, {"6", 21}, {"best", 30}}));
}

TEST_F(Stream, UnknownIdsChangeNothing) {
    const auto stream = Create<MediaStreamInterface>(mediaclasses::kStreamBase);
    EXPECT_THAT(stream->SubscribeStream(Data(Int(0))), FailsAs(errorid::kIllegalArgument));
    ASSERT_THAT(stream->AddFormat(Data(Int(0)), FormatOfWidth(10)), Succeeds());
    ASSERT_THAT(stream->AddFormat(Data(Int(1)), FormatOfWidth(20)), Succeeds());
    EXPECT_THAT(stream->SetSelectedFormat(Data(Int(2))), FailsWith(errorid::kIllegalArgument, ""));
    EXPECT_THAT(stream->SubscribeStream(Data(Float(0))), FailsAs(errorid::kIllegalArgument)) << "of another type";
    EXPECT_EQ(stream->GetSelectedFormat(), Data(Int(0)));
    EXPECT_FALSE(stream->IsSubscribed());

    ASSERT_THAT(stream->SubscribeStream(Data(Int(1))), Succeeds());
    EXPECT_TRUE(stream->IsSubscribed());
    EXPECT_THAT(stream->SubscribeStream(Data(Int(2))), FailsAs(errorid::kIllegalArgument));
    EXPECT_TRUE(stream->IsSubscribed());
    ASSERT_THAT(stream->UnsubscribeStream(), Succeeds());
    EXPECT_FALSE(stream->IsSubscribed());
    EXPECT_EQ(stream->GetSelectedFormat(), Data(Int(1)));
}

TEST_F(Stream, ImageStreamsRefuseFormatsWithoutAType) {
    for (const Id& id : {mediaclasses::kStreamImport, mediaclasses::kStreamExport}) {
        const auto stream = Create<MediaStreamInterface>(id);
        EXPECT_THAT(stream->AddFormat(Data(Int(0)), FormatOfWidth(3)), FailsAs(errorid::kIllegalArgument));
        EXPECT_THAT(stream->AddFormat(Data(Int(0)), {}), FailsAs(errorid::kNullptr));
        EXPECT_TRUE(stream->GetSelectedFormat().IsEmpty());
        EXPECT_TRUE(Take(stream->GetFormats()).IsEmpty());
        EXPECT_THAT(stream->AddFormat(Data(Int(0)), ImageFormat(MEDIAFORMATTYPE::UNDEFINED)), Succeeds());
        EXPECT_EQ(stream->GetSelectedFormat(), Data(Int(0)));
    }
    for (const Id& id : {mediaclasses::kStreamBase, mediaclasses::kStreamImageBase, mediaclasses::kStreamExif,
                         mediaclasses::kStreamAudioImport})
        EXPECT_THAT(Create<MediaStreamInterface>(id)->AddFormat(Data(Int(0)), {}), Succeeds()) << id.GetText();
}

TEST_F(Stream, CastsTellTheKindsApart) {
    const auto image = Create<MediaStreamInterface>(mediaclasses::kStreamImport);
    const auto audio = Create<MediaStreamInterface>(mediaclasses::kStreamAudioImport);
    const auto exif = Create<MediaStreamInterface>(mediaclasses::kStreamExif);
    EXPECT_TRUE(Cast<MediaStreamImageBaseInterface>(image));
    EXPECT_FALSE(Cast<MediaStreamImageDataExportInterface>(image));
    EXPECT_FALSE(Cast<MediaStreamImageBaseInterface>(audio));
    EXPECT_FALSE(Cast<MediaStreamImageBaseInterface>(exif));
    EXPECT_TRUE(Cast<MediaStreamExifDataInterface>(exif));
}

TEST_F(Stream, WithoutDelegates) {
    const MediaStreamProperties properties;
    const auto import = Create<MediaStreamImageDataImportInterface>(mediaclasses::kStreamImport);
    EXPECT_THAT(import->InitStream(properties), Succeeds());
    EXPECT_THAT(import->FinishStream(properties), Succeeds());
    const SetPixelHandlerStruct set = Take(import->SetPixelStream(properties, {}, {}));
    EXPECT_FALSE(set);
    EXPECT_FALSE(set.IsDirty());
    EXPECT_EQ(set.minX, std::numeric_limits<Int>::max());
    EXPECT_EQ(set.minY, std::numeric_limits<Int>::max());
    EXPECT_EQ(set.maxX, std::numeric_limits<Int>::min());
    EXPECT_EQ(set.maxY, std::numeric_limits<Int>::min());

    const auto out = Create<MediaStreamImageDataExportInterface>(mediaclasses::kStreamExport);
    EXPECT_THAT(out->InitStream(properties), Succeeds());
    EXPECT_THAT(out->FinishStream(properties), Succeeds());
    EXPECT_FALSE(Take(out->GetPixelStream(properties, {}, {}, {})));

    const auto exif = Create<MediaStreamExifDataInterface>(mediaclasses::kStreamExif);
    EXPECT_THAT(exif->HandleExifData({}), FailsWith(errorid::kNullptr, ""));
    EXPECT_THAT(exif->FinishStream(), Succeeds());

    const auto audio = Create<MediaStreamAudioDataImportInterface>(mediaclasses::kStreamAudioImport);
    EXPECT_THAT(audio->InitStream(properties), Succeeds());
    EXPECT_THAT(audio->SetAudioDataCallback({}), FailsWith(errorid::kIllegalArgument, ""));
    EXPECT_THAT(audio->FinishStream(properties), Succeeds());
}

/// The two delegates that all streams of pixels and samples have: they get the arguments, and their errors come back.
template <class Interface, class Middle>
void ExpectInitAndFinishDelegates(const Ref<Interface>& stream, const Middle& middle) {
    const MediaStreamProperties properties = Take(MediaStreamProperties::FromFormat(FormatOfWidth(9)));
    const Error refused = MediaConverterError("no");
    CallLog log;
    const auto note = [&log](const char* name) {
        return [&log, name](const MediaStreamProperties& got) -> Result<void> {
            log.push_back(name + std::to_string(got.Get(mediaformat::kWidth, -1)));
            return {};
        };
    };
    ASSERT_THAT(stream->SetCallbackHandler(note("init"), middle, note("finish")), Succeeds());
    EXPECT_THAT(stream->InitStream(properties), Succeeds());
    EXPECT_THAT(stream->FinishStream(properties), Succeeds());
    EXPECT_THAT(log, ElementsAre("init9", "finish9"));
    const auto refuse = [&](const MediaStreamProperties&) -> Result<void> { return refused; };
    ASSERT_THAT(stream->SetCallbackHandler(refuse, middle, refuse), Succeeds());
    EXPECT_EQ(stream->InitStream(properties).GetError().Get(), refused.Get());
    EXPECT_EQ(stream->FinishStream(properties).GetError().Get(), refused.Get());
}

TEST_F(Stream, DelegatesGetTheArgumentsAndTheirErrorsComeBack) {
    const Error refused = MediaConverterError("no");
    size_t seen = 0;
    const auto import = Create<MediaStreamImageDataImportInterface>(mediaclasses::kStreamImport);
    ExpectInitAndFinishDelegates(import,
                                 [&](const MediaStreamProperties&, ChannelOffsets offsets,
                                     SETPIXELHANDLERFLAGS) -> Result<SetPixelHandlerStruct> {
                                     seen = offsets.size();
                                     SetPixelHandlerStruct handler;
                                     handler.write = [](const PixelSpan&, const PixelLineConst&,
                                                        SETPIXELFLAGS) -> Result<void> { return {}; };
                                     return handler;
                                 });
    const BITS offsets[] = {BITS(0), BITS(8), BITS(16)};
    EXPECT_TRUE(Take(import->SetPixelStream({}, offsets, {})));
    EXPECT_EQ(seen, 3u);

    const auto out = Create<MediaStreamImageDataExportInterface>(mediaclasses::kStreamExport);
    ExpectInitAndFinishDelegates(out,
                                 [&](const MediaStreamProperties&, const PixelFormat&, const ColorProfile&,
                                     GETPIXELHANDLERFLAGS) -> Result<GetPixelHandlerStruct> { return refused; });
    EXPECT_EQ(out->GetPixelStream({}, {}, {}, {}).GetError().Get(), refused.Get());

    const auto audio = Create<MediaStreamAudioDataImportInterface>(mediaclasses::kStreamAudioImport);
    ExpectInitAndFinishDelegates(audio, [&](Block<const std::byte> block) -> Result<void> {
        seen = block.size();
        return {};
    });
    const std::byte bytes[12] = {};
    EXPECT_THAT(audio->SetAudioDataCallback(bytes), Succeeds());
    EXPECT_EQ(seen, 12u);

    const auto exif = Create<MediaStreamExifDataInterface>(mediaclasses::kStreamExif);
    ASSERT_THAT(exif->SetCallbackHandler([&](const ExifRef&) -> Result<void> { return refused; }), Succeeds());
    EXPECT_EQ(exif->HandleExifData({}).GetError().Get(), refused.Get());
}

TEST_F(Stream, PropertiesCopyTheSelectedFormat) {
    const auto stream = Create<MediaStreamInterface>(mediaclasses::kStreamBase);
    ASSERT_THAT(stream->AddFormat(Data(Int(0)), FormatOfWidth(10)), Succeeds());
    ASSERT_THAT(stream->AddFormat(Data(Int(1)), FormatOfWidth(20)), Succeeds());
    ASSERT_THAT(stream->SubscribeStream(Data(Int(1))), Succeeds());
    MediaStreamProperties properties = Take(MediaStreamProperties::FromStream(stream));
    EXPECT_EQ(Take(properties.Get(mediaformat::kWidth)), 20);
    EXPECT_TRUE(stream->IsSubscribed());
    ASSERT_THAT(properties.Set(mediaformat::kWidth, 99), Succeeds());
    EXPECT_EQ(WidthOf(stream->GetFormat(Data(Int(1)))), 20);  // the format keeps its value

    for (const MediaStreamRef& empty : {MediaStreamRef(), Create<MediaStreamInterface>(mediaclasses::kStreamBase)}) {
        MediaStreamProperties none = Take(MediaStreamProperties::FromStream(empty));
        ASSERT_TRUE(none);
        EXPECT_EQ(none->GetDictionary().GetCount(), 0);
        EXPECT_THAT(none.Set(mediaformat::kHeight, 4), Succeeds());
    }
    EXPECT_TRUE(Take(MediaStreamProperties::FromFormat({})));
}

TEST_F(Stream, FormatsAndPropertiesCopyOnWrite) {
    MediaStreamFormat first = FormatOfWidth(1);
    MediaStreamFormat second = first;
    ASSERT_THAT(second.Set(mediaformat::kWidth, 2), Succeeds());
    EXPECT_EQ(WidthOf(first), 1);
    EXPECT_EQ(WidthOf(second), 2);
    EXPECT_THAT(first.Get(mediaformat::kHeight), FailsAs(errorid::kIllegalArgument));
    EXPECT_THAT(MediaStreamFormat().Get(mediaformat::kHeight), FailsAs(errorid::kNullptr));
    EXPECT_EQ(MediaStreamFormat().Get(mediaformat::kHeight, 7), 7);
    EXPECT_TRUE(Create<MediaStreamFormatInterface>(mediaclasses::kStreamFormat));
    EXPECT_TRUE(Create<MediaStreamPropertiesInterface>(mediaclasses::kStreamProperties));
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

TEST_F(Stream, WalkVisitsParentsBeforeChildrenBranchByBranch) {
    CallLog visited;
    EXPECT_TRUE(Take(
        WalkStreams(Tree(), [&](const MediaStreamRef& stream, const MediaStreamRef& parent, Int depth) -> Result<Bool> {
            visited.push_back(NameOf(stream) + '<' + NameOf(parent) + std::to_string(depth));
            return true;
        })));
    EXPECT_THAT(visited, ElementsAre("root<-0", "a<root1", "x<a2", "b<root1", "c<root1"));
    EXPECT_TRUE(Take(WalkStreams(nullptr, [](const MediaStreamRef&, const MediaStreamRef&, Int) -> Result<Bool> {
        ADD_FAILURE() << "nothing to visit";
        return false;
    })));
}

TEST_F(Stream, WalkStopsWithoutOrWithAnError) {
    for (const std::string stop : {"root", "a", "x", "b", "c"}) {
        const Error error = MediaConverterError("stop");
        for (const bool fails : {false, true}) {
            CallLog visited;
            const Result<Bool> walked =
                WalkStreams(Tree(), [&](const MediaStreamRef& stream, const MediaStreamRef&, Int) -> Result<Bool> {
                    visited.push_back(NameOf(stream));
                    if (NameOf(stream) != stop)
                        return true;
                    return fails ? Result<Bool>(error) : Result<Bool>(false);
                });
            EXPECT_EQ(visited.back(), stop);
            if (fails)
                EXPECT_EQ(walked.GetError().Get(), error.Get());
            else
                EXPECT_EQ(Take(walked), false);
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

TEST_F(Stream, WalkRefusesBottomlessTrees) {
    const auto chain = [](int levels) {
        const MediaStreamRef root = NamedStream("root");
        MediaStreamRef last = root;
        for (int i = 1; i < levels; ++i) {
            const MediaStreamRef next = NamedStream("next");
            EXPECT_THAT(last->AddChild(0, next), Succeeds());
            last = next;
        }
        return root;
    };
    const auto converter = Create<MediaConverterInterface>(mediaclasses::kConverterBase);
    ASSERT_THAT(converter->AddOutputStream(chain(256)), Succeeds());
    EXPECT_EQ(TakeList(converter->GetOutputStreams(true)).size(), 256u);
    ASSERT_THAT(converter->AddOutputStream(chain(257)), Succeeds());
    EXPECT_THAT(converter->GetOutputStreams(true), FailsAs(errorid::kIllegalState));
    EXPECT_EQ(TakeList(converter->GetOutputStreams(false)).size(), 2u);
}

}  // namespace
}  // namespace orvik
