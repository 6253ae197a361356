// JPEG against bare libjpeg.

#include "bare_peers.h"
#include "codec_cases.h"

#include "orvik/mediasession_output.h"

namespace bench {

std::vector<CodecCase> MakeJpegCases() {
    constexpr int kQuality = 80;
    CodecCase jpeg{"jpeg", orvik::Id("net.orvik.mediasession.jpg.export")};
    jpeg.setUp = [](orvik::DataDictionary& settings) {
        return settings.Set(orvik::mediaexport::kQuality, kQuality / 100.0);
    };
    jpeg.against = "libjpeg";
    jpeg.otherDecode = DecodeWithLibjpeg;
    jpeg.otherEncode = [] { return !EncodeWithLibjpeg(TestPicture().data(), kQuality).empty(); };
    jpeg.peerSuffix = "jpg";
    jpeg.peerOptions = {{"Compression", "jpeg:80"}};
    return {jpeg};
}

}  // namespace bench
