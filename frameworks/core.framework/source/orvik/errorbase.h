#pragma once
/// @file
/// The error object: a class id, a source location, a message and a cause.

#include "orvik/objectbase.h"
#include "orvik/string.h"

namespace orvik {

/// Base of all error classes. Errors are immutable once they have been returned.
class ErrorInterface : public virtual Object {
public:
    ErrorInterface(const Id& errorId, const SourceLocation& location, String message, Error cause)
        : _errorId(errorId), _location(location), _message(std::move(message)), _cause(std::move(cause)) {}

    /// The id of the error class, for instance "net.orvik.error.illegalargument".
    const Id& GetErrorId() const { return _errorId; }
    const SourceLocation& GetLocation() const { return _location; }
    /// The message, possibly empty.
    const String& GetMessage() const { return _message; }
    /// What led to this error, or null.
    const Error& GetCause() const { return _cause; }
    /// True for this error's class and those it derives from (a null pointer error is an illegal argument error).
    bool IsKindOf(const Id& errorId) const { return errorId == _errorId || IsDerivedFrom(errorId); }
    /// For a person: the message, or a plain sentence for the class when there is none.
    ORVIK_API String ToString() const;

protected:
    virtual bool IsDerivedFrom(const Id& errorId) const {
        (void)errorId;
        return false;
    }

private:
    Id _errorId;
    SourceLocation _location;
    String _message;
    Error _cause;
};

}  // namespace orvik
