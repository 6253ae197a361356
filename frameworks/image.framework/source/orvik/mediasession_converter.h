#pragma once
/// @file
/// Converters, inputs and outputs: the nodes of a session.

#include "orvik/mediasession_stream.h"

// Interface methods name the parameters that their overriders use.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-parameter"

namespace orvik {

/// A node of a session. The three phases run in the order Analyze, PrepareExecute, Execute; `inputs` are the converters
/// that feed this one (none for an input).
class MediaConverterInterface : public virtual MediaBaseInterface {
    ORVIK_INTERFACE(MediaConverterInterface, "net.orvik.image.interface.mediaconverter");

public:
    using Inputs = Block<const MediaConverterRef>;

    virtual Bool SupportImportStrategy() const { return false; }
    virtual Bool SupportExportStrategy() const { return false; }
    /// The converters that feed this one in its session; empty for an input. Needs a session.
    virtual Result<BaseArray<MediaConverterRef>> GetInputConverter() const { return Unbound(); }
    /// Appends; adding twice gives two entries.
    virtual Result<void> AddOutputStream(const MediaStreamRef& stream) { return Unbound(); }
    /// Leaves the streams as they are and succeeds.
    virtual Result<void> RemoveOutputStream(const MediaStreamRef& stream) { return Unbound(); }
    /// The root streams, or with `flat` all streams, parents before children.
    virtual Result<BaseArray<MediaStreamRef>> GetOutputStreams(Bool flat) const { return Unbound(); }
    virtual Result<void> Analyze(Inputs inputs, TimeValue targetTime, MEDIASESSIONFLAGS flags) { return Unbound(); }
    virtual Result<void> PrepareExecute(Inputs inputs, TimeValue targetTime, MEDIASESSIONFLAGS flags) {
        return Unbound();
    }
    virtual Result<void> Execute(Inputs inputs, TimeValue targetTime, MEDIASESSIONFLAGS flags) { return Unbound(); }
    virtual Result<void> Close(Inputs inputs) { return Unbound(); }
};

class MediaInputInterface : public virtual MediaConverterInterface {
    ORVIK_INTERFACE(MediaInputInterface, "net.orvik.image.interface.mediainput");
};
using MediaInputRef = Ref<MediaInputInterface>;
template <>
inline constexpr const char* kDataTypeName<MediaInputRef> = "orvik::MediaInputRef";

/// Decides for each stream what an output does with it.
using SelectionDelegate =
    Delegate<Result<SELECTIONHANDLERRESULT>(const MediaStreamRef& stream, const MediaStreamFormat& format)>;

class MediaOutputInterface : public virtual MediaConverterInterface {
    ORVIK_INTERFACE(MediaOutputInterface, "net.orvik.image.interface.mediaoutput");

public:
    /// Prepares for a fresh attempt with another input.
    virtual Result<void> ResetConverter() { return Unbound(); }
    virtual Result<void> SetSelectionHandler(const SelectionDelegate& handler) { return Unbound(); }
    virtual SelectionDelegate GetSelectionHandler() const { return Unbound(); }
    /// ALL without a delegate.
    virtual Result<SELECTIONHANDLERRESULT> CallSelectionHandler(const MediaStreamRef& stream,
                                                                const MediaStreamFormat& format) {
        return Unbound();
    }
};
using MediaOutputRef = Ref<MediaOutputInterface>;
template <>
inline constexpr const char* kDataTypeName<MediaOutputRef> = "orvik::MediaOutputRef";

/// Capability keys: answered by a converter's `GetData`, never stored.
namespace mediacapability {
inline constexpr Key<Bool> kInputSupportsImage{"net.orvik.media.input.supports_image"};
inline constexpr Key<Bool> kInputSupportsVideo{"net.orvik.media.input.supports_video"};
inline constexpr Key<Bool> kInputSupportsAudio{"net.orvik.media.input.supports_audio"};
inline constexpr Key<Bool> kOutputSupportsImage{"net.orvik.media.output.supports_image"};
inline constexpr Key<Bool> kOutputSupportsVideo{"net.orvik.media.output.supports_video"};
inline constexpr Key<Bool> kOutputSupportsAudio{"net.orvik.media.output.supports_audio"};
inline constexpr Key<Bool> kOutputSupportsSystemOptions{"net.orvik.media.output.supports_systemoptions"};
inline constexpr Key<Bool> kOutputEmbedColorProfile{"net.orvik.media.output.embed_colorprofile"};
inline constexpr Key<Int> kOutputMaximalAlphaChannels{"net.orvik.media.output.maximalalphachannels"};
inline constexpr Key<Int> kOutputMaximalImageResolution{"net.orvik.media.output.maximalimageresolution"};
inline constexpr Key<Int> kOutputMaximalLayerResolution{"net.orvik.media.output.maximallayerresolution"};
/// Bits per channel that can be written. The blocks live as long as the module.
inline constexpr Key<Block<const Int>> kOutputBitDepthsImage{"net.orvik.media.output.bitdepthsimage"};
inline constexpr Key<Block<const Int>> kOutputBitDepthsLayer{"net.orvik.media.output.bitdepthslayer"};
}  // namespace mediacapability

}  // namespace orvik

#pragma GCC diagnostic pop
