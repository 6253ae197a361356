#include "session/mediasession_imagetexture_export.h"

#include "orvik/mediasession_audiodata.h"

namespace orvik {
namespace {

/// What the stream of a node is; UNDEFINED for a node that gets none. In the layer branches the node itself says.
MEDIAFORMATTYPE ToFormatType(const ImageBaseRef& node, IMAGEHIERARCHY branch) {
    switch (branch) {
        case IMAGEHIERARCHY::IMAGE:
            return MEDIAFORMATTYPE::IMAGE;
        case IMAGEHIERARCHY::ALPHA:
            return MEDIAFORMATTYPE::ALPHA;
        case IMAGEHIERARCHY::DEEPIMAGEDATA:
            return MEDIAFORMATTYPE::DEEPIMAGEDATA;
        case IMAGEHIERARCHY::LAYER:
        case IMAGEHIERARCHY::MASK:
            break;
        default:
            return MEDIAFORMATTYPE::UNDEFINED;
    }
    switch (node->Get(image::kType, ITYPE::UNDEFINED)) {
        case ITYPE::LAYER:
            return MEDIAFORMATTYPE::LAYER;
        case ITYPE::LAYERMASK:
            return MEDIAFORMATTYPE::LAYERMASK;
        case ITYPE::FOLDER:
            return MEDIAFORMATTYPE::LAYERFOLDER;
        case ITYPE::ADJUSTMENT:
            return MEDIAFORMATTYPE::LAYERADJUSTMENT;
        default:
            return MEDIAFORMATTYPE::UNDEFINED;
    }
}

/// Copies one entry, if it is there.
Result<void> CopyEntry(const ImageBaseInterface& from, const Id& fromKey, MediaStreamFormat& to, const Id& toKey) {
    const Data* data = from.GetDictionary().Find(fromKey);
    return data ? to.SetData(toKey, *data) : Result<void>();
}

/// Copies one layer key, if it is there. A node holds its blend mode, a stream names it.
Result<void> CopyLayerEntry(const ImageBaseInterface& from, const LayerKeyPair& key, MediaStreamFormat& to) {
    if (key.image == image::kLayerBlendMode.GetId()) {
        if (const ImagePixelBlend mode = from.Get(image::kLayerBlendMode, ImagePixelBlend()))
            return to.Set(mediaformat::kLayerBlendMode, mode->GetId());
    }
    return CopyEntry(from, key.image, to, key.mediaFormat);
}

}  // namespace

/// What the delegates of one stream work on: a node and its job. It does not know its stream, which would close a
/// circle of references.
class MediaStreamExportFromImageTextureImpl::Source : public Object {
public:
    explicit Source(ImageBaseRef node) : _node(std::move(node)) {}

    Result<void> AddJob(const MediaSessionProgressRef& progress) {
        _progress = progress;
        const Float pixels = static_cast<Float>(_node->GetWidth()) * static_cast<Float>(_node->GetHeight());
        _job = TRY(progress->AddProgressJob(pixels, "Image"));
        return {};
    }
    Result<GetPixelHandlerStruct> GetPixels(const PixelFormat& format, const ColorProfile& profile,
                                            GETPIXELHANDLERFLAGS flags) {
        GetPixelHandlerStruct handler =
            TRY(_node->GetPixelHandler(format, format->GetChannelOffsets(), profile, flags, LayerSet()));
        _rowsRead = 0;
        if (_job < 0)
            return handler;
        handler.read = TRY(ReadLineFunc::Create(Reader{std::move(handler.read), Ref<Source>(this)}));
        if (handler.find)
            handler.find = TRY(FindLineFunc::Create(Finder{std::move(handler.find), Ref<Source>(this)}));
        return handler;
    }

private:
    struct Reader {
        ReadLineFunc read;
        Ref<Source> source;

        Result<void> operator()(const PixelSpan& span, const PixelLine& dst, GETPIXELFLAGS flags) const {
            TRY(read(span, dst, flags));
            return source->ReportRow();
        }
    };

    struct Finder {
        FindLineFunc find;
        Ref<Source> source;

        Result<const std::byte*> operator()(const PixelSpan& span) const {
            const std::byte* line = TRY(find(span));
            TRY(source->ReportRow());
            return line;
        }
    };

    /// Rows may come in any order, and more than once for an interlaced file.
    Result<void> ReportRow() {
        const Int height = std::max<Int>(_node->GetHeight(), 1);
        _rowsRead = std::min(_rowsRead + 1, height);
        return _progress->SetProgressAndCheckBreak(_job, static_cast<Float>(_rowsRead) / static_cast<Float>(height));
    }

