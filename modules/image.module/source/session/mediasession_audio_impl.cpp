#include "session/mediasession_audio_impl.h"

#include "base/registration.h"
#include "session/audioobject_impl.h"

namespace orvik {

Result<void> MediaStreamAudioDataImportImpl::SetCallbackHandler(const InitDelegate& init, const AudioDelegate& audio,
                                                                const FinishDelegate& finish) {
    _init = init;
    _audio = audio;
    _finish = finish;
    return {};
}

Result<void> MediaStreamAudioDataImportImpl::InitStream(const MediaStreamProperties& properties) {
    return _init ? _init(properties) : Result<void>();
}

Result<void> MediaStreamAudioDataImportImpl::SetAudioDataCallback(Block<const std::byte> samples) {
    if (!_audio)
        return IllegalArgumentError();
    return _audio(samples);
}

Result<void> MediaStreamAudioDataImportImpl::FinishStream(const MediaStreamProperties& properties) {
    return _finish ? _finish(properties) : Result<void>();
}

Result<void> RegisterMediaSessionAudio(Publisher& publisher) {
    TRY(publisher.PublishClass<AudioObjectImpl>(mediaclasses::kAudioObject));
    TRY(publisher.PublishClass<MediaStreamAudioDataImportImpl>(mediaclasses::kStreamAudioImport));
    return publisher.PublishClass<MediaStreamAudioDataExportImpl>(mediaclasses::kStreamAudioExport);
}

}  // namespace orvik
