#include "image/layers/gfx_image_layerselection.h"

#include "image/layers/gfx_image_rasternode.h"

namespace orvik {
namespace {

constexpr int kMaxLevels = 256;

bool IsFolder(const ImageBaseRef& node) {
    return node->Get(image::kType, ITYPE::UNDEFINED) == ITYPE::FOLDER || !HasOwnPixels(node);
}

/// An alpha directly below an image has a path that starts with a backslash; naming it without one is good enough.
bool IsAlphaSelected(const LayerSet& layers, const String& path) {
    if (IsLayerSelected(layers, path))
        return true;
    const std::string_view text = path.GetText();
    return text.starts_with('\\') && IsLayerSelected(layers, String(text.substr(1)));
}

/// The first node, depth first, for which `pick` answers another one than null.
template <class Pick>
Result<LayerSelection> FindSingle(const ImageBaseRef& owner, const Pick& pick) {
    LayerSelection selection;
    const ImageVisitor visit = [&](const ImageBaseRef& node, IMAGEHIERARCHY branch) -> Result<Bool> {
        const ImageBaseRef found = TRY(pick(node, branch));
        if (!found)
            return true;
        selection.kind = LayerSelection::Kind::SingleNode;
        TRY(selection.nodes.Append(found));
        return false;
    };
    TRY(WalkImages(owner, visit));
    if (selection.nodes.IsEmpty())
        return IllegalArgumentError();
    return selection;
}

Result<LayerSelection> FindAlpha(const ImageBaseRef& owner, const LayerSet& layers) {
    return FindSingle(owner, [&](const ImageBaseRef& node, IMAGEHIERARCHY branch) -> Result<ImageBaseRef> {
        if (branch != IMAGEHIERARCHY::ALPHA)
            return ImageBaseRef();
        const String path = TRY(GetLayerPath(node, owner));
        return IsAlphaSelected(layers, path) ? node : ImageBaseRef();
    });
}

Result<LayerSelection> FindMask(const ImageBaseRef& owner, const LayerSet& layers) {
    return FindSingle(owner, [&](const ImageBaseRef& node, IMAGEHIERARCHY branch) -> Result<ImageBaseRef> {
        if (branch != IMAGEHIERARCHY::LAYER)
            return ImageBaseRef();
        const String path = TRY(GetLayerPath(node, owner));
        if (!IsLayerSelected(layers, path))
            return ImageBaseRef();
        return Cast<ImageBaseInterface>(node->GetFirstChild(static_cast<Int>(IMAGEHIERARCHY::MASK)));
    });
}

/// Gathers layers from the top down. Each is tested before what hangs below it. The layers in a folder come with it, as
/// far as they are enabled.
class LayerCollector {
public:
    LayerCollector(const ImageBaseRef& owner, const LayerSet& layers)
        : _owner(owner), _layers(layers), _byPath(HasSelectedLayers(layers)) {}

    Result<void> Run() { return CollectBelow(_owner, !_byPath, 1); }
    /// True when any layer was picked, though it may have no pixels.
    bool HasFound() const { return _found; }
    BaseArray<ImageBaseRef>& GetLayers() { return _collected; }

private:
    /// @param inherited  the layers here are wanted because of what they hang below
    Result<void> CollectBelow(const ImageBaseRef& parent, bool inherited, int level) {
        if (level > kMaxLevels)
            return IllegalStateError();
        for (const HierarchyObjectRef& child : parent->GetChildren(static_cast<Int>(IMAGEHIERARCHY::LAYER))) {
            const auto layer = Cast<ImageBaseInterface>(child);
            if (!layer)
                continue;
            bool picked = inherited && IsLayerEnabled(layer);
            if (!picked && _byPath) {
                const String path = TRY(GetLayerPath(layer, _owner));
                picked = IsLayerSelected(_layers, path);
            }
            _found = _found || picked;
            if (picked && HasOwnPixels(layer))
                TRY(_collected.Append(layer));
            TRY(CollectBelow(layer, picked && IsFolder(layer), level + 1));
        }
        return {};
    }

    const ImageBaseRef& _owner;
    const LayerSet& _layers;
    bool _byPath;
    bool _found = false;
    BaseArray<ImageBaseRef> _collected;
};

}  // namespace

bool HasSelectedLayers(const LayerSet& layers) { return !layers->GetSelectedLayers().IsEmpty(); }

bool IsLayerSelected(const LayerSet& layers, const String& path) { return layers->GetSelectedLayers().Contains(path); }

bool HasOwnPixels(const ImageBaseRef& node) {
    if (node->GetWidth() <= 0 || node->GetHeight() <= 0)
        return false;
    const RasterNode* raster = RasterNode::From(node);
    return !raster || raster->HasPixels();
}

bool IsLayerEnabled(const ImageBaseRef& node) { return node->Get(image::kLayerEnabled, true); }

Result<LayerSelection> SelectLayers(const ImageBaseRef& owner, const LayerSet& layers) {
    switch (layers->GetMode()) {
        case LAYERSETMODE::ALPHAS:
            return FindAlpha(owner, layers);
        case LAYERSETMODE::LAYERMASKS:
            return FindMask(owner, layers);
        case LAYERSETMODE::DISABLED:
            return LayerSelection();
        default:
            break;
    }
    LayerCollector collector(owner, layers);
    TRY(collector.Run());
    LayerSelection selection;
    // Layers without pixels show nothing, and where no path asks for them they do not hide the image's own pixels.
    const bool showsOwn = collector.GetLayers().IsEmpty() && !HasSelectedLayers(layers) && HasOwnPixels(owner);
    if (collector.HasFound() && !showsOwn) {
        selection.kind = LayerSelection::Kind::Layers;
        selection.nodes = std::move(collector.GetLayers());
        std::reverse(selection.nodes.begin(), selection.nodes.end());
    }
    return selection;
}

}  // namespace orvik
