#include "jpeg_direct.h"

#include <algorithm>
#include <csetjmp>
#include <cstdlib>

namespace peers {
namespace {

struct Errors {
    jpeg_error_mgr manager;
    jmp_buf target;
};

void Jump(j_common_ptr info) { longjmp(reinterpret_cast<Errors*>(info->err)->target, 1); }
void Silent(j_common_ptr) {}

jpeg_error_mgr* Init(Errors& errors) {
    jpeg_std_error(&errors.manager);
    errors.manager.error_exit = Jump;
    errors.manager.output_message = Silent;
    return &errors.manager;
}

// Functions that setjmp returns to hold no object with a destructor.
bool Write(jpeg_compress_struct& info, Errors& errors, const JpegPicture& picture, const uint8_t* rows,
           unsigned char** bytes, unsigned long* count) {
    if (setjmp(errors.target))
        return false;
    jpeg_create_compress(&info);
    jpeg_mem_dest(&info, bytes, count);
    info.image_width = picture.width;
    info.image_height = picture.height;
    info.input_components = picture.Channels();
    info.in_color_space = picture.colorSpace;
    jpeg_set_defaults(&info);
    jpeg_set_quality(&info, picture.quality, picture.forcesBaseline);
    info.dct_method = picture.method;
    info.comp_info[0].h_samp_factor = picture.horizontal;
    info.comp_info[0].v_samp_factor = picture.vertical;
    info.arith_code = picture.arithmetic;
    info.restart_in_rows = picture.restartRows;
    info.density_unit = static_cast<UINT8>(picture.densityUnit);
    info.X_density = static_cast<UINT16>(picture.xDensity);
    info.Y_density = static_cast<UINT16>(picture.yDensity);
    if (picture.progressive)
        jpeg_simple_progression(&info);
    jpeg_start_compress(&info, TRUE);
    for (const JpegSegment& segment : picture.segments)
        jpeg_write_marker(&info, segment.marker, segment.payload.data(), unsigned(segment.payload.size()));
    if (!picture.profile.empty())
        jpeg_write_icc_profile(&info, picture.profile.data(), unsigned(picture.profile.size()));
    while (info.next_scanline < info.image_height) {
        JSAMPROW row = const_cast<JSAMPROW>(rows + info.next_scanline * picture.RowBytes());
        jpeg_write_scanlines(&info, &row, 1);
    }
    jpeg_finish_compress(&info);
    return true;
}

bool Read(jpeg_decompress_struct& info, Errors& errors, const std::vector<uint8_t>& file, JpegPicture& picture,
          std::span<uint8_t> rows, unsigned char** profile) {
    if (setjmp(errors.target))
        return false;
    jpeg_create_decompress(&info);
    jpeg_mem_src(&info, file.data(), file.size());
    jpeg_save_markers(&info, JPEG_APP0 + 2, 65535);
    jpeg_read_header(&info, TRUE);
    unsigned profileBytes = 0;
    if (jpeg_read_icc_profile(&info, profile, &profileBytes))
        picture.profile.assign(*profile, *profile + profileBytes);
    jpeg_start_decompress(&info);
    picture.width = info.output_width;
    picture.height = info.output_height;
    picture.colorSpace = info.out_color_space;
    const size_t bytes = picture.RowBytes() * picture.height;
    if (rows.empty()) {
        picture.rows.resize(bytes);
        rows = picture.rows;
    }
    if (rows.size() != bytes)
        return false;
    while (info.output_scanline < info.output_height) {
        JSAMPROW row = rows.data() + info.output_scanline * picture.RowBytes();
        jpeg_read_scanlines(&info, &row, 1);
    }
    jpeg_finish_decompress(&info);
    return true;
}

}  // namespace

std::vector<uint8_t> WriteJpeg(const JpegPicture& picture, const uint8_t* rows) {
    jpeg_compress_struct info{};
    Errors errors;
    info.err = Init(errors);
    unsigned char* bytes = nullptr;
    unsigned long count = 0;
    const bool written = Write(info, errors, picture, rows ? rows : picture.rows.data(), &bytes, &count);
    std::vector<uint8_t> file;
    if (written)
        file.assign(bytes, bytes + count);
    jpeg_destroy_compress(&info);
    std::free(bytes);
    return file;
}

JpegPicture ReadJpeg(const std::vector<uint8_t>& file, std::span<uint8_t> rows) {
    jpeg_decompress_struct info{};
    Errors errors;
    info.err = Init(errors);
    JpegPicture picture;
    unsigned char* profile = nullptr;
    if (!Read(info, errors, file, picture, rows, &profile))
        picture = {};
    jpeg_destroy_decompress(&info);
    std::free(profile);
    return picture;
}

size_t FindSegment(const std::vector<uint8_t>& file, std::initializer_list<uint8_t> markers) {
    for (size_t at = 2; at + 4 <= file.size(); at += 2 + (size_t(file[at + 2]) << 8 | file[at + 3])) {
        if (std::find(markers.begin(), markers.end(), file[at + 1]) != markers.end())
            return at;
    }
    return file.size();
}

std::vector<uint8_t> ResizeJpeg(std::vector<uint8_t> file, int width, int height) {
    const size_t frame = FindSegment(file, {0xC0, 0xC1, 0xC2, 0xC9, 0xCA});
    file[frame + 5] = uint8_t(height >> 8), file[frame + 6] = uint8_t(height);
    file[frame + 7] = uint8_t(width >> 8), file[frame + 8] = uint8_t(width);
    return file;
}

}  // namespace peers
