#pragma once
// What results hold, as tests compare and print it.

#include <ostream>
#include <string>

#include "orvik/errortypes.h"

namespace orvik {

/// The error class of a result; an empty id for success.
template <class T>
Id ErrorIdOf(const Result<T>& result) {
    return result ? Id() : result.GetError()->GetErrorId();
}
/// The text of an error, "" for success.
template <class T>
std::string MessageOf(const Result<T>& result) {
    return result ? std::string() : std::string(result.GetError()->GetMessage().GetText());
}

inline void PrintTo(const Id& id, std::ostream* out) { *out << '"' << id.GetText() << '"'; }

}  // namespace orvik
