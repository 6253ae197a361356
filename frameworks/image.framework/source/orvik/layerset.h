#pragma once
/// @file
/// `LayerSet`: which parts of a layered file are wanted.

#include "orvik/datadescriptionobject.h"
#include "orvik/hashset.h"
#include "orvik/registrybase.h"

namespace orvik {

/// What the paths of a layer set name.
enum class LAYERSETMODE : int32_t {
    LAYERS = 0,  ///< layers
    LAYERMASKS,  ///< layers, of which the masks are wanted
    ALPHAS,      ///< alphas: path of the parent, a backslash, name of the alpha ("Alpha" without one)
    LAYERALPHA,
    DISABLED,  ///< nothing is selected: a node's own pixels are read
};

/// The object behind a `LayerSet`. A path is the names from the root down, joined by backslashes; an empty name stands
/// as nothing between two of them. Paths compare byte by byte, case included.
class LayerSetInterface : public virtual DataDescriptionObjectInterface {
    ORVIK_INTERFACE(LayerSetInterface, "net.orvik.interface.layerset");

public:
    /// Copies the paths.
    virtual Result<void> SetSelectedLayers(const HashSet<String>& paths) {
        (void)paths;
        return Unbound();
    }
    virtual const HashSet<String>& GetSelectedLayers() const {
        static const HashSet<String> kNone;
        return kNone;
    }
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
    /// Says that an alpha is to be computed from the selection. Kept and compared; nothing reads it.
    virtual Result<void> SetCalculateAlpha(Bool calculate) {
        (void)calculate;
        return Unbound();
    }
    virtual Bool GetCalculateAlpha() const { return Unbound(); }
    /// Equal paths in whatever order, equal image, mode and flag.
    virtual Bool IsEqual(const LayerSetInterface& other) const {
        (void)other;
        return Unbound();
    }
    /// The order of the paths does not matter.
    virtual uint64_t GetHashCode() const { return Unbound(); }
    // DescribeIO: "_layers", "_selectedImage", "_layersetMode", "_calculateAlpha".
};

/// A copy-on-write value. A default constructed one is null, which selects nothing and reads as empty; the first setter
/// makes it an object, and needs the module for that.
class LayerSet : public ValueRef<LayerSetInterface> {
public:
    using ValueRef::ValueRef;

    Result<void> SetSelectedLayers(const HashSet<String>& paths) {
        LayerSetInterface* set = TRY(MakeWritable());
        return set->SetSelectedLayers(paths);
    }
    Result<void> SetSelectedImage(const String& name) {
        LayerSetInterface* set = TRY(MakeWritable());
        return set->SetSelectedImage(name);
    }
    Result<void> SetMode(LAYERSETMODE mode) {
        LayerSetInterface* set = TRY(MakeWritable());
        return set->SetMode(mode);
    }
    Result<void> SetCalculateAlpha(Bool calculate) {
        LayerSetInterface* set = TRY(MakeWritable());
        return set->SetCalculateAlpha(calculate);
    }
    Result<void> DescribeIO(DataSerialize& io) {
        LayerSetInterface* set = TRY(MakeWritable());
        return set->DescribeIO(io);
    }

    /// Equal values; null is equal to null only.
    friend bool operator==(const LayerSet& a, const LayerSet& b) {
        return a.GetPointer() == b.GetPointer() || (a && b && a->IsEqual(*b));
    }
    uint64_t GetHashCode() const { return (*this)->GetHashCode(); }

private:
    ORVIK_API Result<LayerSetInterface*> MakeWritable();
};

inline constexpr Id kLayerSetClass{"net.orvik.image.class.layerset"};

template <>
inline constexpr const char* kDataTypeName<LayerSet> = "orvik::LayerSet";

}  // namespace orvik
