#pragma once
/// @file
/// The progress of a session.

#include "orvik/mediasession_progress.h"

namespace orvik {

/// Gathers the jobs of a session into one weighted fraction and notifies observers of it, not too often.
class MediaSessionProgressImpl : public virtual MediaSessionProgressInterface {
public:
    Result<void> InitProgress(TimeValue firstDelay, TimeValue interval) override;
    Result<Int> AddProgressJob(Float weight, const String& name) override;
    Result<void> SetProgressAndCheckBreak(Int job, Float progress) override;
    ProgressObservable* ObservableProgressNotification() override { return &_observable; }

protected:
    /// The clock; tests put their own in its place.
    virtual TimeValue Now() const { return TimeValue::GetTime(); }

private:
    struct Job {
        Float weight;
        Float progress;
        String name;
    };

    /// Sum of weight * progress over the sum of weights, 0 ... 1; 0 without any weight.
    Float ComputeFraction() const noexcept;

    ProgressObservable _observable;
    TimeValue _firstDelay;
    TimeValue _interval;
    TimeValue _startTime;  ///< of the first report that changed a value
    TimeValue _lastNotification;
    BaseArray<Job> _jobs;
    bool _started = false;
    Float _fraction = 0;
};

}  // namespace orvik
