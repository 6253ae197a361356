#include "orvik/layerset.h"

namespace orvik {

Result<LayerSetInterface*> LayerSet::MakeWritable() {
    if (!*this) {
        Ref<LayerSetInterface> made = TRY(ClassRef(kLayerSetClass).Create<LayerSetInterface>());
        *this = LayerSet(std::move(made));
    }
    return ValueRef::MakeWritable();
}

}  // namespace orvik
