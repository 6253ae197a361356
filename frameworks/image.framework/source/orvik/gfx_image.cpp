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

Result<ImageTextureRef> ImageTextureInterface::LoadTexture(const Url& url, TimeValue targetTime,
                                                           MEDIASESSIONFLAGS flags, const ClassRef& storage,
                                                           const LayerSet& layers) {
    ImageTextureRef texture = TRY(ClassRef(imageclasses::kTexture).Create<ImageTextureInterface>());
    TRY(texture->Load(url, targetTime, flags, storage, layers));
    return texture;
}

}  // namespace orvik
