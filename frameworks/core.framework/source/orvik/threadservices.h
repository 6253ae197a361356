#pragma once
/// @file
/// Cancellation: a token that any thread or signal handler can set and the working thread tests.

#include <atomic>

#include "orvik/apibase.h"

namespace orvik {

/// Set from anywhere, also from a signal handler; tested by the thread it is attached to.
class CancelToken {
public:
    void Cancel() noexcept { _cancelled.store(true, std::memory_order_relaxed); }
    void Reset() noexcept { _cancelled.store(false, std::memory_order_relaxed); }
    bool IsCancelled() const noexcept { return _cancelled.load(std::memory_order_relaxed); }

private:
    std::atomic<bool> _cancelled{false};
    static_assert(std::atomic<bool>::is_always_lock_free);
};

/// True when one of the tokens that are attached to the current thread was cancelled.
ORVIK_API bool IsCurrentThreadCancelled() noexcept;

/// Attaches a token to the current thread for a scope, beside those of outer scopes.
class ORVIK_API CancelScope {
public:
    explicit CancelScope(const CancelToken& token) noexcept;
    ~CancelScope();
    CancelScope(const CancelScope&) = delete;
    CancelScope& operator=(const CancelScope&) = delete;

private:
    friend bool IsCurrentThreadCancelled() noexcept;

    const CancelToken& _token;
    const CancelScope* _outer;
};

}  // namespace orvik
