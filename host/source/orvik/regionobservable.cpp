#include "orvik/regionobservable.h"

namespace orvik {

namespace {

class RegionObservableImpl : public ImageRegionObservableInterface {
public:
    Result<void> ResizeImage(Int width, Int height) override {
        _width = width;
        _height = height;
        ForEachObserver([&](ImageRegionObserverInterface& observer) { observer.OnResize(width, height); });
        return {};
    }
    Result<void> MarkDirty(ImageBaseInterface* image, const UpdateRegion& region) override {
        ForEachObserver([&](ImageRegionObserverInterface& observer) { observer.OnRegionDirty(region); });
        return _delegates.Notify(image, region);
    }
    RegionObservable* GetObservable() override { return &_delegates; }
    Result<ImageRegionRegistrationRef> RegisterObserver(const ImageRegionObserverRef& observer) override;
    void Disconnect(Bool final) override {
        ForEachObserver([&](ImageRegionObserverInterface& observer) { observer.OnDisconnect(final); });
        if (final)
            _observers.Reset();
    }

    void Unregister(Int number) noexcept {
        for (Int i = 0; i < _observers.GetCount(); ++i) {
            if (_observers[i].number == number)
                return _observers.Erase(i);
        }
    }

private:
    struct Entry {
        Int number;
        WeakRef<ImageRegionObserverInterface> observer;
    };

    /// An observer may register and unregister, itself too, during an event; new ones run from the next event on.
    template <class F>
    void ForEachObserver(F&& call) {
        const Int end = _nextNumber;
        for (Int heard = 0, i = 0; i < _observers.GetCount() && _observers[i].number < end; i = IndexAfter(heard)) {
            heard = _observers[i].number;
            if (const ImageRegionObserverRef observer = _observers[i].observer.Get())
                call(*observer);
            else
                _observers.Erase(i);
        }
    }
    /// Index of the first entry with a number above `number`; numbers ascend.
    Int IndexAfter(Int number) const noexcept {
        Int i = 0;
        while (i < _observers.GetCount() && _observers[i].number <= number)
            ++i;
        return i;
    }

    Int _width = 0;
    Int _height = 0;
    Int _nextNumber = 1;
    BaseArray<Entry> _observers;
    RegionObservable _delegates;
};

class Registration : public ImageRegionRegistrationInterface {
public:
    Registration(const Ref<RegionObservableImpl>& observable, Int number) : _observable(observable), _number(number) {}
    ~Registration() override { Registration::Free(); }
    void Free() override {
        if (const Ref<RegionObservableImpl> observable = _observable.Get())
            observable.GetPointer()->Unregister(_number);
        _observable.Set(nullptr);
    }

private:
    WeakRef<RegionObservableImpl> _observable;
    Int _number;
};

Result<ImageRegionRegistrationRef> RegionObservableImpl::RegisterObserver(const ImageRegionObserverRef& observer) {
    if (!observer)
        return NullptrError();
    const Int number = _nextNumber;
    Ref<Registration> registration = TRY(NewObj<Registration>(Ref<RegionObservableImpl>(this), number));
    TRY(_observers.Append(Entry{number, WeakRef<ImageRegionObserverInterface>(observer)}));
    ++_nextNumber;
    observer->OnConnect(_width, _height);
    return ImageRegionRegistrationRef(std::move(registration));
}

class RegionObservableHandlerImpl : public ImageRegionObservableHandlerInterface {
public:
    Result<ImageRegionObservableRef> Create(const String& name) override {
        return ImageRegionObservableRef(TRY(NewObj<RegionObservableImpl>()));
    }
};

}  // namespace

Result<void> PublishRegionObservable(Publisher& publisher) {
    return publisher.PublishObject(ImageRegionObservableHandlerInterface::kInterfaceId,
                                   ObjectRef(TRY(NewObj<RegionObservableHandlerImpl>())));
}

}  // namespace orvik
