#include <fcntl.h>
#include <functional>
#include <sys/stat.h>
#include <thread>

#include "test_helpers.h"

#include "orvik/fileformat.h"
#include "orvik/iomemory.h"

namespace orvik {
namespace {

using testing::ElementsAre;
using enum DETECTIONSTRENGTH;

struct WantedInput {};
struct OtherInput {};

std::vector<std::string> g_asked;  // the formats in the order in which they were asked

/// Claims what its function claims, and notes that it was asked.
class FakeFormat : public FileFormatInterface {
public:
    using Test = std::function<Result<Bool>(const Url&, const InputStreamRef&)>;
    FakeFormat(std::string name, DETECTIONSTRENGTH strength, std::string_view suffix, Test test)
        : _name(std::move(name)), _strength(strength), _suffix(suffix), _test(std::move(test)) {}
    Result<Bool> Detect(const Url& url, const InputStreamRef& stream) const override {
        g_asked.push_back(_name);
        return _test(url, stream);
    }
    String GetName() const override { return _name; }
    Block<const std::string_view> GetSuffixes() const override { return {&_suffix, 1}; }
    DETECTIONSTRENGTH GetDetectionStrength() const override { return _strength; }

private:
    std::string _name;
    DETECTIONSTRENGTH _strength;
    std::string_view _suffix;
    Test _test;
};

class FakeHandler : public FileFormatHandlerInterface {
public:
    FakeHandler(FileFormat format, const DataType& type, FILEFORMAT_PRIORITY priority)
        : _format(std::move(format)), _type(type), _priority(priority) {}
    FileFormat GetFileFormat() const override { return _format; }
    const DataType* GetHandlerType() const override { return &_type; }
    FILEFORMAT_PRIORITY GetDependends() const override { return _priority; }

private:
    FileFormat _format;
    const DataType& _type;
    FILEFORMAT_PRIORITY _priority;
};

class Detection : public testing::Test {
protected:
    static FakeFormat::Test Never() {
        return [](const Url&, const InputStreamRef&) -> Result<Bool> { return false; };
    }
    static FakeFormat::Test StartsWith(std::string magic) {
        return [magic](const Url&, const InputStreamRef& stream) -> Result<Bool> {
            EXPECT_EQ(stream->GetPosition(), 0);
            std::string head(magic.size(), 0);
            const Int count = TRY(stream->ReadEOS({reinterpret_cast<std::byte*>(head.data()), head.size()}));
            return count == Int(magic.size()) && head == magic;
        };
    }

    FileFormat Add(const std::string& name, DETECTIONSTRENGTH strength, std::string_view suffix, FakeFormat::Test test,
                   FILEFORMAT_PRIORITY priority = FILEFORMAT_PRIORITY::NATIVEFORMAT,
                   const DataType& type = GetDataType<WantedInput>()) {
        const FileFormat format = NewObj<FakeFormat>(name, strength, suffix, std::move(test)).TakeValue();
        const Id id = Id::Create("net.orvik.test." + name).TakeValue();
        EXPECT_TRUE(_publisher.AddToRegistry(kFileFormatRegistry, id, format));
        AddHandler(name, format, priority, type);
        return format;
    }
    void AddHandler(const std::string& name, const FileFormat& format, FILEFORMAT_PRIORITY priority,
                    const DataType& type = GetDataType<WantedInput>()) {
        const Id id = Id::Create("net.orvik.test.handler." + name).TakeValue();
        EXPECT_TRUE(_publisher.AddToRegistry(kFileFormatHandlerRegistry, id,
                                             NewObj<FakeHandler>(format, type, priority).TakeValue()));
    }
    /// @return the name of the accepted format, "none", or the error
    std::string Detect(const Url& url, const HandlerDelegate& delegate = nullptr) {
        g_asked.clear();
        const DataType* const types[] = {&GetDataType<WantedInput>()};
        Result<BaseArray<FileFormatHandler>> found = FileFormatDetection::DetectAll(url, types, delegate);
        if (!found)
            return MessageOf(found);
        return found->IsEmpty() ? "none" : std::string((*found)[0]->GetFileFormat()->GetName().GetText());
    }

