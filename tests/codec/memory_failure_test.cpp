// Memory runs short at one place of a load or a save, or from there on: the answer is the one error for it, or what is
// done without, but never another error, other pixels, an exception or a leak.

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <optional>

#include "format_table.h"
#include "png_direct.h"
#include "tool_support.h"

#include "orvik/memory.h"

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define ORVIK_TEST_OWNS_MALLOC 1  // sanitizers bring allocators of their own
#endif

namespace {

/// Of a thread. Every allocation of the program passes here, those of the libraries and of the standard library too.
struct Faults {
    orvik::Int countdown;  ///< the allocation that makes this 0 fails
    bool sticky, struck;
    orvik::Int count;  ///< since `Arm`
    orvik::Int live;   ///< blocks
};
thread_local Faults t_faults{};

#ifdef ORVIK_TEST_OWNS_MALLOC
void Arm(orvik::Int nth, bool sticky) { t_faults = {nth, sticky, false, 0, t_faults.live}; }
orvik::Int CountAllocations() { return t_faults.count; }

bool Strikes() {
    ++t_faults.count;
    if (t_faults.struck || (t_faults.countdown != 0 && --t_faults.countdown == 0)) {
        t_faults.struck = t_faults.sticky;
        errno = ENOMEM;
        return true;
    }
    return false;
}
void* Counted(void* block) {
    t_faults.live += block != nullptr;
    return block;
}
#else
void Arm(orvik::Int nth, bool sticky) { orvik::SetAllocationFault(nth, sticky); }
orvik::Int CountAllocations() { return orvik::GetAllocationCount(); }
#endif

}  // namespace

#ifdef ORVIK_TEST_OWNS_MALLOC
extern "C" {
void* __libc_malloc(size_t bytes);
void* __libc_calloc(size_t count, size_t bytes);
void* __libc_realloc(void* block, size_t bytes);
void* __libc_memalign(size_t alignment, size_t bytes);
void __libc_free(void* block);

void* malloc(size_t bytes) noexcept { return Strikes() ? nullptr : Counted(__libc_malloc(bytes)); }
void* calloc(size_t count, size_t bytes) noexcept { return Strikes() ? nullptr : Counted(__libc_calloc(count, bytes)); }
void* realloc(void* block, size_t bytes) noexcept {
    if (Strikes())
        return nullptr;
    void* const moved = __libc_realloc(block, bytes);
    return block ? moved : Counted(moved);
}
void* memalign(size_t alignment, size_t bytes) noexcept {
    return Strikes() ? nullptr : Counted(__libc_memalign(alignment, bytes));
}
void* aligned_alloc(size_t alignment, size_t bytes) noexcept { return memalign(alignment, bytes); }
int posix_memalign(void** to, size_t alignment, size_t bytes) noexcept {
    *to = memalign(alignment, bytes);
    return *to ? 0 : ENOMEM;
}
void free(void* block) noexcept {
    t_faults.live -= block != nullptr;
    __libc_free(block);
}
}
#endif

namespace codectest {
namespace {

/// Calls `run` with one allocation after the other failing, of which it makes too many to try all.
/// @param first  which are tried: not the same ones in every call
/// @param check  sees what a run gave that did without
template <class Run, class Check>
void ExpectNothingButOutOfMemory(bool sticky, Int first, const Run& run, const Check& check) {
    constexpr Int kMostRuns = 120;
    Arm(0, false);
    ASSERT_EQ(KindOf(run()), "ok");
    const Int total = CountAllocations();
    int failures = 0;
    for (Int n = 1 + first % (total / kMostRuns + 1); n <= total; n += total / kMostRuns + 1) {
        SCOPED_TRACE(testing::Message() << "allocation " << n << " of " << total
                                        << (sticky ? " and all later ones" : ""));
        const Int live = t_faults.live;
        {
            std::optional<decltype(run())> result;
            Arm(n, sticky);
            try {
                result = run();
            } catch (const std::exception& exception) {
                Arm(0, false);
                ADD_FAILURE() << exception.what() << " is thrown";
                continue;
            }
            Arm(0, false);
            if (*result) {
                check(*result);
            } else {
                EXPECT_EQ(KindOf(*result), "outofmemory") << result->GetError()->ToString().GetCString();
                ++failures;
            }
        }
        EXPECT_LE(t_faults.live, live) << "a leak";
    }
    EXPECT_GT(failures, 20);
}

/// The files have short names, which a copy of a `Url` keeps in itself: copies of others throw when memory is short.
class MemoryFailureTest : public ToolTest {
protected:
    void SetUp() override {
        ToolTest::SetUp();
        std::filesystem::current_path(_scratch.Path(""));
    }
    void TearDown() override { std::filesystem::current_path(_before); }

private:
    const std::filesystem::path _before = std::filesystem::current_path();
};

TEST_F(MemoryFailureTest, LoadsAndSavesGiveOneErrorOrTheWholePicture) {
    const Url source("source"), target("target");
    const auto crcOf = [](const ImageTextureRef& texture) {
        return FirstImage(texture)->Get(image::kColorProfile, ColorProfile()).GetCrc();
    };
    std::vector<Sample> samples = MakeSamples();
    samples.push_back({"png with linear colors", "png",
                       WritePng({.width = 1,
                                 .height = 1,
                                 .rows = {1, 2, 3},
                                 .profileName = "p",
                                 .profile = ProfileBytes(colorprofiles::kLinearRgb)})});
    Int number = 0;
    for (const Sample& sample : samples) {
        SCOPED_TRACE(sample.name);
        WriteFile("source", sample.bytes);
        Result<ImageTextureRef> good = Load(source);  // also fills what is remembered between loads
        ASSERT_TRUE(good);
        const Bytes pixels = RgbaOf(*good);
        const uint32_t crc = crcOf(*good);
        if (Format(sample.format).makeExporter) {
            const Bytes file = *Save(*good, sample.format);
            for (const bool sticky : {false, true})
                ExpectNothingButOutOfMemory(
                    sticky, ++number, [&] { return SaveTo(*good, sample.format, target); },
                    [&](const Result<void>&) { EXPECT_EQ(ReadFile("target"), file); });
        }
        good = Result<ImageTextureRef>(ImageTextureRef());  // its profile is to be opened anew
        for (const bool sticky : {false, true})
            ExpectNothingButOutOfMemory(
                sticky, ++number, [&] { return Load(source); },
                [&](const Result<ImageTextureRef>& texture) {
                    EXPECT_EQ(RgbaOf(*texture), pixels);
                    EXPECT_EQ(crcOf(*texture), crc);
                });
    }
}

}  // namespace
}  // namespace codectest
