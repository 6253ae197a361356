#include <filesystem>

#include "commands.h"
#include "exportsettings.h"
#include "formats.h"
#include "outputtarget.h"
#include "picture.h"
#include "profile.h"
#include "progressline.h"

namespace orvik::cli {

namespace {

/// Reduces the picture to the selection.
Result<void> Reduce(Picture& picture, const SelectionOptions& options) {
    if (options.IsWholePicture())
        return {};
    const Selection selection = TRY(Select(picture, options));
    picture.texture = TRY(Flatten(selection));
    return {};
}

Result<void> Save(const Picture& picture, const Id& exporterClass, OutputTarget& target) {
    const auto exporter = TRY(ClassRef(exporterClass).Create<MediaOutputUrlInterface>());
    TRY(exporter->SetOutputUrl(TRY(target.GetUrl())));
    ProgressLine line("saving", target.GetTemporaryPath());
    return picture.texture->Save(exporter, MEDIASESSIONFLAGS::NONE, nullptr);
}

Result<void> SaveTo(const std::string& output, const Picture& picture, const Id& exporterClass) {
    OutputTarget target = TRY(OutputTarget::Open(output));
    TRY(Save(picture, exporterClass, target));
    return target.Commit();
}

/// What is written and how. Found before anything is loaded, so that wrong usage does not cost a load.
struct Target {
    MediaSessionFileFormatHandler handler;
    std::string formatName;
    DataDictionary settings;  ///< only those that the user named
};

/// Errors report wrong usage, except an unresolved one when no formats are registered.
Result<Target> FindTarget(const ConvertOptions& options) {
    if (Registry::GetEntries(kFileFormatHandlerRegistry).IsEmpty())
        return UnresolvedError("no file formats are registered");
    const std::string wanted = options.format.empty()
                                   ? std::filesystem::path(Url(options.output).GetSystemPath()).extension().string()
                                   : options.format;
    Target target;
    target.handler = FindFormat(wanted);
    if (!target.handler && options.format.empty())
        return IllegalArgumentError("no format has the suffix of '@'; name one with --to", options.output);
    if (!target.handler)
        return IllegalArgumentError("there is no format '@'; orvik formats lists them", wanted);
    target.formatName = target.handler->GetFileFormat()->GetName().GetText();
    if (target.handler->GetExporterClass().IsEmpty())
        return IllegalArgumentError("format @ can be read but not written", target.formatName);
    for (const std::string& setting : options.settings)
        TRY(ApplySetting(target.settings, target.formatName, setting));
    return target;
}

/// The settings of the file, then the user's. The header of a bitmap that was read is not kept where it has no room for
/// alpha or for the profile that was asked for: the exporter then chooses.
Result<void> PrepareSettings(const Picture& picture, const Target& target, const ConvertOptions& options) {
    DataDictionary settings = picture.texture->Get(image::kExportSettings, DataDictionary());
    if (!options.profile.empty() || settings.Get(mediaexport::kBmpInfoHeader, Id()) == Id("V3"))
        TRY(settings.Erase(mediaexport::kBmpInfoHeader.GetId()));
    TRY(settings.Merge(target.settings));
    return picture.texture->Set(image::kExportSettings, settings);
}

}  // namespace

int RunConvert(const Console& console, const ConvertOptions& options) {
    const Result<Target> target = FindTarget(options);
    if (!target && target.GetError()->IsKindOf(errorid::kUnresolved))
        return console.Fail(options.input, target.GetError());
    if (!target)
        return console.FailUsage(target.GetError()->ToString().GetText());
    Result<Picture> picture = LoadPicture(options.input, MEDIASESSIONFLAGS::NONE);
    const Result<void> reduced = picture ? Reduce(*picture, options.selection) : Result<void>(picture.GetError());
    if (!reduced)
        return console.Fail(options.input, reduced.GetError());
    if (!options.profile.empty()) {
        const Result<TargetProfile> profile = TargetProfile::Open(options.profile);
        if (!profile)
            return console.Fail(options.profile, profile.GetError());
        if (const Result<void> converted = ConvertColors(*picture, *profile); !converted)
            return console.Fail(options.input, converted.GetError());
    }
    Result<void> saved = PrepareSettings(*picture, *target, options);
    if (saved)
        saved = SaveTo(options.output, *picture, target->handler->GetExporterClass());
    return saved ? kDone : console.Fail(options.output, saved.GetError());
}

}  // namespace orvik::cli
