#pragma once
/// @file
/// Conversions of byte streams, such as compression, that a host offers under an id.

#include "orvik/factory.h"
#include "orvik/iostreams.h"

namespace orvik {

/// How far one call of `Convert` came.
struct StreamConversionStep {
    Int consumed = 0;  ///< bytes taken from the source
    Int produced = 0;  ///< bytes put into the target
    Bool finished = false;
};

/// Converts bytes piece by piece. It never writes beyond the caller's block, and its own memory does not depend on the
/// data, so that no source can make it grow.
class StreamConversionInterface : public virtual Object {
    ORVIK_INTERFACE(StreamConversionInterface, "net.orvik.interface.streamconversion");

public:
    /// Goes on from the last call until the source is used up, the target is full or the conversion is finished.
    /// @param isLast  whether the source ends with this block
    /// Errors: file format error for bytes that cannot be converted.
    virtual Result<StreamConversionStep> Convert(Block<const std::byte> source, Block<std::byte> target, Bool isLast) {
        (void)source, (void)target, (void)isLast;
        return Unbound();
    }
    /// Back to the start, for other bytes.
    virtual Result<void> Reset() { return Unbound(); }
};
using StreamConversionRef = Ref<StreamConversionInterface>;

/// Ids of factories (see `CreateByFactory`) and their settings.
namespace streamconversions {
/// Deflate in a zlib stream (RFC 1950), the wrapping of ZIP channels.
inline constexpr Id kZipEncoder{"net.orvik.streamconversion.zipencoder"};
inline constexpr Id kZipDecoder{"net.orvik.streamconversion.zipdecoder"};
/// Setting of the encoder, 0 (stored) to 9 (smallest); 6 without it.
inline constexpr Key<Int> kLevel{"net.orvik.streamconversion.level"};
}  // namespace streamconversions

/// Converts a whole block from the start of the conversion; what follows its end in the source is left alone.
/// @return the bytes put into the target. Errors: file format error when the source ends too early or the result is
/// larger than the target.
ORVIK_API Result<Int> ConvertBlock(const StreamConversionRef& conversion, Block<const std::byte> source,
                                   Block<std::byte> target);
/// The same into an array, which is replaced and grows with the result, up to `maxBytes`.
ORVIK_API Result<void> ConvertBlock(const StreamConversionRef& conversion, Block<const std::byte> source,
                                    BaseArray<std::byte>& target, Int maxBytes);
/// What the conversion makes of another stream from its position on, as a stream that reads forward only and does not
/// know its length. It may take more from the source than the conversion needs.
ORVIK_API Result<InputStreamRef> OpenConvertedInput(const StreamConversionRef& conversion,
                                                    const InputStreamRef& source);

}  // namespace orvik
