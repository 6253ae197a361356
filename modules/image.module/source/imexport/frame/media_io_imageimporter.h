#pragma once
/// @file
/// Base of image importers.

#include "imexport/frame/media_io_importer.h"
#include "imexport/frame/media_io_rowsink.h"

namespace orvik {

/// Describes a stream of a file. Optional keys are added to the format that `DescribeStream` returns.
struct StreamDescription {
    MEDIAFORMATTYPE type = MEDIAFORMATTYPE::IMAGE;
    PixelFormat pixelFormat;
    ColorProfile colorProfile;  ///< empty: the key is not set
    Int width = 0, height = 0;
    Int subImageIndex = 0;
};

/// An importer whose streams hold pixels: pictures, and their alphas, layers and masks. A format supplies `ReadHeader`
/// and `DecodePixels`; every initialised stream is finished, also after a failure.
class ImageImporter : public FileImporter {
protected:
    /// @param jobName  name of the job in the progress, for instance "BMP image"
    ImageImporter(const Id& format, const char* jobName) : FileImporter(format), _jobName(jobName) {}

    /// Opens the sinks and delivers the rows. Runs only when a picture is subscribed.
    virtual Result<void> DecodePixels(const InputStreamRef& stream) = 0;
    /// Delivers metadata such as Exif data. Runs before `DecodePixels`, also when no picture is subscribed.
    virtual Result<void> DeliverMetadata() { return {}; }
    /// One job as large as the first picture. A format with a job for each of its pictures overrides this.
    Result<void> Prepare() override;
    Result<void> Deliver(const InputStreamRef& stream) override;

    /// @{ For `ReadHeader`.
    static Result<MediaStreamFormat> DescribeStream(const StreamDescription& description);
    /// Adds a stream with this format: a root, or a child of `parent`.
    /// @param streamClass  class of the stream, for formats that publish their own
    Result<ImageImportStreamRef> AddImageStream(const MediaStreamFormat& format, const MediaStreamRef& parent = nullptr,
                                                const Id& streamClass = mediaclasses::kStreamImport);
    /// @}

    /// @{ For `DecodePixels`.
    /// Opens a stream for rows in `pixelFormat`, which may have gained a palette since it was described. The first sink
    /// of a job reports its progress. The sink is valid until `FinishSinks`. Returns the conversion error if this
    /// format cannot be converted.
    /// @param stream  may be null or not subscribed: its rows are dropped
    Result<RowSinkRef> OpenSink(const ImageImportStreamRef& stream, const PixelFormat& pixelFormat);
    /// Finishes all open streams. Files of several pictures call it after each; the last time is automatic.
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
