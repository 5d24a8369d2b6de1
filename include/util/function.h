// A callable of two words: an object and the function that calls it. Copying it never allocates, and two of them
// compare equal when they call the same function of the same object, so that a callback can be taken off a list again.
#pragma once

#include <type_traits>
#include <utility>

namespace util {

template <class Signature> class Function;

template <class Result, class... Args> class Function<Result(Args...)> {
  public:
    constexpr Function() = default;

    /// Calls `object->*kMethod`. The object is not owned.
    template <auto kMethod, class Object> static constexpr Function bind(Object *object) {
        return Function(const_cast<void *>(static_cast<const void *>(object)), [](void *self, Args... args) -> Result {
            return (static_cast<Object *>(self)->*kMethod)(std::forward<Args>(args)...);
        });
    }
    /// Calls a free function.
    template <auto kFunction> static constexpr Function bind() {
        return Function(nullptr, [](void *, Args... args) -> Result { return kFunction(std::forward<Args>(args)...); });
    }

    constexpr explicit operator bool() const { return mCall != nullptr; }
    constexpr bool operator==(const Function &other) const { return mObject == other.mObject && mCall == other.mCall; }
    constexpr bool operator!=(const Function &other) const { return !(*this == other); }
    /// The function must not be null.
    Result operator()(Args... args) const { return mCall(mObject, std::forward<Args>(args)...); }

  private:
    using Call = Result (*)(void *, Args...);
    constexpr Function(void *object, Call call) : mObject(object), mCall(call) {}

    void *mObject = nullptr;
    Call mCall = nullptr;
};

} // namespace util
