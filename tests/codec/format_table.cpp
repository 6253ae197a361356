#include "format_table.h"

namespace codectest {

const std::vector<TestedFormat>& TestedFormats() {
    static const std::vector<TestedFormat> formats = {
        TestedBmp(),
        TestedJpeg(),
        TestedPng(),
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

Sample FindSample(std::string_view name) {
    for (Sample& sample : MakeSamples()) {
        if (sample.name == name)
            return std::move(sample);
    }
    ADD_FAILURE() << "no sample " << name;
    return {};
}

Bytes Opaque(Bytes rgba) {
    for (size_t i = 3; i < rgba.size(); i += 4)
        rgba[i] = 255;
    return rgba;
}

void Put32(Bytes& bytes, size_t at, uint32_t value, bool bigEndian) {
    for (int i = 0; i < 4; ++i)
        bytes[at + size_t(i)] = uint8_t(value >> (8 * (bigEndian ? 3 - i : i)));
}

}  // namespace codectest
