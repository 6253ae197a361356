#pragma once
/// @file
/// The streams that carry sound.

#include "session/mediasession_streamimpl.h"

#include "orvik/mediasession_audiodata.h"

namespace orvik {

/// A client of the audio installs the delegates; the importer calls them. Without a delegate `InitStream` and
/// `FinishStream` succeed, while samples without a receiver are an error.
class MediaStreamAudioDataImportImpl : public virtual MediaStreamAudioDataImportInterface, public MediaStreamBaseImpl {
public:
    Result<void> SetCallbackHandler(const InitDelegate& init, const AudioDelegate& audio,
                                    const FinishDelegate& finish) override;
    Result<void> InitStream(const MediaStreamProperties& properties) override;
    Result<void> SetAudioDataCallback(Block<const std::byte> samples) override;
    Result<void> FinishStream(const MediaStreamProperties& properties) override;

private:
    InitDelegate _init;
    AudioDelegate _audio;
    FinishDelegate _finish;
};

class MediaStreamAudioDataExportImpl : public virtual MediaStreamAudioDataExportInterface, public MediaStreamBaseImpl {
public:
    Result<void> InitWithAudioData(const AudioObjectRef& audio) override {
        _audio = audio;
        return {};
    }
    AudioObjectRef GetAudioObject() const override { return _audio; }
    Result<void> SetCallbackHandler() override { return {}; }
    Result<void> InitStream() override { return {}; }
    Result<void> FinishStream() override { return {}; }

private:
    AudioObjectRef _audio;
};

}  // namespace orvik
