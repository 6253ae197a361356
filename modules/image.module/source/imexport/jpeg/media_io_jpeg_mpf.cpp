#include "imexport/jpeg/media_io_jpeg_mpf.h"

#include "imexport/frame/media_io_memoryreader.h"

namespace orvik {
namespace {

constexpr Int kSignatureBytes = 4;  ///< "MPF" and a zero; offsets are relative to its end
constexpr Int kByteOrderBytes = 4;
constexpr Int kEntryBytes = 16;  ///< of one picture
constexpr uint16_t kNoEntries = 65535;

enum Tag : uint16_t { kMpfVersion = 0xB000, kNumberOfImages = 0xB001, kMpEntry = 0xB002 };
enum Type : uint16_t { kLong = 4, kRational = 5, kUndefined = 7, kSignedRational = 10 };

/// @return true when the block begins with a byte order mark, which sets `order`
bool FindByteOrder(Block<const std::byte> block, BYTEORDER& order) {
    if (block.size() < size_t(kByteOrderBytes))
        return false;
    const std::string_view mark(reinterpret_cast<const char*>(block.data()), size_t(kByteOrderBytes));
    order = mark[0] == 'I' ? BYTEORDER::LITTLE : BYTEORDER::BIG;
    return mark == std::string_view("II*\0", 4) || mark == std::string_view("MM\0*", 4);
}

Result<void> ReadPictureEntries(MemoryReader& in, uint32_t count, Int base, BaseArray<Int>& positions) {
    if (Int(count) > kMaxMpfPictures - positions.GetCount())
        return in.Failure();
    for (uint32_t i = 0; i < count; ++i) {
        TRY(in.Skip(8));  // attribute and size
        const uint32_t offset = TRY(in.ReadU32());
        TRY(in.Skip(4));  // two dependent entries
        TRY(positions.Append(offset == 0 ? 0 : base + Int(offset)));
    }
    return {};
}

/// Skips the value of an unused tag, which is stored in the directory itself. @return false for a type of unknown size
Result<Bool> SkipValue(MemoryReader& in, uint16_t type, uint32_t count) {
    switch (type) {
        case kUndefined:
            TRY(in.Skip(Int(count)));
            return true;
        case kLong:
        case kSignedRational:
            TRY(in.Skip(Int(count) * 4));
            return true;
        case kRational:
            TRY(in.Skip(Int(count) * 8));
            return true;
        default:
            return false;
    }
}

/// @param base  stream position that picture offsets are relative to
Result<void> ReadDirectory(MemoryReader& in, Int base, BaseArray<Int>& positions) {
    const uint16_t entryCount = TRY(in.ReadU16());
    if (entryCount == kNoEntries)
        return {};
    uint32_t pictureCount = 0;
    for (uint16_t i = 0; i < entryCount; ++i) {
        const auto tag = TRY(in.ReadU16());
        const auto type = TRY(in.ReadU16());
        const auto count = TRY(in.ReadU32());
        if (tag == kMpfVersion) {
            if (type != kUndefined || count != 4)
                return in.Failure();
            TRY(in.Skip(4));
        } else if (tag == kNumberOfImages) {
            if (type != kLong || count != 1)
                return in.Failure();
            pictureCount = TRY(in.ReadU32());
        } else if (tag == kMpEntry) {
            if (type != kUndefined || Int(count) != kEntryBytes * Int(pictureCount))
                return in.Failure();
            const auto offset = TRY(in.ReadU32());
            if (offset != 0 && Int(offset) < in.GetSize())
                TRY(in.Seek(offset));
            return ReadPictureEntries(in, pictureCount, base, positions);  // later tags hold no positions
        } else {
            const bool isKnown = TRY(SkipValue(in, type, count));
            if (!isKnown)
                return {};
        }
    }
    return {};
}

}  // namespace

Result<void> ReadMpfIndex(Block<const std::byte> payload, Int payloadPosition, BaseArray<Int>& positions) {
    constexpr std::string_view kSignature("MPF\0", kSignatureBytes);
    if (Int(payload.size()) < kSignatureBytes + kByteOrderBytes ||
        std::memcmp(payload.data(), kSignature.data(), kSignature.size()) != 0)
        return {};
    const Block<const std::byte> block = payload.subspan(kSignatureBytes);
    BYTEORDER order{};
    if (!FindByteOrder(block, order))
        return {};
    MemoryReader in(block, order, "ReadApp2Marker failed.");
    TRY(in.Seek(kByteOrderBytes));
    const auto directory = TRY(in.ReadU32());
    TRY(in.Seek(directory));
    return ReadDirectory(in, payloadPosition + kSignatureBytes, positions);
}

}  // namespace orvik
