#pragma once
/// @file
/// Streams over memory, and the named blocks behind "memory:" URLs.

#include "orvik/iostreams.h"

namespace orvik {

/// A counted block of bytes that memory streams share.
class MemoryFile : public Object {
public:
    BaseArray<std::byte>& GetBytes() { return _bytes; }
    const BaseArray<std::byte>& GetBytes() const { return _bytes; }

private:
    BaseArray<std::byte> _bytes;
};
using MemoryFileRef = Ref<MemoryFile>;

/// Copies `bytes` into a new block.
ORVIK_API Result<MemoryFileRef> CreateMemoryFile(Block<const std::byte> bytes = {});
/// Reads the block; it must not change meanwhile.
ORVIK_API Result<InputStreamRef> OpenMemoryInput(const MemoryFileRef& file, const Url& url = Url("memory:"));
/// Reads memory of the caller, which must outlive the stream.
ORVIK_API Result<InputStreamRef> OpenMemoryInput(Block<const std::byte> bytes, const Url& url = Url("memory:"));
/// Writes into the block from position 0; the old content is removed first.
ORVIK_API Result<OutputStreamRef> OpenMemoryOutput(const MemoryFileRef& file, const Url& url = Url("memory:"));
/// The part [start, start + length) of another stream, which must not be used meanwhile.
ORVIK_API Result<InputStreamRef> OpenSubStream(const InputStreamRef& stream, Int start, Int length);

/// Publishes a block under "memory:NAME" so that URLs reach it; replaces an older one.
ORVIK_API Result<Url> MountMemoryFile(std::string_view name, const MemoryFileRef& file);
/// @return the block of a mounted name, or null
ORVIK_API MemoryFileRef FindMemoryFile(std::string_view name);
ORVIK_API void UnmountMemoryFile(std::string_view name);

/// The longest stream that `ReadUnseekable` takes.
inline constexpr Int kMaxUnseekableBytes = Int(1) << 30;
/// Reads a pipe, a socket or a character device to its end, since that can be done only once.
/// @return the URL with what was read as its content; any other URL unchanged and unopened. Errors: those of opening
/// and reading, an io error beyond `kMaxUnseekableBytes`, thread cancelled.
ORVIK_API Result<Url> ReadUnseekable(const Url& url);

}  // namespace orvik
