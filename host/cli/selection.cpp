#include "selection.h"

#include <algorithm>

#include "description.h"

namespace orvik::cli {

namespace {

constexpr int kMaxDepth = 256;

/// Layer sets separate names by backslashes; slashes are easier to type.
std::string Normalize(std::string path) {
    std::ranges::replace(path, '/', '\\');
    return path;
}

struct FoundNode {
    ImageBaseRef node;
    std::string path;  ///< as a layer set wants it
};

/// The first descendant, depth first, that the wanted path names. Names may hold slashes of their own.
Result<FoundNode> FindByPath(const ImageBaseRef& node, const std::string& wanted, const std::string& above, int depth) {
    if (depth > kMaxDepth)
        return FoundNode();
    for (const ImageBaseRef& child : TRY(GetAllChildren(node))) {
        const std::string path = above + std::string(GetNodeName(child).GetText());
        if (Normalize(path) == wanted)
            return FoundNode{child, path};
        FoundNode found = TRY(FindByPath(child, wanted, path + '\\', depth + 1));
        if (found.node)
            return found;
    }
    return FoundNode();
}

Result<FoundNode> FindByPath(const ImageBaseRef& image, const std::string& path, int number) {
    FoundNode found = TRY(FindByPath(image, Normalize(path), {}, 1));
    if (!found.node)
        return IllegalArgumentError("image @ has no node '@'", number, path);
    return found;
}

Result<LayerSet> MakeLayerSet(const ImageBaseRef& image, const SelectionOptions& options, int number) {
    HashSet<String> paths;
    for (const std::string& path : options.paths) {
        const FoundNode found = TRY(FindByPath(image, path, number));
        if (!Cast<ImageLayerInterface>(found.node))
            return IllegalArgumentError("'@' is no layer and cannot be composited", path);
        TRY(paths.Insert(String(found.path)));
    }
    LayerSet layers;
    TRY(layers.SetMode(LAYERSETMODE::LAYERS));
    TRY(layers.SetSelectedLayers(paths));
    return layers;
}

/// The component type of the given format, in RGB with or without alpha.
PixelFormat ToRgb(const PixelFormat& format, bool withAlpha) {
    static const struct {
        ComponentType type;
        Id plain, alpha;
    } kFormats[] = {
        {ComponentType::U8, pixelformats::kRgbU8, pixelformats::kRgbaU8},
        {ComponentType::U16, "net.orvik.image.pixelformat.rgb.u16", pixelformats::kRgbaU16},
        {ComponentType::F16, "net.orvik.image.pixelformat.rgb.f16", "net.orvik.image.pixelformat.rgba.f16"},
        {ComponentType::F32, pixelformats::kRgbF32, pixelformats::kRgbaF32},
    };
    const auto channels = format->GetChannels();
    const ComponentType type = channels.empty() ? ComponentType::F32 : channels[0]->GetComponentType();
    const auto* found = std::ranges::find(kFormats, type, [](const auto& row) { return row.type; });
    if (found == std::end(kFormats))
        found = std::end(kFormats) - 1;
    return PixelFormats::Get(withAlpha ? found->alpha : found->plain);
}

Result<void> CopyMetadata(const ImageBaseRef& from, const ImageBaseRef& to) {
    Result<void> copied;
    from->GetDictionary().ForEach([&](const Id& id, const Data& data) {
        if (copied)
            copied = to->SetData(id, data);
    });
    return copied;
}

Result<void> CopyRows(const Selection& selection, const RowsWish& wish, const ImageBaseRef& target) {
    NodeRows rows = TRY(NodeRows::Create(selection.node, wish));
    if (rows.GetWidth() == 0)
        return {};
    SetPixelHandlerStruct handler = TRY(target->SetPixelHandler(wish.format, wish.format->GetChannelOffsets(),
                                                                ColorProfile(), SETPIXELHANDLERFLAGS::NONE));
    Result<void> copied;
    for (Int y = 0; y < rows.GetHeight() && copied; ++y) {
        const Result<Block<const std::byte>> row = rows.Read(y);
        const PixelSpan span{0, y, rows.GetWidth()};
        copied = row ? handler.write(span, {row->data(), wish.format->GetBitsPerPixel()}, SETPIXELFLAGS::NONE)
                     : Result<void>(row.GetError());
        if (copied)
            handler.Widen(span);
    }
    target->FreePixelHandler(handler);
    return copied;
}

}  // namespace

Result<Selection> Select(const Picture& picture, const SelectionOptions& options) {
    const auto images = TRY(GetImages(picture.texture, IMAGEHIERARCHY::IMAGE));
    const int number = options.image.value_or(1);
    if (images.IsEmpty())
        return IllegalArgumentError("the file holds no image");
    if (number < 1 || number > images.GetCount())
        return IllegalArgumentError("there is no image @; the file has @", number, images.GetCount());
    Selection selection;
    selection.node = images[number - 1];
    if (options.composite || options.paths.size() > 1) {
        selection.layers = TRY(MakeLayerSet(selection.node, options, number));
    } else if (!options.paths.empty()) {
        const FoundNode found = TRY(FindByPath(selection.node, options.paths.front(), number));
        selection.node = found.node;
        if (found.node->GetWidth() <= 0 || found.node->GetHeight() <= 0)
            return IllegalArgumentError("'@' has no pixels", options.paths.front());
    }
    return selection;
}

Result<ImageTextureRef> Flatten(const Selection& selection) {
    const ImageBaseRef alpha = selection.layers ? ImageBaseRef() : FindAlpha(selection.node);
    RowsWish wish;
    wish.layers = selection.layers;
    wish.format = selection.node->GetPixelFormat();
    if (selection.layers || alpha)
        wish.format = ToRgb(wish.format, true);
    else if (IsMask(selection.node))
        wish.format = ToRgb(wish.format, false);

    const auto image = TRY(ClassRef(imageclasses::kImage).Create<ImageInterface>());
    TRY(CopyMetadata(selection.node, image));
    TRY(image->Init(selection.node->GetWidth(), selection.node->GetHeight(), ClassRef(storageclasses::kNormal),
                    wish.format, {}));  // makes it an image, whatever the node was
    TRY(CopyRows(selection, wish, image));
    auto texture = TRY(ClassRef(imageclasses::kTexture).Create<ImageTextureInterface>());
    TRY(texture->AddChildren(IMAGEHIERARCHY::IMAGE, image, ImageBaseRef()));
    return texture;
}

}  // namespace orvik::cli
