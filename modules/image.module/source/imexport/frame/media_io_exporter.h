#pragma once
/// @file
/// Base of all exporters: phase order, the streams that the input offers, their rows, and a file that is closed on
/// every path.
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
    ImageExportStreamRef image;  ///< the same with pixel access; null for other kinds
    MediaStreamFormat format;    ///< the selected one
    MEDIAFORMATTYPE type = MEDIAFORMATTYPE::UNDEFINED;
    Int parent = -1;  ///< index in the list, -1 at the root
    Int depth = 0;
};

/// Base class of exporters. A format supplies `ChooseStreams`, `OpenRows` and `WriteFile`. `Analyze` runs once until
/// `ResetConverter`; a repeat does nothing. Nothing is written before `OpenRows` succeeds, so a picture that cannot be
/// written leaves an existing file intact.
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

    /// Accepts exactly one input.
    virtual Result<void> CheckInputCount(size_t count) const;
    /// Subscribes and checks what the file will hold. Parents precede their children in `streams`.
    virtual Result<void> ChooseStreams(Block<const OfferedStream> streams) = 0;
    /// Chooses the layout of the file and opens its first sources.
    virtual Result<void> OpenRows() = 0;
    virtual Result<void> WriteFile(const OutputStreamRef& output) = 0;
    /// Clears the results of `ChooseStreams` and `OpenRows`.
    virtual void ForgetStreams() = 0;

    /// A stream that is not subscribed has no progress job, so nothing waits for its rows.
    static Result<void> Subscribe(const MediaStreamRef& stream) {
        return stream->SubscribeStream(stream->GetSelectedFormat());
    }
    /// Opens the rows of a stream in this format and profile, from `OpenRows` or `WriteFile`. The source is finished at
    /// the end, or by `FinishSource`. Illegal state if the stream has no rows.
    /// @param profile  empty: no conversion
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
