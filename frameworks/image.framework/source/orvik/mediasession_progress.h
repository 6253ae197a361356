#pragma once
/// @file
/// The progress of a session's jobs as one weighted fraction, and the point where cancellation reaches a conversion.

#include "orvik/mediasession_base.h"
#include "orvik/observerobject.h"

// Interface methods name the parameters that their overriders use.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-parameter"

namespace orvik {

class MediaSessionProgressInterface;
using MediaSessionProgressRef = Ref<MediaSessionProgressInterface>;
template <>
inline constexpr const char* kDataTypeName<MediaSessionProgressRef> = "orvik::MediaSessionProgressRef";

/// Gets the progress object, the fraction 0 ... 1, the elapsed and the expected total time.
using ProgressDelegate = Delegate<Result<void>(const MediaSessionProgressRef& progress, Float fraction,
                                               TimeValue elapsed, TimeValue expected)>;
using ProgressObservable = Observable<Result<void>(const MediaSessionProgressRef&, Float, TimeValue, TimeValue)>;

class MediaSessionProgressInterface : public virtual ObserverObjectInterface {
    ORVIK_INTERFACE(MediaSessionProgressInterface, "net.orvik.image.interface.mediasessionprogress");

public:
    /// @param firstDelay  time after the first report before any notification
    /// @param interval    least time between two notifications
    virtual Result<void> InitProgress(TimeValue firstDelay, TimeValue interval) { return Unbound(); }
    /// @param weight  share of the job; any unit, importers use pixels
    /// @return the job's index
    virtual Result<Int> AddProgressJob(Float weight, const String& name) { return Unbound(); }
    /// @param progress  0 ... 1; may go down
    /// Errors: thread cancelled, illegal argument for an unknown job, an observer's error.
    virtual Result<void> SetProgressAndCheckBreak(Int job, Float progress) { return Unbound(); }
    /// Null for an absent object.
    virtual ProgressObservable* ObservableProgressNotification() { return Unbound(); }
};

}  // namespace orvik

#pragma GCC diagnostic pop
