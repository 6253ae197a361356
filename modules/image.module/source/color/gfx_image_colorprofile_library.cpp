#include "color/gfx_image_colorprofile_library.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <lcms2_plugin.h>
#include <new>

#include "orvik/memory.h"

namespace orvik {
namespace {

/// Memory for the library when there is no other. It does not check all of its small allocations, so it is given what
/// it asks for, and its result is thrown away afterwards. Pages that are never used cost nothing.
class Reserve {
public:
    /// Null when the reserve is used up.
    static void* Take(size_t bytes) {
        const size_t size = sizeof(Header) + (bytes + sizeof(Header) - 1) / sizeof(Header) * sizeof(Header);
        std::lock_guard guard(s_lock);
        if (size > sizeof(s_bytes) - s_used)
            return nullptr;
        void* const block = new (s_bytes + s_used) Header{bytes} + 1;
        s_used += size;
        ++s_blocks;
        return block;
    }
    static bool Owns(const void* block) { return block >= s_bytes && block < s_bytes + sizeof(s_bytes); }
    static size_t SizeOf(const void* block) { return (static_cast<const Header*>(block) - 1)->bytes; }
    /// The space is free again once all blocks have been returned.
    static void Return() {
        std::lock_guard guard(s_lock);
        if (--s_blocks == 0)
            s_used = 0;
    }

private:
    struct alignas(std::max_align_t) Header {
        size_t bytes;
    };
    static inline SpinLock s_lock;
    static inline size_t s_used = 0, s_blocks = 0;
    alignas(std::max_align_t) static inline std::byte s_bytes[8 << 20];
};

}  // namespace

struct ColorLibrary::Hooks {
    static ColorLibrary& Of(cmsContext context) { return *static_cast<ColorLibrary*>(cmsGetContextUserData(context)); }

    static void OnError(cmsContext context, cmsUInt32Number code, const char* text) {
        Error error = UnknownError("LCMS Error: @, @", code, text);
        error->Retain();  // the slot's count
        const Error older = Error::Adopt(Of(context)._newest.exchange(error.Get()));
    }

    /// The library believes the sizes in a profile before it has read what they promise. No honest table is this large.
    static constexpr cmsUInt32Number kLargestBlock = cmsUInt32Number(64) << 20;

    static void* TakeReserve(cmsContext context, size_t bytes) {
        ++Of(context)._refusals;
        return Reserve::Take(bytes);
    }
    static void* AllocateBlock(cmsContext context, cmsUInt32Number bytes) {
        if (bytes > kLargestBlock)
            return nullptr;
        void* const block = Allocate(bytes);
        return block ? block : TakeReserve(context, bytes);
    }
    static void FreeBlock(cmsContext, void* block) {
        if (Reserve::Owns(block))
            Reserve::Return();
        else
            Free(block);
    }
    static void* ReallocateBlock(cmsContext context, void* block, cmsUInt32Number bytes) {
        if (bytes > kLargestBlock)
            return nullptr;
        if (!Reserve::Owns(block)) {
            void* const moved = Reallocate(block, bytes);
            Of(context)._refusals += moved == nullptr;
            return moved;  // the library does check this
        }
        void* const moved = AllocateBlock(context, bytes);
        if (moved) {
            std::memcpy(moved, block, std::min<size_t>(bytes, Reserve::SizeOf(block)));
            Reserve::Return();
        }
        return moved;
    }

    /// The library locks the mutex of a profile without asking whether there is one, so this must not fail.
    static void* CreateMutex(cmsContext context) {
        void* const block = Allocate(sizeof(std::recursive_mutex));
        return block ? new (block) std::recursive_mutex : &Of(context)._spareMutex;
    }
    static void DestroyMutex(cmsContext context, void* mutex) {
        if (mutex == &Of(context)._spareMutex)
            return;
        static_cast<std::recursive_mutex*>(mutex)->~recursive_mutex();
        Free(mutex);
    }
    static cmsBool LockMutex(cmsContext, void* mutex) {
        static_cast<std::recursive_mutex*>(mutex)->lock();
        return 1;
    }
    static void UnlockMutex(cmsContext, void* mutex) { static_cast<std::recursive_mutex*>(mutex)->unlock(); }

