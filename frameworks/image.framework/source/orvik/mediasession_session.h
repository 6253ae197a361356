#pragma once
/// @file
/// The session: which input feeds which output, and the three phases over all outputs.

#include "orvik/mediasession_converter.h"
#include "orvik/mediasession_progress.h"

// Interface methods name the parameters that their overriders use.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-parameter"

namespace orvik {

/// Runs on the caller's thread; has no threads and no queue.
class MediaSessionInterface : public virtual ObserverObjectInterface {
    ORVIK_INTERFACE(MediaSessionInterface, "net.orvik.image.interface.mediasession");

public:
    /// Errors: illegal argument for a null or same converter, "Output doesn't support required import strategy.",
    /// "Input doesn't support required export strategy.", "input is already part of another session", "output is
    /// already part of another session".
    virtual Result<void> ConnectMediaConverter(const MediaConverterRef& input, const MediaConverterRef& output) {
        return Unbound();
    }
    /// Runs Analyze, PrepareExecute and Execute, each over all outputs; the first error ends it.
    virtual Result<void> Convert(TimeValue targetTime, MEDIASESSIONFLAGS flags) { return Unbound(); }
    /// Closes the outputs; the first error ends it. The connections stay.
    virtual Result<void> Close() { return Unbound(); }
    virtual MediaSessionProgressRef GetProgress() const { return Unbound(); }
    /// The inputs of an output, as connected; empty for anything that is no output of this session.
    virtual Result<BaseArray<MediaConverterRef>> GetInputsOf(const MediaConverterInterface* output) const {
        return Unbound();
    }
};

}  // namespace orvik

#pragma GCC diagnostic pop
