#include "image/layers/layerset_impl.h"

#include "base/registration.h"

namespace orvik {
namespace {

/// Spreads the bits of one path's hash, so that the sum over all paths keeps them apart.
constexpr uint64_t MixHash(uint64_t hash) {
    const uint64_t a = (hash ^ (hash >> 30)) * 0xBF58476D1CE4E5B9;
    const uint64_t b = (a ^ (a >> 27)) * 0x94D049BB133111EB;
    return (b ^ (b >> 31)) + 1;
}

bool IsMode(Int number) {
    return number >= static_cast<Int>(LAYERSETMODE::LAYERS) && number <= static_cast<Int>(LAYERSETMODE::DISABLED);
}

}  // namespace

Result<void> LayerSetImpl::SetSelectedImage(const String& name) {
    _selectedImage = name;
    return {};
}

Result<void> LayerSetImpl::SetMode(LAYERSETMODE mode) {
    if (!IsMode(static_cast<Int>(mode)))
        return IllegalArgumentError();
    _layersetMode = mode;
    return {};
}

Result<void> LayerSetImpl::SetCalculateAlpha(Bool calculate) {
    _calculateAlpha = calculate;
    return {};
}

Bool LayerSetImpl::IsEqual(const LayerSetInterface& other) const {
    return _layers == other.GetSelectedLayers() && _selectedImage == other.GetSelectedImage() &&
           _layersetMode == other.GetMode() && _calculateAlpha == other.GetCalculateAlpha();
}

uint64_t LayerSetImpl::GetHashCode() const {
    uint64_t paths = 0;
    for (const String& path : _layers)
        paths += MixHash(path.GetHashCode());
    uint64_t hash = static_cast<uint64_t>(_layersetMode);
    for (const uint64_t part : {_selectedImage.GetHashCode(), uint64_t(_calculateAlpha), paths})
        hash = hash * 31 + part;
    return hash;
}

/// The paths are written in alphabetical order, so that equal sets give equal bytes.
Result<void> LayerSetImpl::DescribeIO(DataSerialize& io) {
    BaseArray<String> paths;
    for (const String& path : _layers)
        TRY(paths.Append(path));
    std::sort(paths.begin(), paths.end());
    String selectedImage = _selectedImage;
    Int mode = static_cast<Int>(_layersetMode);
    bool calculateAlpha = _calculateAlpha;
    TRY(io.Field("_layers", paths));
    TRY(io.Field("_selectedImage", selectedImage));
    TRY(io.Field("_layersetMode", mode));
    TRY(io.Field("_calculateAlpha", calculateAlpha));
    if (!io.IsReading())
        return {};

    if (!IsMode(mode))
        return IllegalArgumentError();
    HashSet<String> layers;
    for (String& path : paths)
        TRY(layers.Insert(std::move(path)));
    _layers = std::move(layers);
    _selectedImage = std::move(selectedImage);
    _layersetMode = static_cast<LAYERSETMODE>(mode);
    _calculateAlpha = calculateAlpha;
    return {};
}

Result<Ref<Object>> LayerSetImpl::Clone() const {
    Ref<LayerSetImpl> copy = TRY(NewObj<LayerSetImpl>());
    TRY(copy->_layers.CopyFrom(_layers));
    copy->_selectedImage = _selectedImage;
    copy->_layersetMode = _layersetMode;
    copy->_calculateAlpha = _calculateAlpha;
    return Ref<Object>(copy);
}

Result<void> RegisterLayerSet(Publisher& publisher) { return publisher.PublishClass<LayerSetImpl>(kLayerSetClass); }

}  // namespace orvik
