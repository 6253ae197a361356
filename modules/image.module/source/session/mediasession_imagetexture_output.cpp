#include "session/mediasession_imagetexture_output.h"

#include "base/registration.h"
#include "session/mediasession_imagetexture_export.h"

namespace orvik {
namespace {

/// What a node is, by what its stream was. A smaller level of an image is an image.
constexpr ITYPE ToImageType(MEDIAFORMATTYPE type) {
    switch (type) {
        case MEDIAFORMATTYPE::ALPHA:
            return ITYPE::ALPHA;
        case MEDIAFORMATTYPE::LAYERFOLDER:
            return ITYPE::FOLDER;
        case MEDIAFORMATTYPE::LAYER:
            return ITYPE::LAYER;
        case MEDIAFORMATTYPE::LAYERADJUSTMENT:
            return ITYPE::ADJUSTMENT;
        case MEDIAFORMATTYPE::LAYERMASK:
            return ITYPE::LAYERMASK;
        case MEDIAFORMATTYPE::DEEPIMAGEDATA:
            return ITYPE::DEEPIMAGEDATA;
        case MEDIAFORMATTYPE::UNDEFINED:
            return ITYPE::UNDEFINED;
        case MEDIAFORMATTYPE::IMAGE:
        case MEDIAFORMATTYPE::MIPMAP:
            break;
    }
    return ITYPE::IMAGE;
}

constexpr bool IsLayer(MEDIAFORMATTYPE type) {
    return type >= MEDIAFORMATTYPE::LAYERFOLDER && type <= MEDIAFORMATTYPE::LAYERMASK;
}

/// The branch below its parent's node where the node of a stream hangs. Images are placed below the texture.
Result<IMAGEHIERARCHY> ToBranch(MEDIAFORMATTYPE type) {
    switch (type) {
        case MEDIAFORMATTYPE::ALPHA:
            return IMAGEHIERARCHY::ALPHA;
        case MEDIAFORMATTYPE::LAYERFOLDER:
        case MEDIAFORMATTYPE::LAYER:
        case MEDIAFORMATTYPE::LAYERADJUSTMENT:
            return IMAGEHIERARCHY::LAYER;
        case MEDIAFORMATTYPE::LAYERMASK:
            return IMAGEHIERARCHY::MASK;
        default:
            return MediaConverterError();
    }
}

/// Copies one entry, if it is there.
Result<void> CopyEntry(const DataDictionary& from, const Id& fromKey, DataDictionaryObjectInterface& to,
                       const Id& toKey) {
    const Data* data = from.Find(fromKey);
    return data ? to.SetData(toKey, *data) : Result<void>();
}

/// Copies one layer key, if it is there. A stream names its blend mode, a node holds it; a name under which
/// no mode is published stays a name.
Result<void> CopyLayerEntry(const DataDictionary& from, const LayerKeyPair& key, DataDictionaryObjectInterface& to) {
    if (key.image == image::kLayerBlendMode.GetId()) {
        const Id id = from.Get(mediaformat::kLayerBlendMode, Id());
        if (const auto mode = Registry::Find<ImagePixelBlendInterface>(kBlendModeRegistry, id))
            return to.Set(image::kLayerBlendMode, mode);
    }
    return CopyEntry(from, key.mediaFormat, to, key.image);
}

/// One pixel of the colour that a mask has outside its rectangle; empty when the stream does not say. The byte is alpha
/// where the pixels are, else grey, since grey that becomes alpha is opaque whatever its value.
Result<BaseArray<std::byte>> MakeFillPixel(const DataDictionary& facts, const PixelFormat& format) {
    BaseArray<std::byte> pixel;
    if (!facts.Contains(mediaformat::kLayerMaskDefColor.GetId()))
        return pixel;
    const Pix8u value = static_cast<Pix8u>(std::clamp<Int>(TRY(facts.Get(mediaformat::kLayerMaskDefColor)), 0, 255));
    const bool isAlpha = format->GetColorSpace() == colorspaces::Get(colorspaces::kAlpha);
    const PixelFormat source = PixelFormats::Get(isAlpha ? pixelformats::kAlphaU8 : pixelformats::kGreyU8);
    TRY(pixel.Resize(format->GetBitsPerPixel().GetBytes()));
    TRY(format->ConvertPixelFromSlow({pixel.GetFirst(), format->GetBitsPerPixel()}, 1, {&value, BITS(8)}, source,
                                     nullptr, nullptr, CONVERTPIXELFLAGS::NONE));
    return pixel;
}

/// Gives a node the size and format that a stream's dictionary names, over a storage of the given class.
Result<void> InitNode(ImageInterface& node, const DataDictionary& facts, MEDIAFORMATTYPE type,
                      const ClassRef& storage) {
    const PixelFormat format = TRY(facts.Get(mediaformat::kPixelFormat));
    const Int width = TRY(facts.Get(mediaformat::kWidth));
    const Int height = TRY(facts.Get(mediaformat::kHeight));
    const BaseArray<std::byte> fill = TRY(MakeFillPixel(facts, format));
    TRY(node.Init(width, height, storage, format, fill.ToBlock()));
    return node.Set(image::kType, ToImageType(type));  // `Init` makes every node an image
}

}  // namespace

/// What the delegates of one stream work on. It knows neither streams nor the output, which would close a circle of
/// references; so it also stays valid when the output was reset under a running importer.
class MediaOutputTextureImpl::Target : public Object {
public:
    Target(ImageTextureRef texture, ClassRef storage, MEDIAFORMATTYPE type, DataDictionary facts)
        : _texture(std::move(texture)), _storage(std::move(storage)), _type(type), _facts(std::move(facts)) {}

