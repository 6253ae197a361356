#pragma once
/// @file
/// Image objects: a tree of texture, images, alphas, layers and masks over exchangeable pixel storages.

#include "orvik/gfx_image_pixelblend.h"
#include "orvik/gfx_image_storage.h"
#include "orvik/hierarchyobject.h"
#include "orvik/imageregionobservable.h"
#include "orvik/layerset.h"
#include "orvik/mediasession_audiodata.h"
#include "orvik/mediasession_session.h"
#include "orvik/mediasession_streamformat.h"

// Interface methods name the parameters that their overriders use.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-parameter"

namespace orvik {

/// What a node is; stored under "net.orvik.image.type".
enum class ITYPE : int32_t {
    UNDEFINED = 0,
    TEXTURE,
    IMAGE,
    ALPHA,
    LAYER,
    LAYERMASK,
    FOLDER,
    ADJUSTMENT,
    DEEPIMAGEDATA,
};
/// The branch of the tree a child hangs in.
enum class IMAGEHIERARCHY : int32_t { TEXTURE = 0, IMAGE, ALPHA, LAYER, MASK, DEEPIMAGEDATA, MAX_ELEMENTS };

/// Keys "net.orvik.image.*", all optional on a node.
namespace image {
inline constexpr Key<String> kName{"net.orvik.image.name"};
inline constexpr Key<String> kAlphaName{"net.orvik.image.alphaname"};
inline constexpr Key<ITYPE> kType{"net.orvik.image.type"};
inline constexpr Key<Float> kAspectRatio{"net.orvik.image.aspectratio"};
inline constexpr Key<Float> kDpi{"net.orvik.image.dpi"};
inline constexpr Key<Float> kFps{"net.orvik.image.fps"};
inline constexpr Key<TimeValue> kDuration{"net.orvik.image.duration"};
inline constexpr Key<TimeValue> kSampleTime{"net.orvik.image.sampletime"};
inline constexpr Key<ColorProfile> kColorProfile{"net.orvik.image.colorprofile"};
inline constexpr Key<DataDictionary> kExportSettings{"net.orvik.image.exportsettings"};
/// On a texture: the sound that goes with its pictures.
inline constexpr Key<AudioObjectRef> kAudioData{"net.orvik.image.audiodata"};
/// On a texture.
inline constexpr Key<ExifRef> kExifData{"net.orvik.image.exifdata"};
inline constexpr Key<Int> kHotspotX{"net.orvik.image.hotspotx"};
inline constexpr Key<Int> kHotspotY{"net.orvik.image.hotspoty"};
inline constexpr Key<Int> kSubImageIndex{"net.orvik.image.subimageindex"};
inline constexpr Key<Bool> kLayerEnabled{"net.orvik.image.layer.enabled"};
inline constexpr Key<Bool> kLayerTransparencyProtected{"net.orvik.image.layer.transparencyprotected"};
inline constexpr Key<Bool> kLayerIsOpen{"net.orvik.image.layer.isopen"};
inline constexpr Key<Float> kLayerOpacity{"net.orvik.image.layer.opacity"};
inline constexpr Key<Float> kLayerFillOpacity{"net.orvik.image.layer.fillopacity"};
/// The mode itself; its id where no such mode is published. See `GetLayerBlendMode`.
inline constexpr Key<ImagePixelBlend> kLayerBlendMode{"net.orvik.image.layer.blendmode"};
inline constexpr Key<Int> kLayerMaskDefColor{"net.orvik.image.layer.maskdefcolor"};
inline constexpr Key<Int> kLayerGroup{"net.orvik.image.layer.layergroup"};
inline constexpr Key<Int> kLayerBoundingBoxX{"net.orvik.image.layer.boundingbox_x"};
inline constexpr Key<Int> kLayerBoundingBoxY{"net.orvik.image.layer.boundingbox_y"};
inline constexpr Key<Int> kLayerBoundingBoxW{"net.orvik.image.layer.boundingbox_w"};
inline constexpr Key<Int> kLayerBoundingBoxH{"net.orvik.image.layer.boundingbox_h"};
inline constexpr Key<Int> kLayerPsdFilterId{"net.orvik.image.layer.psd_filterid"};
inline constexpr Key<MemoryFileRef> kLayerPsdData{"net.orvik.image.layer.psd_data"};
}  // namespace image

/// One layer key in its two namespaces, for the copies between a stream's format and a node.
struct LayerKeyPair {
    Id mediaFormat;
    Id image;
};
/// All layer keys, in the order enabled, blendmode, opacity, fillopacity, transparencyprotected, layergroup,
/// maskdefcolor, boundingbox_x, _y, _w, _h, isopen, psd_filterid, psd_data.
ORVIK_API Block<const LayerKeyPair> GetLayerKeyPairs();

class ImageBaseInterface;
using ImageBaseRef = Ref<ImageBaseInterface>;
template <>
inline constexpr const char* kDataTypeName<ImageBaseRef> = "orvik::ImageBaseRef";
class ImageInterface;
using ImageRef = Ref<ImageInterface>;
template <>
inline constexpr const char* kDataTypeName<ImageRef> = "orvik::ImageRef";
class ImageLayerInterface;
using ImageLayerRef = Ref<ImageLayerInterface>;
template <>
inline constexpr const char* kDataTypeName<ImageLayerRef> = "orvik::ImageLayerRef";
class ImageTextureInterface;
using ImageTextureRef = Ref<ImageTextureInterface>;
template <>
inline constexpr const char* kDataTypeName<ImageTextureRef> = "orvik::ImageTextureRef";

/// What all nodes share: dimensions, a pixel format, and line access by handlers.
class ImageBaseInterface : public virtual MediaBaseInterface, public virtual HierarchyObjectInterface {
    ORVIK_INTERFACE(ImageBaseInterface, "net.orvik.image.interface.imagebase");

public:
    /// Stores size and format, sets "net.orvik.image.type", passes the size to the region observable.
    virtual Result<void> InitBase(Int width, Int height, const PixelFormat& format, ITYPE type) { return Unbound(); }
    /// Illegal argument, without text, for a branch or child class that this node does not take.
    virtual Result<void> AddChildren(IMAGEHIERARCHY branch, const ImageBaseRef& child,
                                     const ImageBaseRef& predecessor) {
        return Unbound();
    }
    virtual Int GetWidth() const { return Unbound(); }
    virtual Int GetHeight() const { return Unbound(); }
    virtual Int GetChannelCount() const { return Unbound(); }
    virtual PixelFormat GetPixelFormat() const { return Unbound(); }
    /// Line access for reading, converted into the caller's format and, when given, profile. A null layer set reads the
    /// node's own pixels.
    virtual Result<GetPixelHandlerStruct> GetPixelHandler(const PixelFormat& format, ChannelOffsets offsets,
                                                          const ColorProfile& profile, GETPIXELHANDLERFLAGS flags,
                                                          const LayerSet& layers) {
        return Unbound();
    }
    virtual Result<SetPixelHandlerStruct> SetPixelHandler(const PixelFormat& format, ChannelOffsets offsets,
                                                          const ColorProfile& profile, SETPIXELHANDLERFLAGS flags) {
        return Unbound();
    }
    virtual void FreePixelHandler(GetPixelHandlerStruct& handler) {}
    virtual void FreePixelHandler(SetPixelHandlerStruct& handler) {}
    virtual Result<void> GetComponent(Int channel, const PixelSpan& span, void* destination, Int stride,
                                      GETPIXELFLAGS flags) {
        return Unbound();
    }
    virtual Result<void> SetComponent(Int channel, const PixelSpan& span, const void* source, Int stride,
                                      SETPIXELFLAGS flags) {
        return Unbound();
    }
    /// A read-only view of a rectangle of this node, which shows its pixels as they are when they are read. The whole
    /// image is the node itself; the same rectangle gives the same view. The node keeps its views, but a view does not
    /// keep the node: once that has gone, reading fails with "Subimage reference to original image lost.".
    /// Illegal argument, without text, for a rectangle that ends beyond the node. One that starts at negative
    /// coordinates fails when it is read.
    virtual Result<ImageBaseRef> CreateSubImagePart(const DrawRectInt& rectangle) { return Unbound(); }
    /// The observable of this node; fires with the node and the region that changed. Null for an absent node.
    virtual RegionObservable* ObservableRegionChanged() { return Unbound(); }
};

/// A raster node with a storage of its own.
class ImageInterface : public virtual ImageBaseInterface {
    ORVIK_INTERFACE(ImageInterface, "net.orvik.image.interface.image");

public:
    /// @param storage       class of the pixel storage; empty means the normal storage
    /// @param defaultColor  one pixel for storages that fill; may be empty
    virtual Result<void> Init(Int width, Int height, const ClassRef& storage, const PixelFormat& format,
                              Block<const std::byte> defaultColor) {
        return Unbound();
    }
};

/// A raster node that may also stand in a layer list.
class ImageLayerInterface : public virtual ImageInterface {
    ORVIK_INTERFACE(ImageLayerInterface, "net.orvik.image.interface.imagelayer");
};

class MediaOutputUrlInterface;
using MediaOutputUrlRef = Ref<MediaOutputUrlInterface>;
template <>
inline constexpr const char* kDataTypeName<MediaOutputUrlRef> = "orvik::MediaOutputUrlRef";

/// The root of an image tree and the road to files. It has no pixels of its own: it answers for the first image below
/// it, and 0 or empty without one.
class ImageTextureInterface : public virtual ImageBaseInterface {
    ORVIK_INTERFACE(ImageTextureInterface, "net.orvik.image.interface.imagetexture");

public:
    /// Fills the tree from a file. The session keeps importer and streams alive until the caller drops it.
    /// @param storage  class of the storages; empty means normal
    /// @param layers   null loads everything
    /// Errors: "Image @ is not of a supported type.", the importer's, the stream's. After a failure the tree holds what
    /// was delivered up to it.
    virtual Result<MediaSessionRef> Load(const Url& url, TimeValue targetTime, MEDIASESSIONFLAGS flags,
                                         const ClassRef& storage, const LayerSet& layers) {
        return Unbound();
    }
    /// Writes the tree through an exporter whose URL is set.
    /// @param session  when given it receives the session, still open; otherwise the session is closed here
    virtual Result<void> Save(const MediaOutputUrlRef& output, MEDIASESSIONFLAGS flags, MediaSessionRef* session) {
        return Unbound();
    }

