// Everything that the image framework declares under an id, to be found at run time by that id alone.
#include "base/registration.h"

#include "orvik/declarations.h"
#include "orvik/exif.h"
#include "orvik/gfx_image_colorprofileconvert.h"
#include "orvik/gfx_image_functions.h"
#include "orvik/gfx_image_oiioprocessor.h"
#include "orvik/gfx_imagebasehelpers.h"
#include "orvik/mediasession_output.h"

namespace orvik {
namespace {

class Declaration : public DeclarationInterface {
public:
    Declaration(const char* name, const DataType* type) : _name(name), _type(type) {}
    std::string_view GetName() const override { return _name; }
    const DataType* GetDataType() const override { return _type; }

private:
    const char* _name;
    const DataType* _type;
};

class Declarer {
public:
    explicit Declarer(Publisher& publisher) : _publisher(publisher) {}

    template <class... T>
    Result<void> Keys(const Key<T>&... keys) {
        Result<void> result;
        (void)((result = Add(kKeyRegistry, keys.GetId(), keys.GetId().GetCString(), &GetDataType<T>())) && ...);
        return result;
    }
    template <class... I>
    Result<void> Interfaces() {
        Result<void> result;
        (void)((result = Add(kInterfaceRegistry, I::kInterfaceId, I::kReferenceName, nullptr)) && ...);
        return result;
    }
    /// Under their names.
    template <class... T>
    Result<void> DataTypes() {
        Result<void> result;
        (void)((result = AddType<T>()) && ...);
        return result;
    }
    template <class T>
    Result<void> DataTypeWithId(const Id& id) {
        return Add(kDataTypeRegistry, id, kDataTypeName<T>, &GetDataType<T>());
    }

private:
    template <class T>
    Result<void> AddType() {
        const Id id = TRY(Id::Create(kDataTypeName<T>));
        return DataTypeWithId<T>(id);
    }
    Result<void> Add(const Id& registry, const Id& id, const char* name, const DataType* type) {
        const ObjectRef declaration = TRY(NewObj<Declaration>(name, type));
        return _publisher.AddToRegistry(registry, id, declaration);
    }

