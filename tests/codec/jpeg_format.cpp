// JPEG, as the tests of all formats see it.

#include "jpeg_direct.h"
#include "parts.h"
#include "tool_support.h"

namespace codectest {
namespace {

/// An index of one picture, the first.
JpegSegment MakeIndex() {
    return {JPEG_APP0 + 2, {'M', 'P',  'F', 0, 'I', 'I', 42, 0, 8,  0, 0, 0,  // directory at 8
                            2,   0,                                           // of two entries
                            1,   0xB0, 4,   0, 1,   0,   0,  0, 1,  0, 0, 0,  // one picture
                            2,   0xB0, 7,   0, 16,  0,   0,  0, 38, 0, 0, 0,  // listed at 38
                            0,   0,    0,   0, 0,   0,   3,  0, 9,  9, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}};
}

/// All ways of coding, and all segments that are read.
std::vector<Sample> MakeJpegSamples() {
    Noise noise(12);
    std::vector<Sample> samples;
    const auto add = [&](const char* name, JpegPicture picture) {
        if (picture.colorSpace != JCS_RGB)
            picture.horizontal = picture.vertical = 1;
        picture.rows = noise.Make(picture.RowBytes() * picture.height);
        picture.quality = 20;
        samples.push_back({name, "jpg", WriteJpeg(picture)});
    };
    const JpegSegment exif{JPEG_APP0 + 1, {'E', 'x', 'i', 'f', 0, 0, 'I', 'I', 42, 0, 8, 0, 0, 0, 0, 0, 0, 0, 0, 0}};
    add("jpeg rgb, with profile", {.width = 20, .height = 12, .profile = ProfileBytes(colorprofiles::kLinearRgb)});
    add("jpeg rgb, progressive", {.width = 20, .height = 12, .progressive = true});
    add("jpeg grey, progressive", {.width = 9, .height = 7, .colorSpace = JCS_GRAYSCALE, .progressive = true});
    add("jpeg grey, arithmetic, with restarts",
        {.width = 20, .height = 12, .colorSpace = JCS_GRAYSCALE, .arithmetic = true, .restartRows = 1});
    add("jpeg inks", {.width = 5, .height = 3, .colorSpace = JCS_CMYK});
    add("jpeg with index and Exif", {.width = 9, .height = 7, .segments = {exif, MakeIndex()}});
    return samples;
}

/// Since a picture may be cut anywhere, only sides that no file of this length could fill are refused.
std::vector<Sample> MakeJpegBombs() {
    std::vector<Sample> bombs;
    for (const Sample& sample : MakeJpegSamples()) {
        for (const auto& [width, height] : {std::pair(65500, 65500), std::pair(65500, 3000), std::pair(3000, 65500)})
            bombs.push_back({sample.name, "jpg", ResizeJpeg(sample.bytes, width, height)});
    }
    return bombs;
}

std::vector<ExportVariant> MakeJpegVariants() {
    std::vector<ExportVariant> variants;
    for (const double quality : {0.1, 0.8, 1.0}) {
        variants.push_back(MakeVariant(testing::PrintToString(quality), mediaexport::kQuality, quality));
        variants.back().tolerance = 1, variants.back().isLossy = true;
    }
    return variants;
}

std::vector<ForeignWriter> MakeJpegWriters() {
    std::vector<ForeignWriter> writers = {
        PillowWriter("Pillow", "RGB", "JPEG"),
        PillowWriter("Pillow, grey", "L", "JPEG"),
        PpmWriter("gm", "convert - -quality 60 jpg:-"),
        PpmWriter("convert-im6.q16", "- -quality 75 -sampling-factor 4:2:2 jpg:-"),
        PpmWriter("convert-im6.q16", "- -quality 75 -interlace JPEG jpg:-"),
        PpmWriter("cjpeg", "-quality 90 -optimize"),
        PpmWriter("cjpeg", "-quality 90 -rgb"),
    };
    for (ForeignWriter& writer : writers)
        writer.tolerance = 1, writer.isLossy = true;
    return writers;
}

/// As libjpeg's own program, and inks as Pillow has them: within a step.
bool AgreesWithPrograms(const std::string& path, const ImageTextureRef& texture) {
    const ImageBaseRef image = FirstImage(texture);
    const bool isInk = image->GetPixelFormat()->GetChannelCount() == 4;
    const Bytes own = PixelsOf(image, isInk ? Id("net.orvik.image.pixelformat.cmyk.u8") : pixelformats::kRgbU8);
    const std::string program = isInk ? "/usr/bin/python3 -c 'import sys; from PIL import Image; "
                                        "sys.stdout.buffer.write(Image.open(sys.argv[1]).tobytes())' "
                                      : "djpeg -rgb -ppm ";
    Bytes theirs;
    RunShell(program + "'" + path + "' 2> /dev/null | tail -c " + std::to_string(own.size()), &theirs);
    return own.size() == theirs.size() && std::equal(own.begin(), own.end(), theirs.begin(), [](uint8_t a, uint8_t b) {
               return std::abs(int(a) - int(b)) <= 1;
           });
}

}  // namespace

TestedFormat TestedJpeg() {
    TestedFormat jpeg{"jpg", MakeJpegSamples};
    jpeg.mostPicturesOfCutFiles = 100000;  // a file that ends early ends in a picture
    jpeg.makeBombs = MakeJpegBombs;
    jpeg.analyzesAgain = false;
    jpeg.announcesLate = true;
    jpeg.secondInputError = "functionnotimplemented";
    jpeg.largestSide = 65000;
    jpeg.corpusFolder = "jpeg";
    jpeg.agrees = AgreesWithPrograms;
    constexpr const char* kBetweenSegments = "is not recognised: bytes between its first segments that belong to none";
    jpeg.differences = {
        {"jpeg/gdk-pixbuf/CVE-2017-2862.jpg", kBetweenSegments},
        {"jpeg/gdk-pixbuf/bug775218.jpg", kBetweenSegments},
        {"jpeg/gdk-pixbuf/bug775697.jpg", kBetweenSegments},
        {"jpeg/pillow/photoshop-200dpi-broken.jpg", kBetweenSegments},
        {"jpeg/twelvemonkeys/0x00-to-0xFF-between-segments.jpg", kBetweenSegments},
    };
    jpeg.fewestCompared = 80;
    jpeg.fewestRefused = 5;
    jpeg.makeVariants = MakeJpegVariants;
    jpeg.makeWriters = MakeJpegWriters;
    return jpeg;
}

}  // namespace codectest
