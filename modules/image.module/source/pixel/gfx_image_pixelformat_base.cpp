#include "pixel/gfx_image_pixelformat_base.h"

#include <algorithm>
#include <cstdio>
#include <mutex>

#include "pixel/gfx_image_pixelformat_route.h"

#include "orvik/gfx_image_colorprofileconvert.h"

namespace orvik {

// --- ConversionKey ---------------------------------------------------------------------------------------------------

Result<ConversionKey> ConversionKey::Copy() const {
    ConversionKey copy(_srcId, _srcOffsets, _dstOffsets, _defaultOffsets);
    TRY(copy._owned.AppendBlock(_srcOffsets));
    TRY(copy._owned.AppendBlock(_dstOffsets));
    copy._srcOffsets = ChannelOffsets(copy._owned.GetFirst(), _srcOffsets.size());
    copy._dstOffsets = ChannelOffsets(copy._owned.GetFirst() + _srcOffsets.size(), _dstOffsets.size());
    return copy;
}

uint64_t ConversionKey::GetHashCode() const {
    uint64_t hash = _srcId.GetValue() * 2 + _defaultOffsets;
    for (const ChannelOffsets offsets : {_srcOffsets, _dstOffsets}) {
        for (const BITS offset : offsets)
            hash = hash * 31 + static_cast<uint64_t>(offset.GetBits());
    }
    return HashPointerBits(hash);
}

bool ConversionKey::operator==(const ConversionKey& other) const {
    return _defaultOffsets == other._defaultOffsets && _srcId == other._srcId &&
           std::ranges::equal(_srcOffsets, other._srcOffsets) && std::ranges::equal(_dstOffsets, other._dstOffsets);
}

// --- Description -----------------------------------------------------------------------------------------------------

Result<void> PixelFormatBase::Init(const PixelFormatGroup& group, const String& shortName) {
    _group = group;
    _shortName = shortName;
    return {};
}

BITS PixelFormatBase::GetBitsPerPixel() const {
    const ChannelOffsets offsets = GetChannelOffsets();
    return offsets.empty() ? BITS() : offsets.back();
}

Int PixelFormatBase::GetBytesPerLine(Int width, Int alignment) const {
    Int bits = 0, bytes = 0;
    if (width <= 0 || __builtin_mul_overflow(GetBitsPerPixel().GetBits(), width, &bits) ||
        __builtin_add_overflow((bits >> 3) + ((bits & 7) != 0), alignment - 1, &bytes))
        return 0;  // no line of that width exists
    return bytes & -alignment;
}

Result<BaseArray<std::byte>> PixelFormatBase::CreatePix(Int width, Int height, Int alignment) const {
    if (width < 0 || height < 0 || alignment < 1 || (alignment & (alignment - 1)) != 0)
        return IllegalArgumentError("No pixels of @ x @ with alignment @.", width, height, alignment);
    const Int line = GetBytesPerLine(width, alignment);
    Int total = 0;
    if ((line == 0 && width > 0) || __builtin_mul_overflow(line, height, &total))
        return OutOfMemoryError();
    BaseArray<std::byte> pixels;
    TRY(pixels.Resize(total, RESIZEFLAGS::FIT_TO_SIZE));
    return pixels;
}

Result<std::pair<PixelFormat, Int>> PixelFormatBase::GetAlphaPixelFormat() const { return UnsupportedOperationError(); }

ColorSpace PixelFormatBase::GetColorSpace() const {
    std::fputs("Stop: Function not implemented\n", stderr);  // a class that forgot to override is a mistake of ours
    return {};
}

Result<ConvertPixelFunc> PixelFormatBase::GetConvertPixelFromFunc(const PixelFormat&, ChannelOffsets, ChannelOffsets,
                                                                  bool) const {
    return ConvertPixelFunc();
}

Result<ConvertPixelFunc> PixelFormatBase::GetConvertPixelToFunc(const PixelFormat&, ChannelOffsets, ChannelOffsets,
                                                                bool) const {
    return ConvertPixelFunc();
}

// --- Conversion ------------------------------------------------------------------------------------------------------

namespace {

/// Instances with different colours share one id, and a cache that never forgets would keep each picture's colours.
bool IsIndexed(const PixelFormat& format) {
    return dynamic_cast<const PixelFormatIndexedColorInterface*>(format.GetPointer()) != nullptr;
}

/// The default of the format, for a source without profile or with one of another colour space, such as a grey file
/// that carries sRGB. A default that no transform can start from does not replace `given`.
ColorProfile ChooseDefaultProfile(const PixelFormat& format, const ColorProfile& given) {
    const ColorProfile own = format->GetDefaultColorProfile();
    return given.HasProfile() && !own.CheckCompatiblePixelFormat(format) ? given : own;
}

}  // namespace

/// Marks that this thread searches a route from a source into a format, until the scope ends.
class PixelFormatBase::SearchScope {
public:
    SearchScope(const PixelFormatBase& format, const PixelFormat& source)
        : _format(format), _search{std::this_thread::get_id(), source.GetPointer()} {}
    SearchScope(const SearchScope&) = delete;
    SearchScope& operator=(const SearchScope&) = delete;
    ~SearchScope() {
        if (!_entered)
            return;
        std::lock_guard guard(_format._lock);
        BaseArray<Search>& searches = _format._searches;
        searches.Erase(std::ranges::find(searches, _search) - searches.begin());
    }

