#include "imexport/jpeg/media_io_jpeg_library.h"

#include <jerror.h>

namespace orvik {

jpeg_error_mgr* JpegLibrary::InitErrors() {
    jpeg_std_error(&_errors);
    _errors.error_exit = OnError;
    _errors.output_message = OnMessage;
    _error = nullptr;
    return &_errors;
}

Error JpegLibrary::TakeError() { return _error ? std::exchange(_error, nullptr) : IllegalStateError(); }

void JpegLibrary::HoldError(Error error) noexcept {
    if (!_error)
        _error = std::move(error);
}

void JpegLibrary::HoldLibraryError(j_common_ptr info) noexcept {
    // Without temporary files, the library reports "no backing store" when a picture exceeds its memory limit.
    if (info->err->msg_code == JERR_OUT_OF_MEMORY || info->err->msg_code == JERR_NO_BACKING_STORE)
        return HoldError(OutOfMemoryError());
    char text[JMSG_LENGTH_MAX];
    info->err->format_message(info, text);
    HoldError(FileFormatError(_failure, static_cast<const char*>(text)));
}

void JpegLibrary::OnError(j_common_ptr info) {
    auto* self = static_cast<JpegLibrary*>(info->client_data);
    self->HoldLibraryError(info);
    self->Leave();
}

/// Drops warnings.
void JpegLibrary::OnMessage(j_common_ptr) {}

Error JpegLibrary::MakeStreamError(const Url& url, LocatedText text, Error cause) noexcept {
    Result<Ref<IoErrorInterface>> made =
        NewObj<IoErrorInterface>(errorid::kIo, text.location, FormatString(text.text, url), std::move(cause), url);
    if (!made)
        return std::move(made).TakeError();
    return Error::Adopt(made.GetValue().Detach());
}

}  // namespace orvik
