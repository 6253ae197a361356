#include "codec_support.h"

#include "imexport/frame/media_io_importer.h"

namespace codectest {
namespace {

constexpr std::string_view kMounted = "codec.test";

/// A handler is given back however the test ends.
struct Reader {
    GetPixelHandlerStruct handler;
    ~Reader() { handler.Free(); }
};

Result<Bytes> ReadPixels(const ImageBaseRef& node, const PixelFormat& format) {
    const Int rowBytes = format->GetBytesPerLine(node->GetWidth());
    Bytes bytes(size_t(rowBytes * node->GetHeight()));
    Reader reader{TRY(node->GetPixelHandler(format, format->GetChannelOffsets(), ColorProfile(),
                                            GETPIXELHANDLERFLAGS::NONE, LayerSet()))};
    for (Int y = 0; y < node->GetHeight(); ++y)
        TRY(reader.handler.read({0, y, node->GetWidth()}, {bytes.data() + y * rowBytes, format->GetBitsPerPixel()},
                                GETPIXELFLAGS::NONE));
    return bytes;
}

Result<ImageRef> MakeImage(const Id& imageClass, Int width, Int height, const Id& formatId, const Bytes& pixels) {
    const ImageRef image = TRY(ClassRef(imageClass).Create<ImageInterface>());
    const PixelFormat format = PixelFormats::Get(formatId);
    TRY(image->Init(width, height, ClassRef(), format, {}));
    SetPixelHandlerStruct handler =
        TRY(image->SetPixelHandler(format, format->GetChannelOffsets(), ColorProfile(), SETPIXELHANDLERFLAGS::NONE));
    const Int rowBytes = format->GetBytesPerLine(width);
    Result<void> written;
    for (Int y = 0; y < height && written; ++y)
        written = handler.write({0, y, width}, {pixels.data() + y * rowBytes, format->GetBitsPerPixel()},
                                SETPIXELFLAGS::NONE);
    TRY(handler.Free());
    TRY(std::move(written));
    return image;
}

Result<ImageTextureRef> MakeTree(Block<const Picture> pictures) {
    ImageTextureRef texture = TRY(ClassRef(imageclasses::kTexture).Create<ImageTextureInterface>());
    for (const Picture& picture : pictures) {
        const ImageRef image =
            TRY(MakeImage(imageclasses::kImage, picture.width, picture.height, picture.format, picture.pixels));
        TRY(texture->AddChildren(IMAGEHIERARCHY::IMAGE, image, nullptr));
        if (!picture.alpha.empty()) {
            const ImageRef alpha = TRY(MakeImage(imageclasses::kRasterLayer, picture.width, picture.height,
                                                 pixelformats::kAlphaU8, picture.alpha));
            TRY(image->AddChildren(IMAGEHIERARCHY::ALPHA, alpha, nullptr));
        }
    }
    return texture;
}

Bytes ToBytes(Block<const std::byte> bytes) {
    const auto* first = reinterpret_cast<const uint8_t*>(bytes.data());
    return Bytes(first, first + bytes.size());
}

template <class T>
T Expect(Result<T> result, T otherwise) {
    EXPECT_TRUE(result) << result.GetError()->ToString().GetCString();
    return result ? std::move(result).TakeValue() : otherwise;
}

}  // namespace

Url Mount(const Bytes& bytes) {
    return Expect(MountMemoryFile(kMounted, Expect(CreateMemoryFile(AsBlock(bytes)), MemoryFileRef())), Url());
}

Result<ImageTextureRef> Load(const Url& url, MEDIASESSIONFLAGS flags) {
    return ImageTextureInterface::LoadTexture(url, TimeValue(), flags, ClassRef(), LayerSet());
}

Result<MediaSessionRef> ConnectToTexture(const MediaConverterRef& importer, const ImageTextureRef& texture) {
    const auto output = TRY(ClassRef(mediaclasses::kOutputTexture).Create<MediaOutputTextureInterface>());
    TRY(output->SetOutputTexture(texture, ClassRef(storageclasses::kNormal)));
    MediaSessionRef session = TRY(ClassRef(mediaclasses::kSession).Create<MediaSessionInterface>());
    TRY(session->ConnectMediaConverter(importer, output));
    return session;
}

Result<void> LoadInto(const ImageTextureRef& texture, std::string_view formatName, const InputStreamRef& stream) {
    const MediaSessionRef session = TRY(ConnectToTexture(MakeImporter(formatName, stream), texture));
    return session->Convert(TimeValue(), MEDIASESSIONFLAGS::NONE);
}

Result<ImageTextureRef> LoadAs(std::string_view formatName, const Bytes& bytes) {
    ImageTextureRef texture = MakeTexture();
    TRY(LoadInto(texture, formatName, Mount(bytes)));
    return texture;
}

ImageTextureRef Loaded(const Bytes& bytes) {
    return Expect(Load(bytes), MakeTexture({1, 1, pixelformats::kGreyU8, {0}}));
}

ImageTextureRef LoadedAs(std::string_view formatName, const Bytes& bytes) {
    return Expect(LoadAs(formatName, bytes), MakeTexture({1, 1, pixelformats::kGreyU8, {0}}));
}

ImageTextureRef MakeTexture() {
    return Expect(ClassRef(imageclasses::kTexture).Create<ImageTextureInterface>(), ImageTextureRef());
}

ImageBaseRef FirstImage(const ImageTextureRef& texture) {
    return Cast<ImageBaseInterface>(texture->GetFirstChild(Int(IMAGEHIERARCHY::IMAGE)));
}

ImageBaseRef AlphaOf(const ImageBaseRef& image) {
    return Cast<ImageBaseInterface>(image->GetFirstChild(Int(IMAGEHIERARCHY::ALPHA)));
}

Bytes PixelsOf(const ImageBaseRef& node, const Id& format) {
    return Expect(ReadPixels(node, PixelFormats::Get(format)), Bytes());
}

Bytes RgbaOf(const ImageTextureRef& texture) {
    const ImageBaseRef image = FirstImage(texture);
    Bytes rgba = PixelsOf(image, pixelformats::kRgbaU8);
    if (const ImageBaseRef alpha = AlphaOf(image)) {
        const Bytes alphas = PixelsOf(alpha, pixelformats::kAlphaU8);
        for (size_t i = 0; i < alphas.size() && 4 * i + 3 < rgba.size(); ++i)
            rgba[4 * i + 3] = alphas[i];
    }
    return rgba;
}

Bytes PixelsOfAll(const ImageTextureRef& texture) {
    Bytes all;
    for (const HierarchyObjectRef& child : texture->GetChildren(Int(IMAGEHIERARCHY::IMAGE))) {
        const auto image = Cast<ImageBaseInterface>(child);
        for (const ImageBaseRef& node : {image, AlphaOf(image)}) {
            const Bytes pixels = node ? PixelsOf(node, pixelformats::kRgbaU8) : Bytes();
            all.insert(all.end(), pixels.begin(), pixels.end());
        }
    }
    return all;
}

namespace {

struct Counter {
    const Listener& listener;
    Delivery& delivery;
    Result<void> operator()(const std::string& call) const {
        const Int nth = delivery.calls[call]++;
        return listener.answer ? listener.answer(call, nth) : Result<void>();
    }
};

Result<void> Subscribe(const MediaStreamRef& stream, const Counter& count) {
    TRY(stream->SubscribeStream(Data(Int(0))));
    ++count.delivery.streams;
    const auto init = [count](const MediaStreamProperties&) { return count("init"); };
    const auto finish = [count](const MediaStreamProperties&) { return count("finish"); };
    if (const auto audio = Cast<MediaStreamAudioDataImportInterface>(stream)) {
        const auto take = [count](Block<const std::byte> samples) {
            return count(std::to_string(samples.size()) + " samples");
        };
        return audio->SetCallbackHandler(init, take, finish);
    }
    const auto set = [count](const MediaStreamProperties&, ChannelOffsets, SETPIXELHANDLERFLAGS) {
        SetPixelHandlerStruct handler;
        handler.write = [count](const PixelSpan&, const PixelLineConst&, SETPIXELFLAGS) { return count("row"); };
        return Result<SetPixelHandlerStruct>(std::move(handler));
    };
    const auto image = Cast<MediaStreamImageDataImportInterface>(stream);
    return image ? image->SetCallbackHandler(init, set, finish) : Result<void>();
}

Result<void> RunImporter(const MediaConverterRef& importer, const Listener& listener, Delivery& delivery) {
    const auto session = TRY(ClassRef(mediaclasses::kSession).Create<MediaSessionInterface>());
    TRY(importer->ConnectToSession(session));
    const MediaSessionProgressRef progress = session->GetProgress();
    TRY(progress->InitProgress(TimeValue(), TimeValue()));
    TRY(progress->ObservableProgressNotification()->AddObserver(
        [&delivery](const MediaSessionProgressRef&, Float fraction, TimeValue, TimeValue) -> Result<void> {
            delivery.progress.push_back(fraction);
            return {};
        }));
    TRY(importer->Analyze({}, TimeValue(), MEDIASESSIONFLAGS::NONE));
    const BaseArray<MediaStreamRef> streams = TRY(importer->GetOutputStreams(true));
    for (Int i = listener.skippedStreams; i < streams.GetCount(); ++i)
        TRY(Subscribe(streams[i], {listener, delivery}));
    if (listener.beforeExecute)
        listener.beforeExecute();
    TRY(importer->PrepareExecute({}, TimeValue(), MEDIASESSIONFLAGS::NONE));
    delivery.jobs = TRY(progress->AddProgressJob(0, "counts the jobs before it"));
    return importer->Execute({}, TimeValue(), MEDIASESSIONFLAGS::NONE);
}

}  // namespace

MediaConverterRef MakeImporter(std::string_view formatName, const InputStreamRef& stream) {
    const ObjectRef importer = Expect(ClassRef(Format(formatName).importer).Create(), ObjectRef());
    dynamic_cast<FileImporter&>(*importer).SetSourceStream(stream);
    return Cast<MediaConverterInterface>(importer);
}

Delivery Deliver(const MediaConverterRef& importer, const Listener& listener) {
    Delivery delivery;
    delivery.kind = KindOf(RunImporter(importer, listener, delivery));
    return delivery;
}

Bytes ProfileBytes(const ColorProfile& profile) {
    return ToBytes(Expect(profile.WriteProfileToMemory(), Block<const std::byte>()));
}

Bytes BytesOf(const MemoryFileRef& file) { return ToBytes(std::as_const(*file).GetBytes().ToBlock()); }

ImageTextureRef MakeTexture(const Picture& picture) { return MakeTexture({&picture, 1}); }
ImageTextureRef MakeTexture(Block<const Picture> pictures) { return Expect(MakeTree(pictures), ImageTextureRef()); }

const FileFormatEntry& Format(std::string_view name) {
    for (const FileFormatEntry& entry : GetFileFormatTable()) {
        if (entry.name == name)
            return entry;
    }
    ADD_FAILURE() << "no format " << name;
    return GetFileFormatTable()[0];
}

std::vector<FileFormatEntry> WrittenFormats() {
    std::vector<FileFormatEntry> written;
    std::ranges::copy_if(GetFileFormatTable(), std::back_inserter(written),
                         [](const FileFormatEntry& entry) { return entry.makeExporter && entry.output.image; });
    return written;
}

Result<void> SaveTo(const ImageTextureRef& texture, std::string_view formatName, const Url& url) {
    const MediaOutputUrlRef exporter = TRY(ClassRef(Format(formatName).exporter).Create<MediaOutputUrlInterface>());
    TRY(exporter->SetOutputUrl(url));
    return texture->Save(exporter, MEDIASESSIONFLAGS::NONE, nullptr);
}

Result<Bytes> Save(const ImageTextureRef& texture, std::string_view formatName) {
    const MemoryFileRef file = TRY(CreateMemoryFile());
    TRY(SaveTo(texture, formatName, TRY(MountMemoryFile(kMounted, file))));
    return BytesOf(file);
}

}  // namespace codectest
