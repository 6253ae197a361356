#include "commands.h"
#include "exportsettings.h"
#include "formats.h"
#include "outputtarget.h"
#include "picture.h"
#include "profile.h"
#include "progressline.h"

namespace orvik::cli {

namespace {

/// Without a word from the user a bitmap keeps its alpha and the profile that was asked for: its older headers would
/// drop the one and have no room for the other.
Result<void> ChooseBitmapHeader(DataDictionary& settings, std::string_view formatName, const Picture& picture,
                                const ConvertOptions& options) {
    const ImageBaseRef image =
        Cast<ImageBaseInterface>(picture.texture->GetFirstChild(static_cast<Int>(IMAGEHIERARCHY::IMAGE)));
    const auto indexed = Cast<PixelFormatIndexedColorInterface>(image->GetPixelFormat());
    const PixelFormat colors = indexed ? indexed->GetColorTablePixelFormat() : image->GetPixelFormat();
    const bool hasAlpha = FindAlpha(image) || (colors && colors->HasAlpha());
    const Id header = settings.Get(mediaexport::kBmpInfoHeader, Id("V3"));
    if (formatName == "bmp" && (hasAlpha || !options.profile.empty()) && header == Id("V3"))
        return settings.Set(mediaexport::kBmpInfoHeader, Id("V5"));
    return {};
}

/// Leaves of the picture what was selected.
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

}  // namespace

int RunConvert(const Console& console, const ConvertOptions& options) {
    Result<Picture> picture = LoadPicture(options.input, MEDIASESSIONFLAGS::NONE);
    const Result<void> reduced = picture ? Reduce(*picture, options.selection) : Result<void>(picture.GetError());
    if (!reduced)
        return console.Fail(options.input, reduced.GetError());

    const std::string wanted =
        options.format.empty() ? std::string(Url(options.output).GetSuffix().GetText()) : options.format;
    const MediaSessionFileFormatHandler handler = FindFormat(wanted);
    if (!handler && options.format.empty())
        return console.FailUsage("no format has the suffix of '" + options.output + "'; name one with --to");
    if (!handler)
        return console.FailUsage("there is no format '" + wanted + "'");
    const String name = handler->GetFileFormat()->GetName();
    if (handler->GetExporterClass().IsEmpty())
        return console.FailUsage("format " + std::string(name.GetText()) + " can be read but not written");

    DataDictionary settings = picture->texture->Get(image::kExportSettings, DataDictionary());
    Result<void> prepared = ChooseBitmapHeader(settings, name.GetText(), *picture, options);
    for (const std::string& setting : options.settings) {
        if (Result<void> applied = ApplySetting(settings, name.GetText(), setting); !applied)
            return console.FailUsage(applied.GetError()->ToString().GetText());
    }
    if (!options.profile.empty()) {
        const Result<TargetProfile> profile = TargetProfile::Open(options.profile);
        if (!profile)
            return console.Fail(options.profile, profile.GetError());
        if (const Result<void> converted = ConvertColors(*picture, *profile); !converted)
            return console.Fail(options.input, converted.GetError());
    }
    if (prepared)
        prepared = picture->texture->Set(image::kExportSettings, settings);
    const Result<void> saved = prepared ? SaveTo(options.output, *picture, handler->GetExporterClass()) : prepared;
    return saved ? kDone : console.Fail(options.output, saved.GetError());
}

}  // namespace orvik::cli
