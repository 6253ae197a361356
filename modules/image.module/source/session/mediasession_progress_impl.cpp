#include "session/mediasession_progress_impl.h"

#include "base/registration.h"

#include "orvik/mediasession_stream.h"
#include "orvik/threadservices.h"

namespace orvik {

namespace {

constexpr Float kCompleteFraction = 0.99999999;  // sums of weights seldom reach 1 exactly

}  // namespace

Result<void> MediaSessionProgressImpl::InitProgress(TimeValue firstDelay, TimeValue interval) {
    _firstDelay = firstDelay;
    _interval = interval;
    return {};
}

Result<Int> MediaSessionProgressImpl::AddProgressJob(Float weight, const String& name) {
    TRY(_jobs.Append(Job{weight, 0, name}));
    return _jobs.GetCount() - 1;
}

Result<void> MediaSessionProgressImpl::SetProgressAndCheckBreak(Int job, Float progress) {
    // The cancel comes first: it must reach callers whose job could not be added, too.
    if (IsCurrentThreadCancelled())
        return ThreadCancelledError();
    if (job < 0 || job >= _jobs.GetCount())
        return IllegalArgumentError();
    if (_jobs[job].progress == progress)
        return {};
    _jobs[job].progress = progress;
    _fraction = ComputeFraction();

    const TimeValue now = Now();
    if (!_started) {
        _started = true;
        _startTime = now;
    }
    const TimeValue elapsed = now - _startTime;
    const bool due = elapsed > _firstDelay && now - _lastNotification > _interval;
    if (!due && _fraction < kCompleteFraction)
        return {};
    const TimeValue expected =
        _fraction > 0 ? TimeValue::FromSeconds(elapsed.GetSeconds() / _fraction) : TimeValue::None();
    TRY(_observable.Notify(MediaSessionProgressRef(this), _fraction, elapsed, expected));
    _lastNotification = now;
    return {};
}

Float MediaSessionProgressImpl::ComputeFraction() const noexcept {
    Float done = 0;
    Float total = 0;
    for (const Job& job : _jobs) {
        done += job.weight * job.progress;
        total += job.weight;
    }
    if (total == 0)
        return 0;
    const Float fraction = done / total;
    if (!(fraction > 0))  // a report that is not a number counts as nothing done
        return 0;
    return std::min(fraction, 1.0);
}

Result<void> RegisterMediaSessionProgress(Publisher& publisher) {
    return publisher.PublishClass<MediaSessionProgressImpl>(mediaclasses::kSessionProgress);
}

}  // namespace orvik