    ImageBaseRef _node;
    MediaSessionProgressRef _progress;
    Int _job = -1;
    Int _rowsRead = 0;
};

MediaStreamExportFromImageTextureImpl::MediaStreamExportFromImageTextureImpl() = default;
MediaStreamExportFromImageTextureImpl::~MediaStreamExportFromImageTextureImpl() = default;

Result<void> MediaStreamExportFromImageTextureImpl::SetInputTexture(const ImageTextureRef& texture) {
    _texture = texture;
    return {};
}

Result<void> MediaStreamExportFromImageTextureImpl::Analyze(Inputs inputs, TimeValue, MEDIASESSIONFLAGS) {
    TRY(RequireNoInputs(inputs));
    if (_analyzed)
        return {};
    _analyzed = true;
    if (!_texture)
        return IllegalStateError();
    TRY(AddAudioStream());
    const ImageVisitor visit = [this](const ImageBaseRef& node, IMAGEHIERARCHY branch) -> Result<Bool> {
        TRY(VisitNode(node, branch));
        return true;
    };
    TRY(WalkImages(_texture, visit));
    return {};
}

/// In front of all pictures, since a format may have to place the sound before them.
Result<void> MediaStreamExportFromImageTextureImpl::AddAudioStream() {
    const AudioObjectRef audio = _texture->Get(image::kAudioData, AudioObjectRef());
    if (!audio)
        return {};
    MediaStreamFormat format;
    TRY(format.Set(mediaformat::kAudioSampleRate, audio->GetSampleRate()));
    TRY(format.Set(mediaformat::kAudioChannelCount, audio->GetChannelCount()));
    TRY(format.Set(mediaformat::kAudioBitsPerChannel, audio->GetBitsPerChannel()));
    const auto stream = TRY(ClassRef(mediaclasses::kStreamAudioExport).Create<MediaStreamAudioDataExportInterface>());
    TRY(stream->AddFormat(Data(Int(0)), format));
    TRY(stream->InitWithAudioData(audio));
    return AddOutputStream(stream);
}

Result<void> MediaStreamExportFromImageTextureImpl::VisitNode(const ImageBaseRef& node, IMAGEHIERARCHY branch) {
    const MEDIAFORMATTYPE type = ToFormatType(node, branch);
    if (type == MEDIAFORMATTYPE::UNDEFINED)
        return {};
    const auto stream = TRY(ClassRef(mediaclasses::kStreamExport).Create<MediaStreamImageDataExportInterface>());
    const Ref<Source> source = TRY(NewObj<Source>(node));
    const MediaStreamFormat format = TRY(DescribeNode(node, type));
    TRY(stream->AddFormat(Data(Int(0)), format));
    TRY(stream->SetCallbackHandler(
        {},
        [source](const MediaStreamProperties&, const PixelFormat& format, const ColorProfile& profile,
                 GETPIXELHANDLERFLAGS flags) { return source->GetPixels(format, profile, flags); },
        {}));
    TRY(AttachStream(stream, node));
    return _records.Append({stream, source});
}

Result<MediaStreamFormat> MediaStreamExportFromImageTextureImpl::DescribeNode(const ImageBaseRef& node,
                                                                              MEDIAFORMATTYPE type) const {
    MediaStreamFormat format;
    TRY(format.Set(mediaformat::kType, type));
    for (const LayerKeyPair& key : GetLayerKeyPairs())
        TRY(CopyLayerEntry(*node, key, format));
    TRY(format.Set(mediaformat::kSubImageIndex, node->Get(image::kSubImageIndex, 0)));
    TRY(CopyEntry(*_texture, image::kFps.GetId(), format, mediaformat::kVideoFps.GetId()));
    TRY(CopyEntry(*_texture, image::kExportSettings.GetId(), format, mediaformat::kExportSettings.GetId()));
    if (type == MEDIAFORMATTYPE::ALPHA)
        TRY(CopyEntry(*node, image::kAlphaName.GetId(), format, mediaformat::kAlphaName.GetId()));
    else
        TRY(CopyEntry(*node, image::kName.GetId(), format, mediaformat::kStreamName.GetId()));
    TRY(CopyEntry(*node, image::kAspectRatio.GetId(), format, mediaformat::kAspectRatio.GetId()));
    TRY(CopyEntry(*node, image::kDpi.GetId(), format, mediaformat::kDpi.GetId()));
    TRY(format.Set(mediaformat::kWidth, node->GetWidth()));
    TRY(format.Set(mediaformat::kHeight, node->GetHeight()));
    TRY(format.Set(mediaformat::kPixelFormat, node->GetPixelFormat()));
    TRY(format.Set(mediaformat::kColorProfile, node->Get(image::kColorProfile, ColorProfile())));
    return format;
}

/// Below the stream of the nearest node above that has one; at the root without any.
Result<void> MediaStreamExportFromImageTextureImpl::AttachStream(const MediaStreamRef& stream,
                                                                 const ImageBaseRef& node) {
    TRY(_streamOfNode.Set(HierarchyObjectRef(node), stream));
    for (HierarchyObjectRef above = node->GetParent(); above; above = above->GetParent()) {
        if (const MediaStreamRef* parent = _streamOfNode.Find(above))
            return (*parent)->AddChild(MediaStreamInterface::kChildBranch, stream);
    }
    return AddOutputStream(stream);
}

Result<void> MediaStreamExportFromImageTextureImpl::PrepareExecute(Inputs inputs, TimeValue, MEDIASESSIONFLAGS) {
    TRY(RequireNoInputs(inputs));
    const MediaSessionProgressRef progress = GetSessionProgress();
    for (const Record& record : _records) {
        if (record.stream->IsSubscribed())
            TRY(record.source->AddJob(progress));
    }
    return {};
}

Result<void> MediaStreamExportFromImageTextureImpl::Close(Inputs inputs) {
    _texture = nullptr;
    _records.Reset();
    _streamOfNode.Reset();
    ResetOutputStreams();
    _analyzed = false;
    for (const MediaConverterRef& input : inputs) {
        const BaseArray<MediaConverterRef> feeding = TRY(input->GetInputConverter());
        TRY(input->Close(feeding.ToBlock()));
    }
    return {};
}

}  // namespace orvik
