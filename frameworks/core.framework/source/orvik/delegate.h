#pragma once
/// @file
/// `Delegate`: a callable with small inline storage that can be empty, copied and tested.

#include <concepts>
#include <cstring>

#include "orvik/memory.h"
#include "orvik/objectbase.h"

namespace orvik {

template <class Signature>
class Delegate;

/// Holds its state by value. A callable of at most 48 bytes is stored inline; a larger one goes through `Create`, which
/// can fail, and is then shared by the copies, so copying never fails. A shared callable must not change its state.
template <class R, class... A>
class Delegate<R(A...)> {
    static constexpr size_t kInlineSize = 48;

    struct Operations {
        R (*call)(void* state, A... arguments);
        void (*copy)(void* to, const void* from);
        void (*move)(void* to, void* from);
        void (*destroy)(void* state);
    };

    template <class F>
    static constexpr bool kFits = sizeof(F) <= kInlineSize &&
                                  alignof(F) <= alignof(std::max_align_t) && std::is_nothrow_move_constructible_v<F>;

    template <class F>
    static constexpr Operations kOperations = {
        [](void* state, A... arguments) -> R { return (*static_cast<F*>(state))(std::forward<A>(arguments)...); },
        [](void* to, const void* from) { new (to) F(*static_cast<const F*>(from)); },
        [](void* to, void* from) {
            new (to) F(std::move(*static_cast<F*>(from)));
            static_cast<F*>(from)->~F();
        },
        [](void* state) { static_cast<F*>(state)->~F(); },
    };

    template <class F>
    class Shared : public Object {
    public:
        explicit Shared(F function) : _function(std::move(function)) {}
        F _function;
    };
    template <class F>
    struct SharedCall {
        Ref<Shared<F>> shared;
        R operator()(A... arguments) { return shared.GetObject()->_function(std::forward<A>(arguments)...); }
    };

public:
    constexpr Delegate() = default;
    constexpr Delegate(std::nullptr_t) {}  // NOLINT(google-explicit-constructor)
    template <class F>
    requires(!std::is_same_v<std::remove_cvref_t<F>, Delegate> && std::is_invocable_r_v<R, F&, A...> &&
             kFits<std::remove_cvref_t<F>>) Delegate(F&& function)
        : _operations(&kOperations<std::remove_cvref_t<F>>) {  // NOLINT
        new (_state) std::remove_cvref_t<F>(std::forward<F>(function));
    }
    /// For a callable of any size.
    template <class F>
    static Result<Delegate> Create(F function) {
        if constexpr (kFits<F>) {
            return Delegate(std::move(function));
        } else {
            return Delegate(SharedCall<F>{TRY(NewObj<Shared<F>>(std::move(function)))});
        }
    }

    Delegate(const Delegate& other) : _operations(other._operations) {
        if (_operations)
            _operations->copy(_state, other._state);
    }
    Delegate(Delegate&& other) noexcept : _operations(std::exchange(other._operations, nullptr)) {
        if (_operations)
            _operations->move(_state, other._state);
    }
    Delegate& operator=(Delegate other) noexcept {
        this->~Delegate();
        new (this) Delegate(std::move(other));
        return *this;
    }
    ~Delegate() {
        if (_operations)
            _operations->destroy(_state);
        _operations = nullptr;
    }

    explicit operator bool() const noexcept { return _operations != nullptr; }

    /// Only after a test: an empty delegate has nothing to call.
    R operator()(A... arguments) const { return _operations->call(_state, std::forward<A>(arguments)...); }

private:
    const Operations* _operations = nullptr;
    alignas(std::max_align_t) mutable std::byte _state[kInlineSize];
};

}  // namespace orvik
