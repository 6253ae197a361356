#include "picture.h"

#include <sys/stat.h>

#include "console.h"
#include "interruption.h"
#include "progressline.h"

namespace orvik::cli {

namespace {

/// A pipe can be read once, but is asked twice: by detection and by the importer.
/// @param name  what errors call it
Result<Url> ReadIntoMemory(const Url& url, std::string_view name) {
    constexpr Int kStep = 1 << 20;
    constexpr Int kMaxBytes = Int(1) << 30;
    const Interruption::Waiting waiting;
    const InputStreamRef stream = TRY(url.OpenInputStream());
    const MemoryFileRef file = TRY(CreateMemoryFile());
    BaseArray<std::byte>& bytes = file.GetPointer()->GetBytes();
    for (Int count = kStep; count == kStep;) {
        const Int start = bytes.GetCount();
        if (start >= kMaxBytes)
            return IoError(url, "more than @ bytes from a pipe or device", kMaxBytes);
        TRY(bytes.Resize(start + kStep, RESIZEFLAGS::UNINITIALIZED));
        count = TRY(stream->ReadEOS(bytes.ToBlock().subspan(static_cast<size_t>(start))));
        TRY(bytes.Resize(start + count));
    }
    return MountMemoryFile(name, file);
}

Result<Url> MakeUrl(const std::string& name) {
    const Url url(name == "-" ? std::string_view("/dev/stdin") : std::string_view(name));
    struct stat status {};
    const bool isStream =
        ::stat(url.GetSystemPath().c_str(), &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
    return isStream ? ReadIntoMemory(url, name == "-" ? kStandardInput : std::string_view(name)) : Result<Url>(url);
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
