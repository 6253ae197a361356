#pragma once
// Helpers of the tests of the pixel model.

#include <string>
#include <vector>

#include "support/module_fixture.h"
#include "support/results.h"

#include "orvik/gfx_image_pixelformat.h"

namespace orvik {

inline PixelFormat FormatOf(const std::string& tail) {
    const Result<Id> id = Id::Create("net.orvik.image.pixelformat." + tail);
    return id ? PixelFormats::Get(*id) : PixelFormat();
}

inline ImageChannel ChannelOf(const std::string& type, ComponentType component) {
    const Result<Id> id = Id::Create("net.orvik.image.imagechanneltype." + type);
    return id ? channeltypes::GetChannel(*id, component) : ImageChannel();
}
inline Result<PixelFormat> MakeFormat(const std::vector<const char*>& types, ComponentType component) {
    std::vector<ImageChannel> channels;
    for (const char* type : types)
        channels.push_back(ChannelOf(type, component));
    return PixelFormats::FindOrCreatePixelFormat(channels);
}

inline std::string TextOf(const String& text) { return std::string(text.GetText()); }
inline std::string TextOf(const Id& id) { return std::string(id.GetText()); }

/// The message of an error, "" for none, and the messages of its causes behind " <- ".
inline std::string ChainOf(const Error& error) {
    if (!error)
        return "";
    const std::string causes = ChainOf(error->GetCause());
    return TextOf(error->GetMessage()) + (causes.empty() ? "" : " <- " + causes);
}
/// The conversion between two formats with given offsets, no profiles.
inline Result<ConvertPixelFunc> FindConversion(const PixelFormat& dst, const PixelFormat& src,
                                               ChannelOffsets dstOffsets, ChannelOffsets srcOffsets) {
    bool isColorProfileConversion = false;
    return dst->GetConvertPixelFunc(src, srcOffsets, dstOffsets, nullptr, nullptr, CONVERTPIXELFLAGS::NONE,
                                    isColorProfileConversion);
}
inline Result<ConvertPixelFunc> FindConversion(const PixelFormat& dst, const PixelFormat& src) {
    return FindConversion(dst, src, dst->GetChannelOffsets(), src->GetChannelOffsets());
}

/// Converts contiguous pixels; the bytes of the result, or none after an error.
inline std::vector<uint8_t> ConvertBytes(const PixelFormat& dst, const PixelFormat& src, const void* pixels,
                                         Int count) {
    std::vector<uint8_t> out(size_t(dst->GetBytesPerLine(count)));
    const Result<void> done = dst->ConvertPixelFromSlow({out.data(), dst->GetBitsPerPixel()}, count,
                                                        {pixels, src->GetBitsPerPixel()}, src, nullptr, nullptr, {});
    if (!done)
        out.clear();
    return out;
}

}  // namespace orvik
