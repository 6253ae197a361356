#include "base/registration.h"
#include "image/gfx_imagebaseimpl.h"

#include "orvik/gfx_image_functions.h"
#include "orvik/gfx_imagebasehelpers.h"

namespace orvik {
namespace {

class ImageFunctionsImpl : public ImageFunctionsInterface {
public:
    Result<ImageBaseRef> CreateSubImagePart(const ImageBaseRef& source, const DrawRectInt& rectangle) override {
        return source->CreateSubImagePart(rectangle);
    }
};

class ImageBaseHelpersImpl : public ImageBaseHelpersInterface {
public:
    Result<void> MarkRegionChanged(const ImageBaseRef& image, const UpdateRegion& region) override {
        const ImageRegionObservableRef observable = TRY(GetObservable(image));
        return observable->MarkDirty(image.GetPointer(), region);
    }
    Result<ImageRegionRegistrationRef> RegisterRegionChangedObserver(const ImageBaseRef& image,
                                                                     const ImageRegionObserverRef& observer) override {
        const ImageRegionObservableRef observable = TRY(GetObservable(image));
        return observable->RegisterObserver(observer);
    }

private:
    /// The reference of an image without an observable answers calls with the null pointer error.
    static Result<ImageRegionObservableRef> GetObservable(const ImageBaseRef& image) {
        if (!image)
            return IllegalStateError("Illegal state: Condition impl != nullptr not fulfilled. ");
        const auto* impl = dynamic_cast<const ImageBaseImpl*>(image.GetPointer());
        return impl ? impl->GetHostObservable() : ImageRegionObservableRef();
    }
};

}  // namespace

Result<void> RegisterImageFunctions(Publisher& publisher) {
    TRY(publisher.PublishObject(ImageFunctionsInterface::kInterfaceId, ObjectRef(TRY(NewObj<ImageFunctionsImpl>()))));
    return publisher.PublishObject(ImageBaseHelpersInterface::kInterfaceId,
                                   ObjectRef(TRY(NewObj<ImageBaseHelpersImpl>())));
}

}  // namespace orvik
