#pragma once
/// @file
/// Base of audio importers.

#include "imexport/frame/media_io_importer.h"

#include "orvik/mediasession_audiodata.h"

namespace orvik {

using AudioImportStreamRef = Ref<MediaStreamAudioDataImportInterface>;

/// An importer with one stream of samples. A format supplies `ReadHeader` and `DecodeSamples`; the stream is finished
/// whenever it was initialised.
class AudioImporter : public FileImporter {
protected:
    using FileImporter::FileImporter;

    /// For `ReadHeader`: adds the stream. Its format has the keys "net.orvik.mediaformat.audio.*".
    Result<void> AddSound(const MediaStreamFormat& format);
    /// Reads the samples and hands them to `PushSamples`. Runs only when the sound is subscribed.
    virtual Result<void> DecodeSamples(const InputStreamRef& stream) = 0;
    /// Interleaved samples in machine byte order.
    Result<void> PushSamples(Block<const std::byte> samples) { return _sound->SetAudioDataCallback(samples); }

    Result<void> Deliver(const InputStreamRef& stream) override;

private:
    AudioImportStreamRef _sound;
};

}  // namespace orvik
