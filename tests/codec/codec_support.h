#pragma once
/// What the tests of the codecs share: files as bytes, pictures made by hand, errors as ids.

#include <gmock/gmock.h>
#include <map>
#include <string>
#include <vector>

#include "imexport/frame/media_io_formats.h"
#include "support/module_fixture.h"
#include "support/results.h"

#include "orvik/gfx_image.h"
#include "orvik/mediasession_output.h"

namespace peers {}
namespace codectest {

using namespace orvik;
using namespace peers;
using Bytes = std::vector<uint8_t>;

inline Block<const std::byte> AsBlock(const Bytes& bytes) { return std::as_bytes(Block<const uint8_t>(bytes)); }
Bytes BytesOf(const MemoryFileRef& file);

/// Publishes the bytes under a memory URL; a later call replaces them.
Url Mount(const Bytes& bytes);

Result<ImageTextureRef> Load(const Url& url, MEDIASESSIONFLAGS flags = MEDIASESSIONFLAGS::NONE);
inline Result<ImageTextureRef> Load(const Bytes& bytes, MEDIASESSIONFLAGS flags = MEDIASESSIONFLAGS::NONE) {
    return Load(Mount(bytes), flags);
}
/// Through the importer of one format, without detection.
Result<ImageTextureRef> LoadAs(std::string_view formatName, const Bytes& bytes);
/// @{ The same into a texture that is there, which keeps what came before an error. From where the stream stands.
Result<void> LoadInto(const ImageTextureRef& texture, std::string_view formatName, const InputStreamRef& stream);
inline Result<void> LoadInto(const ImageTextureRef& texture, std::string_view formatName, const Url& url) {
    return LoadInto(texture, formatName, *url.OpenInputStream());
}
/// @}
Result<MediaSessionRef> ConnectToTexture(const MediaConverterRef& importer, const ImageTextureRef& texture);
/// @{ Fail the test on an error, and go on with a picture of one pixel.
ImageTextureRef Loaded(const Bytes& bytes);
ImageTextureRef LoadedAs(std::string_view formatName, const Bytes& bytes);
/// @}

ImageTextureRef MakeTexture();
ImageBaseRef FirstImage(const ImageTextureRef& texture);
/// The alpha child of a node, or null.
ImageBaseRef AlphaOf(const ImageBaseRef& image);

/// All pixels of a node, tightly packed, from the top. Fails the test and gives nothing on an error.
Bytes PixelsOf(const ImageBaseRef& node, const Id& format);
/// The same of all images of a texture, one after the other.
Bytes PixelsOfAll(const ImageTextureRef& texture);
/// RGBA of 8 bits of the first image, with the alpha of its alpha child where there is one.
Bytes RgbaOf(const ImageTextureRef& texture);

/// What a profile is in a file.
Bytes ProfileBytes(const ColorProfile& profile);
inline Bytes ProfileBytes(const Id& builtIn) { return ProfileBytes(colorprofiles::Get(builtIn)); }

/// A picture made by hand: rows from the top, tightly packed.
struct Picture {
    Int width = 0, height = 0;
    Id format;
    Bytes pixels;
    Bytes alpha = {};  ///< of 8 bits, in a child of its own; empty for none
};
ImageTextureRef MakeTexture(const Picture& picture);
ImageTextureRef MakeTexture(Block<const Picture> pictures);

/// Saves through the exporter of a format, by its short name. The stream's settings are those of the texture.
Result<Bytes> Save(const ImageTextureRef& texture, std::string_view formatName);
Result<void> SaveTo(const ImageTextureRef& texture, std::string_view formatName, const Url& url);
const FileFormatEntry& Format(std::string_view name);
/// The rows of the formats that pictures can be written in.
std::vector<FileFormatEntry> WrittenFormats();

MediaConverterRef MakeImporter(std::string_view formatName, const InputStreamRef& stream);
/// Subscribes to the streams of an importer and keeps no pixels.
struct Listener {
    Int skippedStreams = 0;               ///< the first ones, which it does not subscribe to
    Delegate<void()> beforeExecute = {};  ///< called when the streams are known
    /// Answers the n-th call of a kind, from 0.
    Delegate<Result<void>(const std::string& call, Int nth)> answer = {};
};
struct Delivery {
    std::string kind;                  ///< of the first error, or "ok"
    Int streams = 0;                   ///< those with a subscription
    Int jobs = 0;                      ///< of the progress before the pixels
    std::map<std::string, Int> calls;  ///< of "init", "row" or "3 samples", "finish"
    std::vector<Float> progress;       ///< what an observer saw
};
Delivery Deliver(const MediaConverterRef& importer, const Listener& listener = {});

/// "ok", or the last word of the error's class id, for instance "mediasessionwrongtype".
template <class T>
std::string KindOf(const Result<T>& result) {
    if (result)
        return "ok";
    const std::string_view id = result.GetError()->GetErrorId().GetText();
    return std::string(id.substr(id.rfind('.') + 1));
}

/// A reproducible stream of bytes.
class Noise {
public:
    explicit Noise(uint32_t seed) : _state(seed) {}
    uint32_t Next() { return _state = _state * 1664525u + 1013904223u, _state >> 8; }
    Bytes Make(size_t count) {
        Bytes bytes(count);
        for (uint8_t& byte : bytes)
            byte = uint8_t(Next());
        return bytes;
    }

private:
    uint32_t _state;
};

class CodecTest : public ModuleFixture {};

}  // namespace codectest