    void SetNode(ImageRef node) { _node = std::move(node); }
    const ImageRef& GetNode() const { return _node; }

    /// Gives the node its real storage. A layer can be empty, and an empty one has no pixels to store.
    Result<void> InitStream(const MediaStreamProperties& properties) {
        _facts = properties->GetDictionary();
        TRY(_node->Set(image::kColorProfile, _facts.Get(mediaformat::kColorProfile, ColorProfile())));
        const bool isEmpty = _type != MEDIAFORMATTYPE::IMAGE &&
                             (_facts.Get(mediaformat::kWidth, 0) == 0 || _facts.Get(mediaformat::kHeight, 0) == 0);
        return InitNode(*_node, _facts, _type, isEmpty ? ClassRef(storageclasses::kNoData) : _storage);
    }
    Result<SetPixelHandlerStruct> SetPixels(ChannelOffsets offsets, SETPIXELHANDLERFLAGS flags) {
        return _node->SetPixelHandler(TRY(_facts.Get(mediaformat::kPixelFormat)), offsets, ColorProfile(), flags);
    }
    Result<void> FinishStream(const MediaStreamProperties& properties) {
        _sampleTime = properties.Get(mediaproperty::kSampleTime, TimeValue());
        _skippedFrames = properties.Get(mediaproperty::kSkippedFrames, 0);
        if (__builtin_add_overflow(_allSkippedFrames, _skippedFrames, &_allSkippedFrames))
            _allSkippedFrames = std::numeric_limits<Int>::max();
        return _texture->Set(image::kSampleTime, _sampleTime);
    }

private:
    ImageTextureRef _texture;
    ClassRef _storage;
    MEDIAFORMATTYPE _type;
    DataDictionary _facts;  ///< of the stream's format, then of the sample that is delivered
    ImageRef _node;
    Int _skippedFrames = 0;     ///< of the last sample
    Int _allSkippedFrames = 0;  ///< over all samples
    TimeValue _sampleTime;
};

MediaOutputTextureImpl::MediaOutputTextureImpl() = default;
MediaOutputTextureImpl::~MediaOutputTextureImpl() { Clear(); }

Result<void> MediaOutputTextureImpl::SetOutputTexture(const ImageTextureRef& texture, const ClassRef& storage) {
    _texture = texture;
    _storage = storage;
    return {};
}

void MediaOutputTextureImpl::Clear() noexcept {
    _analyzed = false;
    _hasExportSettings = false;
    _duration = TimeValue();
    while (!_records.IsEmpty())
        _records.Pop();
    _records.Reset();
    _recordOfStream.Reset();
}

Result<void> MediaOutputTextureImpl::ResetConverter() {
    Clear();
    _fps = kUnknownFps;
    return {};
}

Result<void> MediaOutputTextureImpl::Close(Inputs) {
    Clear();
    return {};
}

Result<void> MediaOutputTextureImpl::Analyze(Inputs inputs, TimeValue targetTime, MEDIASESSIONFLAGS flags) {
    if (_analyzed)
        return {};
    _analyzed = true;
    TRY(AnalyzeInput(inputs, targetTime, flags));
    const BaseArray<MediaStreamRef> roots = TRY(inputs[0]->GetOutputStreams(false));
    const StreamVisitor visit = [this](const MediaStreamRef& stream, const MediaStreamRef& parent,
                                       Int) -> Result<Bool> {
        TRY(VisitStream(stream, parent));
        return true;
    };
    for (const MediaStreamRef& root : roots)
        TRY(WalkStreams(root, visit));
    if (_records.IsEmpty())
        return MediaSessionWrongTypeError();
    return {};
}

Result<void> MediaOutputTextureImpl::PrepareExecute(Inputs inputs, TimeValue targetTime, MEDIASESSIONFLAGS flags) {
    return PrepareExecuteInput(inputs, targetTime, flags);
}

Result<void> MediaOutputTextureImpl::Execute(Inputs inputs, TimeValue targetTime, MEDIASESSIONFLAGS flags) {
    return ExecuteInput(inputs, targetTime, flags);
}

Result<void> MediaOutputTextureImpl::VisitStream(const MediaStreamRef& stream, const MediaStreamRef& parent) {
    const MediaStreamFormat format = stream->GetFormat(stream->GetSelectedFormat());
    const SELECTIONHANDLERRESULT wanted = TRY(CallSelectionHandler(stream, format));
    const bool wantsStructure = HasFlag(wanted, SELECTIONHANDLERRESULT::STRUCTURE);

    if (Cast<MediaStreamExifDataInterface>(stream) && wantsStructure)
        TRY(SubscribeExif(stream));
    if (!Cast<MediaStreamImageBaseInterface>(stream))
        return {};
    const Int index = TRY(AddRecord(stream, parent, format));
    TRY(TakeTiming(_records[index]));
    if (!wantsStructure)
        return {};
    const ImageRef node = TRY(Build(index));
    const Record& record = _records[index];
    TRY(CopyPictureKeys(record));
    if (HasFlag(wanted, SELECTIONHANDLERRESULT::CONTENT_FLAG))
        return SubscribePixels(stream, record);
    return InitNode(*node, record.GetFacts(), record.type, ClassRef(storageclasses::kNoData));
}

Result<Int> MediaOutputTextureImpl::AddRecord(const MediaStreamRef& stream, const MediaStreamRef& parent,
                                              const MediaStreamFormat& format) {
    const MEDIAFORMATTYPE type = format.Get(mediaformat::kType, MEDIAFORMATTYPE::UNDEFINED);
    const Int index = _records.GetCount();
    // Made outside the braces: GCC forgets the members before it when an initialiser returns from the function.
    Ref<Target> target = TRY(NewObj<Target>(_texture, _storage, type, format->GetDictionary()));
    TRY(_records.Append(Record{
        .parent = parent,
        .stream = stream,
        .target = std::move(target),
        .fps = format.Get(mediaformat::kVideoFps, 0),
        .duration = format.Get(mediaformat::kVideoDuration, TimeValue()),
        .type = type,
        .name = format.Get(mediaformat::kStreamName, String()),
        .alphaName = format.Get(mediaformat::kAlphaName, String()),
        .format = format,
    }));
    if (Result<void> entered = _recordOfStream.Set(stream, index); !entered) {
        _records.Pop();
        return std::move(entered).TakeError();
    }
    return index;
}

/// The first stream decides, also when it says nothing: its 0 counts as known.
Result<void> MediaOutputTextureImpl::TakeTiming(const Record& record) {
    if (_fps != kUnknownFps)
        return {};
    if (record.fps != 0) {
        TRY(_texture->Set(image::kFps, record.fps));
        TRY(_texture->Set(image::kDuration, record.duration));
    }
    _fps = record.fps;
    _duration = record.duration;
    return {};
}

Result<ImageRef> MediaOutputTextureImpl::Build(Int index) {
    if (const ImageRef& node = _records[index].target->GetNode())
        return node;
    const Record& record = _records[index];
    const DataDictionary& facts = record.GetFacts();
    const PixelFormat format = TRY(record.format.Get(mediaformat::kPixelFormat));
    const Int width = TRY(record.format.Get(mediaformat::kWidth));
    const Int height = TRY(record.format.Get(mediaformat::kHeight));
    const MEDIAFORMATTYPE type = TRY(record.format.Get(mediaformat::kType));

    const bool isImage = type == MEDIAFORMATTYPE::IMAGE;
    const ImageRef node =
        TRY(ClassRef(isImage ? imageclasses::kImage : imageclasses::kRasterLayer).Create<ImageInterface>());
    TRY(node->Init(width, height, ClassRef(storageclasses::kNoData), format, {}));
    TRY(node->Set(image::kType, ToImageType(type)));
    TRY(node->Set(image::kName, record.name));
    TRY(node->Set(image::kAlphaName, record.alphaName));
    if (IsLayer(type)) {
        for (const LayerKeyPair& key : GetLayerKeyPairs())
            TRY(CopyLayerEntry(facts, key, *node));
    }
    TRY(CopyEntry(facts, mediaformat::kSubImageIndex.GetId(), *node, image::kSubImageIndex.GetId()));
    TRY(CopyEntry(facts, mediaformat::kHotspotX.GetId(), *node, image::kHotspotX.GetId()));
    TRY(CopyEntry(facts, mediaformat::kHotspotY.GetId(), *node, image::kHotspotY.GetId()));
    TRY(PlaceInTree(record, node));
    if (isImage && !record.parent && !_hasExportSettings) {
        // What a file was written with is what a save of the texture starts from.
        _hasExportSettings = true;
        TRY(CopyEntry(facts, mediaformat::kExportSettings.GetId(), *_texture, image::kExportSettings.GetId()));
    }
    record.target->SetNode(node);
    return node;
}

Result<void> MediaOutputTextureImpl::PlaceInTree(const Record& record, const ImageRef& node) {
    if (!record.parent)
        return _texture->AddChildren(IMAGEHIERARCHY::IMAGE, node, nullptr);
    const Int* parentIndex = _recordOfStream.Find(record.parent);
    if (!parentIndex)
        return MediaConverterError("Parent stream not found.");
    // An image cannot hang below an image. Streams are visited parents first, and each is placed when it is visited:
    // so the end of the list is right behind the parent and its earlier children. A parent that is not wanted is not
    // built for it; as the texture's first image it would answer for the texture without having pixels.
    if (record.type == MEDIAFORMATTYPE::IMAGE)
        return _texture->AddChildren(IMAGEHIERARCHY::IMAGE, node, nullptr);
    const ImageRef parent = TRY(Build(*parentIndex));
    return parent->AddChildren(TRY(ToBranch(record.type)), node, nullptr);
}

Result<void> MediaOutputTextureImpl::CopyPictureKeys(const Record& record) {
    const DataDictionary& facts = record.GetFacts();
    ImageInterface& node = *record.target->GetNode();
    TRY(node.Set(image::kColorProfile, facts.Get(mediaformat::kColorProfile, ColorProfile())));
    for (DataDictionaryObjectInterface* to : {static_cast<DataDictionaryObjectInterface*>(&node),
                                              static_cast<DataDictionaryObjectInterface*>(&*_texture)}) {
        TRY(CopyEntry(facts, mediaformat::kAspectRatio.GetId(), *to, image::kAspectRatio.GetId()));
        TRY(CopyEntry(facts, mediaformat::kDpi.GetId(), *to, image::kDpi.GetId()));
    }
    return {};
}

Result<void> MediaOutputTextureImpl::SubscribeExif(const MediaStreamRef& stream) {
    TRY(stream->SubscribeStream(stream->GetSelectedFormat()));
    return Cast<MediaStreamExifDataInterface>(stream)->SetCallbackHandler(
        [texture = _texture](const ExifRef& exif) { return texture->Set(image::kExifData, exif); });
}

Result<void> MediaOutputTextureImpl::SubscribePixels(const MediaStreamRef& stream, const Record& record) {
    TRY(stream->SubscribeStream(stream->GetSelectedFormat()));
    const auto import = Cast<MediaStreamImageDataImportInterface>(stream);
    if (!import)
        return {};
    const Ref<Target>& target = record.target;
    return import->SetCallbackHandler(
        [target](const MediaStreamProperties& properties) { return target->InitStream(properties); },
        [target](const MediaStreamProperties&, ChannelOffsets offsets, SETPIXELHANDLERFLAGS flags) {
            return target->SetPixels(offsets, flags);
        },
        [target](const MediaStreamProperties& properties) { return target->FinishStream(properties); });
}

Result<void> RegisterTextureConverters(Publisher& publisher) {
    TRY(publisher.PublishClass<MediaOutputTextureImpl>(mediaclasses::kOutputTexture));
    return publisher.PublishClass<MediaStreamExportFromImageTextureImpl>(mediaclasses::kExportFromTexture);
}

}  // namespace orvik
