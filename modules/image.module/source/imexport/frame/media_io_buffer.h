#pragma once
/// @file
/// Codec memory. Codecs hold bytes only in these buffers, so that every allocation is checked against what the file can
/// contain and against the process-wide limit.

#include "orvik/basearray.h"
#include "orvik/iostreams.h"

namespace orvik {

/// @{ Most decoded bytes that one byte of a file can expand to.
inline constexpr Int kPlainExpansion = 1;
inline constexpr Int kRunsExpansion = 128;      ///< run lengths with 7-bit counts
inline constexpr Int kDeflateExpansion = 1032;  ///< a match of 258 bytes in two bits
/// @}

/// Bytes between the stream's position and its end. A stream of unknown length counts as endless.
Int GetBytesLeft(const InputStreamRef& stream);

/// The product of sizes. Out of memory when it exceeds 63 bits or a factor is negative.
Result<Int> MultiplySizes(std::initializer_list<Int> factors);

/// Tests that the rest of the stream can hold `bytes` decoded bytes.
/// @param expansion  decoded bytes per byte of the file
/// @return a wrong type when it cannot
Result<void> RequireContent(const InputStreamRef& stream, Int bytes, Int expansion = kPlainExpansion);

class CodecBuffer {
public:
    /// Reserves `bytes` bytes of unspecified content, for sizes that are constant or already checked, such as a row of
    /// an accepted picture. Out of memory beyond the process-wide limit.
    Result<void> Allocate(Int bytes);
    /// The same, zeroed.
    Result<void> AllocateZeroed(Int bytes);
    /// Reserves memory of a size taken from the file. A wrong type when the rest of the stream cannot fill it.
    Result<void> AllocateFromFile(Int bytes, const InputStreamRef& stream, Int expansion = kPlainExpansion);
    /// Reserves memory for the next `bytes` bytes of the stream and reads them.
    Result<void> ReadFromFile(Int bytes, const InputStreamRef& stream);
    void Release() noexcept { _bytes.Reset(); }

    bool IsEmpty() const { return _bytes.IsEmpty(); }
    Int GetSize() const { return _bytes.GetCount(); }
    std::byte* GetFirst() { return _bytes.GetFirst(); }
    const std::byte* GetFirst() const { return _bytes.GetFirst(); }
    Block<std::byte> ToBlock() { return _bytes.ToBlock(); }
    Block<const std::byte> ToBlock() const { return _bytes.ToBlock(); }
    /// The bytes as values of another type.
    template <class T>
    T* As() {
        return reinterpret_cast<T*>(_bytes.GetFirst());
    }
    template <class T>
    const T* As() const {
        return reinterpret_cast<const T*>(_bytes.GetFirst());
    }

private:
    BaseArray<std::byte> _bytes;
};

}  // namespace orvik
