#pragma once
/// @file
/// Observables: a list of observers that runs in the order of adding.

#include "orvik/basearray.h"
#include "orvik/delegate.h"
#include "orvik/errortypes.h"

namespace orvik {

template <class Signature>
class Observable;

/// Runs all observers, also after one has failed. A single error comes back as it is, several as one
/// `GatheredErrorInterface`.
template <class... A>
class Observable<Result<void>(A...)> {
public:
    using Observer = Delegate<Result<void>(A...)>;

    /// @return a number for `RemoveObserver`
    Result<Int> AddObserver(Observer observer) {
        TRY(_observers.Append(Entry{_nextNumber, std::move(observer)}));
        return _nextNumber++;
    }
    void RemoveObserver(Int number) noexcept {
        for (Int i = 0; i < _observers.GetCount(); ++i) {
            if (_observers[i].number == number)
                return _observers.Erase(i);
        }
    }
    Int GetObserverCount() const noexcept { return _observers.GetCount(); }

    /// An observer may add and remove observers; added ones run from the next notification on.
    Result<void> Notify(A... arguments) {
        Error failed;
        const Int end = _nextNumber;
        Int done = 0;
        for (Int i = 0; (i = FindBehind(done)) < _observers.GetCount() && _observers[i].number < end;) {
            done = _observers[i].number;
            const Observer observer = _observers[i].observer;  // the list may change under the call
            if (Result<void> answer = observer(arguments...); !answer)
                failed = GatherErrors(failed, answer.GetError());
        }
        return failed;
    }

private:
    /// @return the index of the first observer with a larger number; numbers rise along the list
    Int FindBehind(Int number) const noexcept {
        Int i = 0;
        while (i < _observers.GetCount() && _observers[i].number <= number)
            ++i;
        return i;
    }

    struct Entry {
        Int number;
        Observer observer;
    };
    BaseArray<Entry> _observers;
    Int _nextNumber = 1;
};

}  // namespace orvik
