// Following readers from the unknown words on.
#include "sim/unknowncone.h"

#include <algorithm>
#include <utility>

namespace orvo::sim {

namespace {

/// Readers of a word or of a state, as pairs in order: the word, the number of the operation.
using Readers = std::vector<std::pair<std::uint32_t, std::uint32_t>>;

class Search {
  public:
    explicit Search(const Program &program) : mProgram(program), mReached(program.initial.size()) {
        const std::size_t count = program.ops.size() + program.commits.size();
        mVisited.resize(count);
        for (std::uint32_t number = 0; number < count; ++number) {
            const Op &op = at(number);
            for (std::uint32_t i = 0; i < op.count; ++i) {
                mReaders.emplace_back(op.in[i].at, number);
            }
            if (op.stateWords != 0) {
                mStateReaders.emplace_back(op.state, number);
            }
        }
        std::sort(mReaders.begin(), mReaders.end());
        std::sort(mStateReaders.begin(), mStateReaders.end());
    }
    UnknownCone run() {
        for (const Operand &unknown : mProgram.unknowns) {
            reach(unknown.at);
        }
        for (const Operand &unknown : mProgram.unknownState) {
            // The state that holds the word begins at the last start before it.
            const auto behind =
                std::upper_bound(mStateReaders.begin(), mStateReaders.end(), std::pair(unknown.at, ~std::uint32_t{0}));
            if (behind != mStateReaders.begin()) {
                visitReaders(mStateReaders, std::prev(behind)->first);
            }
        }
        while (!mWaiting.empty()) {
            const std::uint32_t number = mWaiting.back();
            mWaiting.pop_back();
            if (number < mProgram.ops.size()) {
                reach(at(number).out.at);
            }
            // A state is kept in all runs or in one: who reads it needs those who write it.
            if (at(number).stateWords != 0) {
                visitReaders(mStateReaders, at(number).state);
            }
        }
        return collected();
    }

  private:
    const Op &at(std::uint32_t number) const {
        const std::size_t ops = mProgram.ops.size();
        return number < ops ? mProgram.ops[number] : mProgram.commits[number - ops];
    }
    void visitReaders(const Readers &readers, std::uint32_t word) {
        for (auto reader = std::lower_bound(readers.begin(), readers.end(), std::pair(word, 0U));
             reader != readers.end() && reader->first == word; ++reader) {
            if (!mVisited[reader->second]) {
                mVisited[reader->second] = true;
                mWaiting.push_back(reader->second);
            }
        }
    }
    void reach(std::uint32_t word) {
        if (!mReached[word]) {
            mReached[word] = true;
            visitReaders(mReaders, word);
        }
    }
    UnknownCone collected() {
        UnknownCone cone;
        std::vector<bool> isRead(mReached.size());
        for (std::uint32_t number = 0; number < mVisited.size(); ++number) {
            if (!mVisited[number]) {
                continue;
            }
            const Op &op = at(number);
            (number < mProgram.ops.size() ? cone.ops : cone.commits).push_back(op);
            for (std::uint32_t i = 0; i < op.count; ++i) {
                if (const Operand &in = op.in[i]; !mReached[in.at] && !isRead[in.at]) {
                    isRead[in.at] = true;
                    cone.read.push_back(in);
                }
            }
        }
        cone.reached = std::move(mReached);
        return cone;
    }

    const Program &mProgram;
    std::vector<bool> mReached;
    std::vector<bool> mVisited;
    std::vector<std::uint32_t> mWaiting;
    Readers mReaders;
    Readers mStateReaders;
};

} // namespace

UnknownCone unknownConeOf(const Program &program) { return Search(program).run(); }

} // namespace orvo::sim
