#include "module/module_start.h"

#include "base/registration.h"

namespace orvik {

Result<void> StartImageModule(Publisher& publisher) {
    // The order decides the order of the registries, and with it in which order formats are offered and asked.
    using Register = Result<void> (*)(Publisher&);
    static constexpr Register kUnits[] = {
        RegisterDeclarations,         RegisterChannels,
        RegisterColorSpaces,          RegisterColorProfiles,
        RegisterColorProfileConvert,  RegisterPixelBlends,
        RegisterPixelFormats,         RegisterImageStorages,
        RegisterImageFunctions,       RegisterImages,
        RegisterFileFormats,          RegisterLayerSet,
        RegisterMediaSession,         RegisterMediaSessionAudio,
        RegisterTextureConverters,    RegisterMediaSessionOutputConverterBase,
        RegisterMediaSessionProgress, RegisterMediaSessionUrlOutput,
    };
    for (const Register registerUnit : kUnits)
        TRY(registerUnit(publisher));
    return {};
}

}  // namespace orvik
