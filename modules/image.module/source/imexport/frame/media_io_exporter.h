#pragma once
/// @file
/// What all exporters share: the order of the phases, the streams that the input offers, rows of any number of them,
/// and a file that is closed whatever happens.
///
///     FileExporter        phases, choice of streams, sources of rows, the file
///       ImageExporter     one picture with at most one alpha, see media_io_imageexporter.h

#include "imexport/frame/media_io_chunkedfileio.h"
#include "imexport/frame/media_io_formats.h"
#include "imexport/frame/media_io_rowsource.h"
#include "session/mediasession_urloutput.h"

namespace orvik {

/// A stream that the input of an exporter offers.
struct OfferedStream {
    MediaStreamRef stream;
    ImageExportStreamRef image;  ///< the same with access to its pixels; null for a stream of another kind
    MediaStreamFormat format;    ///< the selected one
    MEDIAFORMATTYPE type = MEDIAFORMATTYPE::UNDEFINED;
    Int parent = -1;  ///< index in the list, -1 at the root
    Int depth = 0;
};

/// Frame of the exporters. A format supplies `ChooseStreams`, `OpenRows` and `WriteFile`. `Analyze` runs once until
/// `ResetConverter`; a repeat does nothing. Nothing is written before `OpenRows` has succeeded, so that a picture that
/// cannot be written leaves an older file as it is. The file is closed on every path.
class FileExporter : public MediaOutputUrlBaseImpl {
public:
    /// From the registry of file formats.
    FileFormat GetFileFormat() const override;
    /// Capabilities come from the row of the format table.
    Result<Data> GetData(const Id& id) const override;
    Result<void> ResetConverter() override;
    /// Errors: illegal state unless there is one input, and those of `ChooseStreams`.
    Result<void> Analyze(Inputs inputs, TimeValue targetTime, MEDIASESSIONFLAGS flags) override;
    Result<void> PrepareExecute(Inputs inputs, TimeValue targetTime, MEDIASESSIONFLAGS flags) override;
    Result<void> Execute(Inputs inputs, TimeValue targetTime, MEDIASESSIONFLAGS flags) override;
    Result<void> Close(Inputs inputs) override;

protected:
    explicit FileExporter(const Id& format) : _entry(FindFileFormatEntry(format)) {}

    /// Refuses any number of inputs but one.
    virtual Result<void> CheckInputCount(size_t count) const;
    /// Subscribes what the file will hold, and checks it. Parents stand before their children.
    virtual Result<void> ChooseStreams(Block<const OfferedStream> streams) = 0;
    /// Decides on the form of the file and opens the sources that it begins with.
    virtual Result<void> OpenRows() = 0;
    virtual Result<void> WriteFile(const OutputStreamRef& output) = 0;
    /// Drops what `ChooseStreams` and `OpenRows` found.
    virtual void ForgetStreams() = 0;

    /// A stream that is not subscribed has no progress job, so nothing waits for its rows.
    static Result<void> Subscribe(const MediaStreamRef& stream) {
        return stream->SubscribeStream(stream->GetSelectedFormat());
    }
    /// Rows of a stream converted to this format and profile, for `OpenRows` and `WriteFile`. They are finished at the
    /// end, or by `FinishSource`. No rows to be had is an illegal state.
    /// @param profile  empty: as they are
    Result<RowSourceRef> OpenSource(const ImageExportStreamRef& stream, const PixelFormat& format,
                                    const ColorProfile& profile);
    /// Finishes a source early, for files of many pictures.
    Result<void> FinishSource(const RowSourceRef& source);
    const ExportCapabilities& GetCapabilities() const { return _entry->output; }

private:
    Result<void> FindStreams(const MediaConverterRef& input);
    Result<void> WriteToUrl();

    const FileFormatEntry* _entry;
    Bool _analyzed = false;
    Bool _chosen = false;
    Bool _prepared = false;
    BaseArray<RowSourceRef> _sources;
};

}  // namespace orvik
