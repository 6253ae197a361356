// Colour profiles: the table of open profiles, and the built-in ones.

#include <algorithm>
#include <array>
#include <atomic>
#include <cwchar>
#include <mutex>

#include "base/registration.h"
#include "color/gfx_image_colorprofile_library.h"
#include "color/gfx_image_colorprofile_oiio.h"

#include "orvik/crc32c.h"
#include "orvik/gfx_image_pixelformat.h"
#include "orvik/iostreams.h"

namespace orvik {
namespace {

class ColorProfileImpl;

/// CRC to entry, for all profiles that are open.
class ProfileTable final : public Object {
public:
    Result<void> Construct() {
        _library = TRY(NewObj<ColorLibrary>());
        return {};
    }
    ColorLibrary& GetLibrary() const { return *_library.GetObject(); }
    SpinLock& GetLock() { return _lock; }

    /// @return the open profile with these bytes, or null
    Ref<ColorProfileImpl> Find(uint32_t crc, Block<const std::byte> bytes);
    /// Adds a profile.
    /// @return the profile, or one with the same bytes that another thread added first
    Result<Ref<ColorProfileImpl>> Insert(const Ref<ColorProfileImpl>& profile);
    /// Called by the destructor of a profile.
    void Leave(uint32_t crc);

private:
    Ref<ColorLibrary> _library;
    SpinLock _lock;
    HashMap<uint32_t, WeakRef<ColorProfileImpl>> _entries;
};

class ColorProfileImpl final : public virtual ColorProfileInterface {
public:
    ColorProfileImpl() = default;
    explicit ColorProfileImpl(Absence why) : Object(why) {}
    ~ColorProfileImpl() override {
        if (!_table)
            return;
        _table.GetObject()->Leave(_crc);
        if (_handle)
            cmsCloseProfile(_handle);
    }

    Result<void> Open(const Ref<ProfileTable>& table, Block<const std::byte> bytes, uint32_t crc) {
        TRY(_bytes.CopyFrom(bytes));
        _table = table;
        _crc = crc;
        ColorLibrary& library = table.GetObject()->GetLibrary();
        const ColorLibrary::MemoryWatch watch(library);
        if (bytes.size() <= 0xFFFFFFFF)
            _handle = cmsOpenProfileFromMemTHR(library.GetContext(), _bytes.GetFirst(),
                                               static_cast<cmsUInt32Number>(bytes.size()));
        if (_handle)
            _description = TRY(ReadInfo(COLORPROFILEINFO::DESCRIPTION));
        TRY(watch.Check());
        if (!_handle)
            return LibraryError(library, "cmsOpenProfileFromMem failed.");
        return {};
    }

    Result<Block<const std::byte>> WriteProfileToMemory() const override {
        if (!_handle)
            return IllegalStateError("no color profile");
        return _bytes.ToBlock();
    }
    Result<void> WriteProfileToFile(const Url& url) const override {
        const Block<const std::byte> bytes = TRY(WriteProfileToMemory());
        const OutputStreamRef stream = TRY(url.OpenOutputStream());
        TRY(stream->Write(bytes));
        return stream->Close();
    }
    Result<String> GetInfo(COLORPROFILEINFO info) const override {
        if (!_handle)
            return IllegalStateError("no profile found");
        if (info < COLORPROFILEINFO::DESCRIPTION || info > COLORPROFILEINFO::COPYRIGHT)
            return IllegalArgumentError("Unknown profile info @.", info);
        if (info == COLORPROFILEINFO::DESCRIPTION)
            return _description;
        const ColorLibrary::MemoryWatch watch(_table.GetObject()->GetLibrary());
        String text = TRY(ReadInfo(info));
        TRY(watch.Check());
        return text;
    }
    uint32_t GetCrc() const override { return _crc; }
    Bool HasProfile() const override { return _handle != nullptr; }
    Bool CheckCompatiblePixelFormat(const PixelFormat& format) const override {
        const ColorSpace space = GetColorSpace();
        return space && space == format->GetColorSpace();
    }
    Bool IsMonitorProfileMode() const override { return _monitorProfileMode.load(std::memory_order_relaxed); }
    uint64_t GetHashCode() const override { return HashPointerBits(_crc); }
    ColorSpace GetColorSpace() const override {
        if (!_handle)
            return {};
        switch (cmsGetColorSpace(_handle)) {
            case cmsSigRgbData:
                return colorspaces::Get(colorspaces::kRgb);
            case cmsSigGrayData:
                return colorspaces::Get(colorspaces::kGrey);
            case cmsSigCmykData:
                return colorspaces::Get(colorspaces::kCmyk);
            case cmsSigYCbCrData:
                return colorspaces::Get(colorspaces::kYuv);
            default:
                return {};
        }
    }
    String ToString() const override { return _handle ? _description : String("<<no profile>>"); }
    Result<void> SetMonitorProfileMode(Bool on) override {
        std::lock_guard guard(_table.GetObject()->GetLock());
        _monitorProfileMode.store(on, std::memory_order_relaxed);
        return {};
    }
    void* GetLibraryHandle() const override { return _handle; }

