// PNG against bare libpng.

#include "bare_peers.h"
#include "codec_cases.h"

namespace bench {

std::vector<CodecCase> MakePngCases() {
    CodecCase png{"png", orvik::Id("net.orvik.mediasession.png.export")};
    png.against = "libpng";
    png.otherDecode = DecodeWithLibpng;
    png.otherEncode = [] { return !EncodeWithLibpng(TestPicture().data()).empty(); };
    png.peerSuffix = "png";
    // libpng's defaults; the peer's own are faster, without filters.
    png.peerOptions = {{"compression", "filtered"}, {"png:compressionLevel", "6"}, {"png:filter", "248"}};
    return {png};
}

}  // namespace bench
