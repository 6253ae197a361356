#include "libjpeg_direct.h"

#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <jpeglib.h>

#include "test_picture.h"

namespace bench {
namespace {

struct Errors {
    jpeg_error_mgr manager;
    jmp_buf target;
};

[[noreturn]] void Jump(j_common_ptr info) { longjmp(reinterpret_cast<Errors*>(info->err)->target, 1); }

jpeg_error_mgr* Init(Errors& errors) {
    jpeg_std_error(&errors.manager);
    errors.manager.error_exit = Jump;
    return &errors.manager;
}

// No object with a destructor lives in the functions that setjmp returns to.
bool ReadRows(jpeg_decompress_struct& info, Errors& errors, const std::vector<uint8_t>& file, uint8_t* pixels) {
    if (setjmp(errors.target))
        return false;
    jpeg_create_decompress(&info);
    jpeg_mem_src(&info, file.data(), file.size());
    jpeg_read_header(&info, TRUE);
    jpeg_start_decompress(&info);
    if (info.output_width != kWidth || info.output_height != kHeight || info.output_components != 3)
        return false;
    while (info.output_scanline < info.output_height) {
        JSAMPROW row = pixels + kRowBytes * info.output_scanline;
        jpeg_read_scanlines(&info, &row, 1);
    }
    jpeg_finish_decompress(&info);
    return true;
}

bool WriteRows(jpeg_compress_struct& info, Errors& errors, const uint8_t* pixels, int quality, unsigned char** bytes,
               unsigned long* count) {
    if (setjmp(errors.target))
        return false;
    jpeg_create_compress(&info);
    jpeg_mem_dest(&info, bytes, count);
    info.image_width = kWidth;
    info.image_height = kHeight;
    info.input_components = 3;
    info.in_color_space = JCS_RGB;
    jpeg_set_defaults(&info);
    jpeg_set_quality(&info, quality, FALSE);
    info.dct_method = JDCT_FLOAT;
    jpeg_start_compress(&info, TRUE);
    while (info.next_scanline < info.image_height) {
        JSAMPROW row = const_cast<JSAMPROW>(pixels) + kRowBytes * info.next_scanline;
        jpeg_write_scanlines(&info, &row, 1);
    }
    jpeg_finish_compress(&info);
    return true;
}

}  // namespace

std::vector<uint8_t> EncodeWithLibjpeg(const uint8_t* pixels, int quality) {
    jpeg_compress_struct info{};
    Errors errors;
    info.err = Init(errors);
    unsigned char* bytes = nullptr;
    unsigned long count = 0;
    std::vector<uint8_t> file;
    if (WriteRows(info, errors, pixels, quality, &bytes, &count))
        file.assign(bytes, bytes + count);
    jpeg_destroy_compress(&info);
    std::free(bytes);
    return file;
}

bool DecodeWithLibjpeg(const std::vector<uint8_t>& file, uint8_t* pixels) {
    jpeg_decompress_struct info{};
    Errors errors;
    info.err = Init(errors);
    const bool fine = ReadRows(info, errors, file, pixels);
    jpeg_destroy_decompress(&info);
    return fine;
}

}  // namespace bench
