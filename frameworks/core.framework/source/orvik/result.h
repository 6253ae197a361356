#pragma once
/// @file
/// `Error`, `Result` and `TRY`: how every fallible operation answers.

#include <new>
#include <type_traits>
#include <utility>

#include "orvik/apibase.h"

namespace orvik {

class ErrorInterface;
struct UnboundAnswer;  // becomes an error itself, never the value inside a result

/// A counted reference to an error object (see errorbase.h), or null for "no error".
class [[nodiscard]] Error {
public:
    constexpr Error() = default;
    constexpr Error(std::nullptr_t) {}  // NOLINT(google-explicit-constructor)
    Error(const Error& other) noexcept : _object(other._object) {
        if (_object)
            Retain();
    }
    Error(Error&& other) noexcept : _object(std::exchange(other._object, nullptr)) {}
    Error& operator=(Error other) noexcept {
        std::swap(_object, other._object);
        return *this;
    }
    ~Error() {
        if (_object)
            Release();
    }
    /// Takes over one reference that the caller owns.
    static Error Adopt(const ErrorInterface* object) noexcept {
        Error error;
        error._object = object;
        return error;
    }

    explicit operator bool() const noexcept { return _object != nullptr; }
    const ErrorInterface* operator->() const noexcept { return _object; }
    const ErrorInterface& operator*() const noexcept { return *_object; }
    const ErrorInterface* Get() const noexcept { return _object; }

private:
    ORVIK_API void Retain() const noexcept;
    ORVIK_API void Release() const noexcept;

    const ErrorInterface* _object = nullptr;
};

/// One error reference (null means success) and, on success, a value of type T.
template <class T>
class [[nodiscard]] Result {
public:
    using ValueType = T;

    Result(Error error) noexcept : _error(std::move(error)) {}  // NOLINT(google-explicit-constructor)
    template <class U = T>
    requires(std::is_constructible_v<T, U&&> && !std::is_same_v<std::remove_cvref_t<U>, Error> &&
             !std::is_same_v<std::remove_cvref_t<U>, Result> && !std::is_same_v<std::remove_cvref_t<U>, UnboundAnswer>)
        Result(U&& value) {  // NOLINT(google-explicit-constructor)
        new (&_value) T(std::forward<U>(value));
    }
    Result(Result&& other) noexcept : _error(std::move(other._error)) {
        if (!_error && !other._moved) {
            new (&_value) T(std::move(other._value));
        } else {
            _moved = other._moved = true;  // neither side holds a value
        }
    }
    Result(const Result& other) : _error(other._error), _moved(other._moved) {
        if (!_error && !_moved)
            new (&_value) T(other._value);
    }
    Result& operator=(Result other) noexcept {
        this->~Result();
        new (this) Result(std::move(other));
        return *this;
    }
    ~Result() {
        if (!_error && !_moved)
            _value.~T();
    }

    explicit operator bool() const noexcept { return !_error; }
    bool HasError() const noexcept { return static_cast<bool>(_error); }
    const Error& GetError() const& noexcept { return _error; }
    Error TakeError() && noexcept {
        _moved = true;
        return std::move(_error);
    }
    /// Only after a test for success.
    T& GetValue() & { return _value; }
    const T& GetValue() const& { return _value; }
    T TakeValue() && { return std::move(_value); }
    template <class U>
    T GetValueOr(U&& fallback) const& {
        return _error ? T(std::forward<U>(fallback)) : _value;
    }
    T* operator->() { return &_value; }
    const T* operator->() const { return &_value; }
    T& operator*() & { return _value; }
    const T& operator*() const& { return _value; }
    T&& operator*() && { return std::move(_value); }

private:
    Error _error;
    bool _moved = false;  ///< there is neither a value nor, any more, an error
    union {
        T _value;
    };
};

/// The result of nothing: one pointer, null when fine.
template <>
class [[nodiscard]] Result<void> {
public:
    using ValueType = void;

    Result() = default;
    Result(Error error) noexcept : _error(std::move(error)) {}  // NOLINT(google-explicit-constructor)

    explicit operator bool() const noexcept { return !_error; }
    bool HasError() const noexcept { return static_cast<bool>(_error); }
    const Error& GetError() const& noexcept { return _error; }
    Error TakeError() && noexcept { return std::move(_error); }
    void TakeValue() && noexcept {}

private:
    Error _error;
};

/// Keeps the first error of several steps that all run, such as the clean-up after a failure.
inline void KeepFirstError(Result<void>& first, Result<void> next) {
    if (first)
        first = std::move(next);
}

template <class T>
inline constexpr bool kIsResult = false;
template <class T>
inline constexpr bool kIsResult<Result<T>> = true;

/// Yields the value of a result, or returns its error from the enclosing function unchanged.
#define TRY(...)                                   \
    __extension__({                                \
        auto _result = (__VA_ARGS__);              \
        if (!_result) [[unlikely]]                 \
            return std::move(_result).TakeError(); \
        std::move(_result).TakeValue();            \
    })

}  // namespace orvik
