#pragma once

#include <algorithm>
#include <list>

// Minimal observer pattern for the segmenter's per-frame message. An
// observable never owns its observers: destroying it frees only the list
// nodes, and an observer must remove itself (or outlive the observable).
namespace nerva {

template <class M>
class Observer {
public:
    virtual ~Observer() {}
    virtual void notify(M* msg) = 0;
};

template <class M>
class Observable {
public:
    virtual ~Observable() {}

    // Observers are called in the order they were added. Adding the same
    // observer twice makes it be called twice.
    void add_observer(Observer<M>* o) { observers.push_back(o); }
    // Removes every registration of o; unknown observers are ignored.
    void remove_observer(Observer<M>* o) { observers.remove(o); }

    std::list<Observer<M>*> observers;
};

}  // namespace nerva
