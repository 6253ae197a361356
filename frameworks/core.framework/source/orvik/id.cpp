#include "orvik/id.h"

#include <atomic>
#include <cstring>
#include <new>

#include "orvik/errortypes.h"
#include "orvik/memory.h"

namespace orvik {

namespace {

/// The length of an owned text takes 20 bits of the value.
constexpr size_t kMaxLength = (size_t(1) << 20) - 1;

/// Precedes an owned text.
struct TextHead {
    std::atomic<int32_t> count{1};
};

TextHead* HeadOf(const char* text) noexcept {
    return reinterpret_cast<TextHead*>(const_cast<char*>(text) - sizeof(TextHead));
}

}  // namespace

Result<Id> Id::Create(std::string_view text) {
    if (text.empty())
        return Id();
    if (text.size() > kMaxLength)
        return IllegalArgumentError("An id of @ bytes is too long.", text.size());
    auto* memory = static_cast<char*>(Allocate(sizeof(TextHead) + text.size() + 1));
    if (!memory)
        return OutOfMemoryError();
    new (memory) TextHead;
    char* copy = memory + sizeof(TextHead);
    std::memcpy(copy, text.data(), text.size());
    copy[text.size()] = 0;
    Id id;
    id._text = copy;
    id._value = ComputeValue(text) | kOwnedBit;
    return id;
}

void Id::RetainText() const noexcept { HeadOf(_text)->count.fetch_add(1, std::memory_order_relaxed); }

void Id::ReleaseText() noexcept {
    TextHead* head = HeadOf(_text);
    if (head->count.fetch_sub(1, std::memory_order_acq_rel) == 1)
        Free(head);
}

}  // namespace orvik
