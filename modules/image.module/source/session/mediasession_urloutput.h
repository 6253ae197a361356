#pragma once
/// @file
/// The base of every exporter.

#include "session/mediasession_outputconverter_baseimpl.h"

#include "orvik/mediasession_output.h"

namespace orvik {

/// An output that writes one file. It takes its data from an input that supports the export strategy, and so refuses
/// importers. An exporter overrides `GetFileFormat`, the phases, `ResetConverter`, and `CheckBitmapSize` if its format
/// has a rule for sizes.
class MediaOutputUrlBaseImpl : public virtual MediaOutputUrlInterface, public MediaOutputBaseImpl {
public:
    Bool SupportExportStrategy() const override { return true; }
    Url GetOutputUrl() const override { return _url; }
    Result<void> SetOutputUrl(const Url& url) override;
    /// The size as given.
    DrawDimensionInt CheckBitmapSize(const DrawDimensionInt& size) const override { return size; }

private:
    Url _url;
};

}  // namespace orvik
