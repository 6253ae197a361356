// Damaged and hostile files, short memory, failing streams: a clear error or a picture, never more.

#include <csignal>
#include <ctime>
#include <sys/resource.h>
#include <unistd.h>

#include "format_table.h"
#include "tool_support.h"

namespace codectest {
namespace {

using HostileTest = CodecTest;

/// Loads in bounded time and memory, and reads the pixels.
std::string TryLoad(std::string_view format, const Bytes& file) {
    constexpr size_t kMostBytes = size_t(96) << 20;  // a table of a profile may take 64 MiB, runs of a small file 16
    constexpr double kMostSeconds = 10;
    const bool hasPictures = TestedFormatOf(format).hasPictures;
    const Url url = Mount(file);
    const std::clock_t start = std::clock();
    const MemoryWatch watch;
    const Result<ImageTextureRef> texture = hasPictures ? Load(url) : ImageTextureRef();
    const std::string delivered =
        hasPictures ? KindOf(texture) : Deliver(MakeImporter(format, *url.OpenInputStream())).kind;
    EXPECT_LE(watch.GetPeakBytes(), kMostBytes + 16 * file.size());
    EXPECT_LE(double(std::clock() - start) / CLOCKS_PER_SEC, kMostSeconds);
    if (hasPictures && texture) {
        const ImageBaseRef image = FirstImage(*texture);
        EXPECT_FALSE(PixelsOfAll(*texture).empty() && image->GetWidth() * image->GetHeight() > 0);
    }
    return delivered;
}

TEST_F(HostileTest, CutFilesGiveErrorsOrPictures) {
    for (const Sample& sample : MakeSamples()) {
        SCOPED_TRACE(sample.name);
        EXPECT_EQ(TryLoad(sample.format, sample.bytes), "ok");
        size_t pictures = 0;
        for (size_t length = 0; length < sample.bytes.size(); ++length) {
            const Bytes cut(sample.bytes.begin(), sample.bytes.begin() + long(length));
            if (TryLoad(sample.format, cut) == "ok")
                ++pictures;
        }
        EXPECT_LE(pictures, TestedFormatOf(sample.format).mostPicturesOfCutFiles);
    }
}

TEST_F(HostileTest, FlippedBytesGiveErrorsOrPictures) {
    int pictures = 0, errors = 0;
    for (const Sample& sample : MakeSamples()) {
        SCOPED_TRACE(sample.name);
        const auto mend = TestedFormatOf(sample.format).mendDamage;
        for (size_t at = 0; at < sample.bytes.size(); ++at) {
            for (const int mask : {0x01, 0x80, 0xFF}) {
                Bytes damaged = sample.bytes;
                damaged[at] = uint8_t(damaged[at] ^ mask);
                ++(TryLoad(sample.format, damaged) == "ok" ? pictures : errors);
                if (mend) {
                    mend(damaged);
                    ++(TryLoad(sample.format, damaged) == "ok" ? pictures : errors);
                }
            }
        }
    }
    EXPECT_GT(pictures, 100);
    EXPECT_GT(errors, 100);
}

TEST_F(HostileTest, AbsurdHeadersCostNoMemory) {
    std::vector<Sample> bombs;
    for (const TestedFormat& format : TestedFormats()) {
        const std::vector<Sample> more = format.makeBombs ? format.makeBombs() : std::vector<Sample>();
        bombs.insert(bombs.end(), more.begin(), more.end());
    }
    for (const Sample& bomb : bombs) {
        EXPECT_NE(TryLoad(bomb.format, bomb.bytes), "ok") << bomb.format << " " << bomb.name;
        EXPECT_FALSE(Load(bomb.bytes, MEDIASESSIONFLAGS::RUNONLYANALYZE)) << bomb.format << " " << bomb.name;
    }
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // these reserve all addresses for themselves
    const auto loadInLittleMemory = [&bombs] {
        const rlimit limit{rlim_t(1) << 29, rlim_t(1) << 29};
        if (setrlimit(RLIMIT_AS, &limit) != 0)
            _exit(2);
        for (const Sample& bomb : bombs) {
            if (TryLoad(bomb.format, bomb.bytes) == "ok")
                _exit(1);
        }
        _exit(0);
    };
    EXPECT_EXIT(loadInLittleMemory(), testing::ExitedWithCode(0), "");
#endif
}

/// Gives out its bytes a few at a time, and fails at the n-th request.
class FailingInput : public InputStreamInterface {
public:
    FailingInput(const Bytes& bytes, Int failAt) : _bytes(bytes), _failAt(failAt) {}
    Url GetUrl() const override { return Url("memory:failing"); }
    Result<Int> GetStreamLength() override { return Int(_bytes.size()); }
    Bool SeekSupported() const override { return true; }
    Result<void> Close() override { return {}; }
    Int requests = 0;

protected:
    Result<void> FillWindow(Int position) override {
        if (++requests == _failAt)
            return IoError(GetUrl(), "broken");
        const auto* data = reinterpret_cast<const std::byte*>(_bytes.data());
        const Int count = std::clamp(Int(_bytes.size()) - position, Int(0), Int(7));
        SetWindow(position, data + std::min(position, Int(_bytes.size())), count);
        return {};
    }

private:
    const Bytes& _bytes;
    Int _failAt;
};

TEST_F(HostileTest, InputErrorsArriveUnchanged) {
    for (const Sample& sample : MakeSamples()) {
        Int requests = 1;
        for (Int n = 0; n <= requests; ++n) {
            const Ref<FailingInput> input = *NewObj<FailingInput>(sample.bytes, n);
            EXPECT_EQ(Deliver(MakeImporter(sample.format, InputStreamRef(input))).kind, n == 0 ? "ok" : "io")
                << sample.name << ", request " << n;
            requests = n == 0 ? input->requests : requests;
        }
        EXPECT_GT(requests, 2);
    }
}

TEST_F(HostileTest, OutputErrorsAreReported) {
    const ScratchDirectory scratch;
    signal(SIGXFSZ, SIG_IGN);
    Noise noise(3);
    const ImageTextureRef texture = MakeTexture({200, 150, pixelformats::kRgbU8, noise.Make(90000)});
    for (const FileFormatEntry& entry : WrittenFormats()) {
        SCOPED_TRACE(std::string(entry.name));
        const Url url(scratch.Path("out"));
        ASSERT_TRUE(SaveTo(texture, entry.name, url));
        const size_t size = ReadFile(scratch.Path("out")).size();
        rlimit before{};
        ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
        for (const size_t room : {size_t(0), size_t(1), size_t(54), size / 2, size - 1}) {
            const rlimit limit{room, before.rlim_max};
            ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
            const Result<void> saved = SaveTo(texture, entry.name, url);
            ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
            EXPECT_EQ(KindOf(saved), "io") << room;
        }
        EXPECT_EQ(KindOf(SaveTo(texture, entry.name, Url("/dev/full"))), "io");
        EXPECT_EQ(KindOf(SaveTo(texture, entry.name, Url(scratch.Path("no/such/directory")))), "io");
    }
}

}  // namespace
}  // namespace codectest
