#pragma once
/// @file
/// What all importers of pictures share: the order of the phases, the streams they offer, and the road of the rows.

#include "imexport/frame/media_io_chunkedfileio.h"
#include "imexport/frame/media_io_formats.h"
#include "session/mediasession_baseimpl.h"
#include "session/mediasession_streamimpl.h"

#include "orvik/mediasession_progress.h"

namespace orvik {

using ImageImportStreamRef = Ref<MediaStreamImageDataImportInterface>;

/// One stream while its rows are delivered. Rows of a stream that nobody subscribed go nowhere.
class RowSink {
public:
    RowSink() = default;
    /// True when somebody takes the rows.
    explicit operator bool() const { return static_cast<bool>(_handler); }
    /// Hands over `count` pixels of line y, starting at x. Illegal argument outside of the picture.
    Result<void> Push(const PixelSpan& span, const PixelLineConst& line) {
        if (!_handler)
            return {};
        if (span.x < 0 || span.y < 0 || span.count < 0 || span.y >= _height || span.x > _width - span.count)
            return IllegalArgumentError();
        TRY(_handler.write(span, line, SETPIXELFLAGS::NONE));
        _handler.Widen(span);
        return {};
    }
    /// Where line y may be decoded to instead of being handed over: in the picture itself. Null when it has to be
    /// handed over. A line counts as delivered from here on.
    std::byte* LocateRow(Int y) {
        const PixelSpan span{0, y, _width};
        std::byte* row = _handler.locate ? _handler.locate(span) : nullptr;
        if (row)
            _handler.Widen(span);
        return row;
    }
    /// Hands over all of line y.
    Result<void> PushRow(Int y, const PixelLineConst& line) { return Push({0, y, _width}, line); }

private:
    friend class ImageImporter;

    ImageImportStreamRef _stream;
    MediaStreamProperties _properties;
    SetPixelHandlerStruct _handler;
    Int _width = 0, _height = 0;
};

/// What a stream of a file is. Optional keys are added to the format that `DescribeStream` makes of it.
struct StreamDescription {
    MEDIAFORMATTYPE type = MEDIAFORMATTYPE::IMAGE;
    PixelFormat pixelFormat;
    ColorProfile colorProfile;  ///< empty: the format gets no such key
    Int width = 0, height = 0;
    Int subImageIndex = 0;
};

/// Frame of the importers. A format supplies `ReadHeader` and `DecodePixels`; the frame keeps the phases in order,
/// opens and closes the file, and sees to it that every stream that was begun is finished, also after a failure.
///
/// `Analyze` may run again and starts over, unless the format forbids it; a second `Execute` is the end-of-stream
/// error; anything else out of order is an illegal state.
class ImageImporter : public virtual MediaInputInterface, public MediaInputBaseImpl {
public:
    void SetSourceUrl(const Url& url) { _url = url; }
    /// Reads from an open stream instead, from its current position on. For formats that embed others.
    void SetSourceStream(const InputStreamRef& stream);

    Bool SupportImportStrategy() const override { return true; }
    Result<Data> GetData(const Id& id) const override;
    Result<void> Analyze(Inputs inputs, TimeValue targetTime, MEDIASESSIONFLAGS flags) final;
    Result<void> PrepareExecute(Inputs inputs, TimeValue targetTime, MEDIASESSIONFLAGS flags) final;
    Result<void> Execute(Inputs inputs, TimeValue targetTime, MEDIASESSIONFLAGS flags) final;
    /// Drops streams and file.
    Result<void> Close(Inputs inputs) final;

protected:
    /// @param jobName  how progress names the work, for instance "BMP image"
    ImageImporter(const Id& format, const char* jobName) : _entry(FindFileFormatEntry(format)), _jobName(jobName) {}

    /// Reads everything up to the pixels and adds the streams. The stream stands at the start of the file.
    virtual Result<void> ReadHeader(const InputStreamRef& stream) = 0;
    /// Opens the sinks and delivers the rows. Runs only when a stream is subscribed.
    virtual Result<void> DecodePixels(const InputStreamRef& stream) = 0;
    /// Delivers what stands beside the pictures, as Exif data. Runs before `DecodePixels`, also when no picture is
    /// subscribed.
    virtual Result<void> DeliverMetadata() { return {}; }
    /// True for a format that calls `AddJob` itself, for each of its pictures.
    virtual bool HasJobPerPicture() const { return false; }
    /// Forgets what an earlier `ReadHeader` found.
    virtual void ResetHeader() {}
    virtual bool CanAnalyzeAgain() const { return true; }

    /// @{ For `ReadHeader`.
    static Result<MediaStreamFormat> DescribeStream(const StreamDescription& description);
    /// A stream with this format: a root, or a child of `parent`.
    Result<ImageImportStreamRef> AddStream(const MediaStreamFormat& format, const MediaStreamRef& parent = nullptr);
    /// Adds a finished stream instead of one of the common class.
    Result<void> AddStream(const ImageImportStreamRef& stream, const MediaStreamFormat& format,
                           const MediaStreamRef& parent);
    /// @}

    /// @{ For `DecodePixels`.
    /// Begins a stream with rows in `pixelFormat`, which may have gained a palette since it was described. The result
    /// stays valid until the phase ends. Fails with the error of the conversion when pixels of this format can be
    /// turned into no others.
    Result<RowSink*> OpenSink(const ImageImportStreamRef& stream, const PixelFormat& pixelFormat);
    /// Finishes the streams that were begun. For files of several pictures, after each; the frame does it at the end.
    Result<void> FinishSinks();
    /// Adds a job of width * height and makes it the one that is reported on.
    Result<Int> AddJob(Int width, Int height);
    void SelectJob(Int job) { _job = job; }
    /// Reports rows / total and tests for cancellation.
    Result<void> ReportProgress(Int row, Int total);
    /// @}

    /// Bytes between the stream's position and its end. A stream that does not know its length counts as endless.
    static Int GetBytesLeft(const InputStreamRef& stream);

private:
    enum class Phase : uint8_t { New, Analyzed, Prepared };
    static constexpr Int kMaxSinks = 32;  ///< a picture and its alphas

    bool IsAnySubscribed() const;
    Result<void> OpenSource();

    const FileFormatEntry* _entry;
    const char* _jobName;
    Url _url;
    InputStreamRef _stream;
    Int _streamStart = 0;
    Bool _ownsStream = false;
    Phase _phase = Phase::New;
    Bool _analyzedOnce = false;
    Bool _executed = false;
    Int _job = -1;
    MediaSessionProgressRef _progress;              ///< held only while executing: the session owns this importer
    BaseArray<ImageImportStreamRef> _imageStreams;  ///< all of them, also those that hang below others
    RowSink _sinks[kMaxSinks];
    Int _sinkCount = 0;
};

}  // namespace orvik
