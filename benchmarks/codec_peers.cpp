#include "codec_peers.h"

#ifdef ORVIK_BENCH_OPENIMAGEIO
#include <OpenImageIO/filesystem.h>
#include <OpenImageIO/imageio.h>
#include <cstdlib>
#endif

namespace bench {

#ifdef ORVIK_BENCH_OPENIMAGEIO

namespace {

struct FreeBlock {
    void operator()(void* block) const { std::free(block); }
};

/// From a file in memory into fresh memory, as a load does.
bool Decode(const std::string& name, bool floats, const std::vector<uint8_t>& file) {
    OIIO::Filesystem::IOMemReader source(const_cast<uint8_t*>(file.data()), file.size());
    const auto input = OIIO::ImageInput::open(name, nullptr, &source);
    if (!input)
        return false;
    const OIIO::ImageSpec& spec = input->spec();
    const OIIO::TypeDesc type = floats ? OIIO::TypeDesc::FLOAT : OIIO::TypeDesc::UINT8;
    const std::unique_ptr<void, FreeBlock> pixels(
        std::malloc(static_cast<size_t>(spec.image_pixels()) * static_cast<size_t>(spec.nchannels) * type.size()));
    return pixels && input->read_image(0, 0, 0, spec.nchannels, type, pixels.get());
}

bool Encode(const CodecCase& codec, const std::string& name) {
    std::vector<uint8_t> file;
    OIIO::Filesystem::IOVecOutput sink(file);
    const auto output = OIIO::ImageOutput::create(name, &sink);
    if (!output)
        return false;
    OIIO::ImageSpec spec(kWidth, kHeight, 3, codec.floats ? OIIO::TypeDesc::FLOAT : OIIO::TypeDesc::UINT8);
    for (const auto& [key, value] : codec.peerOptions)
        spec.attribute(key, value);
    const void* pixels = codec.floats ? static_cast<const void*>(TestFloats().data()) : TestPicture().data();
    return output->open(name, spec) && output->write_image(spec.format, pixels) && output->close();
}

}  // namespace

std::vector<CodecPeer> GetCodecPeers(const CodecCase& codec) {
    if (codec.peerSuffix.empty())
        return {};
    OIIO::attribute("threads", 1);  // as everything else here
    const std::string name = "bench." + codec.peerSuffix;
    CodecPeer peer{
        "openimageio",
        [name, floats = codec.floats](const std::vector<uint8_t>& file) { return Decode(name, floats, file); },
        nullptr};
    if (codec.exporter != orvik::Id())
        peer.encode = [codec, name] { return Encode(codec, name); };
    return {peer};
}

#else

std::vector<CodecPeer> GetCodecPeers(const CodecCase&) { return {}; }

#endif

}  // namespace bench
