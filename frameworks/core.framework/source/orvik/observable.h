#pragma once
/// @file
/// Observables: a list of observers that runs in the order of adding.

#include "orvik/basearray.h"
#include "orvik/delegate.h"

namespace orvik {

template <class Signature>
class Observable;

/// Runs all observers, also after one has failed, and returns the first error.
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
        Result<void> first;
        const Int last = _nextNumber;
        for (Int i = 0; i < _observers.GetCount();) {
            const Int number = _observers[i].number;
            if (number >= last)
                break;
            const Observer observer = _observers[i].observer;
            Result<void> answer = observer(arguments...);
            if (!answer && first)
                first = std::move(answer);
            if (i < _observers.GetCount() && _observers[i].number == number)
                ++i;
        }
        return first;
    }

private:
    struct Entry {
        Int number;
        Observer observer;
    };
    BaseArray<Entry> _observers;
    Int _nextNumber = 1;
};

}  // namespace orvik
