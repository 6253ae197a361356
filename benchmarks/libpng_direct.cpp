#include "libpng_direct.h"

#include <csetjmp>
#include <cstring>
#include <png.h>

#include "test_picture.h"

namespace bench {
namespace {

struct Source {
    const uint8_t* next;
    size_t left;
};

void ReadBytes(png_structp png, png_bytep to, png_size_t count) {
    auto* source = static_cast<Source*>(png_get_io_ptr(png));
    if (count > source->left)
        png_error(png, "end of data");
    std::memcpy(to, source->next, count);
    source->next += count;
    source->left -= count;
}

void WriteBytes(png_structp png, png_bytep from, png_size_t count) {
    auto* sink = static_cast<std::vector<uint8_t>*>(png_get_io_ptr(png));
    sink->insert(sink->end(), from, from + count);
}

// No object with a destructor lives in the functions that setjmp returns to.
bool ReadRows(png_structp png, png_infop info, uint8_t* pixels) {
    if (setjmp(png_jmpbuf(png)))
        return false;
    png_read_info(png, info);
    if (png_get_image_width(png, info) != kWidth || png_get_image_height(png, info) != kHeight ||
        png_get_rowbytes(png, info) != kRowBytes)
        return false;
    for (int y = 0; y < kHeight; ++y)
        png_read_row(png, pixels + kRowBytes * static_cast<size_t>(y), nullptr);
    return true;
}

bool WriteRows(png_structp png, png_infop info, const uint8_t* pixels) {
    if (setjmp(png_jmpbuf(png)))
        return false;
    png_set_IHDR(png, info, kWidth, kHeight, 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_BASE,
                 PNG_FILTER_TYPE_BASE);
    png_write_info(png, info);
    for (int y = 0; y < kHeight; ++y)
        png_write_row(png, pixels + kRowBytes * static_cast<size_t>(y));
    png_write_end(png, info);
    return true;
}

}  // namespace

std::vector<uint8_t> EncodeWithLibpng(const uint8_t* pixels) {
    std::vector<uint8_t> file;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_set_write_fn(png, &file, WriteBytes, nullptr);
    if (!WriteRows(png, info, pixels))
        file.clear();
    png_destroy_write_struct(&png, &info);
    return file;
}

bool DecodeWithLibpng(const std::vector<uint8_t>& file, uint8_t* pixels) {
    Source source{file.data(), file.size()};
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_set_read_fn(png, &source, ReadBytes);
    const bool fine = ReadRows(png, info, pixels);
    png_destroy_read_struct(&png, &info, nullptr);
    return fine;
}

}  // namespace bench
