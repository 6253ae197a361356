#pragma once
/// @file
/// Stream formats, stream properties, and the keys by which importers, exporters and outputs describe a stream.

#include "orvik/iomemory.h"
#include "orvik/mediasession_base.h"

namespace orvik {

/// An array of dictionaries, one a cue point, as a value that copies share.
class AudioMarkersInterface : public virtual Object {
    ORVIK_INTERFACE(AudioMarkersInterface, "net.orvik.image.interface.audiomarkers");

public:
    Block<const DataDictionary> GetMarkers() const { return _markers.ToBlock(); }
    Result<void> AddMarker(const DataDictionary& marker) {
        if (IsAbsent())
            return Unbound();
        return _markers.Append(marker);
    }

private:
    BaseArray<DataDictionary> _markers;
};
using AudioMarkersRef = Ref<AudioMarkersInterface>;
template <>
inline constexpr const char* kDataTypeName<AudioMarkersRef> = "orvik::AudioMarkersRef";

/// Keys "net.orvik.mediaformat.*".
namespace mediaformat {
inline constexpr Key<MEDIAFORMATTYPE> kType{"net.orvik.mediaformat.type"};
inline constexpr Key<PixelFormat> kPixelFormat{"net.orvik.mediaformat.pixelformat"};
inline constexpr Key<Int> kWidth{"net.orvik.mediaformat.width"};
inline constexpr Key<Int> kHeight{"net.orvik.mediaformat.height"};
inline constexpr Key<MEDIAALPHATYPE> kAlphaType{"net.orvik.mediaformat.alphatype"};
inline constexpr Key<String> kStreamName{"net.orvik.mediaformat.streamname"};
inline constexpr Key<String> kAlphaName{"net.orvik.mediaformat.alphaname"};
inline constexpr Key<Int> kSubImageIndex{"net.orvik.mediaformat.subimageindex"};
inline constexpr Key<ColorProfile> kColorProfile{"net.orvik.mediaformat.colorprofile"};
inline constexpr Key<Float> kAspectRatio{"net.orvik.mediaformat.aspectratio"};
inline constexpr Key<Float> kDpi{"net.orvik.mediaformat.dpi"};
inline constexpr Key<DataDictionary> kExportSettings{"net.orvik.mediaformat.exportsettings"};
inline constexpr Key<Int> kHotspotX{"net.orvik.mediaformat.hotspotx"};
inline constexpr Key<Int> kHotspotY{"net.orvik.mediaformat.hotspoty"};
inline constexpr Key<Bool> kLayerAlpha{"net.orvik.mediaformat.layeralpha"};
inline constexpr Key<Bool> kDeepImage{"net.orvik.mediaformat.deepimage"};
inline constexpr Key<Bool> kLayerEnabled{"net.orvik.mediaformat.layer.enabled"};
inline constexpr Key<Bool> kLayerTransparencyProtected{"net.orvik.mediaformat.layer.transparencyprotected"};
inline constexpr Key<Bool> kLayerIsOpen{"net.orvik.mediaformat.layer.isopen"};
inline constexpr Key<Float> kLayerOpacity{"net.orvik.mediaformat.layer.opacity"};
inline constexpr Key<Float> kLayerFillOpacity{"net.orvik.mediaformat.layer.fillopacity"};
inline constexpr Key<Id> kLayerBlendMode{"net.orvik.mediaformat.layer.blendmode"};
inline constexpr Key<Int> kLayerMaskDefColor{"net.orvik.mediaformat.layer.maskdefcolor"};
inline constexpr Key<Int> kLayerGroup{"net.orvik.mediaformat.layer.layergroup"};
inline constexpr Key<Int> kLayerBoundingBoxX{"net.orvik.mediaformat.layer.boundingbox_x"};
inline constexpr Key<Int> kLayerBoundingBoxY{"net.orvik.mediaformat.layer.boundingbox_y"};
inline constexpr Key<Int> kLayerBoundingBoxW{"net.orvik.mediaformat.layer.boundingbox_w"};
inline constexpr Key<Int> kLayerBoundingBoxH{"net.orvik.mediaformat.layer.boundingbox_h"};
inline constexpr Key<Int> kLayerPsdFilterId{"net.orvik.mediaformat.layer.psd_filterid"};
inline constexpr Key<MemoryFileRef> kLayerPsdData{"net.orvik.mediaformat.layer.psd_data"};
inline constexpr Key<Float> kVideoFps{"net.orvik.mediaformat.video.fps"};
inline constexpr Key<TimeValue> kVideoDuration{"net.orvik.mediaformat.video.duration"};
inline constexpr Key<TimeValue> kVideoStartTime{"net.orvik.mediaformat.video.starttime"};
inline constexpr Key<Float> kAudioSampleRate{"net.orvik.mediaformat.audio.samplerate"};
inline constexpr Key<Int> kAudioChannelCount{"net.orvik.mediaformat.audio.channelcount"};
inline constexpr Key<Int> kAudioBitsPerChannel{"net.orvik.mediaformat.audio.bitsperchannel"};
/// The cue points of a sound; each has the keys below, as far as its file gives them.
inline constexpr Key<AudioMarkersRef> kAudioMarkerArray{"net.orvik.mediaformat.audio.markerarray"};
inline constexpr Key<Int> kAudioMarkerIdentifier{"net.orvik.mediaformat.audio.marker.identifier"};
inline constexpr Key<TimeValue> kAudioMarkerPosition{"net.orvik.mediaformat.audio.marker.position"};
inline constexpr Key<String> kAudioMarkerLabel{"net.orvik.mediaformat.audio.marker.label"};
inline constexpr Key<String> kAudioMarkerNote{"net.orvik.mediaformat.audio.marker.note"};
}  // namespace mediaformat

/// Keys "net.orvik.mediaproperty.*": facts of one delivered sample.
namespace mediaproperty {
inline constexpr Key<TimeValue> kSampleTime{"net.orvik.mediaproperty.sampletime"};
inline constexpr Key<TimeValue> kSampleDuration{"net.orvik.mediaproperty.sampleduration"};
inline constexpr Key<Int> kSkippedFrames{"net.orvik.mediaproperty.skippedframes"};
}  // namespace mediaproperty

namespace mediastream {
/// Reserved; nothing sets or reads it.
inline constexpr Key<Bool> kDummy{"net.orvik.mediastream.dummy"};
}  // namespace mediastream

/// The object behind a `MediaStreamFormat`.
class MediaStreamFormatInterface : public virtual DataDictionaryObjectInterface {
    ORVIK_INTERFACE(MediaStreamFormatInterface, "net.orvik.image.interface.mediastreamformat");

public:
    Result<Ref<Object>> Clone() const override {
        if (IsAbsent())
            return Unbound();
        Ref<MediaStreamFormatInterface> copy = TRY(NewObj<MediaStreamFormatInterface>());
        copy->_dictionary = _dictionary;
        return Ref<Object>(copy);
    }
};

/// The static description of one way to read a stream: a copy-on-write dictionary. A default constructed one is null,
/// and reading a null format gives the null pointer error; the first `Set` makes it an object.
class MediaStreamFormat : public ValueRef<MediaStreamFormatInterface> {
public:
    using ValueRef::ValueRef;