    Publisher& _publisher;
};

}  // namespace

Result<void> RegisterDeclarations(Publisher& publisher) {
    Declarer declare(publisher);
    TRY(declare.Interfaces<
        ExifInterface, ExifStaticInterface, ImageBaseInterface, ImageInterface, ImageLayerInterface,
        ImageTextureInterface, ImageChannelInterface, ImageChannelTypeInterface, ColorProfileInterface,
        ColorProfilesInterface, ColorSpaceInterface, ColorProfileConvertInterface, ImageFunctionsInterface,
        OiioProcessorInterface, ImagePixelBlendInterface, PixelFormatInterface, PixelFormatGroupInterface,
        PixelFormatDynamicInterface, PixelFormatIndexedColorInterface, PixelFormatsInterface,
        ImagePixelStorageInterface, ImageBaseHelpersInterface, ImageRegionObserverInterface,
        ImageRegionRegistrationInterface, ImageRegionObservableInterface, ImageRegionObservableHandlerInterface,
        LayerSetInterface, AudioObjectInterface, MediaStreamAudioDataImportInterface,
        MediaStreamAudioDataExportInterface, MediaBaseInterface, MediaConverterInterface, MediaInputInterface,
        MediaOutputInterface, MediaOutputTextureInterface, MediaOutputUrlInterface,
        MediaSessionFileFormatHandlerInterface, MediaSessionProgressInterface, MediaSessionInterface,
        MediaStreamInterface, MediaStreamExifDataInterface, MediaStreamImageBaseInterface,
        MediaStreamImageDataImportInterface, MediaStreamImageDataExportInterface,
        MediaStreamImageDataForwardImportInterface, AudioMarkersInterface, MediaStreamFormatInterface,
        MediaStreamPropertiesInterface, DeclarationInterface>());
    TRY(declare.DataTypes<
        ExifRef, BITS, UpdateRegion, DrawDimensionInt, DrawDimensionFloat, DrawRectInt, DrawRectFloat, DrawPoint3dInt,
        DrawPoint3dFloat, DrawDimension3dInt, DrawDimension3dFloat, DrawVolumeInt, DrawVolumeFloat, ImageBaseRef,
        ImageRef, ImageLayerRef, ImageTextureRef, MediaOutputUrlRef, Pix16f, ImageChannelType, ImageChannel,
        ColorProfile, ColorSpace, ImagePixelBlend, BlendPixelHandlerRef, PixelFormatGroup, PixelFormatDynamic,
        PixelFormatIndexedColor, PixelFormat, ImagePixelStorageRef, LayerSet, AudioObjectRef, MediaSessionRef,
        MediaConverterRef, MediaInputRef, MediaOutputRef, MediaOutputTextureRef, MediaSessionFileFormatHandler,
        MediaSessionProgressRef, AudioMarkersRef, MediaStreamRef, MediaStreamFormat, MediaStreamProperties>());
    TRY(declare.DataTypeWithId<BITS>(datatypes::kBits));
    TRY(declare.DataTypeWithId<UpdateRegion>(datatypes::kUpdateRegion));
    TRY(declare.DataTypeWithId<DrawDimensionInt>(datatypes::kDrawDimensionInt));
    TRY(declare.DataTypeWithId<DrawDimensionFloat>(datatypes::kDrawDimensionFloat));
    TRY(declare.DataTypeWithId<DrawRectInt>(datatypes::kDrawRectInt));
    TRY(declare.DataTypeWithId<DrawRectFloat>(datatypes::kDrawRectFloat));
    TRY(declare.DataTypeWithId<DrawPoint3dInt>(datatypes::kDrawPoint3dInt));
    TRY(declare.DataTypeWithId<DrawPoint3dFloat>(datatypes::kDrawPoint3dFloat));
    TRY(declare.DataTypeWithId<DrawDimension3dInt>(datatypes::kDrawDimension3dInt));
    TRY(declare.DataTypeWithId<DrawDimension3dFloat>(datatypes::kDrawDimension3dFloat));
    TRY(declare.DataTypeWithId<DrawVolumeInt>(datatypes::kDrawVolumeInt));
    TRY(declare.DataTypeWithId<DrawVolumeFloat>(datatypes::kDrawVolumeFloat));
    TRY(declare.DataTypeWithId<Pix16f>(datatypes::kPix16f));
    return declare.Keys(
        image::kName, image::kAlphaName, image::kType, image::kAspectRatio, image::kDpi, image::kFps, image::kDuration,
        image::kSampleTime, image::kColorProfile, image::kExportSettings, image::kAudioData, image::kExifData,
        image::kHotspotX, image::kHotspotY, image::kSubImageIndex, image::kLayerEnabled,
        image::kLayerTransparencyProtected, image::kLayerIsOpen, image::kLayerOpacity, image::kLayerFillOpacity,
        image::kLayerBlendMode, image::kLayerMaskDefColor, image::kLayerGroup, image::kLayerBoundingBoxX,
        image::kLayerBoundingBoxY, image::kLayerBoundingBoxW, image::kLayerBoundingBoxH, image::kLayerPsdFilterId,
        image::kLayerPsdData, mediacapability::kInputSupportsImage, mediacapability::kInputSupportsVideo,
        mediacapability::kInputSupportsAudio, mediacapability::kOutputSupportsImage,
        mediacapability::kOutputSupportsVideo, mediacapability::kOutputSupportsAudio,
        mediacapability::kOutputSupportsSystemOptions, mediacapability::kOutputEmbedColorProfile,
        mediacapability::kOutputMaximalAlphaChannels, mediacapability::kOutputMaximalImageResolution,
        mediacapability::kOutputMaximalLayerResolution, mediacapability::kOutputBitDepthsImage,
        mediacapability::kOutputBitDepthsLayer, mediaexport::kQuality, mediaexport::kDisableSrgbConversion,
        mediaexport::kBmpInfoHeader, mediaexport::kJpgBaseline, mediaexport::kPngInterlaced, mediaexport::kCustomData,
        mediaexport::kDataRate, mediaexport::kKeyFrames, mediaexport::kAviType, mediaexport::kAviHandler,
        mediaexport::kMfPresets, mediaexport::kMfOptions, mediaexport::kMfAudioSampleRate,
        mediaexport::kMfAudioKilobitRate, mediaexport::kMfAudioCodec, mediaexport::kMfCodec, mediaformat::kType,
        mediaformat::kPixelFormat, mediaformat::kWidth, mediaformat::kHeight, mediaformat::kAlphaType,
        mediaformat::kStreamName, mediaformat::kAlphaName, mediaformat::kSubImageIndex, mediaformat::kColorProfile,
        mediaformat::kAspectRatio, mediaformat::kDpi, mediaformat::kExportSettings, mediaformat::kHotspotX,
        mediaformat::kHotspotY, mediaformat::kLayerAlpha, mediaformat::kDeepImage, mediaformat::kLayerEnabled,
        mediaformat::kLayerTransparencyProtected, mediaformat::kLayerIsOpen, mediaformat::kLayerOpacity,
        mediaformat::kLayerFillOpacity, mediaformat::kLayerBlendMode, mediaformat::kLayerMaskDefColor,
        mediaformat::kLayerGroup, mediaformat::kLayerBoundingBoxX, mediaformat::kLayerBoundingBoxY,
        mediaformat::kLayerBoundingBoxW, mediaformat::kLayerBoundingBoxH, mediaformat::kLayerPsdFilterId,
        mediaformat::kLayerPsdData, mediaformat::kVideoFps, mediaformat::kVideoDuration, mediaformat::kVideoStartTime,
        mediaformat::kAudioSampleRate, mediaformat::kAudioChannelCount, mediaformat::kAudioBitsPerChannel,
        mediaformat::kAudioMarkerArray, mediaformat::kAudioMarkerIdentifier, mediaformat::kAudioMarkerPosition,
        mediaformat::kAudioMarkerLabel, mediaformat::kAudioMarkerNote, mediaproperty::kSampleTime,
        mediaproperty::kSampleDuration, mediaproperty::kSkippedFrames, mediastream::kDummy);
}

}  // namespace orvik
