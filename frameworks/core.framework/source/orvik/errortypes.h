#pragma once
/// @file
/// The error classes and the calls that make errors.
///
/// Each call comes in two forms: without arguments, an error with a location and no text; with a format text, where "@"
/// takes the arguments in order and "@{x}" prints in hexadecimal.

#include "orvik/errorbase.h"
#include "orvik/url.h"

namespace orvik {

namespace errorid {
inline constexpr Id kOutOfMemory{"net.orvik.error.outofmemory"};
inline constexpr Id kFunctionNotImplemented{"net.orvik.error.functionnotimplemented"};
inline constexpr Id kIllegalArgument{"net.orvik.error.illegalargument"};
inline constexpr Id kNullptr{"net.orvik.error.nullptr"};
inline constexpr Id kIllegalState{"net.orvik.error.illegalstate"};
inline constexpr Id kUnexpected{"net.orvik.error.unexpected"};
inline constexpr Id kUnresolved{"net.orvik.error.unresolved"};
inline constexpr Id kUnknown{"net.orvik.error.unknown"};
inline constexpr Id kUnsupportedArgument{"net.orvik.error.unsupportedargument"};
inline constexpr Id kUnsupportedOperation{"net.orvik.error.unsupportedoperation"};
inline constexpr Id kThreadCancelled{"net.orvik.error.threadcancelled"};
inline constexpr Id kIo{"net.orvik.error.io"};
inline constexpr Id kFileFormat{"net.orvik.error.fileformat"};
}  // namespace errorid

/// @{ The error classes. Test for a class by id (`IsKindOf`); the classes hold what an error has besides its
/// text.
class OutOfMemoryErrorInterface : public ErrorInterface {
    using ErrorInterface::ErrorInterface;
};
class FunctionNotImplementedErrorInterface : public ErrorInterface {
    using ErrorInterface::ErrorInterface;
};
class IllegalArgumentErrorInterface : public ErrorInterface {
    using ErrorInterface::ErrorInterface;
};
/// A kind of illegal argument.
class NullptrErrorInterface : public IllegalArgumentErrorInterface {
    using IllegalArgumentErrorInterface::IllegalArgumentErrorInterface;

protected:
    bool IsDerivedFrom(const Id& errorId) const override { return errorId == errorid::kIllegalArgument; }
};
class IllegalStateErrorInterface : public ErrorInterface {
    using ErrorInterface::ErrorInterface;
};
class UnexpectedErrorInterface : public ErrorInterface {
    using ErrorInterface::ErrorInterface;
};
class UnresolvedErrorInterface : public ErrorInterface {
    using ErrorInterface::ErrorInterface;
};
class UnknownErrorInterface : public ErrorInterface {
    using ErrorInterface::ErrorInterface;
};
class UnsupportedArgumentErrorInterface : public ErrorInterface {
    using ErrorInterface::ErrorInterface;
};
class UnsupportedOperationErrorInterface : public ErrorInterface {
    using ErrorInterface::ErrorInterface;
};
class ThreadCancelledErrorInterface : public ErrorInterface {
    using ErrorInterface::ErrorInterface;
};
class FileFormatErrorInterface : public ErrorInterface {
    using ErrorInterface::ErrorInterface;
};
/// A failure of a stream or file, with its URL.
class IoErrorInterface : public ErrorInterface {
public:
    IoErrorInterface(const Id& id, const SourceLocation& location, String message, Error cause, Url url)
        : ErrorInterface(id, location, std::move(message), std::move(cause)), _url(std::move(url)) {}
    const Url& GetUrl() const { return _url; }

private:
    Url _url;
};
/// The errors of an operation that went on after a failure, in order. Stands for the first one, whose id, place and
/// cause chain it has; the message joins the texts of all with "; ".
class GatheredErrorInterface : public ErrorInterface {
public:
    GatheredErrorInterface(const Error& first, String message, BaseArray<Error> errors)
        : ErrorInterface(first->GetErrorId(), first->GetLocation(), std::move(message), first),
          _errors(std::move(errors)) {}
    Block<const Error> GetErrors() const { return _errors.ToBlock(); }

protected:
    /// Of a kind when one of the errors is.
    bool IsDerivedFrom(const Id& errorId) const override {
        return std::any_of(_errors.begin(), _errors.end(), [&](const Error& e) { return e->IsKindOf(errorId); });
    }

private:
    BaseArray<Error> _errors;
};
/// @}

/// Adds an error to those before it. Either may be null; one error alone stays as it is. Without memory for both, the
/// earlier one remains.
ORVIK_API Error GatherErrors(const Error& before, const Error& next) noexcept;

/// The standard errors by number: 0 out of memory, 1 null pointer, 2 illegal argument, 3 illegal state, 4 function not
/// implemented, 5 unresolved, anything else unknown. None carries a message.
ORVIK_API Error MakeStandardError(const SourceLocation& location, int kind) noexcept;

/// A format text together with its place in the source.
struct LocatedText {
    std::string_view text;
    SourceLocation location;
    template <size_t N>
    consteval LocatedText(const char (&literal)[N],  // NOLINT(google-explicit-constructor)
                          SourceLocation where = SourceLocation::current())
        : text(literal, N - 1), location(where) {}
};

/// Makes an error of class E. Without memory for the error itself it is the out-of-memory error.
template <class E>
Error MakeError(const Id& id, const SourceLocation& location, String message = {}, Error cause = {}) noexcept {
    Result<Ref<E>> made = NewObj<E>(id, location, std::move(message), std::move(cause));
    if (!made)
        return std::move(made).TakeError();
    return Error::Adopt(made.GetValue().Detach());
}

/// Defines NAME() and NAME("text @", value) for error class E.
#define ORVIK_ERROR_MAKER(NAME, E, ID)                                                                   \
    inline Error NAME(const SourceLocation& where = SourceLocation::current()) noexcept {                \
        return MakeError<E>(ID, where);                                                                  \
    }                                                                                                    \
    template <class... Arguments>                                                                        \
    Error NAME(LocatedText text, const Arguments&... arguments) noexcept {                               \
        return MakeError<E>(ID, text.location, FormatString(text.text, arguments...));                   \
    }                                                                                                    \
    /** With the error that led to this one. */                                                          \
    template <class... Arguments>                                                                        \
    Error NAME##With(Error cause, LocatedText text, const Arguments&... arguments) noexcept {            \
        return MakeError<E>(ID, text.location, FormatString(text.text, arguments...), std::move(cause)); \
    }                                                                                                    \
    static_assert(true)

