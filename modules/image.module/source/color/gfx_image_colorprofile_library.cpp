#include "color/gfx_image_colorprofile_library.h"

#include <cstdlib>
#include <cstring>
#include <lcms2_plugin.h>
#include <mutex>

namespace orvik {
namespace {

/// The library believes the sizes in a profile before it has read what they promise. No honest table is this large.
constexpr cmsUInt32Number kLargestBlock = cmsUInt32Number(64) << 20;

void* AllocateBounded(cmsContext, cmsUInt32Number bytes) {
    return bytes <= kLargestBlock ? std::malloc(bytes) : nullptr;
}
void FreeBlock(cmsContext, void* block) { std::free(block); }
void* ReallocateBounded(cmsContext, void* block, cmsUInt32Number bytes) {
    return bytes <= kLargestBlock ? std::realloc(block, bytes) : nullptr;
}

cmsPluginMemHandler g_memory{
    {cmsPluginMagicNumber, LCMS_VERSION, cmsPluginMemHandlerSig, nullptr},
    AllocateBounded,
    FreeBlock,
    ReallocateBounded,
    nullptr,
    nullptr,
    nullptr,
};

}  // namespace

ColorLibrary::~ColorLibrary() {
    (void)TakeError();
    for (Slot& slot : _slots)
        slot.transform = nullptr;
    if (_context)
        cmsDeleteContext(_context);
}

Result<void> ColorLibrary::Construct() {
    _context = cmsCreateContext(&g_memory, this);
    if (!_context)
        return UnexpectedError("Could not initialize LCMS.");
    cmsSetLogErrorHandlerTHR(_context, &OnError);
    return {};
}

void ColorLibrary::OnError(cmsContext context, cmsUInt32Number code, const char* text) {
    auto* library = static_cast<ColorLibrary*>(cmsGetContextUserData(context));
    Error error = UnknownError("LCMS Error: @, @", code, text);
    error->Retain();  // the slot's count
    const Error older = Error::Adopt(library->_newest.exchange(error.Get()));
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
    (void)TakeError();  // what an earlier call left behind is no cause of this one
    const cmsHTRANSFORM handle =
        cmsCreateTransformTHR(_context, recipe.src->GetLibraryHandle(), recipe.srcWord, recipe.dst->GetLibraryHandle(),
                              recipe.dstWord, recipe.intent, recipe.flags);
    if (!handle)
        return LibraryError(*this, "cmsCreateTransform failed");
    Result<Ref<ColorTransform>> made = NewObj<ColorTransform>(handle);
    if (!made) {
        cmsDeleteTransform(handle);
        return made;
    }
    // Two threads may have made the same: both work, and the older slot goes in its turn.
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
    cmsUInt32Number size = 0;
    if (!cmsSaveProfileToMem(profile, nullptr, &size) || size == 0)
        return LibraryError(library, "Calculating color profile size failed.");
    BaseArray<std::byte> bytes;
    TRY(bytes.Resize(size, RESIZEFLAGS::FIT_TO_SIZE));
    if (!cmsSaveProfileToMem(profile, bytes.GetFirst(), &size))
        return LibraryError(library, "Writing color profile failed.");
    // The library notes the current time. A fixed date makes bytes and sums the same in every run.
    constexpr size_t kDateBegin = 24;
    constexpr uint8_t kDate[12] = {0x07, 0xE4, 0, 1, 0, 1, 0, 0, 0, 0, 0, 0};  // 2020-01-01 00:00:00
    if (bytes.GetCount() < Int(kDateBegin + sizeof(kDate)))
        return UnexpectedError("A built-in color profile has no header.");
    std::memcpy(bytes.GetFirst() + kDateBegin, kDate, sizeof(kDate));
    return bytes;
}

}  // namespace orvik