    Result<void> Enter() {
        std::lock_guard guard(_format._lock);
        BaseArray<Search>& searches = _format._searches;
        if (std::ranges::find(searches, _search) != searches.end())
            return IllegalStateError("Recursion check");
        TRY(searches.Append(_search));
        _entered = true;
        return {};
    }

private:
    const PixelFormatBase& _format;
    Search _search;
    bool _entered = false;
};

Result<ConvertPixelFunc> PixelFormatBase::GetConvertPixelFunc(const PixelFormat& srcFormat, ChannelOffsets srcOffsets,
                                                              ChannelOffsets dstOffsets, const ColorProfile* srcProfile,
                                                              ColorProfile* dstProfile, CONVERTPIXELFLAGS flags,
                                                              Bool& isColorProfileConversion) const {
    if (!srcFormat)
        return IllegalArgumentError("srcformat must not be nullptr.");
    const bool fixedOffsetsAllowed = !isColorProfileConversion;
    if (ConvertPixelFunc transform =
            TRY(ConvertByProfiles(srcFormat, srcOffsets, dstOffsets, srcProfile, dstProfile, flags))) {
        isColorProfileConversion = true;
        return transform;
    }

    const ChannelOffsets ownOffsets = GetChannelOffsets();
    const bool defaultOffsets =
        fixedOffsetsAllowed && std::ranges::equal(srcOffsets, ownOffsets) && std::ranges::equal(dstOffsets, ownOffsets);
    const ConversionKey key(srcFormat->GetId(), srcOffsets, dstOffsets, defaultOffsets);
    {
        std::lock_guard guard(_lock);
        if (const ConvertPixelFunc* known = _conversions.Find(key))
            return *known;
    }

    SearchScope search(*this, srcFormat);
    TRY(search.Enter());
    const ConvertPixelFunc route = TRY(FindRoute(srcFormat, srcOffsets, dstOffsets, srcProfile, dstProfile, flags,
                                                 defaultOffsets, isColorProfileConversion));
    if (!isColorProfileConversion && !IsIndexed(srcFormat) && !IsIndexed(GetSelf())) {
        ConversionKey owned = TRY(key.Copy());
        std::lock_guard guard(_lock);
        TRY(_conversions.Set(std::move(owned), route));
    }
    return route;
}

Result<ConvertPixelFunc> PixelFormatBase::ConvertByProfiles(const PixelFormat& srcFormat, ChannelOffsets srcOffsets,
                                                            ChannelOffsets dstOffsets, const ColorProfile* srcProfile,
                                                            ColorProfile* dstProfile, CONVERTPIXELFLAGS flags) const {
    const ColorSpace srcSpace = srcFormat->GetColorSpace(), dstSpace = GetColorSpace();
    const bool sameSpace = srcSpace == dstSpace;
    const bool force = HasFlag(flags, CONVERTPIXELFLAGS::FORCECOLORPROFILECONVERSION);
    ColorProfile source = srcProfile ? *srcProfile : ColorProfile();
    if (!source.HasProfile() && !force)
        return ConvertPixelFunc();
    if (dstProfile && dstProfile->HasProfile()) {
        if (!source.HasProfile() || (force && !source.CheckCompatiblePixelFormat(srcFormat)))
            source = ChooseDefaultProfile(srcFormat, source);
        if (!(source == *dstProfile) && (force || !sameSpace)) {
            const auto create = [&]() -> Result<ConvertPixelFunc> {
                const ColorProfileConvert transform =
                    TRY(ClassRef(kColorProfileConvertClass).Create<ColorProfileConvertInterface>());
                if (!TRY(transform->InitWithOffsets(srcFormat, srcOffsets, source, GetSelf(), dstOffsets, *dstProfile,
                                                    COLORCONVERSIONINTENT::PERCEPTUAL,
                                                    COLORCONVERSIONFLAGS::BLACKPOINTCOMPENSATION)))
                    return ConvertPixelFunc();
                return ConvertPixelFunc(
                    [transform](const PixelLine& dst, Int count, const PixelLineConst& src, CONVERTPIXELFLAGS) {
                        return count > 0 ? transform->Convert(dst, src, count) : Result<void>();
                    });
            };
            // Without a transform the pixels are converted as if they had no profiles, so the error is dropped; but the
            // same call must not give other pixels because memory was short.
            Result<ConvertPixelFunc> transform = create();
            if (transform ? bool(transform.GetValue()) : transform.GetError()->IsKindOf(errorid::kOutOfMemory))
                return transform;
        }
    }
    const bool complete = source.HasProfile() && dstProfile && dstProfile->HasProfile();
    if (force && !complete && !sameSpace)
        return IllegalStateError(
            "Warning: Pixel conversion with different color spaces: @ != @ and incomplete color profiles: @ != @",
            srcSpace, dstSpace, source, dstProfile ? *dstProfile : ColorProfile());
    if (sameSpace && dstProfile && source.HasProfile())
        *dstProfile = source;  // the pixels keep the numbers of the source, so they carry its profile now
    return ConvertPixelFunc();
}

Result<ConvertPixelFunc> PixelFormatBase::FindRoute(const PixelFormat& srcFormat, ChannelOffsets srcOffsets,
                                                    ChannelOffsets dstOffsets, const ColorProfile* srcProfile,
                                                    ColorProfile* dstProfile, CONVERTPIXELFLAGS flags,
                                                    bool defaultOffsets, bool& isColorProfileConversion) const {
    // The first success wins, and the errors of earlier routes are dropped. Lack of memory ends the search: a later
    // route may give other values.
    const auto isFinal = [](const Result<ConvertPixelFunc>& route) {
        return route ? static_cast<bool>(route.GetValue()) : route.GetError()->IsKindOf(errorid::kOutOfMemory);
    };
    Result<ConvertPixelFunc> route = GetConvertPixelFromFunc(srcFormat, srcOffsets, dstOffsets, defaultOffsets);
    if (!isFinal(route))
        route = srcFormat->GetConvertPixelToFunc(GetSelf(), srcOffsets, dstOffsets, defaultOffsets);
    if (!isFinal(route))
        route = pixel::FindChannelRoute(GetSelf(), dstOffsets, srcFormat, srcOffsets);
    if (isFinal(route))
        return route;
    return pixel::FindIntermediateRoute(GetSelf(), dstOffsets, dstProfile, srcFormat, srcOffsets, srcProfile, flags,
                                        isColorProfileConversion);
}

Result<void> PixelFormatBase::ConvertPixelFromSlow(const PixelLine& dst, Int count, const PixelLineConst& src,
                                                   const PixelFormat& srcFormat, const ColorProfile* srcProfile,
                                                   ColorProfile* dstProfile, CONVERTPIXELFLAGS flags) const {
    const auto force = static_cast<CONVERTPIXELFLAGS>(static_cast<int>(flags) & 1);
    bool isColorProfileConversion = false;
    const ConvertPixelFunc convert =
        TRY(GetConvertPixelFunc(srcFormat, srcFormat->GetChannelOffsets(), GetChannelOffsets(), srcProfile, dstProfile,
                                force, isColorProfileConversion));
    return convert(dst, count, src, force);
}

}  // namespace orvik
