#include "orvik/crashreport.h"

#include <algorithm>
#include <atomic>
#include <unistd.h>

namespace orvik {

namespace {

constexpr int kSlotCount = 64;
constexpr size_t kMaxName = 63;
constexpr size_t kMaxValue = 255;

/// A signal handler may read while another thread writes, hence atomic characters. The stamp is odd while the texts are
/// being written and changes with each use, so that a reader notices a torn copy.
struct Slot {
    std::atomic<uint32_t> stamp{0};
    std::atomic<bool> taken{false};
    std::atomic<bool> shown{false};
    std::atomic<char> name[kMaxName + 1];
    std::atomic<char> value[kMaxValue + 1];
};
static_assert(std::atomic<char>::is_always_lock_free && std::atomic<uint32_t>::is_always_lock_free);

constinit Slot g_slots[kSlotCount];

/// Cuts between characters, never within one, and keeps a property on one line. Each character is released behind the
/// odd stamp, and `Load` acquires it before it looks at the stamp again, so that a torn text is noticed.
void Store(std::atomic<char>* to, std::string_view text, size_t limit) noexcept {
    size_t size = std::min(text.size(), limit);
    while (size < text.size() && size > 0 && (text[size] & 0xC0) == 0x80)
        --size;
    for (size_t i = 0; i < size; ++i) {
        const bool control = static_cast<unsigned char>(text[i]) < 0x20;
        to[i].store(control ? ' ' : text[i], std::memory_order_release);
    }
    to[size].store(0, std::memory_order_release);
}

size_t Load(char* to, const std::atomic<char>* from, size_t limit) noexcept {
    size_t size = 0;
    while (size < limit && (to[size] = from[size].load(std::memory_order_acquire)) != 0)
        ++size;
    return size;
}

}  // namespace

CrashReportProperty::CrashReportProperty(std::string_view name, const String& value) noexcept : _slot(-1) {
    for (int i = 0; i < kSlotCount && _slot < 0; ++i) {
        bool expected = false;
        if (g_slots[i].taken.compare_exchange_strong(expected, true, std::memory_order_acquire))
            _slot = i;
    }
    if (_slot < 0)
        return;  // more properties than a report can show
    Slot& slot = g_slots[_slot];
    slot.stamp.fetch_add(1, std::memory_order_acq_rel);
    Store(slot.name, name, kMaxName);
    Store(slot.value, value.GetText(), kMaxValue);
    slot.stamp.fetch_add(1, std::memory_order_release);
    slot.shown.store(true, std::memory_order_release);
}

CrashReportProperty::~CrashReportProperty() {
    if (_slot < 0)
        return;
    g_slots[_slot].shown.store(false, std::memory_order_release);
    g_slots[_slot].taken.store(false, std::memory_order_release);
}

void WriteCrashReportProperties(int fileDescriptor) noexcept {
    for (const Slot& slot : g_slots) {
        const uint32_t before = slot.stamp.load(std::memory_order_acquire);
        if (!slot.shown.load(std::memory_order_acquire) || before % 2 != 0)
            continue;
        char line[kMaxName + kMaxValue + 3];
        size_t size = Load(line, slot.name, kMaxName);
        line[size++] = ':';
        line[size++] = ' ';
        size += Load(line + size, slot.value, kMaxValue);
        line[size++] = '\n';
        if (slot.stamp.load(std::memory_order_relaxed) != before)
            continue;
        for (size_t done = 0; done < size;) {
            const ssize_t count = write(fileDescriptor, line + done, size - done);
            if (count <= 0)
                return;
            done += static_cast<size_t>(count);
        }
    }
}

Int GetCrashReportPropertyCount() noexcept {
    return std::count_if(std::begin(g_slots), std::end(g_slots),
                         [](const Slot& slot) { return slot.shown.load(std::memory_order_acquire); });
}

}  // namespace orvik
