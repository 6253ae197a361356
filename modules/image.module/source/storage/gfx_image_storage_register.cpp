#include "base/registration.h"
#include "storage/gfx_image_storage_nodata.h"
#include "storage/gfx_image_storage_normal.h"
#include "storage/gfx_image_storage_planes.h"
#include "storage/gfx_image_storage_voxel.h"

namespace orvik {
namespace {

/// A storage class as the registry lists it.
struct StorageEntry {
    Id id;
    CreateFunction create;
};

template <class T>
Result<ObjectRef> CreateStorage() {
    return ObjectRef(TRY(NewObj<T>()));
}

constexpr StorageEntry kStorages[] = {
    {storageclasses::kNormal, CreateStorage<ImagePixelStorageNormal>},
    {storageclasses::kPlanes, CreateStorage<ImagePixelStoragePlanes>},
    {storageclasses::kNoData, CreateStorage<ImagePixelStorageNoData>},
    {storageclasses::kVoxel, CreateStorage<ImagePixelStorageVoxel>},
};

}  // namespace

Result<void> RegisterImageStorages(Publisher& publisher) {
    for (const StorageEntry& storage : kStorages) {
        TRY(publisher.PublishClass(storage.id, storage.create));
        // Entries list the classes; an object is made from them, never taken from the registry.
        TRY(publisher.AddToRegistry(kPixelStorageClassRegistry, storage.id,
                                    TRY(NewObj<PublishedClass>(storage.id, storage.create))));
    }
    return {};
}

}  // namespace orvik
