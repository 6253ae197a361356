#include <atomic>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "support/results.h"

#include "orvik/crashhandler.h"
#include "orvik/gfx_image.h"
#include "orvik/host.h"
#include "orvik/mediasession_output.h"
#include "orvik/threadservices.h"

namespace orvik {
namespace {

constexpr std::string_view kPicture("#?RADIANCE\nFORMAT=32-bit_rle_rgbe\n\n-Y 1 +X 2\n\x80\x80\x80\x81\x80\x80\x80\x81",
                                    54);

class Pipe : public testing::Test {
protected:
    Pipe() { EXPECT_EQ(mkfifo(path.c_str(), 0600), 0); }
    ~Pipe() override { std::filesystem::remove(path); }
    Result<ImageTextureRef> Load() const {
        return ImageTextureInterface::LoadTexture(Url(path), {}, MEDIASESSIONFLAGS::NONE, {}, {});
    }
    std::thread Write() const {
        return std::thread([this] {
            const int file = open(path.c_str(), O_WRONLY);
            EXPECT_EQ(write(file, kPicture.data(), kPicture.size()), ssize_t(kPicture.size()));
            close(file);
        });
    }

    const std::string path = std::filesystem::temp_directory_path() / ("orvik-pipe-" + std::to_string(getpid()));
};

TEST_F(Pipe, LoadsByDetectionAndByAPreferredHandler) {
    const Result<Host> host = Host::Start();
    for (const bool preferred : {false, true}) {
        std::thread writer = Write();
        const auto texture = *ClassRef(imageclasses::kTexture).Create<ImageTextureInterface>();
        const auto output = *ClassRef(mediaclasses::kOutputTexture).Create<MediaOutputTextureInterface>();
        ASSERT_TRUE(output->SetOutputTexture(texture, ClassRef(storageclasses::kNormal)));
        const auto session = MediaSessionImport(Url(path), {}, MEDIASESSIONFLAGS::NONE, output, {}, {},
                                                preferred ? FindHandlerBySuffix("hdr") : nullptr);
        writer.join();
        ASSERT_EQ(MessageOf(session), "");
        const auto image = Cast<ImageBaseInterface>(texture->GetFirstChild(static_cast<Int>(IMAGEHIERARCHY::IMAGE)));
        EXPECT_EQ(image->GetWidth(), 2);
    }
}

TEST_F(Pipe, SignalThatCancelsEndsTheWait) {
    static CancelToken token;
    token.Reset();
    struct sigaction action {
    }, before{};
    action.sa_handler = [](int) { token.Cancel(); };
    ASSERT_EQ(sigaction(SIGUSR1, &action, &before), 0);
    const Result<Host> host = Host::Start();
    const pthread_t reader = pthread_self();
    std::atomic<bool> ended = false;
    std::thread writer([&] {
        const int file = open(path.c_str(), O_WRONLY);  // returns when the reader has opened
        for (int i = 0; i < 500 && !ended; ++i) {
            usleep(10000);
            pthread_kill(reader, SIGUSR1);
        }
        EXPECT_TRUE(ended) << "it waits for the end of the pipe";
        close(file);
    });
    const CancelScope scope(token);
    const Result<ImageTextureRef> loaded = Load();
    ended = true;
    writer.join();
    sigaction(SIGUSR1, &before, nullptr);
    EXPECT_EQ(ErrorIdOf(loaded), errorid::kThreadCancelled);
}

TEST_F(Pipe, FatalSignalShowsWhatWasLoadedAndEndsTheProgram) {
    for (const int signal : {SIGSEGV, SIGABRT, SIGBUS}) {
        struct sigaction present {};
        if (sigaction(signal, nullptr, &present) != 0 || present.sa_handler != SIG_DFL)
            continue;  // a sanitizer's
        const auto die = [&] {
            const rlimit none{0, 0};
            setrlimit(RLIMIT_CORE, &none);
            InstallCrashHandler();
            const Result<Host> host = Host::Start();
            std::thread killer([&] {
                open(path.c_str(), O_WRONLY);  // returns when the reader has opened
                usleep(20000);
                kill(getpid(), signal);
            });
            (void)Load();
        };
        EXPECT_EXIT(die(), testing::KilledBySignal(signal),
                    testing::Eq("test_host: ended by SIG" + std::string(sigabbrev_np(signal)) +
                                "\nMediaSessionImport: " + path +
                                "\nMediaSessionImportTime: 0 s\nMediaSessionImportFlags: 0\n"));
    }
}

}  // namespace
}  // namespace orvik
