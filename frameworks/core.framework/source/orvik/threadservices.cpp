#include "orvik/threadservices.h"

namespace orvik {

namespace {

thread_local const CancelScope* t_innermost = nullptr;

}  // namespace

CancelScope::CancelScope(const CancelToken& token) noexcept : _token(token), _outer(t_innermost) { t_innermost = this; }

CancelScope::~CancelScope() { t_innermost = _outer; }

bool IsCurrentThreadCancelled() noexcept {
    for (const CancelScope* scope = t_innermost; scope; scope = scope->_outer) {
        if (scope->_token.IsCancelled())
            return true;
    }
    return false;
}

}  // namespace orvik
