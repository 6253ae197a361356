#include "imexport/frame/media_io_audioimporter.h"

namespace orvik {

Result<void> AudioImporter::AddSound(const MediaStreamFormat& format) {
    _sound = TRY(ClassRef(mediaclasses::kStreamAudioImport).Create<MediaStreamAudioDataImportInterface>());
    TRY(_sound->AddFormat(Data(Int(0)), format));
    return AddStream(_sound);
}

Result<void> AudioImporter::Deliver(const InputStreamRef& stream) {
    if (!_sound || !_sound->IsSubscribed())
        return {};
    const MediaStreamProperties properties = TRY(MediaStreamProperties::FromStream(_sound));
    Result<void> first = _sound->InitStream(properties);
    if (first)
        first = DecodeSamples(stream);
    KeepFirstError(first, _sound->FinishStream(properties));  // required after InitStream, even on failure
    return first;
}

}  // namespace orvik
