#include "codec_peers.h"

#include <dlfcn.h>

#include "openimageio_peer.h"

namespace bench {
namespace {

OpenImageIOPeer LoadOpenImageIO() {
#ifdef ORVIK_BENCH_OPENIMAGEIO
    void* library = dlopen(ORVIK_BENCH_OPENIMAGEIO, RTLD_NOW | RTLD_LOCAL);  // never unloaded
    if (void* entry = library ? dlsym(library, "GetOpenImageIOPeer") : nullptr)
        return reinterpret_cast<OpenImageIOPeer (*)()>(entry)();
#endif
    return {};
}

}  // namespace

std::vector<CodecPeer> GetCodecPeers(const CodecCase& codec) {
    static const OpenImageIOPeer library = LoadOpenImageIO();
    if (codec.peerSuffix.empty() || !library.decode)
        return {};
    const std::string name = "bench." + codec.peerSuffix;
    CodecPeer peer{"openimageio",
                   [name, floats = codec.floats](const std::vector<uint8_t>& file, uint8_t* pixels) {
                       return library.decode(name, floats, file, pixels);
                   },
                   nullptr};
    if (codec.exporter != orvik::Id()) {
        peer.encode = [name, floats = codec.floats, options = codec.peerOptions] {
            const void* pixels = floats ? static_cast<const void*>(TestFloats().data()) : TestPicture().data();
            return library.encode(name, floats, kWidth, kHeight, pixels, options);
        };
    }
    return {peer};
}

}  // namespace bench
