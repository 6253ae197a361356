// PNG against bare libpng.

#include "codec_cases.h"
#include "libpng_direct.h"

namespace bench {

std::vector<CodecCase> MakePngCases() {
    CodecCase png{"png", orvik::Id("net.orvik.mediasession.png.export")};
    png.against = "libpng";
    png.otherDecode = DecodeWithLibpng;
    png.otherEncode = [] { return !EncodeWithLibpng(TestPicture()).empty(); };
    png.peerSuffix = "png";
    return {png};
}

}  // namespace bench
