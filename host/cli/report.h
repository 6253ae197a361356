#pragma once
/// @file
/// A self-contained HTML page that shows pictures and their nodes.

#include "description.h"

namespace orvik::cli {

class Report {
public:
    /// Adds a picture's tree with a thumbnail of every node. Where reading a node fails, for instance because there is
    /// no conversion, the page shows the error's text instead. Errors: shortage of memory, cancellation; they add
    /// nothing.
    Result<void> Add(const Json& description, const Picture& picture);
    /// @param output  a path, a file URL, or "-" for standard output
    Result<void> Write(const std::string& output) const;

    bool IsEmpty() const { return _count == 0; }

private:
    std::string _body;
    int _count = 0;
};

}  // namespace orvik::cli
