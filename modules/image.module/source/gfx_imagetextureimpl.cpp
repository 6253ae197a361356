#include "gfx_imagetextureimpl.h"

#include "mediasession_imagetexture_export.h"

namespace orvik {
namespace {

constexpr int kMaxLevels = 256;

/// The image stream that a stream belongs to: itself, or the nearest one above it. Null when there is none.
MediaStreamRef FindImageStream(MediaStreamRef stream) {
    for (int level = 0; stream && level < kMaxLevels; ++level) {
        const MediaStreamFormat format = stream->GetFormat(stream->GetSelectedFormat());
        if (format.Get(mediaformat::kType, MEDIAFORMATTYPE::UNDEFINED) == MEDIAFORMATTYPE::IMAGE)
            return stream;
        stream = Cast<MediaStreamInterface>(stream->GetParent());
    }
    return nullptr;
}

/// Lets the images pass that a layer set names, by number ("#1" is the first) or by stream name. What hangs below an
/// image comes and goes with it; anything else is not judged here.
struct SelectImages {
    LayerSet layers;

    Result<SELECTIONHANDLERRESULT> operator()(const MediaStreamRef& stream, const MediaStreamFormat& format) const {
        const String selected = layers->GetSelectedImage();
        if (selected.IsEmpty() || !format || !Cast<MediaStreamImageBaseInterface>(stream))
            return SELECTIONHANDLERRESULT::ALL;
        const bool isImage = format.Get(mediaformat::kType, MEDIAFORMATTYPE::UNDEFINED) == MEDIAFORMATTYPE::IMAGE;
        const MediaStreamRef imageStream = isImage ? stream : FindImageStream(stream);
        if (!imageStream)
            return SELECTIONHANDLERRESULT::ALL;
        const MediaStreamFormat& described =
            isImage ? format : imageStream->GetFormat(imageStream->GetSelectedFormat());
        const Int index = described.Get(mediaformat::kSubImageIndex, 0);
        const bool hit =
            selected == FormatString("#@", index + 1) || selected == described.Get(mediaformat::kStreamName, String());
        return hit ? SELECTIONHANDLERRESULT::ALL : SELECTIONHANDLERRESULT::NONE;
    }
};

}  // namespace

ImageBaseRef ImageTextureImpl::GetFirstImage() const {
    return Cast<ImageBaseInterface>(GetFirstChild(static_cast<Int>(IMAGEHIERARCHY::IMAGE)));
}

Result<void> ImageTextureImpl::AddChildren(IMAGEHIERARCHY branch, const ImageBaseRef& child,
                                           const ImageBaseRef& predecessor) {
    TRY(CheckChild<ImageInterface>(branch, {IMAGEHIERARCHY::IMAGE}, child));
    return ImageBaseImpl::AddChildren(branch, child, predecessor);
}

Result<GetPixelHandlerStruct> ImageTextureImpl::GetPixelHandler(const PixelFormat& format, ChannelOffsets offsets,
                                                                const ColorProfile& profile, GETPIXELHANDLERFLAGS flags,
                                                                const LayerSet& layers) {
    const ImageBaseRef image = GetFirstImage();
    if (!image)
        return IllegalArgumentError("Illegal argument: Condition image not fulfilled. ");
    return image->GetPixelHandler(format, offsets, profile, flags, layers);
}

Result<MediaSessionRef> ImageTextureImpl::Load(const Url& url, TimeValue targetTime, MEDIASESSIONFLAGS flags,
                                               const ClassRef& storage, const LayerSet& layers) {
    const ImageTextureRef self(this);
    const ClassRef storageClass = storage.IsEmpty() ? ClassRef(storageclasses::kNormal) : storage;
    const MediaOutputTextureRef output =
        TRY(ClassRef(mediaclasses::kOutputTexture).Create<MediaOutputTextureInterface>());
    TRY(output->SetOutputTexture(self, storageClass));
    SelectionDelegate selection;
    if (layers)
        selection = SelectImages{layers};
    return MediaSessionImport(url, targetTime, flags, output, selection);
}

Result<void> ImageTextureImpl::Save(const MediaOutputUrlRef& output, MEDIASESSIONFLAGS flags,
                                    MediaSessionRef* session) {
    const auto input =
        TRY(ClassRef(mediaclasses::kExportFromTexture).Create<MediaStreamExportFromImageTextureInterface>());
    TRY(input->SetInputTexture(ImageTextureRef(this)));
    MediaSessionRef run = TRY(ClassRef(mediaclasses::kSession).Create<MediaSessionInterface>());
    TRY(run->ConnectMediaConverter(input, output));
    TRY(run->Convert(TimeValue(), flags));
    if (!session)
        return run->Close();
    *session = std::move(run);
    return {};
}

}  // namespace orvik
