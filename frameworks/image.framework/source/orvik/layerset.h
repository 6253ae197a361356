#pragma once
/// @file
/// `LayerSet`: which parts of a layered file are wanted.

#include "orvik/datatype.h"
#include "orvik/errortypes.h"

namespace orvik {

enum class LAYERSETMODE : int32_t { LAYERS = 0, LAYERMASKS, ALPHAS, LAYERALPHA, DISABLED };

/// A small value: selected image, selected paths (names joined by a backslash, root first), and what they mean.
class LayerSetInterface : public virtual Object {
    ORVIK_INTERFACE(LayerSetInterface, "net.orvik.interface.layerset");

public:
    virtual Result<void> SetSelectedLayers(Block<const String> paths) {
        (void)paths;
        return Unbound();
    }
    virtual Block<const String> GetSelectedLayers() const { return Unbound(); }
    /// "#n" with n from 1, or a stream name; empty means all images.
    virtual Result<void> SetSelectedImage(const String& name) {
        (void)name;
        return Unbound();
    }
    virtual String GetSelectedImage() const { return Unbound(); }
    virtual Result<void> SetMode(LAYERSETMODE mode) {
        (void)mode;
        return Unbound();
    }
    virtual LAYERSETMODE GetMode() const { return Unbound(); }
    virtual Result<void> SetCalculateAlpha(Bool calculate) {
        (void)calculate;
        return Unbound();
    }
    virtual Bool GetCalculateAlpha() const { return Unbound(); }
};
using LayerSet = ValueRef<LayerSetInterface>;

}  // namespace orvik
