#pragma once
/// @file
/// Sound: a whole one in memory, and the streams through which it travels.

#include "orvik/mediasession_stream.h"

// Interface methods name the parameters that their overriders use.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-parameter"

namespace orvik {

/// A sound in memory: interleaved samples with their rate and count.
class AudioObjectInterface : public virtual Object {
    ORVIK_INTERFACE(AudioObjectInterface, "net.orvik.image.interface.audioobject");

public:
    /// Copies the data. The numbers are stored as given; nothing compares them with the size of the data.
    /// @param sampleCount  samples per channel
    /// @param sampleRate   samples per second
    /// @return out of memory, which leaves the object as it was
    virtual Result<void> Init(Int channelCount, Int bitsPerChannel, Int sampleCount, Float sampleRate, TimeValue length,
                              Block<const std::byte> data) {
        return Unbound();
    }
    virtual Int GetChannelCount() const { return Unbound(); }
    virtual Int GetBitsPerChannel() const { return Unbound(); }
    virtual Float GetSampleRate() const { return Unbound(); }
    virtual Int GetSampleCount() const { return Unbound(); }
    virtual TimeValue GetLength() const { return Unbound(); }
    /// The first byte; null without data.
    virtual const std::byte* GetDataPtr() const { return Unbound(); }
};
using AudioObjectRef = Ref<AudioObjectInterface>;
template <>
inline constexpr const char* kDataTypeName<AudioObjectRef> = "orvik::AudioObjectRef";

class MediaStreamAudioDataImportInterface : public virtual MediaStreamInterface {
    ORVIK_INTERFACE(MediaStreamAudioDataImportInterface, "net.orvik.image.interface.mediastreamaudiodataimport");

public:
    using InitDelegate = Delegate<Result<void>(const MediaStreamProperties& properties)>;
    using AudioDelegate = Delegate<Result<void>(Block<const std::byte> samples)>;
    using FinishDelegate = Delegate<Result<void>(const MediaStreamProperties& properties)>;

    virtual Result<void> SetCallbackHandler(const InitDelegate& init, const AudioDelegate& audio,
                                            const FinishDelegate& finish) {
        return Unbound();
    }
    virtual Result<void> InitStream(const MediaStreamProperties& properties) { return Unbound(); }
    /// Delivers the samples; illegal argument without a delegate.
    virtual Result<void> SetAudioDataCallback(Block<const std::byte> samples) { return Unbound(); }
    virtual Result<void> FinishStream(const MediaStreamProperties& properties) { return Unbound(); }
};

/// Offers a whole sound to an exporter, which reads `GetAudioObject`. The other operations of a stream succeed in any
/// order and do nothing: there is nothing to call back.
class MediaStreamAudioDataExportInterface : public virtual MediaStreamInterface {
    ORVIK_INTERFACE(MediaStreamAudioDataExportInterface, "net.orvik.image.interface.mediastreamaudiodataexport");

public:
    virtual Result<void> InitWithAudioData(const AudioObjectRef& audio) { return Unbound(); }
    virtual AudioObjectRef GetAudioObject() const { return Unbound(); }
    virtual Result<void> SetCallbackHandler() { return Unbound(); }
    virtual Result<void> InitStream() { return Unbound(); }
    virtual Result<void> FinishStream() { return Unbound(); }
};

}  // namespace orvik

#pragma GCC diagnostic pop
