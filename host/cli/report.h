#pragma once
/// @file
/// A page that shows what is in pictures: one HTML file that needs no other.

#include "description.h"

namespace orvik::cli {

class Report {
public:
    /// Adds a picture's tree with a thumbnail of every node. What fails to be read (a conversion that is not there,
    /// say) stands in the page as the error's text, in place of the thumbnail. Errors: shortage of memory,
    /// cancellation.
    Result<void> Add(const Json& description, const Picture& picture);
    /// @param output  a path, a file URL, or "-" for standard output
    Result<void> Write(const std::string& output) const;

private:
    Result<void> AddNode(const Json& description, const ImageBaseRef& node);

    std::string _body;
    int _count = 0;
};

}  // namespace orvik::cli
