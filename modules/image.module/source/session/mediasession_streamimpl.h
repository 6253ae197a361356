#pragma once
/// @file
/// The streams by which converters offer their data.

#include "session/mediasession_baseimpl.h"

namespace orvik {

/// Formats, selection and subscription: what every stream has.
class MediaStreamBaseImpl : public virtual MediaStreamInterface, public MediaBaseImpl {
public:
    Result<BaseArray<MediaStreamFormatEntry>> GetFormats() const override;
    MediaStreamFormat GetFormat(const Data& id) const override;
    Data GetSelectedFormat() const override { return _selected; }
    Result<void> SetSelectedFormat(const Data& id) override;
    Result<void> AddFormat(const Data& id, const MediaStreamFormat& format) override;
    Result<void> SubscribeStream(const Data& id) override;
    Result<void> UnsubscribeStream() override;
    Bool IsSubscribed() const override { return _subscribed; }

private:
    Data _selected;
    HashMap<Data, MediaStreamFormat> _formats;
    bool _subscribed = false;
};

/// Base of the streams that carry image data.
class MediaStreamImageBaseImpl : public virtual MediaStreamImageBaseInterface, public MediaStreamBaseImpl {
protected:
    /// Adds a format that says what kind of image data it describes, and refuses any other with the error of reading
    /// that key.
    Result<void> AddTypedFormat(const Data& id, const MediaStreamFormat& format);
};

/// An output installs the delegates; the importer calls them through the three operations. Without a delegate an
/// operation succeeds, `SetPixelStream` with an empty handler.
class MediaStreamImageDataImportImpl : public virtual MediaStreamImageDataImportInterface,
                                       public MediaStreamImageBaseImpl {
public:
    Result<void> AddFormat(const Data& id, const MediaStreamFormat& format) override {
        return AddTypedFormat(id, format);
    }
    Result<void> SetCallbackHandler(const InitDelegate& init, const PixelDelegate& pixel,
                                    const FinishDelegate& finish) override;
    Result<void> InitStream(const MediaStreamProperties& properties) override;
    Result<SetPixelHandlerStruct> SetPixelStream(const MediaStreamProperties& properties, ChannelOffsets offsets,
                                                 SETPIXELHANDLERFLAGS flags) override;
    Result<void> FinishStream(const MediaStreamProperties& properties) override;

private:
    InitDelegate _init;
    PixelDelegate _pixel;
    FinishDelegate _finish;
};

/// The input that offers an image installs the delegates; the exporter calls them. Without a delegate an operation
/// succeeds, `GetPixelStream` with an empty handler.
class MediaStreamImageDataExportImpl : public virtual MediaStreamImageDataExportInterface,
                                       public MediaStreamImageBaseImpl {
public:
    Result<void> AddFormat(const Data& id, const MediaStreamFormat& format) override {
        return AddTypedFormat(id, format);
    }
    Result<void> SetCallbackHandler(const InitDelegate& init, const PixelDelegate& pixel,
                                    const FinishDelegate& finish) override;
    Result<void> InitStream(const MediaStreamProperties& properties) override;
    Result<GetPixelHandlerStruct> GetPixelStream(const MediaStreamProperties& properties, const PixelFormat& format,
                                                 const ColorProfile& profile, GETPIXELHANDLERFLAGS flags) override;
    Result<void> FinishStream(const MediaStreamProperties& properties) override;

private:
    InitDelegate _init;
    PixelDelegate _pixel;
    FinishDelegate _finish;
};

/// Hands the Exif data of a file over. An importer asks for a receiver first, so that none is an error.
class MediaStreamExifDataImpl : public virtual MediaStreamExifDataInterface, public MediaStreamBaseImpl {
public:
    Result<void> SetCallbackHandler(const Handler& handler) override;
    Result<void> HandleExifData(const ExifRef& exif) override;
    Result<void> FinishStream() override { return {}; }

private:
    Handler _handler;
};

}  // namespace orvik
