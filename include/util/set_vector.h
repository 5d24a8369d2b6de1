// A vector that holds each of its elements once.
#pragma once

#include <unordered_set>
#include <vector>

namespace util {

/// Keeps the order in which elements were first inserted.
template <class T, class Hash = std::hash<T>> class set_vector {
  public:
    using const_iterator = typename std::vector<T>::const_iterator;
    /// Whether the element is new.
    bool insert(const T &element) {
        if (!mSet.insert(element).second) {
            return false;
        }
        mVector.push_back(element);
        return true;
    }
    bool contains(const T &element) const { return mSet.count(element) != 0; }
    const T &operator[](std::size_t index) const { return mVector[index]; }
    std::size_t size() const { return mVector.size(); }
    bool empty() const { return mVector.empty(); }
    const_iterator begin() const { return mVector.begin(); }
    const_iterator end() const { return mVector.end(); }
    void clear() {
        mVector.clear();
        mSet.clear();
    }

  private:
    std::vector<T> mVector;
    std::unordered_set<T, Hash> mSet;
};

} // namespace util
