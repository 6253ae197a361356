#pragma once
/// @file
/// Nested inputs: a file embedded in a file of another format.

#include "session/mediasession_baseimpl.h"

#include "orvik/fileformat.h"
#include "orvik/mediasession_stream.h"

namespace orvik {

class FileImporter;

/// An importer run by another one. It comes from the registry, so that formats do not depend on each other. More than
/// four nested levels are a wrong type.
class NestedInput {
public:
    using FormatChange = Delegate<Result<void>(MediaStreamFormat& format)>;
    static constexpr Int kMaxNesting = 4;

    NestedInput() = default;

    /// @{ Makes the importer, nested in `owner` and in its session, and analyzes it. Unresolved when the format has no
    /// registered importer.
    /// @param format  id of the file format
    static Result<NestedInput> Open(const FileImporter& owner, const Id& format, const Url& url);
    /// @param stream  read from its position on; `OpenSubStream` gives a part of a file
    static Result<NestedInput> Open(const FileImporter& owner, const Id& format, const InputStreamRef& stream);
    /// For a handler that detection has found.
    static Result<NestedInput> Open(const FileImporter& owner, const FileFormatHandler& handler, const Url& url);
    /// @}

    explicit operator bool() const { return static_cast<bool>(_input); }
    const MediaConverterRef& GetInput() const { return _input; }
    /// The root streams, with `change` applied to all formats in their trees.
    Result<BaseArray<MediaStreamRef>> TakeStreams(const FormatChange& change) const;

    Result<void> PrepareExecute(TimeValue targetTime, MEDIASESSIONFLAGS flags) const;
    Result<void> Execute(TimeValue targetTime, MEDIASESSIONFLAGS flags) const;
    Result<void> Close() const;

private:
    static Result<NestedInput> Start(const FileImporter& owner, const FileFormatHandler& handler, const Url& url,
                                     const InputStreamRef& stream);

    MediaConverterRef _input;
};

}  // namespace orvik
