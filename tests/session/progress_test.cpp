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
    TimedProgress() = default;
    explicit TimedProgress(Absence why) : Object(why) {}
    TimeValue now = Seconds(1000);

protected:
    TimeValue Now() const override { return now; }
};

class Progress : public testing::Test {
protected:
    struct Notification {
        Float fraction, elapsed;
        TimeValue expected;
    };

    Progress() {
        EXPECT_THAT(_progress->ObservableProgressNotification()->AddObserver(
                        [this](const MediaSessionProgressRef& from, Float fraction, TimeValue elapsed,
                               TimeValue expected) -> Result<void> {
                            EXPECT_EQ(from.GetPointer(), _progress.GetPointer());
                            _seen.push_back({fraction, elapsed.GetSeconds(), expected});
                            return _observerAnswer;
                        }),
                    Succeeds());
    }
    /// Notifies of every change from the second report on, each being a second after the one before.
    void Unthrottle() { EXPECT_THAT(_progress->InitProgress(Seconds(0), Seconds(0)), Succeeds()); }
    Int Job(Float weight) { return Take(_progress->AddProgressJob(weight, "job")); }
    Result<void> Report(Int job, Float value, Float later = 1) {
        _progress->now = _progress->now + Seconds(later);
        return _progress->SetProgressAndCheckBreak(job, value);
    }
    std::vector<Float> Fractions() const {
        std::vector<Float> fractions;
        for (const Notification& one : _seen)
            fractions.push_back(one.fraction);
        return fractions;
    }

    Ref<TimedProgress> _progress = Make<TimedProgress>();
    std::vector<Notification> _seen;
    Result<void> _observerAnswer;
};

TEST_F(Progress, WeighsAndClamps) {
    Unthrottle();
    const Int light = Job(1), heavy = Job(3);
    ASSERT_THAT(Report(light, 0.5), Succeeds());  // starts the clock
    ASSERT_THAT(Report(light, 1), Succeeds());
    ASSERT_THAT(Report(heavy, 0.5), Succeeds());
    ASSERT_THAT(Report(heavy, 0.25), Succeeds());  // may go down
    ASSERT_THAT(Report(heavy, -5), Succeeds());
    ASSERT_THAT(Report(heavy, 7), Succeeds());
    ASSERT_THAT(Report(heavy, std::numeric_limits<Float>::quiet_NaN()), Succeeds());
    EXPECT_THAT(Fractions(), ElementsAre(DoubleEq(0.25), DoubleEq(0.625), DoubleEq(0.4375), 0, 1, 0));
}

TEST_F(Progress, ExpectsTheTotalFromTheFraction) {
    Unthrottle();
    const Int job = Job(10);
    ASSERT_THAT(Report(job, 0.1), Succeeds());
    ASSERT_THAT(Report(job, 0.25, 2), Succeeds());
    ASSERT_THAT(Report(job, 0.0, 2), Succeeds());
    ASSERT_EQ(_seen.size(), 2u);
    EXPECT_DOUBLE_EQ(_seen[0].elapsed, 2);
    EXPECT_DOUBLE_EQ(_seen[0].expected.GetSeconds(), 8);
    EXPECT_DOUBLE_EQ(_seen[1].elapsed, 4);
    EXPECT_TRUE(_seen[1].expected.IsNone());
}

TEST_F(Progress, AnEqualValueIsNoWork) {
    Unthrottle();
    const Int job = Job(1);
    ASSERT_THAT(Report(job, 0), Succeeds());  // jobs start at 0: does not even start the clock
    ASSERT_THAT(Report(job, 0.5), Succeeds());
    EXPECT_THAT(Fractions(), IsEmpty());  // elapsed is 0
    ASSERT_THAT(Report(job, 0.5), Succeeds());
    EXPECT_THAT(Fractions(), IsEmpty());
    ASSERT_THAT(Report(job, 0.6), Succeeds());
    EXPECT_DOUBLE_EQ(_seen.at(0).elapsed, 2);
}

TEST_F(Progress, ThrottlesByDelayAndInterval) {
    ASSERT_THAT(_progress->InitProgress(Seconds(10), Seconds(4)), Succeeds());
    const Int job = Job(1);
    struct Step {
        Float later, value;
        bool notifies;
        const char* why;
    };
    const Step steps[] = {
        {1, 0.01, false, "first report"},   {9, 0.02, false, "within the delay"}, {1, 0.03, false, "delay is not over"},
        {0.5, 0.04, true, "delay is over"}, {3, 0.05, false, "interval"},         {1, 0.06, false, "interval exactly"},
        {0.5, 0.07, true, "interval over"}, {0.1, 1.0, true, "complete"},
    };
    for (const Step& step : steps) {
        _seen.clear();
        ASSERT_THAT(Report(job, step.value, step.later), Succeeds());
        EXPECT_EQ(!_seen.empty(), step.notifies) << step.why << " at " << step.value;
    }
}

TEST_F(Progress, CompletionNotifiesAtOnce) {
    ASSERT_THAT(_progress->InitProgress(Seconds(100), Seconds(100)), Succeeds());
    const Int a = Job(0.1), b = Job(0.2), c = Job(0.7);
    ASSERT_THAT(Report(a, 1), Succeeds());
    ASSERT_THAT(Report(b, 1), Succeeds());
    ASSERT_THAT(Report(c, 0.99999), Succeeds());
    EXPECT_THAT(Fractions(), IsEmpty());
    ASSERT_THAT(Report(c, 1), Succeeds());
    EXPECT_THAT(Fractions(), ElementsAre(DoubleEq(1)));
}

TEST_F(Progress, ZeroWeightsNeverComplete) {
    ASSERT_THAT(_progress->InitProgress(Seconds(100), Seconds(100)), Succeeds());
    const Int job = Job(0);
    ASSERT_THAT(Report(job, 1), Succeeds());
    EXPECT_THAT(Fractions(), IsEmpty());
    ASSERT_THAT(Report(job, 0.5, 200), Succeeds());  // by time alone
    EXPECT_THAT(Fractions(), ElementsAre(0));
    _seen.clear();
    Job(5);  // weights that cancel out are no weight either
    const Int negative = Job(-5);
    ASSERT_THAT(Report(negative, -1, 200), Succeeds());
    EXPECT_THAT(Fractions(), ElementsAre(0));
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
        EXPECT_THAT(Fractions(), IsEmpty());
    }
    EXPECT_THAT(Report(job, 1), Succeeds());  // nothing had been stored
    EXPECT_THAT(Fractions(), ElementsAre(1));
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
    EXPECT_THAT(Fractions(), ElementsAre(DoubleEq(0.2), DoubleEq(0.3)));
}

}  // namespace
}  // namespace orvik
