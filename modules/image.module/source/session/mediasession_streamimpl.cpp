#include "session/mediasession_streamimpl.h"

namespace orvik {

// --- MediaStreamBaseImpl ---------------------------------------------------------------------------------------------

Result<BaseArray<MediaStreamFormatEntry>> MediaStreamBaseImpl::GetFormats() const {
    BaseArray<MediaStreamFormatEntry> formats;
    for (const auto& entry : _formats)
        TRY(formats.Append(MediaStreamFormatEntry{entry.key, entry.value}));
    return formats;
}

MediaStreamFormat MediaStreamBaseImpl::GetFormat(const Data& id) const {
    const MediaStreamFormat* format = _formats.Find(id);
    return format ? *format : MediaStreamFormat();
}

Result<void> MediaStreamBaseImpl::SetSelectedFormat(const Data& id) {
    if (!_formats.Contains(id))
        return IllegalArgumentError();
    _selected = id;
    return {};
}

Result<void> MediaStreamBaseImpl::AddFormat(const Data& id, const MediaStreamFormat& format) {
    const bool first = _formats.IsEmpty();
    TRY(_formats.Set(id, format));
    if (first)
        _selected = id;
    return {};
}

Result<void> MediaStreamBaseImpl::SubscribeStream(const Data& id) {
    TRY(SetSelectedFormat(id));
    _subscribed = true;
    return {};
}

Result<void> MediaStreamBaseImpl::UnsubscribeStream() {
    _subscribed = false;
    return {};
}

Result<void> MediaStreamImageBaseImpl::AddTypedFormat(const Data& id, const MediaStreamFormat& format) {
    TRY(format.Get(mediaformat::kType));
    return MediaStreamBaseImpl::AddFormat(id, format);
}

// --- Image data towards an output ------------------------------------------------------------------------------------

Result<void> MediaStreamImageDataImportImpl::SetCallbackHandler(const InitDelegate& init, const PixelDelegate& pixel,
                                                                const FinishDelegate& finish) {
    _init = init;
    _pixel = pixel;
    _finish = finish;
    return {};
}

Result<void> MediaStreamImageDataImportImpl::InitStream(const MediaStreamProperties& properties) {
    return _init ? _init(properties) : Result<void>();
}

Result<SetPixelHandlerStruct> MediaStreamImageDataImportImpl::SetPixelStream(const MediaStreamProperties& properties,
                                                                             ChannelOffsets offsets,
                                                                             SETPIXELHANDLERFLAGS flags) {
    return _pixel ? _pixel(properties, offsets, flags) : Result<SetPixelHandlerStruct>(SetPixelHandlerStruct());
}

Result<void> MediaStreamImageDataImportImpl::FinishStream(const MediaStreamProperties& properties) {
    return _finish ? _finish(properties) : Result<void>();
}

// --- Image data towards an exporter ----------------------------------------------------------------------------------

Result<void> MediaStreamImageDataExportImpl::SetCallbackHandler(const InitDelegate& init, const PixelDelegate& pixel,
                                                                const FinishDelegate& finish) {
    _init = init;
    _pixel = pixel;
    _finish = finish;
    return {};
}

Result<void> MediaStreamImageDataExportImpl::InitStream(const MediaStreamProperties& properties) {
    return _init ? _init(properties) : Result<void>();
}

Result<GetPixelHandlerStruct> MediaStreamImageDataExportImpl::GetPixelStream(const MediaStreamProperties& properties,
                                                                             const PixelFormat& format,
                                                                             const ColorProfile& profile,
                                                                             GETPIXELHANDLERFLAGS flags) {
    return _pixel ? _pixel(properties, format, profile, flags) : Result<GetPixelHandlerStruct>(GetPixelHandlerStruct());
}

Result<void> MediaStreamImageDataExportImpl::FinishStream(const MediaStreamProperties& properties) {
    return _finish ? _finish(properties) : Result<void>();
}

// --- Exif ------------------------------------------------------------------------------------------------------------

Result<void> MediaStreamExifDataImpl::SetCallbackHandler(const Handler& handler) {
    _handler = handler;
    return {};
}

Result<void> MediaStreamExifDataImpl::HandleExifData(const ExifRef& exif) {
    if (!_handler)
        return NullptrError();
    return _handler(exif);
}

}  // namespace orvik
