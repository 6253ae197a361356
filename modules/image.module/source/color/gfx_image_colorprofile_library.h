#pragma once
/// @file
/// The colour library (lcms2) as this module uses it: one context with an error slot, transforms, and helpers that
/// build profiles.

#include <array>
#include <atomic>
#include <lcms2.h>
#include <mutex>

#include "orvik/basearray.h"
#include "orvik/gfx_image_colorprofile.h"

namespace orvik {

/// Owns a transform of the library. Several threads may run it at once.
class ColorTransform final : public Object {
public:
    explicit ColorTransform(cmsHTRANSFORM handle) : _handle(handle) {}
    ~ColorTransform() override { cmsDeleteTransform(_handle); }
    cmsHTRANSFORM GetHandle() const { return _handle; }

private:
    cmsHTRANSFORM _handle;
};

/// The parameters of a transform.
struct TransformRecipe {
    Ref<ColorProfileInterface> src, dst;
    cmsUInt32Number srcWord = 0, dstWord = 0;  ///< layouts of the pixels, in the library's words
    cmsUInt32Number intent = 0, flags = 0;
};

/// The library's context. Lives as long as any profile or transform.
class ColorLibrary final : public Object {
public:
    /// Notices when the library is refused memory. It often goes on without, and then gives other colours or texts.
    class MemoryWatch {
    public:
        explicit MemoryWatch(ColorLibrary& library) : _library(library), _before(library._refusals) {}
        /// Out of memory if the library was refused any since construction, be it on another thread.
        Result<void> Check() const {
            if (_library._refusals == _before)
                return {};
            (void)_library.TakeError();
            return OutOfMemoryError();
        }

    private:
        ColorLibrary& _library;
        uint64_t _before;
    };

    ~ColorLibrary() override;
    Result<void> Construct();
    cmsContext GetContext() const { return _context; }
    /// The newest error of the library since the last call, or null. Another thread's error may come in between.
    Error TakeError() { return Error::Adopt(_newest.exchange(nullptr)); }
    /// The library behind an open profile of this module; null for an empty profile.
    static Ref<ColorLibrary> Of(const ColorProfile& profile);

    /// Makes a transform, or returns one of the most recent. Holds no lock while the transform is made. The transform
    /// must be released before the library is.
    /// Errors: "cmsCreateTransform failed", with the library's error as cause.
    Result<Ref<ColorTransform>> GetTransform(const TransformRecipe& recipe);

private:
    /// Holds its profiles weakly: a profile leaves the profile table with its last user.
    struct Slot {
        WeakRef<ColorProfileInterface> src, dst;
        TransformRecipe words;  ///< without profiles
        Ref<ColorTransform> transform;
    };
    /// What the library calls.
    struct Hooks;
    Ref<ColorTransform> FindTransform(const TransformRecipe& recipe);

    cmsContext _context = nullptr;
    std::atomic<const ErrorInterface*> _newest{nullptr};
    std::atomic<uint64_t> _refusals{0};  ///< allocations of the library that failed
    std::recursive_mutex _spareMutex;    ///< for profiles that were opened when there was no memory for their own
    SpinLock _lock;                      ///< guards the two below
    std::array<Slot, 8> _slots;
    size_t _oldest = 0;
};

/// An error with that text and the library's newest error as its cause.
Error LibraryError(ColorLibrary& library, LocatedText text);

/// Closes a library profile at the end of its scope.
struct ScopedProfile {
    cmsHPROFILE handle = nullptr;
    explicit ScopedProfile(cmsHPROFILE opened) : handle(opened) {}
    ScopedProfile(const ScopedProfile&) = delete;
    ScopedProfile& operator=(const ScopedProfile&) = delete;
    ~ScopedProfile() {
        if (handle)
            cmsCloseProfile(handle);
    }
};
struct ScopedCurve {
    cmsToneCurve* curve = nullptr;
    explicit ScopedCurve(cmsToneCurve* built) : curve(built) {}
    ScopedCurve(const ScopedCurve&) = delete;
    ScopedCurve& operator=(const ScopedCurve&) = delete;
    ~ScopedCurve() {
        if (curve)
            cmsFreeToneCurve(curve);
    }
};

/// Writes a tag as a text unit for language "en", country "US". False when memory is short.
bool WriteTextTag(cmsContext context, cmsHPROFILE profile, cmsTagSignature tag, const wchar_t* text);

/// The bytes of a profile that this module has built, with a fixed creation date, so that every run gives the same.
/// Errors: "Calculating color profile size failed.", "Writing color profile failed.".
Result<BaseArray<std::byte>> SaveBuiltProfile(ColorLibrary& library, cmsHPROFILE profile);

}  // namespace orvik
