// Children and parameters of nodes are sorted, so that two designs are compared by walking both at once.
#include "driver/designdiff.h"

#include <orvo/block.h>
#include <orvo/corevalues.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <concepts>
#include <optional>

namespace orvo::driver {

namespace {

using What = DesignChange::What;
using How = DesignChange::How;

/// Calls `pair(a, b)` for each key of the two sorted ranges, with null for what one of them lacks.
template <class Iterator, class Pair>
void forEachPair(Iterator a, const Iterator &aEnd, Iterator b, const Iterator &bEnd, Pair pair) {
    const DeepValueCmp isLess;
    while (a != aEnd || b != bEnd) {
        const bool onlyA = b == bEnd || (a != aEnd && isLess((*a).first, (*b).first));
        const bool onlyB = !onlyA && (a == aEnd || isLess((*b).first, (*a).first));
        std::optional<std::decay_t<decltype(*a)>> left;
        std::optional<std::decay_t<decltype(*b)>> right;
        if (!onlyB) {
            left.emplace(*a);
            ++a;
        }
        if (!onlyA) {
            right.emplace(*b);
            ++b;
        }
        pair(left ? &*left : nullptr, right ? &*right : nullptr);
    }
}

How howOf(const void *before, const void *after) {
    return before == nullptr ? How::Added : after == nullptr ? How::Removed : How::Changed;
}

bool isWire(const ValueRef &value) { return value && Node::from<Wire>(value) != nullptr; }

/// A wire as block/wire, one outside the model with its own in front, anything else as its text.
std::string textOf(const ValueRef &value, const std::string &model) {
    if (!value) {
        return {};
    }
    if (const Wire *wire = Node::from<Wire>(value)) {
        const std::string of = wire->getBlock().getModel().getName()->toString();
        return (of == model ? "" : of + "/") + wire->getBlock().getName()->toString() + "/" +
               wire->getName()->toString();
    }
    return value->toString();
}

/// References to nodes are equal if their paths are; all else is one object if it is equal.
bool areEqual(const ValueRef &before, const ValueRef &after) {
    return before == after || (before && after && !(PureValueRef(before) && PureValueRef(after)) &&
                               before->toString() == after->toString());
}

class Comparison {
  public:
    explicit Comparison(std::size_t most) : mMost(most) {}

    DesignDiff take() { return std::move(mDiff); }

    void compare(const Design &before, const Design &after) {
        compareParams(before, after, {What::Param, How::Changed, "", "", "", "", "", "", ""});
        forEachPair(children(before), childrenEnd(before), children(after), childrenEnd(after), [&](auto *a, auto *b) {
            const auto *was = a == nullptr ? nullptr : static_cast<const Model *>(a->second);
            const auto *is = b == nullptr ? nullptr : static_cast<const Model *>(b->second);
            const std::size_t known = mDiff.count;
            compareModels(was, is);
            mDiff.models += mDiff.count == known ? 0 : 1;
        });
    }

  private:
    static Node::iterator children(const Node &node) { return node.begin(); }
    static Node::iterator childrenEnd(const Node &node) { return node.end(); }

    void add(DesignChange change) {
        ++mDiff.count;
        if (mDiff.changes.size() < mMost) {
            mDiff.changes.push_back(std::move(change));
        }
    }

    void compareModels(const Model *before, const Model *after) {
        const std::string name = (before != nullptr ? before : after)->getName()->toString();
        if (before == nullptr || after == nullptr) {
            add({What::Model, howOf(before, after), name, "", "", "", "", "", ""});
            (before == nullptr ? mDiff.blocksAdded : mDiff.blocksRemoved) +=
                (before == nullptr ? after : before)->size();
            return;
        }
        compareParams(*before, *after, {What::Param, How::Changed, name, "", "", "", "", "", ""});
        forEachPair(children(*before), childrenEnd(*before), children(*after), childrenEnd(*after),
                    [&](auto *a, auto *b) {
                        compareBlocks(name, a == nullptr ? nullptr : static_cast<const Block *>(a->second),
                                      b == nullptr ? nullptr : static_cast<const Block *>(b->second));
                    });
    }

    void compareBlocks(const std::string &model, const Block *before, const Block *after) {
        const Block &known = after != nullptr ? *after : *before;
        const auto change = [&](What what) {
            return DesignChange{what,
                                How::Changed,
                                model,
                                known.getName()->toString(),
                                known.type() == nullptr ? "" : known.type()->toString(),
                                "",
                                "",
                                "",
                                ""};
        };
        if (before == nullptr || after == nullptr) {
            DesignChange whole = change(What::Block);
            whole.how = howOf(before, after);
            add(std::move(whole));
            ++(before == nullptr ? mDiff.blocksAdded : mDiff.blocksRemoved);
            return;
        }
        const std::size_t count = mDiff.count;
        compareParams(*before, *after, change);
        forEachPair(children(*before), childrenEnd(*before), children(*after), childrenEnd(*after),
                    [&](auto *a, auto *b) {
                        const PureValueRef &name = (a != nullptr ? a : b)->second->getName();
                        if (a != nullptr && b != nullptr) {
                            compareParams(*a->second, *b->second, [&] {
                                DesignChange ofWire = change(What::WireParam);
                                ofWire.name = name->toString();
                                return ofWire;
                            });
                            return;
                        }
                        DesignChange wire = change(What::Wire);
                        wire.how = howOf(a, b);
                        wire.name = name->toString();
                        add(std::move(wire));
                    });
        mDiff.blocksChanged += mDiff.count == count ? 0 : 1;
    }

    void compareParams(const Node &before, const Node &after, const DesignChange &change) {
        compareParams(before, after, [&change] { return change; });
    }
    void compareParams(const Block &before, const Block &after, const auto &changeOf) {
        compareParams(static_cast<const Node &>(before), after, [&changeOf] { return changeOf(What::Param); });
    }
    void compareParams(const Node &before, const Node &after, const std::invocable auto &changeOf) {
        forEachPair(before.param_begin(), before.param_end(), after.param_begin(), after.param_end(),
                    [&](auto *a, auto *b) {
                        const ValueRef was = a == nullptr ? ValueRef() : ValueRef(a->second);
                        const ValueRef is = b == nullptr ? ValueRef() : ValueRef(b->second);
                        if (areEqual(was, is)) {
                            return;
                        }
                        DesignChange change = changeOf();
                        change.how = howOf(a, b);
                        std::string &name = change.what == What::WireParam ? change.param : change.name;
                        name = (a != nullptr ? a : b)->first->toString();
                        const bool isOfBlock = change.what == What::Param && !change.block.empty();
                        change.what = isOfBlock && (isWire(was) || isWire(is)) ? What::Port : change.what;
                        change.before = textOf(was, change.model);
                        change.after = textOf(is, change.model);
                        add(std::move(change));
                    });
    }

    std::size_t mMost;
    DesignDiff mDiff;
};

} // namespace

DesignDiff diffDesigns(const Design &before, const Design &after, std::size_t most) {
    Comparison comparison(most);
    comparison.compare(before, after);
    return comparison.take();
}

} // namespace orvo::driver