    TempFolder _folder;
    Publisher _publisher;
};

TEST_F(Detection, AsksByPriorityStrengthSuffixAndRegistration) {
    Add("weak1", WEAK, "w1", Never());
    Add("structure1", STRUCTURE, "s1", Never());
    Add("signature1", SIGNATURE, "g1", Never());
    Add("weak2", WEAK, "w2", Never());
    Add("name", NAME, "n", Never());
    Add("structure2", STRUCTURE, "s2", Never());
    Add("signature2", SIGNATURE, "g2", Never());
    Add("general", SIGNATURE, "x", Never(), FILEFORMAT_PRIORITY::GENERALFORMAT);
    Add("other", SIGNATURE, "x", Never(), FILEFORMAT_PRIORITY::NATIVEFORMAT, GetDataType<OtherInput>());
    const std::pair<const char*, std::vector<std::string>> cases[] = {
        {"plain", {"name", "signature1", "signature2", "structure1", "structure2", "weak1", "weak2", "general"}},
        {"a.w2", {"name", "signature1", "signature2", "weak2", "structure1", "structure2", "weak1", "general"}},
        {"a.S2", {"name", "signature1", "signature2", "structure2", "structure1", "weak1", "weak2", "general"}},
        {"a.g2", {"name", "signature1", "signature2", "structure1", "structure2", "weak1", "weak2", "general"}},
    };
    for (const auto& [file, order] : cases) {
        EXPECT_EQ(Detect(_folder.Write(file, "bytes")), "none");
        EXPECT_EQ(g_asked, order) << file;
    }
}

TEST_F(Detection, BytesDecideAndErrorsDoNotClaim) {
    Add("broken", SIGNATURE, "x", [](const Url&, const InputStreamRef&) -> Result<Bool> { return UnknownError("x"); });
    Add("greedy", SIGNATURE, "x", [](const Url&, const InputStreamRef& stream) -> Result<Bool> {
        std::byte block[1000];
        TRY(stream->Read(block));  // fails: the file is short
        return true;
    });
    Add("one", SIGNATURE, "one", StartsWith("ONE"));
    Add("two", SIGNATURE, "two", StartsWith("TWO"));
    EXPECT_EQ(Detect(_folder.Write("a.one", "TWO and more")), "two") << "the suffix does not decide";
    EXPECT_THAT(g_asked, ElementsAre("broken", "greedy", "one", "two"));
    EXPECT_EQ(Detect(_folder.Write("b.one", "ON")), "none");
    EXPECT_EQ(Detect(_folder.Write("empty", "")), "none");
    EXPECT_EQ(Detect(MountMemoryFile("detect", CreateMemoryFile(AsBlock("ONE")).TakeValue()).TakeValue()), "one");
    UnmountMemoryFile("detect");
    EXPECT_EQ(Detect(_folder / "missing"), "cannot open: No such file or directory");
    EXPECT_EQ(Detect(_folder / ""), "cannot open: Is a directory");
}

TEST_F(Detection, DelegateAcceptsRefusesAndFails) {
    Add("first", SIGNATURE, "x", StartsWith("A"));
    const FileFormat second = Add("second", SIGNATURE, "x", StartsWith("A"));
    AddHandler("again", second, FILEFORMAT_PRIORITY::FALLBACKFORMAT);
    const Url url = _folder.Write("a", "A");
    int calls = 0;
    EXPECT_EQ(Detect(url,
                     [&](const Url& asked, const FileFormatHandler& handler) -> Result<Bool> {
                         EXPECT_EQ(asked, url);
                         ++calls;
                         return handler->GetDependends() == FILEFORMAT_PRIORITY::FALLBACKFORMAT;
                     }),
              "second");
    EXPECT_EQ(calls, 3);
    EXPECT_THAT(g_asked, ElementsAre("first", "second")) << "a format with two handlers is tested once";
    EXPECT_EQ(Detect(url, [](const Url&, const FileFormatHandler&) -> Result<Bool> { return UnknownError("stop"); }),
              "stop");
    EXPECT_EQ(Detect(url, [](const Url&, const FileFormatHandler&) -> Result<Bool> { return false; }), "none");
}

TEST_F(Detection, AsksNamesBeforeTheFileIsOpened) {
    Add("signature", SIGNATURE, "x", StartsWith("A"));
    Add(
        "sequence", NAME, "",
        [](const Url& url, const InputStreamRef& stream) -> Result<Bool> {
            EXPECT_FALSE(stream);
            return url.GetName().GetText().find("@{") != std::string_view::npos;
        },
        FILEFORMAT_PRIORITY::GENERALFORMAT);
    EXPECT_EQ(Detect(_folder / "a_@{04}.png"), "sequence") << "no such file, and nothing was opened";
    EXPECT_THAT(g_asked, ElementsAre("sequence"));
    EXPECT_EQ(Detect(_folder.Write("a_@{04}.x", "A"),
                     [](const Url&, const FileFormatHandler& handler) -> Result<Bool> {
                         return handler->GetFileFormat()->GetDetectionStrength() != NAME;
                     }),
              "signature")
        << "a real file may have such a name";
    EXPECT_EQ(FileFormatDetectionCache::DetectFile(_folder / "b_@{04}.png").TakeValue()->GetName(), String("sequence"));
}

TEST_F(Detection, HandsOnWhatItReadOfAPipe) {
    Add("one", SIGNATURE, "x", StartsWith("ONE"));
    Add("long", SIGNATURE, "x", [](const Url&, const InputStreamRef& stream) -> Result<Bool> {
        return TRY(stream->GetStreamLength()) == 200003;
    });
    const Url url = _folder / "pipe";
    const std::string bytes = PatternBytes(200003);
    ASSERT_EQ(mkfifo(url.GetSystemPath().c_str(), 0600), 0);
    std::thread writer([&] { EXPECT_TRUE((*url.OpenOutputStream())->Write(bytes.data(), bytes.size())); });
    EXPECT_EQ(Detect(url,
                     [&](const Url& copy, const FileFormatHandler&) -> Result<Bool> {
                         EXPECT_EQ(copy, url);
                         for (int turn = 0; turn < 2; ++turn) {
                             std::string read(bytes.size(), 0);
                             const InputStreamRef stream = TRY(copy.OpenInputStream());
                             TRY(stream->Read(read.data(), read.size()));
                             EXPECT_EQ(read, bytes);
                         }
                         const FileFormat format = TRY(FileFormatDetectionCache::DetectFile(copy));
                         return format->GetName() == String("long");
                     }),
              "long");
    writer.join();
}

TEST_F(Detection, NestingIsBounded) {
    int deepest = 0, depth = 0;
    const Url url = _folder.Write("a", "A");
    Add("recursive", SIGNATURE, "x", [&](const Url& asked, const InputStreamRef&) -> Result<Bool> {
        deepest = std::max(deepest, ++depth);
        Result<FileFormat> inner = FileFormatDetectionCache::DetectFile(asked);
        --depth;
        TRY(std::move(inner));
        return true;
    });
    EXPECT_EQ(Detect(url), "recursive");
    EXPECT_EQ(deepest, FileFormatDetection::kMaxNesting);
}

TEST_F(Detection, CacheNoticesARewrittenFile) {
    Add("one", SIGNATURE, "x", StartsWith("ONE"));
    const auto name = [](const Url& url) {
        g_asked.clear();
        Result<FileFormat> format = FileFormatDetectionCache::DetectFile(url);
        return !format ? MessageOf(format) : std::string((*format)->GetName().GetText());
    };
    const Url url = _folder.Write("a", "ONE");
    const auto setTime = [&](time_t seconds) {
        const timespec times[2] = {{seconds, 0}, {seconds, 0}};
        ASSERT_EQ(utimensat(AT_FDCWD, url.GetSystemPath().c_str(), times, 0), 0);
    };
    setTime(1000);
    EXPECT_EQ(name(url), "one");
    EXPECT_EQ(name(url), "one");
    EXPECT_TRUE(g_asked.empty()) << "remembered";
    _folder.Write("a", "TWO");
    setTime(2000);
    EXPECT_EQ(name(url), "") << "same size, another time";
    EXPECT_EQ(name(url), "");
    EXPECT_TRUE(g_asked.empty()) << "a file that no format claims is remembered, too";
    _folder.Write("a", "ONE, longer");
    setTime(2000);
    EXPECT_EQ(name(url), "one") << "same time, another size";
    _folder.Write("a", "TWO, longer");
    setTime(3000);
    EXPECT_EQ(name(url), "");
    Add("two", SIGNATURE, "x", StartsWith("TWO"));
    EXPECT_EQ(name(url), "two") << "a new format makes old answers stale";
    FileFormatDetectionCache::Flush();
    EXPECT_EQ(name(url), "two");
    EXPECT_THAT(g_asked, ElementsAre("one", "two"));
    ASSERT_TRUE(url.IoDelete());
    EXPECT_EQ(name(url), "cannot open: No such file or directory");
    EXPECT_EQ(name(_folder / ""), "cannot open: Is a directory");
}

}  // namespace
}  // namespace orvik
