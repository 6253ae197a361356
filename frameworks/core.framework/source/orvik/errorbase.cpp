#include "orvik/errorbase.h"

#include <cstdlib>
#include <unistd.h>

#include "orvik/errortypes.h"

namespace orvik {

void Error::Retain() const noexcept { _object->Retain(); }
void Error::Release() const noexcept { _object->Release(); }

namespace {

/// An error in static memory: no allocation, no count, never destroyed.
template <class E>
Error SharedError(const Id& id) noexcept {
    alignas(E) static std::byte storage[sizeof(E)];
    static const ErrorInterface* const error = new (storage) E(id, SourceLocation::current(), String(), Error());
    return Error::Adopt(error);
}

struct Sentence {
    Id id;
    const char* text;
};

/// What people are shown for an error without a message.
constexpr Sentence kSentences[] = {
    {errorid::kOutOfMemory, "Out of memory."},
    {errorid::kFunctionNotImplemented, "The function is not implemented."},
    {errorid::kIllegalArgument, "Illegal argument."},
    {errorid::kNullptr, "An object is missing (null reference)."},
    {errorid::kIllegalState, "Illegal state."},
    {errorid::kUnexpected, "Unexpected internal state."},
    {errorid::kUnresolved, "A published object could not be found."},
    {errorid::kUnknown, "Unknown error."},
    {errorid::kUnsupportedArgument, "The argument is not supported."},
    {errorid::kUnsupportedOperation, "The operation is not supported."},
    {errorid::kThreadCancelled, "Cancelled."},
    {errorid::kIo, "Reading or writing failed."},
    {errorid::kFileFormat, "The file format is not supported."},
    // Errors of the media session, most of which have no message.
    {Id("net.orvik.image.error.mediasessionwrongtype"), "The file is damaged or not of the type that it seems to be."},
    {Id("net.orvik.image.error.mediastreameof"), "The input has run to its end."},
    {Id("net.orvik.image.error.mediaconverter"), "The data cannot be converted."},
};

}  // namespace

String ErrorInterface::ToString() const {
    if (!_message.IsEmpty())
        return _message;
    for (const Sentence& sentence : kSentences) {
        if (sentence.id == _errorId)
            return sentence.text;
    }
    return FormatString("Error @.", _errorId);
}

Error MakeOutOfMemoryError() noexcept { return SharedError<OutOfMemoryErrorInterface>(errorid::kOutOfMemory); }

Error PrivateGetNullReturnError(int reason) noexcept {
    switch (reason) {
        case 0:
        case 1:
            return SharedError<NullptrErrorInterface>(errorid::kNullptr);
        case 2:
            return SharedError<UnresolvedErrorInterface>(errorid::kUnresolved);
        case 3:
            return SharedError<FunctionNotImplementedErrorInterface>(errorid::kFunctionNotImplemented);
        default:
            break;
    }
    constexpr std::string_view kStop = "Stop: reason not supported by PrivateGetNullReturnError.\n";
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, kStop.data(), kStop.size());
    std::abort();
}

Error GatherErrors(const Error& before, const Error& next) noexcept {
    if (!before || !next)
        return before ? before : next;
    BaseArray<Error> errors;
    const auto* list = dynamic_cast<const GatheredErrorInterface*>(before.Get());
    const Block<const Error> known = list ? list->GetErrors() : Block<const Error>(&before, 1);
    String message = before->ToString();
    if (!errors.AppendBlock(known) || !errors.Append(next) || !message.Append("; ") ||
        !message.Append(next->ToString()))
        return before;
    const Error first = errors[0];
    Result<Ref<GatheredErrorInterface>> made =
        NewObj<GatheredErrorInterface>(first, std::move(message), std::move(errors));
    return made ? Error::Adopt(made.GetValue().Detach()) : before;
}

Error MakeStandardError(const SourceLocation& location, int kind) noexcept {
    switch (kind) {
        case 0:
            return MakeOutOfMemoryError();
        case 1:
            return NullptrError(location);
        case 2:
            return IllegalArgumentError(location);
        case 3:
            return IllegalStateError(location);
        case 4:
            return FunctionNotImplementedError(location);
        case 5:
            return UnresolvedError(location);
        default:
            return UnknownError(location);
    }
}

}  // namespace orvik
