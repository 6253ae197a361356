#pragma once
// What results are expected to be.

#include <gmock/gmock.h>
#include <string>

#include "orvik/errortypes.h"

namespace orvik {

template <class Result>
std::string DescribeResult(const Result& result) {
    if (result)
        return "which succeeded";
    return "which is " + std::string(result.GetError()->GetErrorId().GetText()) + " \"" +
           result.GetError()->GetMessage().GetCString() + '"';
}

MATCHER_P(FailsAs, errorId, "fails as " + std::string(errorId.GetText())) {
    *result_listener << DescribeResult(arg);
    return !arg && arg.GetError()->IsKindOf(errorId);
}

MATCHER_P2(FailsWith, errorId, text, "fails as " + std::string(errorId.GetText()) + " \"" + std::string(text) + '"') {
    *result_listener << DescribeResult(arg);
    return !arg && arg.GetError()->IsKindOf(errorId) &&
           arg.GetError()->GetMessage().GetText() == std::string_view(text);
}

MATCHER(Succeeds, "succeeds") {
    *result_listener << DescribeResult(arg);
    return static_cast<bool>(arg);
}

}  // namespace orvik
