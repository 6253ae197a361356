#include "orvik/iobrowse.h"

#include <cerrno>
#include <filesystem>
#include <new>

#include "orvik/errortypes.h"
#include "orvik/iofile_internal.h"

namespace orvik {

namespace {

namespace fs = std::filesystem;

class DirectoryIterator : public BrowseIteratorInterface {
public:
    DirectoryIterator(Url directory, fs::directory_iterator first)
        : _directory(std::move(directory)), _at(std::move(first)) {}

    Result<Bool> GetNext() override {
        std::error_code error;
        try {
            if (_started && _at != fs::directory_iterator())
                _at.increment(error);
        } catch (const std::bad_alloc&) {
            return OutOfMemoryError();
        }
        _started = true;
        if (error)
            return IoError(_directory, "cannot list: @", ErrnoText(error.value()));
        return _at != fs::directory_iterator();
    }
    Url GetCurrent() const override { return IsAtEntry() ? Url::FromSystemPath(_at->path().native()) : Url(); }
    Bool IsDirectory() const override {
        std::error_code error;  // what cannot be looked at is no directory
        return IsAtEntry() && _at->is_directory(error);
    }

private:
    bool IsAtEntry() const { return _started && _at != fs::directory_iterator(); }

    Url _directory;
    fs::directory_iterator _at;
    bool _started = false;
};

}  // namespace

Result<BrowseIteratorRef> Url::IoBrowse() const {
    TRY(Check());
    if (_memory)
        return IoError(*this, "cannot list: @", ErrnoText(ENOTDIR));
    try {
        std::error_code error;
        fs::directory_iterator first(fs::path(GetSystemPath()), error);
        if (error)
            return IoError(*this, "cannot list: @", ErrnoText(error.value()));
        return BrowseIteratorRef(TRY(NewObj<DirectoryIterator>(*this, std::move(first))));
    } catch (const std::bad_alloc&) {
        return OutOfMemoryError();
    }
}

}  // namespace orvik
