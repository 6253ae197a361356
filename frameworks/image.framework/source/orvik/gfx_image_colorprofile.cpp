#include "orvik/gfx_image_colorprofile.h"

#include <algorithm>

#include "orvik/dataserialize.h"
#include "orvik/gfx_image_oiioprocessor.h"
#include "orvik/gfx_image_pixelformat.h"
#include "orvik/iostreams.h"
#include "orvik/registrybase.h"

namespace orvik {

namespace {
Ref<ColorProfilesInterface> GetColorProfiles() {
    return FindPublished<ColorProfilesInterface>(ColorProfilesInterface::kInterfaceId);
}
}  // namespace

namespace colorprofiles {
ColorProfile Get(const Id& id) { return GetColorProfiles()->GetBuiltIn(id).GetValueOr(ColorProfile()); }
}  // namespace colorprofiles

namespace colorspaces {
ColorSpace Get(const Id& id) { return FindPublished<ColorSpaceInterface>(id); }
}  // namespace colorspaces

Result<ColorProfile> ColorProfile::OpenProfileFromMemory(Block<const std::byte> bytes) {
    return GetColorProfiles()->OpenProfileFromMemory(bytes);
}

Result<ColorProfile> ColorProfile::OpenProfileFromFile(const Url& url) {
    const InputStreamRef stream = TRY(url.OpenInputStream());
    const Int length = TRY(stream->GetStreamLength());
    BaseArray<std::byte> bytes;
    TRY(bytes.Resize(length, RESIZEFLAGS::FIT_TO_SIZE));
    TRY(stream->Read(bytes.ToBlock()));
    TRY(stream->Close());
    constexpr std::byte kNoBytes{};  // an empty file is a bad profile, not missing memory
    return OpenProfileFromMemory(bytes.IsEmpty() ? Block<const std::byte>(&kNoBytes, 0) : bytes.ToBlock());
}

Result<ColorProfile> ColorProfile::BakeFromProcessor(const OiioProcessor& processor) {
    return GetColorProfiles()->BakeProfile(processor);
}

Result<Block<const std::byte>> ColorProfile::WriteProfileToMemory() const {
    if (!_entry)
        return IllegalStateError("no color profile");
    return _entry->WriteProfileToMemory();
}

Result<void> ColorProfile::WriteProfileToFile(const Url& url) const {
    if (!_entry)
        return IllegalStateError("no color profile");
    return _entry->WriteProfileToFile(url);
}

Result<String> ColorProfile::GetInfo(COLORPROFILEINFO info) const {
    if (!_entry)
        return IllegalStateError("no profile found");
    return _entry->GetInfo(info);
}

Bool ColorProfile::CheckCompatiblePixelFormat(const PixelFormat& format) const {
    return _entry->CheckCompatiblePixelFormat(format);
}

ColorSpace ColorProfile::GetColorSpace() const { return _entry->GetColorSpace(); }

String ColorProfile::ToString() const { return HasProfile() ? _entry->ToString() : String("<<no profile>>"); }

Result<void> ColorProfile::DescribeIO(DataSerialize& io) {
    BaseArray<std::byte> bytes;
    if (!io.IsReading() && HasProfile()) {
        const Block<const std::byte> own = TRY(WriteProfileToMemory());
        TRY(bytes.CopyFrom(own));
    }
    TRY(io.Field("_profile", bytes));
    if (!io.IsReading())
        return {};
    if (bytes.GetCount() == 0) {
        *this = ColorProfile();
        return {};
    }
    *this = TRY(OpenProfileFromMemory(bytes.ToBlock()));
    return {};
}

Bool ColorProfile::IsEqual(const ColorProfile& other) const {
    if (_entry == other._entry)
        return true;
    if (!HasProfile() || !other.HasProfile())
        return HasProfile() == other.HasProfile();
    if (GetCrc() != other.GetCrc())
        return false;
    const Result<Block<const std::byte>> mine = WriteProfileToMemory(), theirs = other.WriteProfileToMemory();
    return mine && theirs && std::ranges::equal(*mine, *theirs);
}

}  // namespace orvik