ORVIK_ERROR_MAKER(FunctionNotImplementedError, FunctionNotImplementedErrorInterface, errorid::kFunctionNotImplemented);
ORVIK_ERROR_MAKER(IllegalArgumentError, IllegalArgumentErrorInterface, errorid::kIllegalArgument);
ORVIK_ERROR_MAKER(NullptrError, NullptrErrorInterface, errorid::kNullptr);
ORVIK_ERROR_MAKER(IllegalStateError, IllegalStateErrorInterface, errorid::kIllegalState);
ORVIK_ERROR_MAKER(UnexpectedError, UnexpectedErrorInterface, errorid::kUnexpected);
ORVIK_ERROR_MAKER(UnresolvedError, UnresolvedErrorInterface, errorid::kUnresolved);
ORVIK_ERROR_MAKER(UnknownError, UnknownErrorInterface, errorid::kUnknown);
ORVIK_ERROR_MAKER(UnsupportedArgumentError, UnsupportedArgumentErrorInterface, errorid::kUnsupportedArgument);
ORVIK_ERROR_MAKER(UnsupportedOperationError, UnsupportedOperationErrorInterface, errorid::kUnsupportedOperation);
ORVIK_ERROR_MAKER(ThreadCancelledError, ThreadCancelledErrorInterface, errorid::kThreadCancelled);
ORVIK_ERROR_MAKER(FileFormatError, FileFormatErrorInterface, errorid::kFileFormat);

/// Never allocates.
inline Error OutOfMemoryError() noexcept { return MakeOutOfMemoryError(); }

/// A failure of a stream or file. `text` says what failed, as in "cannot open: @".
template <class... Arguments>
Error IoError(const Url& url, LocatedText text, const Arguments&... arguments) noexcept {
    Result<Ref<IoErrorInterface>> made =
        NewObj<IoErrorInterface>(errorid::kIo, text.location, FormatString(text.text, arguments...), Error(), url);
    if (!made)
        return std::move(made).TakeError();
    return Error::Adopt(made.GetValue().Detach());
}

}  // namespace orvik
