#pragma once
/// @file
/// The object behind a layer set.

#include "orvik/layerset.h"

namespace orvik {

class LayerSetImpl : public LayerSetInterface {
public:
    Result<void> SetSelectedLayers(const HashSet<String>& paths) override { return _layers.CopyFrom(paths); }
    const HashSet<String>& GetSelectedLayers() const override { return _layers; }
    Result<void> SetSelectedImage(const String& name) override;
    String GetSelectedImage() const override { return _selectedImage; }
    /// Illegal argument for a number that is no mode.
    Result<void> SetMode(LAYERSETMODE mode) override;
    LAYERSETMODE GetMode() const override { return _layersetMode; }
    Result<void> SetCalculateAlpha(Bool calculate) override;
    Bool GetCalculateAlpha() const override { return _calculateAlpha; }
    Bool IsEqual(const LayerSetInterface& other) const override;
    uint64_t GetHashCode() const override;
    Result<void> DescribeIO(DataSerialize& io) override;
    Result<Ref<Object>> Clone() const override;

private:
    HashSet<String> _layers;
    String _selectedImage;
    LAYERSETMODE _layersetMode = LAYERSETMODE::LAYERS;
    bool _calculateAlpha = false;
};

}  // namespace orvik
