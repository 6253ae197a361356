#include "image/gfx_imagetextureimpl.h"

#include "base/registration.h"
#include "image/gfx_image_subimage_impl.h"
#include "image/gfx_imagerasterlayerimpl.h"
#include "image/layers/gfx_image_layerselection.h"
#include "session/mediasession_imagetexture_export.h"

namespace orvik {
namespace {

constexpr int kMaxLevels = 256;

MediaStreamFormat GetSelected(const MediaStreamRef& stream) { return stream->GetFormat(stream->GetSelectedFormat()); }

MEDIAFORMATTYPE GetType(const MediaStreamFormat& format) {
    return format.Get(mediaformat::kType, MEDIAFORMATTYPE::UNDEFINED);
}

constexpr bool IsLayer(MEDIAFORMATTYPE type) {
    return type == MEDIAFORMATTYPE::LAYERFOLDER || type == MEDIAFORMATTYPE::LAYER ||
           type == MEDIAFORMATTYPE::LAYERADJUSTMENT;
}

/// A stream and what it hangs below, nearest first, up to the image stream that it belongs to. The formats, not the
/// streams, are what matters.
struct StreamChain {
    BaseArray<MediaStreamFormat> formats;
    bool hasImage = false;  ///< the last one is an image

    static Result<StreamChain> Find(MediaStreamRef stream) {
        StreamChain chain;
        for (int level = 0; stream && level < kMaxLevels && !chain.hasImage; ++level) {
            MediaStreamFormat format = GetSelected(stream);
            chain.hasImage = GetType(format) == MEDIAFORMATTYPE::IMAGE;
            TRY(chain.formats.Append(std::move(format)));
            stream = Cast<MediaStreamInterface>(stream->GetParent());
        }
        return chain;
    }
};

/// Decides which streams a layer set wants. It names images by number ("#1" is the first) or by stream name, and what
/// hangs below an image is loaded with it or left out with it. Of the layers only those get pixels whose path is
/// selected, or that lie in a folder whose path is; the others keep their place in the tree. A mask follows its layer.
struct SelectStreams {
    LayerSet layers;

    Result<SELECTIONHANDLERRESULT> operator()(const MediaStreamRef& stream, const MediaStreamFormat& format) const {
        if (!format || !Cast<MediaStreamImageBaseInterface>(stream))
            return SELECTIONHANDLERRESULT::ALL;
        const StreamChain chain = TRY(StreamChain::Find(stream));
        if (!chain.hasImage)
            return SELECTIONHANDLERRESULT::ALL;
        const bool isImageSelected = TRY(IsImageSelected(chain.formats[chain.formats.GetCount() - 1]));
        if (!isImageSelected)
            return SELECTIONHANDLERRESULT::NONE;
        const bool isContentSelected = TRY(IsContentSelected(chain));
        return isContentSelected ? SELECTIONHANDLERRESULT::ALL : SELECTIONHANDLERRESULT::STRUCTURE;
    }

private:
    Result<bool> IsImageSelected(const MediaStreamFormat& format) const {
        const String selected = layers->GetSelectedImage();
        if (selected.IsEmpty() || selected == format.Get(mediaformat::kStreamName, String()))
            return true;
        // An index from a file may be the greatest number.
        const auto number = static_cast<uint64_t>(format.Get(mediaformat::kSubImageIndex, 0)) + 1;
        const String text = FormatString("#@", static_cast<Int>(number));
        if (text.IsEmpty())
            return OutOfMemoryError();
        return selected == text;
    }

    Result<bool> IsContentSelected(const StreamChain& chain) const {
        const LAYERSETMODE mode = layers->GetMode();
        const MEDIAFORMATTYPE type = GetType(chain.formats[0]);
        if (mode == LAYERSETMODE::ALPHAS || mode == LAYERSETMODE::LAYERMASKS || !HasSelectedLayers(layers) ||
            (!IsLayer(type) && type != MEDIAFORMATTYPE::LAYERMASK))
            return true;
        // From the layer below the image downwards, so that each step has the path of the one before.
        const String separator = TRY(String::Create("\\"));
        String path;
        for (Int i = chain.formats.GetCount() - 2; i >= 0 && IsLayer(GetType(chain.formats[i])); --i) {
            if (i < chain.formats.GetCount() - 2)
                TRY(path.Append(separator));
            TRY(path.Append(chain.formats[i].Get(mediaformat::kStreamName, String())));
            if (IsLayerSelected(layers, path))
                return true;
        }
        return false;
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
        selection = SelectStreams{layers};
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

/// All classes of images.
Result<void> RegisterImages(Publisher& publisher) {
    TRY(publisher.PublishClass<ImageSubImagePartImpl>(imageclasses::kSubImagePart));
    TRY(publisher.PublishClass<ImageBaseImpl>(imageclasses::kBase));
    TRY(publisher.PublishClass<ImageImpl>(imageclasses::kImage));
    TRY(publisher.PublishClass<ImageRasterLayerImpl>(imageclasses::kRasterLayer));
    return publisher.PublishClass<ImageTextureImpl>(imageclasses::kTexture);
}

}  // namespace orvik
