#pragma once
// Work with the 1st, 2nd, ... of its allocations failing.

#include <gtest/gtest.h>

#include "support/results.h"

#include "orvik/memory.h"

namespace orvik {

/// Counts on to the next allocation until the work has none left to fail: `while (faults.Next()) faults.Run(work);`.
/// Outside `Run` no allocation fails.
class AllocationFaults {
public:
    /// @param sticky  whether all later allocations fail too
    explicit AllocationFaults(bool sticky = false) : _sticky(sticky) {}

    bool Next() {
        EXPECT_LT(_number, kMost) << "there is no end";
        return !_finished && ++_number <= kMost;
    }
    /// The last run must succeed.
    /// @param checksError  whether an error must be lack of memory; else the caller looks at it
    template <class Work>
    auto Run(Work&& work, bool checksError = true) {
        SetAllocationFault(_number, _sticky);
        auto answer = work();
        _finished = GetAllocationCount() < _number;
        SetAllocationFault(0);
        if (!answer) {
            ++_errors;
            EXPECT_FALSE(_finished) << MessageOf(answer);
            EXPECT_TRUE(!checksError || ErrorIdOf(answer) == errorid::kOutOfMemory)
                << "allocation " << _number << ": " << answer.GetError()->ToString().GetCString();
        }
        return answer;
    }
    bool IsDone() const { return _finished; }
    Int GetErrorCount() const { return _errors; }

private:
    static constexpr Int kMost = 5000;
    bool _sticky, _finished = false;
    Int _number = 0, _errors = 0;
};

}  // namespace orvik