    /// Creates a texture and loads into it.
    ORVIK_API static Result<ImageTextureRef> LoadTexture(const Url& url, TimeValue targetTime, MEDIASESSIONFLAGS flags,
                                                         const ClassRef& storage, const LayerSet& layers);
};

/// Class ids.
namespace imageclasses {
inline constexpr Id kBase{"net.orvik.image.imagebaseclass.base"};
inline constexpr Id kImage{"net.orvik.image.imageclass.image"};
inline constexpr Id kRasterLayer{"net.orvik.image.imagelayerclass.raster"};
inline constexpr Id kTexture{"net.orvik.image.imagetextureclass.texture"};
inline constexpr Id kSubImagePart{"net.orvik.image.imagebaseclass.subimagepart"};
}  // namespace imageclasses

/// Visits a node and its descendants depth first. The visitor gets the node and the branch it hangs in (TEXTURE for the
/// root); false stops the walk, an error ends it. A tree deeper than 256 levels is refused as an illegal state.
using ImageVisitor = Delegate<Result<Bool>(const ImageBaseRef& node, IMAGEHIERARCHY branch)>;
ORVIK_API Result<Bool> WalkImages(const ImageBaseRef& root, const ImageVisitor& visitor);

/// The path by which a layer set selects a layer or an alpha: the names of the layers above it up to an image or to
/// `root`, and its own, joined by one backslash. An alpha goes by its alpha name, or "Alpha" without one, and always
/// has a backslash in front; below an image that is the path's first character, and a selection may leave it out. The
/// only failure is out of memory.
ORVIK_API Result<String> GetLayerPath(const ImageBaseRef& node, const ImageBaseRef& root = nullptr);
/// How a layer is blended: the mode or the id of a published mode that it holds, else the normal mode.
ORVIK_API ImagePixelBlend GetLayerBlendMode(const ImageBaseRef& layer);

}  // namespace orvik

#pragma GCC diagnostic pop
