#include "format_table.h"

namespace codectest {

const std::vector<TestedFormat>& TestedFormats() {
    static const std::vector<TestedFormat> formats = {
        TestedBmp(), TestedHdr(), TestedJpeg(), TestedPng(), TestedTga(),
    };
    return formats;
}

const TestedFormat& TestedFormatOf(std::string_view name) {
    for (const TestedFormat& format : TestedFormats()) {
        if (format.name == name)
            return format;
    }
    ADD_FAILURE() << "no test of " << name;
    return TestedFormats()[0];
}

std::vector<Sample> MakeSamples() {
    std::vector<Sample> all;
    for (const TestedFormat& format : TestedFormats()) {
        for (Sample& sample : format.makeSamples())
            all.push_back(std::move(sample));
    }
    return all;
}

ForeignWriter PillowWriter(const char* what, const std::string& mode, const std::string& format,
                           Bytes (*keeps)(Bytes rgba)) {
    return {
        what,
        {"PIL"},
        "/usr/bin/python3 -c 'import sys; from PIL import Image; "
        "im = Image.frombytes(\"RGBA\", (%W, %H), open(sys.argv[1], \"rb\").read()); "
        "im.convert(sys.argv[2]).save(sys.argv[3], sys.argv[4], **dict(a.split(\"=\") for a in sys.argv[5:]))' %I " +
            mode + " %O " + format,
        keeps};
}

namespace {

/// @param map  changes red, green, blue of one pixel
template <class F>
Bytes MapColors(Bytes rgba, F map) {
    for (size_t i = 0; i + 3 < rgba.size(); i += 4) {
        map(&rgba[i]);
        rgba[i + 3] = 255;
    }
    return rgba;
}

}  // namespace

Bytes Opaque(Bytes rgba) {
    return MapColors(std::move(rgba), [](uint8_t*) {});
}
Bytes Grey(Bytes rgba) {
    return MapColors(std::move(rgba), [](uint8_t* p) { p[0] = p[1] = p[2]; });
}
Bytes BlackAndWhite(Bytes rgba) {
    return MapColors(std::move(rgba), [](uint8_t* p) { p[0] = p[1] = p[2] = p[2] & 0x10 ? 255 : 0; });
}
Bytes SixteenGreys(Bytes rgba) {
    return MapColors(std::move(rgba), [](uint8_t* p) { p[0] = p[1] = p[2] = uint8_t((p[2] >> 4) * 17); });
}
Bytes SixteenColors(Bytes rgba) {
    return MapColors(std::move(rgba), [](uint8_t* p) {
        p[0] = p[0] & 0x80 ? 200 : 10;
        p[1] = p[1] & 0x80 ? 190 : 20;
        p[2] = uint8_t((p[2] >> 6) * 60);
    });
}
Bytes SixtyFourColors(Bytes rgba) {
    return MapColors(std::move(rgba), [](uint8_t* p) {
        for (int c = 0; c < 3; ++c)
            p[c] = uint8_t((p[c] >> 6) * 70 + c);
    });
}

void Put32(Bytes& bytes, size_t at, uint32_t value, bool bigEndian) {
    for (int i = 0; i < 4; ++i)
        bytes[at + size_t(i)] = uint8_t(value >> (8 * (bigEndian ? 3 - i : i)));
}

}  // namespace codectest
