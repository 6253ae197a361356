// Radiance HDR, measured in bytes of float pixels.

#include "codec_cases.h"

namespace bench {

std::vector<CodecCase> MakeHdrCases() {
    CodecCase hdr{"hdr", orvik::Id("net.orvik.mediasession.hdr.export")};
    hdr.floats = true;
    hdr.peerSuffix = "hdr";
    return {hdr};
}

}  // namespace bench
