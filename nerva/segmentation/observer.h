#pragma once

#include <algorithm>
#include <list>

// Minimal observer pattern for the segmenter's per-frame message. An
// observable never owns its observers: destroying it frees only the list
// nodes. Registrations made with add_observer are known to both sides, so
// an observer destroyed while still registered leaves every list it was in,
// and an observable destroyed first is forgotten by its observers: neither
// order leaves a dangling pointer behind.
namespace nerva {

template <class M>
class Observable;

template <class M>
class Observer {
public:
    Observer() = default;
    // A copy observes nothing until it is added itself.
    Observer(const Observer&) {}
    Observer& operator=(const Observer&) { return *this; }
    virtual ~Observer()
    {
        for (Observable<M>* o : observed_) o->observers.remove(this);
    }
    virtual void notify(M* msg) = 0;

private:
    friend class Observable<M>;
    std::list<Observable<M>*> observed_;  // one entry per registration
};

template <class M>
class Observable {
public:
    Observable() = default;
    // A copy starts with no observers: registrations are not shared.
    Observable(const Observable&) {}
    Observable& operator=(const Observable&) { return *this; }
    virtual ~Observable()
    {
        for (Observer<M>* o : observers) o->observed_.remove(this);
    }

    // Observers are called in the order they were added. Adding the same
    // observer twice makes it be called twice.
    void add_observer(Observer<M>* o)
    {
        observers.push_back(o);
        o->observed_.push_back(this);
    }
    // Removes every registration of o; unknown observers are ignored.
    void remove_observer(Observer<M>* o)
    {
        if (std::find(observers.begin(), observers.end(), o) == observers.end()) return;
        observers.remove(o);
        o->observed_.remove(this);
    }

    // Filled through add_observer: an observer pushed here directly is not
    // known to have registered, and must outlive the observable or leave
    // the list itself before it is destroyed.
    std::list<Observer<M>*> observers;
};

}  // namespace nerva