    Block<const std::byte> GetBytes() const { return _bytes.ToBlock(); }
    /// Every variant of sRGB is replaced by the built-in profile, except linear ones.
    bool IsVariantOfSrgb() const {
        return _description.ContainsIgnoringCase("SRGB IEC61966-2") && !_description.ContainsIgnoringCase("LINEAR");
    }

private:
    Result<String> ReadInfo(COLORPROFILEINFO info) const {
        constexpr size_t kLength = 2048 / sizeof(wchar_t);
        wchar_t wide[kLength] = {};
        cmsGetProfileInfo(_handle, static_cast<cmsInfoType>(info), cmsNoLanguage, cmsNoCountry, wide,
                          (kLength - 1) * sizeof(wchar_t));
        char16_t text[kLength];
        const size_t length = wcsnlen(wide, kLength);
        std::transform(wide, wide + length, text, [](wchar_t c) { return static_cast<char16_t>(c); });
        Result<String> read = String::FromUtf16({text, length});
        if (!read && !read.GetError()->IsKindOf(errorid::kOutOfMemory))
            return String();  // damaged characters
        return read;
    }

    Ref<ProfileTable> _table;
    BaseArray<std::byte> _bytes;
    uint32_t _crc = 0;
    cmsHPROFILE _handle = nullptr;
    String _description;
    std::atomic<bool> _monitorProfileMode{false};
};

Ref<ColorProfileImpl> ProfileTable::Find(uint32_t crc, Block<const std::byte> bytes) {
    Ref<ColorProfileImpl> found;  // released after the lock, which the destructor of a profile takes too
    {
        std::lock_guard guard(_lock);
        if (const WeakRef<ColorProfileImpl>* entry = _entries.Find(crc))
            found = entry->Get();
    }
    // Collisions of a CRC can be made on purpose; such profiles share nothing.
    return found && std::ranges::equal(found->GetBytes(), bytes) ? found : nullptr;
}

Result<Ref<ColorProfileImpl>> ProfileTable::Insert(const Ref<ColorProfileImpl>& profile) {
    Ref<ColorProfileImpl> other;
    {
        std::lock_guard guard(_lock);
        if (const WeakRef<ColorProfileImpl>* entry = _entries.Find(profile->GetCrc()))
            other = entry->Get();
        if (!other)
            TRY(_entries.Set(profile->GetCrc(), WeakRef<ColorProfileImpl>(profile)));
    }
    return other && std::ranges::equal(other->GetBytes(), profile->GetBytes()) ? other : profile;
}

void ProfileTable::Leave(uint32_t crc) {
    Ref<ColorProfileImpl> successor;
    std::lock_guard guard(_lock);
    const WeakRef<ColorProfileImpl>* entry = _entries.Find(crc);
    if (!entry)
        return;
    successor = entry->Get();
    if (!successor)
        _entries.Erase(crc);
}

// --- Built-in profiles -----------------------------------------------------------------------------------------------

constexpr cmsCIExyY kD65{0.3127, 0.3290, 1.0};

cmsHPROFILE BuildGrey(cmsContext context, cmsToneCurve* curve) {
    return curve ? cmsCreateGrayProfileTHR(context, &kD65, curve) : nullptr;
}
cmsHPROFILE BuildSrgb(cmsContext context) { return cmsCreate_sRGBProfileTHR(context); }
cmsHPROFILE BuildSgrey(cmsContext context) {
    const double parameters[] = {2.4, 1.0 / 1.055, 0.055 / 1.055, 1.0 / 12.92, 0.04045};
    const ScopedCurve curve{cmsBuildParametricToneCurve(context, 4, parameters)};
    return BuildGrey(context, curve.curve);
}
cmsHPROFILE BuildLinearRgb(cmsContext context) {
    constexpr cmsCIExyYTRIPLE kPrimaries{{0.64, 0.33, 1.0}, {0.30, 0.60, 1.0}, {0.15, 0.06, 1.0}};
    const ScopedCurve curve{cmsBuildGamma(context, 1.0)};
    cmsToneCurve* const curves[3] = {curve.curve, curve.curve, curve.curve};
    return curve.curve ? cmsCreateRGBProfileTHR(context, &kD65, &kPrimaries, curves) : nullptr;
}
cmsHPROFILE BuildLinearGrey(cmsContext context) {
    const ScopedCurve curve{cmsBuildGamma(context, 1.0)};
    return BuildGrey(context, curve.curve);
}
cmsHPROFILE BuildNull(cmsContext context, cmsColorSpaceSignature space) {
    const cmsHPROFILE profile = cmsCreateNULLProfileTHR(context);
    if (profile)
        cmsSetColorSpace(profile, space);
    return profile;
}
cmsHPROFILE BuildCmyk(cmsContext context) { return BuildNull(context, cmsSigCmykData); }
cmsHPROFILE BuildYuv(cmsContext context) { return BuildNull(context, cmsSigXYZData); }

struct BuiltInRow {
    Id id;
    const wchar_t* description;
    cmsHPROFILE (*build)(cmsContext context);
};
constexpr BuiltInRow kBuiltIns[] = {
    {colorprofiles::kSrgb, L"sRGB IEC61966-2.1", &BuildSrgb},
    {colorprofiles::kSgrey, L"Grey Gamma 2.2", &BuildSgrey},
    {colorprofiles::kLinearRgb, L"Linear Color Space", &BuildLinearRgb},
    {colorprofiles::kLinearGrey, L"Linear Color Space (Gray)", &BuildLinearGrey},
    {colorprofiles::kCmykDefault, L"CMYK Default Profile", &BuildCmyk},
    {colorprofiles::kYuvDefault, L"YUV Default Profile", &BuildYuv},
};

Result<BaseArray<std::byte>> BuildProfileBytes(ColorLibrary& library, const BuiltInRow& row) {
    const cmsContext context = library.GetContext();
    const ColorLibrary::MemoryWatch watch(library);
    const ScopedProfile profile{row.build(context)};
    const bool built = profile.handle &&
                       WriteTextTag(context, profile.handle, cmsSigProfileDescriptionTag, row.description) &&
                       WriteTextTag(context, profile.handle, cmsSigCopyrightTag, L"No copyright, use freely");
    TRY(watch.Check());
    if (!built)
        return LibraryError(library, "Building a color profile failed.");
    return SaveBuiltProfile(library, profile.handle);
}

// --- The service -----------------------------------------------------------------------------------------------------

class ColorProfilesImpl final : public virtual ColorProfilesInterface {
public:
    Result<void> Construct() {
        _table = TRY(NewObj<ProfileTable>());
        return {};
    }

