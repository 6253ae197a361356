#include "orvik/gfx_image.h"

#include "orvik/mediasession_session.h"

namespace orvik {
namespace {

constexpr int kMaxLevels = 256;

#define ORVIK_LAYER_KEY(NAME) \
    { mediaformat::kLayer##NAME.GetId(), image::kLayer##NAME.GetId() }
constexpr LayerKeyPair kLayerKeyPairs[] = {
    ORVIK_LAYER_KEY(Enabled),
    ORVIK_LAYER_KEY(BlendMode),
    ORVIK_LAYER_KEY(Opacity),
    ORVIK_LAYER_KEY(FillOpacity),
    ORVIK_LAYER_KEY(TransparencyProtected),
    ORVIK_LAYER_KEY(Group),
    ORVIK_LAYER_KEY(MaskDefColor),
    ORVIK_LAYER_KEY(BoundingBoxX),
    ORVIK_LAYER_KEY(BoundingBoxY),
    ORVIK_LAYER_KEY(BoundingBoxW),
    ORVIK_LAYER_KEY(BoundingBoxH),
    ORVIK_LAYER_KEY(IsOpen),
    ORVIK_LAYER_KEY(PsdFilterId),
    ORVIK_LAYER_KEY(PsdData),
};
#undef ORVIK_LAYER_KEY

Result<Bool> WalkFrom(const ImageBaseRef& node, IMAGEHIERARCHY branch, const ImageVisitor& visitor, int level) {
    if (level > kMaxLevels)
        return IllegalStateError();
    if (!TRY(visitor(node, branch)))
        return false;
    for (Int b = 0; b < node->GetBranchCount(); ++b) {
        // By index and with a count asked anew, since a visitor may add children.
        for (Int i = 0; i < static_cast<Int>(node->GetChildren(b).size()); ++i) {
            const ImageBaseRef child = Cast<ImageBaseInterface>(node->GetChildren(b)[i]);
            if (child && !TRY(WalkFrom(child, static_cast<IMAGEHIERARCHY>(b), visitor, level + 1)))
                return false;
        }
    }
    return true;
}

}  // namespace

Block<const LayerKeyPair> GetLayerKeyPairs() { return kLayerKeyPairs; }

Result<Bool> WalkImages(const ImageBaseRef& root, const ImageVisitor& visitor) {
    if (!root)
        return NullptrError();
    return WalkFrom(root, IMAGEHIERARCHY::TEXTURE, visitor, 1);
}

Result<String> GetLayerPath(const ImageBaseRef& node, const ImageBaseRef& root) {
    const bool isAlpha = node->GetBranch() == static_cast<Int>(IMAGEHIERARCHY::ALPHA);
    BaseArray<String> names;  // from the node upwards
    String name = isAlpha ? node->Get(image::kAlphaName, String()) : node->Get(image::kName, String());
    if (isAlpha && name.IsEmpty())
        name = TRY(String::Create("Alpha"));
    TRY(names.Append(std::move(name)));
    for (auto above = Cast<ImageLayerInterface>(node->GetParent()); above && ImageBaseRef(above) != root;
         above = Cast<ImageLayerInterface>(above->GetParent()))
        TRY(names.Append(above->Get(image::kName, String())));
    const String separator = TRY(String::Create("\\"));
    String path;
    if (isAlpha && names.GetCount() == 1)
        path = separator;
    for (Int i = names.GetCount() - 1; i >= 0; --i) {
        TRY(path.Append(names[i]));
        if (i > 0)
            TRY(path.Append(separator));
    }
    return path;
}

ImagePixelBlend GetLayerBlendMode(const ImageBaseRef& layer) {
    if (const Result<Data> data = layer->GetData(image::kLayerBlendMode.GetId())) {
        if (const ImagePixelBlend* mode = data->GetIf<ImagePixelBlend>(); mode && *mode)
            return *mode;
        if (const Id* id = data->GetIf<Id>()) {
            if (auto mode = Registry::Find<ImagePixelBlendInterface>(kBlendModeRegistry, *id))
                return mode;
        }
    }
    return blendmodes::Get(blendmodes::kOver);
}

Result<ImageTextureRef> ImageTextureInterface::LoadTexture(const Url& url, TimeValue targetTime,
                                                           MEDIASESSIONFLAGS flags, const ClassRef& storage,
                                                           const LayerSet& layers) {
    ImageTextureRef texture = TRY(ClassRef(imageclasses::kTexture).Create<ImageTextureInterface>());
    TRY(texture->Load(url, targetTime, flags, storage, layers));
    return texture;
}

}  // namespace orvik
