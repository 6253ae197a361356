#include "../openimageio_peer.h"

#include <OpenImageIO/filesystem.h>
#include <OpenImageIO/imageio.h>
#include <algorithm>
#include <cstdio>

#include "../test_picture.h"

namespace bench {
namespace {

bool Failed(const std::string& what, const std::string& error) {
    std::fprintf(stderr, "%s: OpenImageIO: %s\n", what.c_str(), error.c_str());
    return false;
}

bool Decode(const std::string& name, bool floats, const std::vector<uint8_t>& file, uint8_t* pixels) {
    OIIO::Filesystem::IOMemReader source(const_cast<uint8_t*>(file.data()), file.size());
    const auto input = OIIO::ImageInput::open(name, nullptr, &source);
    if (!input)
        return Failed(name, OIIO::geterror());
    const OIIO::ImageSpec& spec = input->spec();
    const OIIO::TypeDesc type = floats ? OIIO::TypeDesc::FLOAT : OIIO::TypeDesc::UINT8;
    if (spec.width != kWidth || spec.height != kHeight)
        return Failed(name, "another size");
    return input->read_image(0, 0, 0, std::min(spec.nchannels, 3), type, pixels) || Failed(name, input->geterror());
}

bool Encode(const std::string& name, bool floats, int width, int height, const void* pixels,
            const std::vector<std::pair<std::string, std::string>>& options) {
    std::vector<uint8_t> file;
    OIIO::Filesystem::IOVecOutput sink(file);
    const auto output = OIIO::ImageOutput::create(name, &sink);
    if (!output)
        return Failed(name, OIIO::geterror());
    OIIO::ImageSpec spec(width, height, 3, floats ? OIIO::TypeDesc::FLOAT : OIIO::TypeDesc::UINT8);
    for (const auto& [key, value] : options)
        spec.attribute(key, value);
    return (output->open(name, spec) && output->write_image(spec.format, pixels) && output->close()) ||
           Failed(name, output->geterror());
}

}  // namespace

extern "C" __attribute__((visibility("default"))) OpenImageIOPeer GetOpenImageIOPeer() {
    OIIO::attribute("threads", 1);  // as for all other sides
    return {Decode, Encode};
}

}  // namespace bench
