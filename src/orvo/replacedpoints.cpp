// Points through their replacements. What stands at a point is kept apart from its name, which the next one may take.
#include "orvo/replacedpoints.h"

#include "orvo/scheduleconstraints.h"

#include <orvo/block.h>
#include <orvo/corevalues.h>

#include <algorithm>
#include <unordered_set>

namespace orvo::internal {

namespace {

/// Whether a name was made from another, by what taking blocks apart puts behind it.
bool isMadeFrom(PureValueRef name, const PureValueRef &base) {
    while (!(name == base)) {
        const PureTupleValueRef tuple = pureTupleVR(name);
        if (!tuple || tuple->size() == 0) {
            return false;
        }
        const bool isDuplicate = tuple->size() == 3 && tuple->at(0) == A_DUPLICATE_NAME;
        name = tuple->at(isDuplicate ? 2 : 0);
    }
    return true;
}

} // namespace

void ReplacedPoints::tell(const Block &oldBlock, const PureValueRef &oldName, const Block &newBlock,
                          const PureValueRef &newName, const StaticString &param) {
    mContext = oldBlock.getContext();
    hold(oldBlock, param);
    noteSubstitute(oldBlock.getName(), newBlock.getName());
    mSuccessors.insert(newBlock.getName());
    replace(pointOf(oldBlock.getName(), oldName), pointOf(newBlock.getName(), newName));
}

PureTupleValueRef ReplacedPoints::pointOf(const PureValueRef &block, const PureValueRef &name) const {
    return PureTupleValue::get(block, name, mContext);
}

void ReplacedPoints::hold(const Block &oldBlock, const StaticString &param) {
    const auto [held, isNew] = mOldBlocks.try_emplace(oldBlock.getName());
    if (!isNew) {
        return;
    }
    for (const ValueRef &value : elementsOf(oldBlock.findParam(param))) {
        if (const TupleValue *entry = asEntry(value.get_ptr())) {
            held->second.byKey[entry->at(kEntryKey).get_ptr()].push_back(value);
            held->second.entries.insert(value.get_ptr());
        }
    }
}

void ReplacedPoints::noteSubstitute(const PureValueRef &oldBlock, const PureValueRef &newBlock) {
    if (newBlock == oldBlock || !isMadeFrom(newBlock, oldBlock)) {
        return;
    }
    std::vector<PureValueRef> &originals = mSubstitutes[newBlock];
    if (std::find(originals.begin(), originals.end(), oldBlock) == originals.end()) {
        originals.push_back(oldBlock);
    }
}

std::size_t ReplacedPoints::stand(const PureTupleValueRef &point) {
    mStands.push_back({point, {}});
    return mStands.size() - 1;
}

ReplacedPoints::Place &ReplacedPoints::place(const PureTupleValueRef &point) {
    const auto [known, isNew] = mPlaces.try_emplace(point, Place{0, 0, kNoStep});
    if (isNew) {
        known->second.first = known->second.now = stand(point);
    }
    return known->second;
}

void ReplacedPoints::replace(const PureTupleValueRef &oldPoint, const PureTupleValueRef &newPoint) {
    Place &from = place(oldPoint);
    if (from.step == kNoStep) {
        from.step = from.now;
        if (from.step == from.first) {
            mOldPoints.push_back(oldPoint);
        }
    }
    const std::size_t step = from.step;
    Place &to = place(newPoint);
    if (to.step == to.now) {
        to.now = stand(newPoint);
    }
    if (!(newPoint == oldPoint)) {
        to.step = kNoStep;
    }
    mStands[step].next.push_back(to.now);
}

bool ReplacedPoints::isReplaced(const PureTupleValueRef &point) const {
    const auto known = mPlaces.find(point);
    return known != mPlaces.end() && !mStands[known->second.first].next.empty();
}

std::vector<PureTupleValueRef> ReplacedPoints::latest(const PureTupleValueRef &point) const {
    std::vector<PureTupleValueRef> points;
    if (!isReplaced(point)) {
        return points;
    }
    // What takes a place stands there when it is told, so that no way leads back.
    std::unordered_set<std::size_t> met;
    std::vector<std::size_t> open{mPlaces.at(point).first};
    while (!open.empty()) {
        const std::size_t at = open.back();
        open.pop_back();
        if (!met.insert(at).second) {
            continue;
        }
        const Stand &stand = mStands[at];
        if (stand.next.empty()) {
            points.push_back(stand.point);
        }
        open.insert(open.end(), stand.next.rbegin(), stand.next.rend());
    }
    return points;
}

std::vector<ReplacedPoints::HeldEntry> ReplacedPoints::heldEntries() const {
    std::vector<HeldEntry> held;
    for (const PureTupleValueRef &point : mOldPoints) {
        const OldBlock &block = mOldBlocks.at(point->at(0));
        const PureValueRef key = point->at(1);
        const auto entries = block.byKey.find(key.get_ptr());
        if (entries == block.byKey.end()) {
            continue;
        }
        for (const ValueRef &entry : entries->second) {
            if (!givenFrom(point->at(0), entry)) {
                held.push_back({point, entry});
            }
        }
    }
    return held;
}

PureTupleValueRef ReplacedPoints::givenFrom(const PureValueRef &block, const ValueRef &entry) const {
    const auto originals = mSubstitutes.find(block);
    if (originals == mSubstitutes.end()) {
        return {};
    }
    for (const PureValueRef &original : originals->second) {
        if (mOldBlocks.at(original).entries.count(entry.get_ptr()) == 0) {
            continue;
        }
        if (const PureTupleValueRef before = givenFrom(original, entry)) {
            return before;
        }
        const PureTupleValueRef point = pointOf(original, asEntry(entry.get_ptr())->at(kEntryKey));
        if (isReplaced(point)) {
            return point;
        }
    }
    return {};
}

PureTupleValueRef ReplacedPoints::replacedPoint(const Block &block, const ValueRef &entry) const {
    const TupleValue *tuple = asEntry(entry.get_ptr());
    const PureValueRef key = tuple == nullptr ? PureValueRef() : PureValueRef(tuple->at(kEntryKey));
    if (!key || empty()) {
        return {};
    }
    if (const PureTupleValueRef given = givenFrom(block.getName(), entry)) {
        return given;
    }
    const PureTupleValueRef own = pointOf(block.getName(), key);
    return isReplaced(own) ? own : PureTupleValueRef();
}

} // namespace orvo::internal
