#include "picture.h"

#include "console.h"
#include "interruption.h"
#include "progressline.h"

#include "orvik/iomemory.h"

namespace orvik::cli {

namespace {

/// A pipe can be read once, but is asked twice: by detection and by the importer.
Result<Url> MakeUrl(const std::string& name) {
    const Interruption::Waiting waiting;
    return ReadUnseekable(Url(name == "-" ? kStandardInput : std::string_view(name)));
}

}  // namespace

Result<Picture> LoadPicture(const std::string& name, MEDIASESSIONFLAGS flags) {
    const Url url = TRY(MakeUrl(name));
    ProgressLine line("loading " + std::string(url.GetName().GetText()));
    Picture picture;
    picture.texture = TRY(ClassRef(imageclasses::kTexture).Create<ImageTextureInterface>());
    const auto output = TRY(ClassRef(mediaclasses::kOutputTexture).Create<MediaOutputTextureInterface>());
    TRY(output->SetOutputTexture(picture.texture, ClassRef(storageclasses::kNormal)));
    picture.session = TRY(MediaSessionImport(url, TimeValue(), flags, output, {}, line.GetDelegate()));
    picture.format = TRY(FileFormatDetectionCache::DetectFile(url));
    return picture;
}

Result<BaseArray<ImageBaseRef>> GetImages(const ImageBaseRef& node, IMAGEHIERARCHY branch) {
    BaseArray<ImageBaseRef> images;
    for (const HierarchyObjectRef& child : node->GetChildren(static_cast<Int>(branch))) {
        if (ImageBaseRef image = Cast<ImageBaseInterface>(child))
            TRY(images.Append(std::move(image)));
    }
    return images;
}

ImageBaseRef FindAlpha(const ImageBaseRef& image) {
    return Cast<ImageBaseInterface>(image->GetFirstChild(static_cast<Int>(IMAGEHIERARCHY::ALPHA)));
}

bool IsMask(const ImageBaseRef& node) {
    const PixelFormat format = node->GetPixelFormat();
    return format->GetChannelCount() == 1 && format->HasAlpha();
}

std::string_view GetTypeName(ITYPE type) {
    constexpr std::string_view kNames[] = {"UNDEFINED", "TEXTURE", "IMAGE",      "ALPHA",        "LAYER",
                                           "LAYERMASK", "FOLDER",  "ADJUSTMENT", "DEEPIMAGEDATA"};
    const auto index = static_cast<size_t>(type);
    return index < std::size(kNames) ? kNames[index] : kNames[0];
}

std::string_view GetTypeName(const ImageBaseRef& node) {
    return GetTypeName(node->Get(image::kType, ITYPE::UNDEFINED));
}

String GetNodeName(const ImageBaseRef& node) {
    if (node->Get(image::kType, ITYPE::UNDEFINED) == ITYPE::ALPHA)
        return node->Get(image::kAlphaName, node->Get(image::kName, "Alpha"));
    return node->Get(image::kName, String());
}

String GetProfileName(const ImageBaseRef& node) {
    const ColorProfile profile = node->Get(image::kColorProfile, ColorProfile());
    return profile.HasProfile() ? profile.GetInfo(COLORPROFILEINFO::DESCRIPTION).GetValueOr(String()) : String();
}

}  // namespace orvik::cli