    Result<ColorProfile> OpenProfileFromMemory(Block<const std::byte> bytes) override {
        if (!bytes.data())
            return IllegalArgumentError("mem is nullptr");
        constexpr size_t kSignatureBegin = 36;
        constexpr std::array<std::byte, 4> kSignature{std::byte('a'), std::byte('c'), std::byte('s'), std::byte('p')};
        if (bytes.size() < kSignatureBegin + kSignature.size() ||
            !std::ranges::equal(bytes.subspan(kSignatureBegin, kSignature.size()), kSignature))
            return IllegalArgumentError("found invalid magic number in color profile.");
        const uint32_t crc = ComputeCrc32c(bytes);
        if (const Ref<ColorProfileImpl> known = _table.GetObject()->Find(crc, bytes))
            return ColorProfile(known);
        const Ref<ColorProfileImpl> opened = TRY(Open(bytes, crc));
        if (opened->IsVariantOfSrgb())
            return GetBuiltIn(colorprofiles::kSrgb);
        return ColorProfile(TRY(_table.GetObject()->Insert(opened)));
    }

    Result<ColorProfile> GetBuiltIn(const Id& id) override {
        for (size_t i = 0; i < std::size(kBuiltIns); ++i) {
            if (!(kBuiltIns[i].id == id))
                continue;
            if (ColorProfile built = Load(i); built.HasProfile())
                return built;
            // Two threads may build one at once: equal bytes give one entry.
            const BaseArray<std::byte> bytes = TRY(BuildProfileBytes(_table.GetObject()->GetLibrary(), kBuiltIns[i]));
            const Ref<ColorProfileImpl> opened = TRY(Open(bytes.ToBlock(), ComputeCrc32c(bytes.ToBlock())));
            const ColorProfile built(TRY(_table.GetObject()->Insert(opened)));
            std::lock_guard guard(_lock);
            _builtIns[i] = built;
            return built;
        }
        return ColorProfile();
    }

    Result<ColorProfile> BakeProfile(const OiioProcessor& processor) override {
        const BaseArray<std::byte> bytes = TRY(BakeOiioProfile(_table.GetObject()->GetLibrary(), processor));
        return OpenProfileFromMemory(bytes.ToBlock());
    }

private:
    Result<Ref<ColorProfileImpl>> Open(Block<const std::byte> bytes, uint32_t crc) const {
        Ref<ColorProfileImpl> profile = TRY(NewObj<ColorProfileImpl>());
        TRY(profile->Open(_table, bytes, crc));
        return profile;
    }
    ColorProfile Load(size_t index) {
        std::lock_guard guard(_lock);
        return _builtIns[index];
    }

    Ref<ProfileTable> _table;
    SpinLock _lock;
    std::array<ColorProfile, std::size(kBuiltIns)> _builtIns;
};

}  // namespace

Result<void> RegisterColorProfiles(Publisher& publisher) {
    const ObjectRef service = TRY(NewObj<ColorProfilesImpl>());
    return publisher.PublishObject(ColorProfilesInterface::kInterfaceId, service);
}

}  // namespace orvik
