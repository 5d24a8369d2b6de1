// A vector that holds each of its elements once.
#pragma once

#include <algorithm>
#include <memory>
#include <unordered_set>
#include <vector>

namespace util {

/// Keeps the order in which elements were first inserted. While it holds few, they are compared one by one.
template <class T, class Hash = std::hash<T>> class set_vector {
  public:
    using const_iterator = typename std::vector<T>::const_iterator;
    /// Whether the element is new.
    bool insert(const T &element) {
        if (mSet ? !mSet->insert(element).second : contains(element)) {
            return false;
        }
        mVector.push_back(element);
        if (!mSet && mVector.size() > kFew) {
            mSet = std::make_unique<Set>(mVector.begin(), mVector.end());
        }
        return true;
    }
    bool contains(const T &element) const {
        return mSet ? mSet->count(element) != 0 : std::find(mVector.begin(), mVector.end(), element) != mVector.end();
    }
    const T &operator[](std::size_t index) const { return mVector[index]; }
    std::size_t size() const { return mVector.size(); }
    bool empty() const { return mVector.empty(); }
    const_iterator begin() const { return mVector.begin(); }
    const_iterator end() const { return mVector.end(); }
    void clear() {
        mVector.clear();
        mSet.reset();
    }

  private:
    using Set = std::unordered_set<T, Hash>;
    static constexpr std::size_t kFew = 16;
    std::vector<T> mVector;
    /// Null while the elements are few.
    std::unique_ptr<Set> mSet;
};

} // namespace util
