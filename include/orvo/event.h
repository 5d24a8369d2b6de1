// The events by which analyses hear of births, deaths and changes in a design.
#pragma once

#include <orvo/api.h>
#include <util/function.h>

#include <vector>

namespace orvo {

class Block;
class Design;
class Model;
class Wire;

/// What a driven event tells of an edge between a wire and a block: 0 it goes, 1 it is there now, 2 it was made just
/// now.
using GraphState = int;
inline constexpr GraphState kGraphStateGone = 0;
inline constexpr GraphState kGraphStatePresent = 1;
inline constexpr GraphState kGraphStateNew = 2;

/// One list of callbacks. A callback may add to the list, or remove itself, while the list is walked.
template <class... Args> class EventList {
  public:
    using Callback = util::Function<void(Args...)>;
    /// A null callback is an assertion when the event fires.
    void add(Callback callback) { mCallbacks.push_back(callback); }
    /// Removes the first equal callback, if there is one.
    void remove(const Callback &callback) {
        for (std::size_t i = 0; i < mCallbacks.size(); ++i) {
            if (mCallbacks[i] == callback) {
                mCallbacks.erase(mCallbacks.begin() + static_cast<std::ptrdiff_t>(i));
                for (Walk *walk = mWalks; walk != nullptr; walk = walk->outer) {
                    walk->next -= i < walk->next ? 1 : 0;
                }
                return;
            }
        }
    }
    bool empty() const { return mCallbacks.empty(); }
    std::size_t size() const { return mCallbacks.size(); }
    void fire(Args... args) {
        if (mCallbacks.empty()) {
            return;
        }
        Walk walk(*this);
        while (walk.next < mCallbacks.size()) {
            Callback callback = mCallbacks[walk.next++];
            checkCallback(static_cast<bool>(callback));
            callback(args...);
        }
    }

  private:
    /// One walk over the list. A callback may edit the design and so fire the list again: walks nest.
    struct Walk {
        explicit Walk(EventList &events) : list(events), outer(events.mWalks) { events.mWalks = this; }
        ~Walk() { list.mWalks = outer; }
        Walk(const Walk &) = delete;
        Walk &operator=(const Walk &) = delete;
        EventList &list;
        Walk *outer;
        std::size_t next = 0;
    };
    static void checkCallback(bool present);
    std::vector<Callback> mCallbacks;
    Walk *mWalks = nullptr;
};

namespace internal {
[[noreturn]] ORVO_API void failNullCallback();
}

template <class... Args> void EventList<Args...>::checkCallback(bool present) {
    if (!present) {
        internal::failNullCallback();
    }
}

struct EventManager {
    EventList<Design &> designBorn;
    EventList<Model &> modelBorn;
    EventList<Block &> blockBorn;
    EventList<Wire &> wireBorn;
    EventList<Design &> designDying;
    EventList<Model &> modelDying;
    EventList<Block &> blockDying;
    EventList<Wire &> wireDying;
    EventList<Design &> designChanged;
    EventList<Model &> modelChanged;
    EventList<Block &> blockChanged;
    EventList<const Block &, const Wire &, GraphState> wireDriven;
    EventList<const Wire &, const Block &, GraphState> blockDriven;
};

} // namespace orvo
