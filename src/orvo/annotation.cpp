// The metadata of blocks and the sections of their transfer.
#include <orvo/annotation.h>

#include <orvo/block.h>
#include <orvo/logging.h>
#include <orvo/staticstrings.h>

#include <algorithm>
#include <initializer_list>

namespace orvo {

MetadataManipulator::MetadataManipulator(Block &block) : mBlock(block) {}

MetadataManipulator::~MetadataManipulator() {
    if (mAdded) {
        mBlock.setParam(A_METADATA, getTuple());
    }
}

void MetadataManipulator::setup() const {
    if (mRead) {
        return;
    }
    mRead = true;
    if (PureTupleValueRef present = pureTupleVR(mBlock.getParam(A_METADATA)); present) {
        mEntries.assign(present->begin(), present->end());
    }
}

bool MetadataManipulator::contains(const PureValueRef &entry) const {
    return std::any_of(mEntries.begin(), mEntries.end(), [&](const PureValueRef &have) { return have == entry; });
}

void MetadataManipulator::append(const PureValueRef &a, const PureValueRef &b) {
    appendToVector(PureTupleValue::get(a, b, mBlock.getContext()));
}

void MetadataManipulator::append(const PureValueRef &a, const PureValueRef &b, const PureValueRef &c) {
    appendToVector(PureTupleValue::get(a, b, c, mBlock.getContext()));
}

void MetadataManipulator::append(const PureValueRef &a, const PureValueRef &b, const PureValueRef &c,
                                 const PureValueRef &d) {
    appendToVector(PureTupleValue::get(a, b, c, d, mBlock.getContext()));
}

void MetadataManipulator::append(const PureValueRef &a, const PureValueRef &b, const PureValueRef &c,
                                 const PureValueRef &d, const PureValueRef &e) {
    appendToVector(PureTupleValue::get(a, b, c, d, e, mBlock.getContext()));
}

void MetadataManipulator::append(const PureValueRef &a, const PureValueRef &b, const PureValueRef &c,
                                 const PureValueRef &d, const PureValueRef &e, const PureValueRef &f) {
    appendToVector(PureTupleValue::get(std::vector<PureValueRef>{a, b, c, d, e, f}, mBlock.getContext()));
}

void MetadataManipulator::appendToVector(const PureValueRef &entry) {
    if (!entry) {
        return;
    }
    setup();
    mEntries.push_back(entry);
    mAdded = true;
}

void MetadataManipulator::appendFrom(const PureTupleValueRef &entries, bool unique) {
    if (!entries) {
        return;
    }
    setup();
    for (const PureValueRef &entry : *entries) {
        if (!unique || !contains(entry)) {
            appendToVector(entry);
        }
    }
}

void MetadataManipulator::appendFrom(const MetadataManipulator &other) {
    ORVO_ASSERT(&other != this && &other.mBlock != &mBlock, "a block's metadata would be added to itself");
    appendFrom(other.getTuple(), true);
}

PureTupleValueRef MetadataManipulator::getTuple() const {
    setup();
    return mEntries.empty() ? PureTupleValueRef() : PureTupleValue::get(mEntries, mBlock.getContext());
}

std::size_t MetadataManipulator::size() const {
    setup();
    return mEntries.size();
}

void TransferMetadataListener::push() { ++mOpenSections; }

void TransferMetadataListener::pop() {
    ORVO_ASSERT(mOpenSections > 0, "a section of metadata transfer is closed that was not opened");
    --mOpenSections;
}

} // namespace orvo
