// Progress: the weighted fraction, the throttle, and cancellation.
#include <gmock/gmock.h>
#include <limits>

#include "session/mediasession_progress_impl.h"
#include "session_fakes.h"
#include "support/module_fixture.h"

#include "orvik/threadservices.h"

namespace orvik {
namespace {

using testing::DoubleEq;
using testing::ElementsAre;
using testing::IsEmpty;

TimeValue Seconds(Float seconds) { return TimeValue::FromSeconds(seconds); }

/// With a clock that a test sets.
class TimedProgress : public MediaSessionProgressImpl {
public:
    TimeValue now = Seconds(1000);

protected:
    TimeValue Now() const override { return now; }
};

class Progress : public testing::Test {
protected:
    /// One that notes its notifications.
    Ref<TimedProgress> MakeProgress() {
        const auto progress = Make<TimedProgress>();
        const ProgressDelegate observer = [this](const MediaSessionProgressRef& from, Float fraction, TimeValue elapsed,
                                                 TimeValue expected) -> Result<void> {
            EXPECT_EQ(from.GetPointer(), _progress.GetPointer());
            _fractions.push_back(fraction);
            _elapsed = elapsed;
            _expected = expected;
            return _observerAnswer;
        };
        EXPECT_THAT(progress->ObservableProgressNotification()->AddObserver(observer), Succeeds());
        return progress;
    }
    Int Job(Float weight) { return Take(_progress->AddProgressJob(weight, "job")); }
    /// Each some time after the one before.
    Result<void> Report(Int job, Float value, Float later = 1) {
        _progress->now = _progress->now + Seconds(later);
        return _progress->SetProgressAndCheckBreak(job, value);
    }

    Ref<TimedProgress> _progress = MakeProgress();
    std::vector<Float> _fractions;  ///< of all notifications
    TimeValue _elapsed, _expected;  ///< of the last one
    Result<void> _observerAnswer;
};

TEST_F(Progress, NotifiesOfTheWeightedFractionInTime) {
    constexpr Float kNone = -1;  // no notification
    constexpr Float kNaN = std::numeric_limits<Float>::quiet_NaN();
    struct Step {
        Float later;
        Int job;
        Float value, fraction;
    };
    const struct {
        const char* what;
        Float delay, interval;
        std::vector<Float> weights;
        std::vector<Step> steps;
    } cases[] = {
        // The first report starts the clock; fractions may go down.
        {"weights", 0, 0, {1, 3}, {{1, 0, 0.5, kNone}, {1, 0, 1, 0.25}, {1, 1, 0.5, 0.625}, {1, 1, 0.25, 0.4375}}},
        {"values out of range", 0, 0, {1}, {{1, 0, 0.5, kNone}, {1, 0, -5, 0}, {1, 0, 7, 1}, {1, 0, kNaN, 0}}},
        {"equal values", 0, 0, {1}, {{1, 0, 0, kNone}, {1, 0, 0.5, kNone}, {1, 0, 0.5, kNone}, {1, 0, 0.6, 0.6}}},
        // The third report comes after the delay exactly.
        {"delay", 10, 4, {1}, {{1, 0, 0.1, kNone}, {9, 0, 0.2, kNone}, {1, 0, 0.3, kNone}, {0.5, 0, 0.4, 0.4}}},
        {"interval", 0, 4, {1}, {{1, 0, 0.1, kNone}, {1, 0, 0.2, 0.2}, {4, 0, 0.3, kNone}, {0.5, 0, 0.4, 0.4}}},
        {"end", 9, 9, {0.1, 0.2, 0.7}, {{1, 0, 1, kNone}, {1, 1, 1, kNone}, {1, 2, 0.99999, kNone}, {1, 2, 1, 1}}},
        {"no weight", 99, 99, {0, 5, -5}, {{1, 0, 1, kNone}, {200, 0, 0.5, 0}, {200, 2, -1, 0}}},
    };
    for (const auto& [what, delay, interval, weights, steps] : cases) {
        SCOPED_TRACE(what);
        _progress = MakeProgress();
        ASSERT_THAT(_progress->InitProgress(Seconds(delay), Seconds(interval)), Succeeds());
        for (const Float weight : weights)
            Job(weight);
        for (const Step& step : steps) {
            _fractions.clear();
            ASSERT_THAT(Report(step.job, step.value, step.later), Succeeds());
            EXPECT_DOUBLE_EQ(_fractions.empty() ? kNone : _fractions[0], step.fraction) << step.value;
        }
    }
}

TEST_F(Progress, ExpectsTheTotalFromTheFraction) {
    ASSERT_THAT(_progress->InitProgress({}, {}), Succeeds());
    const Int job = Job(10);
    ASSERT_THAT(Report(job, 0.1), Succeeds());  // starts the clock
    ASSERT_THAT(Report(job, 0.25, 2), Succeeds());
    EXPECT_DOUBLE_EQ(_elapsed.GetSeconds(), 2);
    EXPECT_DOUBLE_EQ(_expected.GetSeconds(), 8);
    ASSERT_THAT(Report(job, 0, 2), Succeeds());
    EXPECT_TRUE(_expected.IsNone());
}

TEST_F(Progress, RefusesUnknownJobs) {
    for (const Int job : {Int(-1), Int(0), Int(1), std::numeric_limits<Int>::min(), std::numeric_limits<Int>::max()})
        EXPECT_THAT(Report(job, 0.5), FailsWith(errorid::kIllegalArgument, "")) << job;
    Job(1);
    EXPECT_THAT(Report(0, 0.5), Succeeds());
    EXPECT_THAT(Report(1, 0.5), FailsAs(errorid::kIllegalArgument));
}

TEST_F(Progress, CancelComesBeforeEverything) {
    const Int job = Job(1);
    CancelToken token;
    {
        const CancelScope scope(token);
        EXPECT_THAT(Report(job, 0.5), Succeeds());
        token.Cancel();
        EXPECT_THAT(Report(99, 0.5), FailsAs(errorid::kThreadCancelled)) << "before the index is tested";
        EXPECT_THAT(Report(job, 1), FailsAs(errorid::kThreadCancelled));
        EXPECT_THAT(_fractions, IsEmpty());
    }
    EXPECT_THAT(Report(job, 1), Succeeds());  // nothing had been stored
    EXPECT_THAT(_fractions, ElementsAre(1));
}

// A notification that failed is not counted: the interval runs from the last one that went well.
TEST_F(Progress, AFailedNotificationIsTriedAgain) {
    ASSERT_THAT(_progress->InitProgress(Seconds(0), Seconds(50)), Succeeds());
    const Int job = Job(1);
    ASSERT_THAT(Report(job, 0.1), Succeeds());
    const Error busy = MediaConverterError("busy");
    _observerAnswer = busy;
    EXPECT_EQ(Report(job, 0.2).GetError().Get(), busy.Get());
    _observerAnswer = {};
    EXPECT_THAT(Report(job, 0.3), Succeeds());
    EXPECT_THAT(Report(job, 0.4), Succeeds());
    EXPECT_THAT(_fractions, ElementsAre(DoubleEq(0.2), DoubleEq(0.3)));
}

}  // namespace
}  // namespace orvik
