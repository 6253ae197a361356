#pragma once
/// @file
/// The frame of importers of pictures.

#include "imexport/frame/media_io_importer.h"
#include "imexport/frame/media_io_rowsink.h"

namespace orvik {

/// What a stream of a file is. Optional keys are added to the format that `DescribeStream` makes of it.
struct StreamDescription {
    MEDIAFORMATTYPE type = MEDIAFORMATTYPE::IMAGE;
    PixelFormat pixelFormat;
    ColorProfile colorProfile;  ///< empty: the format gets no such key
    Int width = 0, height = 0;
    Int subImageIndex = 0;
};

/// An importer whose streams hold pixels: pictures, and their alphas, layers and masks. A format supplies `ReadHeader`
/// and `DecodePixels`; every stream that was begun is finished, also after a failure.
class ImageImporter : public FileImporter {
protected:
    /// @param jobName  how progress names the work, for instance "BMP image"
    ImageImporter(const Id& format, const char* jobName) : FileImporter(format), _jobName(jobName) {}

    /// Opens the sinks and delivers the rows. Runs only when a picture is subscribed.
    virtual Result<void> DecodePixels(const InputStreamRef& stream) = 0;
    /// Delivers what stands beside the pictures, as Exif data. Runs before `DecodePixels`, also when no picture is
    /// subscribed.
    virtual Result<void> DeliverMetadata() { return {}; }
    /// One job as large as the first picture. A format with a job for each of its pictures overrides this.
    Result<void> Prepare() override;
    Result<void> Deliver(const InputStreamRef& stream) override;

    /// @{ For `ReadHeader`.
    static Result<MediaStreamFormat> DescribeStream(const StreamDescription& description);
    /// A stream with this format: a root, or a child of `parent`.
    /// @param streamClass  class of the stream, for formats that publish their own
    Result<ImageImportStreamRef> AddImageStream(const MediaStreamFormat& format, const MediaStreamRef& parent = nullptr,
                                                const Id& streamClass = mediaclasses::kStreamImport);
    /// @}

    /// @{ For `DecodePixels`.
    /// Begins a stream with rows in `pixelFormat`, which may have gained a palette since it was described. The rows of
    /// the first sink of a job are its progress. The result is valid until `FinishSinks`. Fails with the error of the
    /// conversion when pixels of this format can be turned into no others.
    /// @param stream  may be null or not subscribed: its rows are dropped
    Result<RowSinkRef> OpenSink(const ImageImportStreamRef& stream, const PixelFormat& pixelFormat);
    /// Finishes the streams that were begun. For files of several pictures, after each; the frame does it at the end.
    Result<void> FinishSinks();
    /// Registers a job as large as a picture and selects it.
    Result<Int> AddPictureJob(Int width, Int height);
    /// The next sinks report for this job.
    void SelectJob(Int job);
    /// Reports for the selected job. Only for work that does not go through rows of a sink.
    Result<void> ReportJob(Float done) { return ReportProgress(_job, done); }
    /// @}

private:
    Result<void> InitSink(RowSink& sink, const ImageImportStreamRef& stream);

    const char* _jobName;
    Int _job = -1;
    Bool _jobHasSink = false;
    BaseArray<RowSinkRef> _sinks;
};

}  // namespace orvik
