#include <gmock/gmock.h>

#include "support/faults.h"

#include "orvik/host.h"
#include "orvik/iomemory.h"
#include "orvik/streamconversion.h"

namespace orvik {
namespace {

using Bytes = BaseArray<std::byte>;
using namespace streamconversions;

Block<const std::byte> AsBlock(std::string_view text) { return std::as_bytes(std::span(text)); }
std::string AsText(const Bytes& bytes) {
    return {reinterpret_cast<const char*>(bytes.GetFirst()), size_t(bytes.GetCount())};
}
std::string Pattern(size_t count) {
    std::string bytes(count, 0);
    for (size_t i = 0; i < count; ++i)
        bytes[i] = static_cast<char>(i * i >> 7);
    return bytes;
}
/// "abc" in a stored block, put together by hand.
constexpr std::string_view kStored(
    "\x78\x01\x01\x03\x00\xFC\xFF"
    "abc\x02\x4D\x01\x27",
    14);

class ZipConversions : public testing::Test {
protected:
    static std::string Encode(std::string_view text, Int level = 6) {
        DataDictionary settings;
        EXPECT_TRUE(settings.Set(kLevel, level));
        Bytes encoded;
        EXPECT_TRUE(ConvertBlock(*CreateByFactory<StreamConversionInterface>(kZipEncoder, settings), AsBlock(text),
                                 encoded, 1 << 20));
        return AsText(encoded);
    }

    const Result<Host> host = Host::Start({.modules = {}});
    const StreamConversionRef decoder = *CreateByFactory<StreamConversionInterface>(kZipDecoder);
};

TEST_F(ZipConversions, AgreeWithBytesMadeByHand) {
    EXPECT_EQ(Encode("abc", 0), kStored);
    Bytes decoded;
    ASSERT_TRUE(ConvertBlock(decoder, AsBlock(kStored), decoded, 3));
    EXPECT_EQ(AsText(decoded), "abc");
    DataDictionary settings;
    ASSERT_TRUE(settings.Set(kLevel, 10));
    EXPECT_EQ(ErrorIdOf(CreateByFactory<StreamConversionInterface>(kZipEncoder, settings)), errorid::kIllegalArgument);
}

TEST_F(ZipConversions, ReturnEveryLengthByEveryWay) {
    for (const size_t size : {0, 1, 1000, 65535, 65536, 65537, 300000}) {
        const std::string text = Pattern(size), encoded = Encode(text) + "next";
        Bytes decoded;
        ASSERT_TRUE(ConvertBlock(decoder, AsBlock(encoded), decoded, static_cast<Int>(size))) << size;
        EXPECT_TRUE(AsText(decoded) == text) << size;
        ASSERT_TRUE(decoded.Resize(static_cast<Int>(size) + 5));
        EXPECT_EQ(ConvertBlock(decoder, AsBlock(encoded), decoded.ToBlock()).GetValueOr(-1), size);
        EXPECT_EQ(ConvertBlock(decoder, AsBlock(encoded), decoded.ToBlock().first(size)).GetValueOr(-1), size);
        const InputStreamRef stream = *OpenConvertedInput(decoder, *OpenMemoryInput(AsBlock(encoded)));
        std::string read(size + 5, 0);
        EXPECT_EQ(stream->ReadEOS(std::as_writable_bytes(std::span(read))).GetValueOr(-1), size);
        EXPECT_TRUE(read.substr(0, size) == text);
        EXPECT_FALSE(stream->SeekSupported());
    }
}

TEST_F(ZipConversions, NeverExceedTheCallersBound) {
    const std::string bomb = Encode(std::string(50'000'000, 0));
    Bytes decoded;
    SetAllocationFault(0);
    EXPECT_EQ(MessageOf(ConvertBlock(decoder, AsBlock(bomb), decoded, 100'000)),
              "The converted data are longer than 100000 bytes.");
    EXPECT_LT(GetAllocationCount(), 20);
    EXPECT_EQ(decoded.GetCapacity(), 0) << "left as it was";
    ASSERT_TRUE(decoded.Resize(1000));
    EXPECT_EQ(ErrorIdOf(ConvertBlock(decoder, AsBlock(bomb), decoded.ToBlock())), errorid::kFileFormat);
}

TEST_F(ZipConversions, RefuseDamagedAndCutData) {
    const std::string text = Pattern(2000), encoded = Encode(text);
    Bytes decoded;
    for (size_t length = 0; length < encoded.size(); ++length) {
        const auto cut = AsBlock(encoded).first(length);
        ASSERT_EQ(MessageOf(ConvertBlock(decoder, cut, decoded, 2000)), "The data to convert end too early.");
        const InputStreamRef stream = *OpenConvertedInput(decoder, *OpenMemoryInput(cut));
        std::string read(2001, 0);
        ASSERT_EQ(ErrorIdOf(stream->ReadEOS(std::as_writable_bytes(std::span(read)))), errorid::kFileFormat);
    }
    for (size_t i = 0; i < encoded.size(); ++i) {
        std::string damaged = encoded;
        damaged[i] = static_cast<char>(damaged[i] ^ 0x10);
        const Result<void> converted = ConvertBlock(decoder, AsBlock(damaged), decoded, 4000);
        ASSERT_TRUE(ErrorIdOf(converted) == errorid::kFileFormat || (converted && AsText(decoded) == text))
            << "byte " << i << " may hold padding bits at most";
    }
}

TEST_F(ZipConversions, SurviveEachFailedAllocation) {
    AllocationFaults faults;
    while (faults.Next()) {
        (void)faults.Run([&]() -> Result<void> {
            const auto conversion = TRY(CreateByFactory<StreamConversionInterface>(kZipDecoder));
            Bytes decoded;
            return ConvertBlock(conversion, AsBlock(kStored), decoded, 3);
        });
    }
    EXPECT_GE(faults.GetErrorCount(), 3);
}

TEST(Factory, ThatIsMissingIsAnError) {
    const Result<StreamConversionRef> made = CreateByFactory<StreamConversionInterface>(kZipDecoder);
    EXPECT_EQ(ErrorIdOf(made), errorid::kUnresolved);
    EXPECT_EQ(MessageOf(made), "Factory is nullptr.");
}

}  // namespace
}  // namespace orvik
