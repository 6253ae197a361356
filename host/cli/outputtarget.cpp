#include "outputtarget.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

#include "interruption.h"

namespace orvik::cli {

namespace {

constexpr std::string_view kMemoryName = "orvik-output";

Error CannotWrite(const Url& target, int number) { return IoError(target, "cannot write: @", std::strerror(number)); }

/// Follows links, also one that leads to a file which is not there yet.
std::string FollowLinks(std::string path) {
    constexpr int kMaxLinks = 40;
    for (int i = 0; i < kMaxLinks; ++i) {
        std::error_code failure;
        const std::filesystem::path link = std::filesystem::read_symlink(path, failure);
        if (failure)
            break;
        path = (link.is_absolute() ? link : std::filesystem::path(path).parent_path() / link).string();
    }
    return path;
}

bool IsReadOnly(const std::string& path, mode_t mode) {
    return (mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0 || ::access(path.c_str(), W_OK) != 0;
}

mode_t ModeOfNewFiles() {
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return 0666 & ~mask;
}

}  // namespace

Result<OutputTarget> OutputTarget::Open(const std::string& name) {
    OutputTarget target;
    target._target = Url(name == "-" ? std::string_view("standard output") : std::string_view(name));
    const std::string& path = target._target.GetSystemPath();
    struct stat status {};
    if (name == "-") {
        target._descriptor = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
    } else if (::stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) {
        const Interruption::Waiting waiting;  // a named pipe opens when it gets a reader
        target._descriptor = ::open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY);
    } else {
        TRY(target.OpenBeside(path));
    }
    if (target._descriptor < 0)
        return CannotWrite(target._target, errno);
    return target;
}

Result<void> OutputTarget::OpenBeside(const std::string& path) {
    _final = FollowLinks(path);
    struct stat status {};
    const bool exists = ::stat(_final.c_str(), &status) == 0;
    if (path.empty())
        return CannotWrite(_target, ENOENT);
    if (exists && S_ISDIR(status.st_mode))
        return CannotWrite(_target, EISDIR);
    if (exists && IsReadOnly(_final, status.st_mode))
        return CannotWrite(_target, EACCES);
    const mode_t mode = exists ? status.st_mode & 0777 : ModeOfNewFiles();

    std::string directory = std::filesystem::path(_final).parent_path().string();
    if (directory.empty())
        directory = ".";
    struct stat directoryStatus {};
    if (::stat(directory.c_str(), &directoryStatus) != 0)
        return CannotWrite(_target, errno);
    if (S_ISDIR(directoryStatus.st_mode) && IsReadOnly(directory, directoryStatus.st_mode))
        return CannotWrite(_target, EACCES);

    std::string name = directory + "/.orvik-XXXXXX";
    _descriptor = ::mkostemp(name.data(), O_CLOEXEC);
    if (_descriptor < 0)
        return CannotWrite(_target, errno);
    _temporary = std::move(name);
    Interruption::SetTemporaryFile(_temporary);
    // File systems without permissions refuse this; the file is as good without.
    (void)!::fchmod(_descriptor, mode);
    return {};
}

OutputTarget::OutputTarget(OutputTarget&& other) noexcept
    : _target(std::move(other._target)),
      _final(std::move(other._final)),
      _temporary(std::exchange(other._temporary, {})),
      _descriptor(std::exchange(other._descriptor, -1)),
      _memory(std::exchange(other._memory, nullptr)) {}

OutputTarget::~OutputTarget() {
    if (_descriptor >= 0)
        ::close(_descriptor);
    if (_memory)
        UnmountMemoryFile(kMemoryName);
    if (!_temporary.empty()) {
        ::unlink(_temporary.c_str());
        Interruption::SetTemporaryFile({});
    }
}

Result<void> OutputTarget::Write(Block<const std::byte> bytes) {
    std::optional<Interruption::Waiting> waiting;
    if (_temporary.empty())
        waiting.emplace();
    while (!bytes.empty()) {
        const ssize_t written = ::write(_descriptor, bytes.data(), bytes.size());
        if (written < 0 && errno != EINTR) {
            if (errno == EPIPE)
                Interruption::EndByClosedPipe();
            return CannotWrite(_target, errno);
        }
        if (written > 0)
            bytes = bytes.subspan(static_cast<size_t>(written));
        if (IsCurrentThreadCancelled())
            return ThreadCancelledError();
    }
    return {};
}

Result<Url> OutputTarget::GetUrl() {
    if (!_temporary.empty())
        return Url::FromSystemPath(_temporary);
    // Encoders seek back to fill in sizes, which a pipe cannot do.
    _memory = TRY(CreateMemoryFile());
    return MountMemoryFile(kMemoryName, _memory);
}

Result<void> OutputTarget::Commit() {
    if (_memory)
        TRY(Write(std::as_const(*_memory.GetPointer()).GetBytes().ToBlock()));
    if (::close(std::exchange(_descriptor, -1)) != 0)
        return CannotWrite(_target, errno);
    if (IsCurrentThreadCancelled())
        return ThreadCancelledError();
    if (_temporary.empty())
        return {};
    if (::rename(_temporary.c_str(), _final.c_str()) != 0)
        return CannotWrite(_target, errno);
    _temporary.clear();
    Interruption::SetTemporaryFile({});
    return {};
}

}  // namespace orvik::cli
