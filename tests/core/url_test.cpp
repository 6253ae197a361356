#include <functional>
#include <set>
#include <unistd.h>

#include "test_helpers.h"

#include "orvik/iobrowse.h"
#include "orvik/iomemory.h"

namespace orvik {
namespace {

std::string Text(const String& text) { return std::string(text.GetText()); }

TEST(Url, TakesNamesApart) {
    const std::tuple<const char*, const char*, const char*, const char*, const char*> cases[] = {
        {"/tmp/a.png", "/tmp/a.png", "a.png", "png", "/tmp"},
        {"a.png", "a.png", "a.png", "png", "."},
        {"dir/a", "dir/a", "a", "", "dir"},
        {"/a.tar.gz", "/a.tar.gz", "a.tar.gz", "gz", "/"},
        {"/d.ir/name", "/d.ir/name", "name", "", "/d.ir"},
        {"/home/.profile", "/home/.profile", ".profile", "", "/home"},
        {"/home/.a.png", "/home/.a.png", ".a.png", "png", "/home"},
        {"ends.", "ends.", "ends.", "", "."},
        {"/tmp/folder/", "/tmp/folder/", "folder", "", "/tmp"},
        {"/", "/", "/", "", "/"},
        {"file:///tmp/a%20b%C3%A4.png", "/tmp/a b\xC3\xA4.png", "a b\xC3\xA4.png", "png", "/tmp"},
        {"file://localhost/tmp/x", "/tmp/x", "x", "", "/tmp"},
        {"FILE:/tmp/x", "/tmp/x", "x", "", "/tmp"},
        {"file:///100%/a%zz%4", "/100%/a%zz%4", "a%zz%4", "", "/100%"},
        {"file:///a%00b", "/a%00b", "a%00b", "", "/"},
        {"/plain/a%20b", "/plain/a%20b", "a%20b", "", "/plain"},
        {"memory:some/name.bmp", "some/name.bmp", "name.bmp", "bmp", "some"},
        {"frames_@{04}.png", "frames_@{04}.png", "frames_@{04}.png", "png", "."},
    };
    for (const auto& [text, path, name, suffix, directory] : cases) {
        const Url url(text);
        EXPECT_EQ(url.GetSystemPath(), path) << text;
        EXPECT_EQ(Text(url.GetName()), name == std::string("/") ? "" : name) << text;
        EXPECT_EQ(Text(url.GetSuffix()), suffix) << text;
        EXPECT_EQ(Text(url.GetPath()), directory) << text;
        EXPECT_EQ(url.GetDirectory().GetSystemPath(), directory) << text;
    }
    EXPECT_EQ(Url("memory:x").GetScheme(), "memory");
    EXPECT_EQ(Url("MEMORY:x").GetUrl(), String("memory:x"));
    EXPECT_EQ(Url("memory.png").GetScheme(), "file");
    EXPECT_TRUE(Url().IsEmpty());
    EXPECT_NE(Url("memory:x"), Url("x"));
    EXPECT_EQ(Url::FromSystemPath("memory:x").GetScheme(), "file");
    const Url latin = Url::FromSystemPath("/tmp/\xE4.png");
    EXPECT_EQ(latin.GetSystemPath(), "/tmp/\xE4.png");
    EXPECT_EQ(Text(latin.GetName()), "\xC3\xA4.png") << "shown as Latin-1";
}

TEST(Url, ChangesSuffixesAndAppends) {
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"/a/b.png", "bmp", "/a/b.bmp"}, {"/a.d/b", "bmp", "/a.d/b.bmp"}, {"b.tar.gz", "z", "b.tar.z"},
        {"/a/b.png", "", "/a/b"},        {"/a/.rc", "png", "/a/.rc.png"},
    };
    for (const auto& [text, suffix, expected] : cases) {
        Url url(text);
        url.SetSuffix(suffix);
        EXPECT_EQ(url.GetSystemPath(), expected);
    }
    Url url("/a"), root("/");
    ASSERT_TRUE(url.Append("b") && url.Append("c.png") && root.Append("x"));
    EXPECT_EQ(url, Url("/a/b/c.png"));
    EXPECT_EQ(root, Url("/x"));
}

TEST(Url, CopiesCarryTheirData) {
    using namespace urldata;
    Url url("a_@{04}.png");
    EXPECT_EQ(url.Get(kImageSequenceFirstFrame, -1), -1);
    ASSERT_TRUE(url.Set(kImageSequenceFps, 25.0) && url.Set(kImageSequenceFirstFrame, 3));
    Url copy = url;
    ASSERT_TRUE(copy.Set(kImageSequenceFps, 50.0));
    const Data boxed = Data::Create(url).TakeValue();
    EXPECT_EQ(boxed.GetIf<Url>()->Get(kImageSequenceFps).GetValueOr(0.0), 25.0);
    EXPECT_EQ(copy.Get(kImageSequenceFps, 0.0), 50.0);
    EXPECT_TRUE(copy == url && copy.GetHashCode() == url.GetHashCode()) << "the same resource";
    copy.SetSuffix("bmp");
    EXPECT_EQ(copy.Get(kImageSequenceFirstFrame, -1), 3) << "the sequence under another suffix";
}

