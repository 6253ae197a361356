#pragma once
/// @file
/// The session.

#include "orvik/hashmap.h"
#include "orvik/mediasession_session.h"

namespace orvik {

/// Holds which input feeds which output, and runs the phases over the outputs in the order of the map. It calls outputs
/// only; an output calls the inputs that feed it.
class MediaSessionImpl : public virtual MediaSessionInterface {
public:
    /// Creates the progress object. Null pointer error when its class is not published.
    Result<void> Construct();

    Result<void> ConnectMediaConverter(const MediaConverterRef& input, const MediaConverterRef& output) override;
    Result<void> Convert(TimeValue targetTime, MEDIASESSIONFLAGS flags) override;
    Result<void> Close() override;
    MediaSessionProgressRef GetProgress() const override { return _progress; }
    Result<BaseArray<MediaConverterRef>> GetInputsOf(const MediaConverterInterface* output) const override;

private:
    /// Calls `operation(output, inputs)` for each output. Both are held by references of this call's own, so that a
    /// converter may connect others meanwhile; those take part from the next phase on.
    template <class F>
    Result<void> ForEachOutput(F&& operation) const;

    HashMap<MediaConverterRef, BaseArray<MediaConverterRef>> _connections;  ///< from an output to its inputs
    MediaSessionProgressRef _progress;
};

}  // namespace orvik