    // The library takes them without const, and only reads them.
    static inline cmsPluginMutex mutexes{
        {cmsPluginMagicNumber, LCMS_VERSION, cmsPluginMutexSig, nullptr},
        CreateMutex,
        DestroyMutex,
        LockMutex,
        UnlockMutex,
    };
    static inline cmsPluginMemHandler memory{
        {cmsPluginMagicNumber, LCMS_VERSION, cmsPluginMemHandlerSig, &mutexes.base},
        AllocateBlock,
        FreeBlock,
        ReallocateBlock,
        nullptr,
        nullptr,
        nullptr,
    };
};

ColorLibrary::~ColorLibrary() {
    (void)TakeError();
    for (Slot& slot : _slots)
        slot.transform = nullptr;
    if (_context)
        cmsDeleteContext(_context);
}

Result<void> ColorLibrary::Construct() {
    const MemoryWatch watch(*this);
    _context = cmsCreateContext(&Hooks::memory, this);
    TRY(watch.Check());
    if (!_context)
        return UnexpectedError("Could not initialize LCMS.");
    cmsSetLogErrorHandlerTHR(_context, &Hooks::OnError);
    return {};
}

Ref<ColorLibrary> ColorLibrary::Of(const ColorProfile& profile) {
    const cmsHPROFILE handle = profile.GetEntry()->GetLibraryHandle();
    if (!handle)
        return nullptr;
    return Ref<ColorLibrary>(static_cast<ColorLibrary*>(cmsGetContextUserData(cmsGetProfileContextID(handle))));
}

Ref<ColorTransform> ColorLibrary::FindTransform(const TransformRecipe& recipe) {
    std::lock_guard guard(_lock);
    for (const Slot& slot : _slots) {
        const TransformRecipe& words = slot.words;
        if (slot.transform && words.srcWord == recipe.srcWord && words.dstWord == recipe.dstWord &&
            words.intent == recipe.intent && words.flags == recipe.flags && slot.src.Get() == recipe.src &&
            slot.dst.Get() == recipe.dst)
            return slot.transform;
    }
    return nullptr;
}

Result<Ref<ColorTransform>> ColorLibrary::GetTransform(const TransformRecipe& recipe) {
    if (Ref<ColorTransform> known = FindTransform(recipe))
        return known;
    (void)TakeError();  // left behind by an earlier call
    const MemoryWatch watch(*this);
    const cmsHTRANSFORM handle =
        cmsCreateTransformTHR(_context, recipe.src->GetLibraryHandle(), recipe.srcWord, recipe.dst->GetLibraryHandle(),
                              recipe.dstWord, recipe.intent, recipe.flags);
    if (!handle) {
        TRY(watch.Check());
        return LibraryError(*this, "cmsCreateTransform failed");
    }
    Result<Ref<ColorTransform>> made = NewObj<ColorTransform>(handle);
    if (!made) {
        cmsDeleteTransform(handle);
        return made;
    }
    TRY(watch.Check());
    // Two threads may have made the same transform. Both are good; the duplicate is evicted like any other.
    Slot slot{WeakRef<ColorProfileInterface>(recipe.src), WeakRef<ColorProfileInterface>(recipe.dst), recipe, *made};
    slot.words.src = slot.words.dst = nullptr;
    {
        std::lock_guard guard(_lock);
        std::swap(_slots[_oldest], slot);
        _oldest = (_oldest + 1) % _slots.size();
    }
    return made;
}

Error LibraryError(ColorLibrary& library, LocatedText text) { return UnknownErrorWith(library.TakeError(), text); }

bool WriteTextTag(cmsContext context, cmsHPROFILE profile, cmsTagSignature tag, const wchar_t* text) {
    cmsMLU* unit = cmsMLUalloc(context, 1);
    const bool written = unit && cmsMLUsetWide(unit, "en", "US", text) && cmsWriteTag(profile, tag, unit);
    cmsMLUfree(unit);
    return written;
}

Result<BaseArray<std::byte>> SaveBuiltProfile(ColorLibrary& library, cmsHPROFILE profile) {
    const ColorLibrary::MemoryWatch watch(library);
    cmsUInt32Number size = 0;
    const bool isCounted = cmsSaveProfileToMem(profile, nullptr, &size) && size != 0;
    TRY(watch.Check());
    if (!isCounted)
        return LibraryError(library, "Calculating color profile size failed.");
    BaseArray<std::byte> bytes;
    TRY(bytes.Resize(size, RESIZEFLAGS::FIT_TO_SIZE));
    const bool isSaved = cmsSaveProfileToMem(profile, bytes.GetFirst(), &size);
    TRY(watch.Check());
    if (!isSaved)
        return LibraryError(library, "Writing color profile failed.");
    // The library writes the current time. A fixed date makes bytes and CRCs repeatable.
    constexpr size_t kDateBegin = 24;
    constexpr uint8_t kDate[12] = {0x07, 0xE4, 0, 1, 0, 1, 0, 0, 0, 0, 0, 0};  // 2020-01-01 00:00:00
    if (bytes.GetCount() < Int(kDateBegin + sizeof(kDate)))
        return UnexpectedError("A built-in color profile has no header.");
    std::memcpy(bytes.GetFirst() + kDateBegin, kDate, sizeof(kDate));
    return bytes;
}

}  // namespace orvik
