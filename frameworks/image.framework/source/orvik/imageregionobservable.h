#pragma once
/// @file
/// The host's service that notifies observers of the regions of an image that change.

#include "orvik/gfx_basictypes.h"
#include "orvik/observable.h"
#include "orvik/registrybase.h"

namespace orvik {

class ImageBaseInterface;

/// An observer of an image.
class ImageRegionObserverInterface : public virtual Object {
    ORVIK_INTERFACE(ImageRegionObserverInterface, "net.orvik.interface.imageregionobserver");

public:
    virtual void OnConnect(Int width, Int height) { (void)width, (void)height; }
    virtual void OnResize(Int width, Int height) { (void)width, (void)height; }
    virtual void OnRegionDirty(const UpdateRegion& region) { (void)region; }
    virtual void OnDisconnect(Bool final) { (void) final; }
};
using ImageRegionObserverRef = Ref<ImageRegionObserverInterface>;

/// What `RegisterObserver` gives. Dropping its last reference ends the registration too.
class ImageRegionRegistrationInterface : public virtual Object {
    ORVIK_INTERFACE(ImageRegionRegistrationInterface, "net.orvik.interface.imageregionregistration");

public:
    /// Ends the registration; a second call does nothing. The observable may have gone.
    virtual void Free() {}
};
using ImageRegionRegistrationRef = Ref<ImageRegionRegistrationInterface>;

/// Observers as delegates, run in the order of adding.
using RegionObservable = Observable<Result<void>(ImageBaseInterface* image, const UpdateRegion& region)>;

/// One image's observable: its size, and observers that it knows weakly.
class ImageRegionObservableInterface : public virtual Object {
    ORVIK_INTERFACE(ImageRegionObservableInterface, "net.orvik.interface.imageregionobservable");

public:
    virtual Result<void> ResizeImage(Int width, Int height) {
        (void)width, (void)height;
        return Unbound();
    }
    /// Notifies every observer; also runs the delegates of `GetObservable`.
    virtual Result<void> MarkDirty(ImageBaseInterface* image, const UpdateRegion& region) {
        (void)image, (void)region;
        return Unbound();
    }
    virtual RegionObservable* GetObservable() { return Unbound(); }
    /// Calls `OnConnect` of the observer with the present size at once.
    virtual Result<ImageRegionRegistrationRef> RegisterObserver(const ImageRegionObserverRef& observer) {
        (void)observer;
        return Unbound();
    }
    /// Notifies the observers that the image goes: called twice, with false and then true.
    virtual void Disconnect(Bool final) { (void) final; }
};
using ImageRegionObservableRef = Ref<ImageRegionObservableInterface>;

/// Published by the host under its interface id.
class ImageRegionObservableHandlerInterface : public virtual Object {
    ORVIK_INTERFACE(ImageRegionObservableHandlerInterface, "net.orvik.interface.imageregionobservablehandler");

public:
    virtual Result<ImageRegionObservableRef> Create(const String& name) {
        (void)name;
        return Unbound();
    }
};

}  // namespace orvik
