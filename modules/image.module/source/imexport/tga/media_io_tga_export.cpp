#include "imexport/tga/media_io_tga.h"

namespace orvik {

using namespace tga;

namespace {

/// Writes uncompressed true-colour pixels of 24 bits, or of 32 bits if there is alpha.
class TgaExporter : public ImageExporter {
public:
    TgaExporter() : ImageExporter(kFormat) {}

protected:
    Result<void> OpenRows() override;
    Result<void> WriteFile(const OutputStreamRef& output) override;

private:
    Result<void> WriteHeader(EndianWriter& out) const;
    Result<void> WriteRows(const OutputStreamRef& output);
    static Result<void> WriteFooter(EndianWriter& out);

    Int GetPixelBytes() const { return GetPicture().HasAlpha() ? 4 : 3; }
};

Result<void> TgaExporter::OpenRows() {
    const Picture& picture = GetPicture();
    const PixelFormat rowFormat = PixelFormats::Get(picture.HasAlpha() ? pixelformats::kBgraU8 : pixelformats::kBgrU8);
    const bool keepsColors = picture.settings.Get(mediaexport::kDisableSrgbConversion, false);
    TRY(OpenImageRows(rowFormat, keepsColors ? ChooseProfile(rowFormat) : colorprofiles::Get(colorprofiles::kSrgb)));
    return OpenAlphaRows(PixelFormats::Get(pixelformats::kAlphaU8));
}

Result<void> TgaExporter::WriteFile(const OutputStreamRef& output) {
    constexpr Int kHeaderAndFooter = 18 + 32;
    output->Expect(kHeaderAndFooter + GetPicture().width * GetPixelBytes() * GetPicture().height);
    EndianWriter out;
    out.Attach(output, BYTEORDER::LITTLE);
    TRY(WriteHeader(out));
    TRY(WriteRows(output));
    return WriteFooter(out);
}

Result<void> TgaExporter::WriteHeader(EndianWriter& out) const {
    const Picture& picture = GetPicture();
    TRY(out.WriteU8(0));  // length of the id
    TRY(out.WriteU8(0));  // no colour map
    TRY(out.WriteU8(uint8_t(ImageType::TrueColor)));
    TRY(out.WriteU16(0));  // colour map: first index
    TRY(out.WriteU16(0));  // colour map: length
    TRY(out.WriteU8(24));  // colour map: bits per entry, even without one
    TRY(out.WriteU16(0));  // x origin
    TRY(out.WriteU16(0));  // y origin
    TRY(out.WriteU16(uint16_t(picture.width)));
    TRY(out.WriteU16(uint16_t(picture.height)));
    TRY(out.WriteU8(uint8_t(GetPixelBytes() * 8)));
    return out.WriteU8(0);  // bottom-up; alpha bits not declared
}

/// Writes bottom-up. A separate alpha stream replaces the alpha in the pixels.
Result<void> TgaExporter::WriteRows(const OutputStreamRef& output) {
    const auto rowBytes = size_t(_image->GetRowBytes());
    for (Int y = _image->GetHeight() - 1; y >= 0; --y) {
        const std::byte* const row = TRY(GetRowWithAlpha(y));
        TRY(output->Write(row, rowBytes));
    }
    return {};
}

Result<void> TgaExporter::WriteFooter(EndianWriter& out) {
    TRY(out.WriteU32(0));  // position of an extension area
    TRY(out.WriteU32(0));  // position of a developer area
    return out.WriteBlock(std::as_bytes(Block<const char>(kSignature)));
}

}  // namespace

Result<ObjectRef> MakeTgaExporter() { return ObjectRef(TRY(NewObj<TgaExporter>())); }

}  // namespace orvik