TEST(Url, ContentIsReadInPlaceOfTheResource) {
    Url url("/nowhere/pipe.png");
    url.SetContent(CreateMemoryFile(AsBlock("bytes")).TakeValue());
    const Url copy = url;
    const InputStreamRef stream = copy.OpenInputStream().TakeValue();
    EXPECT_EQ(stream->GetStreamLength().GetValueOr(0), 5);
    EXPECT_EQ(stream->GetUrl().GetUrl(), String("/nowhere/pipe.png"));
    EXPECT_EQ(copy.IoDetect(), IODETECT::FILE);
    EXPECT_EQ(copy.GetSizeAndTime().TakeValue().first, 5);
    url.SetSuffix("jpg");
    EXPECT_TRUE(copy.HasContent() && !url.HasContent()) << "another resource";
}

TEST(Url, LackOfMemoryIsAnErrorNotAnotherFile) {
    const std::function<void(Url&)> changes[] = {
        [](Url& url) { url = Url("/tmp/b.png"); },
        [](Url& url) { url.SetSuffix("bmp"); },
        [](Url& url) { url = url.GetDirectory(); },
    };
    for (const auto& change : changes) {
        Url url("/tmp/a.png");
        SetAllocationFault(1, true);
        change(url);
        EXPECT_EQ(ErrorIdOf(url.OpenInputStream()), errorid::kOutOfMemory);
        EXPECT_EQ(ErrorIdOf(url.Append("x")), errorid::kOutOfMemory);
        SetAllocationFault(0);
        url.SetSuffix("png");
        EXPECT_EQ(ErrorIdOf(url.OpenOutputStream()), errorid::kOutOfMemory) << "and stays one";
    }
}

TEST(Url, LooksAtFilesAndNamesTheReasonOfErrors) {
    const TempFolder folder;
    const Url file = folder.Write("a", "12345");
    EXPECT_EQ(file.IoDetect(), IODETECT::FILE);
    EXPECT_EQ(file.GetDirectory().IoDetect(), IODETECT::DIRECTORY);
    EXPECT_EQ(file.GetSizeAndTime().TakeValue().first, 5);
    ASSERT_TRUE(file.IoDelete());
    EXPECT_EQ(file.IoDetect(), IODETECT::NONEXISTENT);
    EXPECT_EQ(MessageOf(file.GetSizeAndTime()), "cannot open: No such file or directory");
    EXPECT_EQ(MessageOf(file.IoDelete()), "cannot delete: No such file or directory");
    folder.Write("file", "x");
    const std::tuple<Url, bool, const char*> cases[] = {
        {folder / "none", false, "cannot open: No such file or directory"},
        {folder / "", false, "cannot open: Is a directory"},
        {folder / "", true, "cannot open: Is a directory"},
        {folder / "none/file", true, "cannot open: No such file or directory"},
        {folder / "file/x", false, "cannot open: Not a directory"},
        {Url(), false, "cannot open: No such file or directory"},
        {Url::FromSystemPath(std::string("/dev/null\0.png", 14)), true, "cannot open: Invalid argument"},
        {Url("memory:no such block"), false, "cannot open: No such file or directory"},
    };
    for (const auto& [url, write, message] : cases) {
        const Error error = write ? Error(url.OpenOutputStream().GetError()) : Error(url.OpenInputStream().GetError());
        ASSERT_TRUE(error) << Text(url.GetUrl());
        EXPECT_EQ(Text(error->ToString()), message) << Text(url.GetUrl());
        ASSERT_TRUE(error->IsKindOf(errorid::kIo));
        EXPECT_EQ(dynamic_cast<const IoErrorInterface&>(*error).GetUrl(), url);
    }
}

TEST(Browse, ListsEveryEntryOnce) {
    const TempFolder folder;
    for (const char* name : {"a.png", ".hidden", "memory:x", "\xE4\xF6"})
        folder.Write(name, "x");
    std::filesystem::create_directory(folder.GetPath() / "sub");
    std::filesystem::create_symlink("nowhere", folder.GetPath() / "broken");
    std::set<std::string> found;
    const BrowseIteratorRef browse = (folder / "").IoBrowse().TakeValue();
    EXPECT_TRUE(browse->GetCurrent().IsEmpty()) << "not stepped to the first entry";
    while (browse->GetNext().GetValueOr(false)) {
        const Url url = browse->GetCurrent();
        EXPECT_EQ(url.GetScheme(), "file");
        const std::string name = std::filesystem::path(url.GetSystemPath()).filename();
        EXPECT_TRUE(found.insert(name).second) << name;
        EXPECT_EQ(browse->IsDirectory(), name == "sub");
    }
    EXPECT_EQ(found, (std::set<std::string>{"a.png", ".hidden", "memory:x", "\xE4\xF6", "sub", "broken"}));
    EXPECT_FALSE(browse->GetNext().GetValueOr(true)) << "the end stays the end";
    EXPECT_TRUE(browse->GetCurrent().IsEmpty());
    EXPECT_EQ(MessageOf((folder / "none").IoBrowse()), "cannot list: No such file or directory");
    EXPECT_EQ(MessageOf((folder / "a.png").IoBrowse()), "cannot list: Not a directory");
    EXPECT_EQ(ErrorIdOf(Url("memory:x").IoBrowse()), errorid::kIo);
}

}  // namespace
}  // namespace orvik
