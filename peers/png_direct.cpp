#include "png_direct.h"

#include <cstring>

namespace peers {
namespace {

struct Cursor {
    const std::vector<uint8_t>& bytes;
    size_t next;
};

void ReadBytes(png_structp png, png_bytep to, size_t count) {
    auto* cursor = static_cast<Cursor*>(png_get_io_ptr(png));
    if (count > cursor->bytes.size() - cursor->next)
        png_error(png, "end of data");
    std::memcpy(to, cursor->bytes.data() + cursor->next, count);
    cursor->next += count;
}

void WriteBytes(png_structp png, png_bytep from, size_t count) {
    auto* file = static_cast<std::vector<uint8_t>*>(png_get_io_ptr(png));
    file->insert(file->end(), from, from + count);
}

void Silent(png_structp, png_const_charp) {}
[[noreturn]] void Jump(png_structp png, png_const_charp) { png_longjmp(png, 1); }

// Functions that setjmp returns to hold no object with a destructor.
bool Write(png_structp png, png_infop info, PngPicture& picture, std::vector<png_bytep>& rows) {
    if (setjmp(png_jmpbuf(png)))
        return false;
    png_set_IHDR(png, info, picture.width, picture.height, picture.bitDepth, picture.colorType,
                 picture.interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE, 0, 0);
    if (!picture.palette.empty())
        png_set_PLTE(png, info, picture.palette.data(), int(picture.palette.size()));
    if (!picture.alphas.empty())
        png_set_tRNS(png, info, picture.alphas.data(), int(picture.alphas.size()), nullptr);
    if (picture.hasKey)
        png_set_tRNS(png, info, nullptr, 1, &picture.key);
    if (picture.xPerMetre || picture.yPerMetre)
        png_set_pHYs(png, info, picture.xPerMetre, picture.yPerMetre, picture.unit);
    if (!picture.profile.empty())
        png_set_iCCP(png, info, picture.profileName.c_str(), 0, picture.profile.data(),
                     png_uint_32(picture.profile.size()));
    png_write_info(png, info);
    png_set_swap(png);
    png_write_image(png, rows.data());
    png_write_end(png, info);
    return true;
}

bool Read(png_structp png, png_infop info, PngPicture& picture, std::vector<png_bytep>& rows, std::span<uint8_t> to) {
    if (setjmp(png_jmpbuf(png)))
        return false;
    png_read_info(png, info);
    png_set_swap(png);
    picture.width = png_get_image_width(png, info);
    picture.height = png_get_image_height(png, info);
    picture.colorType = png_get_color_type(png, info);
    picture.bitDepth = png_get_bit_depth(png, info);
    picture.interlaced = png_get_interlace_type(png, info) == PNG_INTERLACE_ADAM7;
    png_get_pHYs(png, info, &picture.xPerMetre, &picture.yPerMetre, &picture.unit);
    png_charp name = nullptr;
    png_bytep profile = nullptr;
    png_uint_32 length = 0;
    int compression = 0;
    if (png_get_iCCP(png, info, &name, &compression, &profile, &length)) {
        picture.profileName = name;
        picture.profile.assign(profile, profile + length);
    }
    const size_t bytes = picture.RowBytes() * picture.height;
    if (to.empty()) {
        picture.rows.resize(bytes);
        to = picture.rows;
    }
    if (to.size() != bytes)
        return false;
    for (uint32_t y = 0; y < picture.height; ++y)
        rows.push_back(to.data() + y * picture.RowBytes());
    png_read_image(png, rows.data());
    png_read_end(png, nullptr);
    return true;
}

}  // namespace

size_t PngPicture::RowBytes() const {
    const size_t channels = (colorType & PNG_COLOR_MASK_COLOR ? 3 : 1) + (colorType & PNG_COLOR_MASK_ALPHA ? 1 : 0);
    return (width * (colorType == PNG_COLOR_TYPE_PALETTE ? 1 : channels) * size_t(bitDepth) + 7) / 8;
}

std::vector<uint8_t> WritePng(const PngPicture& source, const uint8_t* from) {
    PngPicture picture = source;
    std::vector<uint8_t> file;
    std::vector<png_bytep> rows;
    for (uint32_t y = 0; y < picture.height; ++y)
        rows.push_back(const_cast<png_bytep>(from ? from : picture.rows.data()) + y * picture.RowBytes());
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, Jump, Silent);
    png_infop info = png_create_info_struct(png);
    png_set_write_fn(png, &file, WriteBytes, nullptr);
    const bool written = Write(png, info, picture, rows);
    png_destroy_write_struct(&png, &info);
    return written ? file : std::vector<uint8_t>();
}

PngPicture ReadPng(const std::vector<uint8_t>& file, std::span<uint8_t> to) {
    PngPicture picture;
    std::vector<png_bytep> rows;
    Cursor cursor{file, 0};
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, Jump, Silent);
    png_infop info = png_create_info_struct(png);
    png_set_read_fn(png, &cursor, ReadBytes);
    const bool read = Read(png, info, picture, rows, to);
    png_destroy_read_struct(&png, &info, nullptr);
    return read ? picture : PngPicture();
}

}  // namespace peers