    template <class T>
    Result<T> Get(const Key<T>& key, SourceLocation where = SourceLocation::current()) const {
        return (*this)->Get(key, where);
    }
    template <class T>
    T Get(const Key<T>& key, std::type_identity_t<T> fallback) const {
        return (*this)->Get(key, std::move(fallback));
    }
    template <class T>
    Result<void> Set(const Key<T>& key, std::type_identity_t<T> value) {
        Data data = TRY(Data::Create<T>(std::move(value)));
        return SetData(key.GetId(), std::move(data));
    }
    Result<Data> GetData(const Id& id) const { return (*this)->GetData(id); }
    Result<void> SetData(const Id& id, Data data) {
        if (!*this)
            static_cast<ValueRef&>(*this) = ValueRef(TRY(NewObj<MediaStreamFormatInterface>()));
        MediaStreamFormatInterface* object = TRY(MakeWritable());
        return object->SetData(id, std::move(data));
    }
    String ToString() const { return *this ? (*this)->GetDictionary().ToString() : String("<null>"); }
};

class MediaStreamInterface;
using MediaStreamRef = Ref<MediaStreamInterface>;
template <>
inline constexpr const char* kDataTypeName<MediaStreamRef> = "orvik::MediaStreamRef";

/// The description of one concrete sample of a stream: a copy-on-write dictionary with the keys of a format.
class MediaStreamPropertiesInterface : public virtual DataDictionaryObjectInterface {
    ORVIK_INTERFACE(MediaStreamPropertiesInterface, "net.orvik.image.interface.mediastreamproperties");

public:
    /// Copies every entry of the format into the properties; entries under other keys stay. A null format has none.
    Result<void> Init(const MediaStreamFormat& format) {
        if (IsAbsent())
            return Unbound();
        return format ? _dictionary.Merge(format->GetDictionary()) : Result<void>();
    }
    /// The same from the selected format of a stream; a null stream has no entries.
    ORVIK_API Result<void> Init(const MediaStreamRef& stream);
    Result<Ref<Object>> Clone() const override {
        if (IsAbsent())
            return Unbound();
        Ref<MediaStreamPropertiesInterface> copy = TRY(NewObj<MediaStreamPropertiesInterface>());
        copy->_dictionary = _dictionary;
        return Ref<Object>(copy);
    }
};
class MediaStreamProperties : public ValueRef<MediaStreamPropertiesInterface> {
public:
    using ValueRef::ValueRef;

    /// @{ New properties with every entry of a format, or of the selected format of a stream. A null one has no
    /// entries.
    static Result<MediaStreamProperties> FromFormat(const MediaStreamFormat& format) {
        Ref<MediaStreamPropertiesInterface> object = TRY(NewObj<MediaStreamPropertiesInterface>());
        TRY(object->Init(format));
        return MediaStreamProperties(std::move(object));
    }
    ORVIK_API static Result<MediaStreamProperties> FromStream(const MediaStreamRef& stream);
    /// @}

    template <class T>
    Result<T> Get(const Key<T>& key, SourceLocation where = SourceLocation::current()) const {
        return (*this)->Get(key, where);
    }
    template <class T>
    T Get(const Key<T>& key, std::type_identity_t<T> fallback) const {
        return (*this)->Get(key, std::move(fallback));
    }
    template <class T>
    Result<void> Set(const Key<T>& key, std::type_identity_t<T> value) {
        Data data = TRY(Data::Create<T>(std::move(value)));
        if (!*this)
            *this = TRY(FromFormat({}));
        MediaStreamPropertiesInterface* object = TRY(MakeWritable());
        return object->SetData(key.GetId(), std::move(data));
    }
};

template <>
inline constexpr const char* kDataTypeName<MediaStreamFormat> = "orvik::MediaStreamFormat";
template <>
inline constexpr const char* kDataTypeName<MediaStreamProperties> = "orvik::MediaStreamProperties";

}  // namespace orvik
