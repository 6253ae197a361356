#include "color/gfx_image_colorprofile_library.h"

#include <cstring>
#include <lcms2_plugin.h>
#include <new>

#include "orvik/memory.h"

namespace orvik {

struct ColorLibrary::Hooks {
    static ColorLibrary& Of(cmsContext context) { return *static_cast<ColorLibrary*>(cmsGetContextUserData(context)); }

    static void OnError(cmsContext context, cmsUInt32Number code, const char* text) {
        Error error = UnknownError("LCMS Error: @, @", code, text);
        error->Retain();  // the slot's count
        const Error older = Error::Adopt(Of(context)._newest.exchange(error.Get()));
    }

    /// The library believes the sizes in a profile before it has read what they promise. No honest table is this large.
    static constexpr cmsUInt32Number kLargestBlock = cmsUInt32Number(64) << 20;

    static void* Counted(cmsContext context, void* block) {
        if (!block)
            ++Of(context)._refusals;
        return block;
    }
    static void* AllocateBlock(cmsContext context, cmsUInt32Number bytes) {
        return bytes <= kLargestBlock ? Counted(context, Allocate(bytes)) : nullptr;
    }
    static void FreeBlock(cmsContext, void* block) { Free(block); }
    static void* ReallocateBlock(cmsContext context, void* block, cmsUInt32Number bytes) {
        return bytes <= kLargestBlock ? Counted(context, Reallocate(block, bytes)) : nullptr;
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
