// Trees of packs and unpacks.
#include <orvo/signalpacker.h>

#include <orvo/block.h>
#include <orvo/logging.h>
#include <orvo/staticstrings.h>

#include <map>
#include <string>

namespace orvo {

namespace internal {

namespace {

/// How a level of one kind is packed and unpacked. Parts of a complex number have names, others numbers.
struct Level {
    const StaticString *pack;
    const StaticString *packOut;
    const char *packWord;
    const StaticString *unpack;
    const StaticString *unpackIn;
    const char *unpackWord;
};

const Level kAggregate{&A_APACK_BLOCK, &A_APACK_WIRE_OUT, "ap", &A_AUNPACK_BLOCK, &A_AUNPACK_PORT_IN, "aup"};
const Level kVector{&A_VPACK_BLOCK, &A_VPACK_WIRE_OUT, "vp", &A_VUNPACK_BLOCK, &A_VUNPACK_PORT_IN, "vup"};
const Level kComplex{&A_CPACK_BLOCK, &A_CPACK_WIRE_OUT, "cp", &A_CUNPACK_BLOCK, &A_CUNPACK_PORT_IN, "cup"};

const Level &levelOf(const CompoundTypeInfo &shape) {
    return shape.topLevelIsAggregate() ? kAggregate : shape.topLevelIsVector() ? kVector : kComplex;
}

} // namespace

class SignalPackerImpl {
  public:
    SignalPackerImpl(const CompoundTypeInfo &shape, Model &model, const PureValueRef &name)
        : mShape(shape), mModel(model), mName(name), mContext(model.getContext()) {}

    const CompoundTypeInfo &shape() const { return mShape; }

    void doUnpackOnType(Wire &wire, const CompoundTypeInfo &shape, const CompoundDecorIndex &prefix) {
        if (!shape.valid()) {
            mLeaves.emplace(prefix, &wire);
            return;
        }
        const Level &level = levelOf(shape);
        Block &unpack = create(*level.unpack, level.unpackWord, prefix);
        unpack.setParam(*level.unpackIn, wire);
        for (int i = 0; i < static_cast<int>(shape.size_shallow()); ++i) {
            Wire &part = *Wire::create(unpack, keyOf(shape, i, A_CUNPACK_WIRE_REAL, A_CUNPACK_WIRE_IMAG));
            doUnpackOnType(part, shape.getLevelBelow(i), prefix << shape.getIndexShallow(i));
        }
    }

    void doPackOnType(const std::vector<MaybePort> &ports, const CompoundTypeInfo &shape,
                      const CompoundDecorIndex &prefix) {
        if (!shape.valid()) {
            mPorts.emplace(prefix, ports);
            return;
        }
        const Level &level = levelOf(shape);
        Block &pack = create(*level.pack, level.packWord, prefix);
        Wire &whole = *Wire::create(pack, *level.packOut);
        for (const MaybePort &port : ports) {
            port.setWire(whole);
        }
        for (int i = 0; i < static_cast<int>(shape.size_shallow()); ++i) {
            const MaybePort part(pack, keyOf(shape, i, A_CPACK_PORT_REAL, A_CPACK_PORT_IMAG));
            doPackOnType({part}, shape.getLevelBelow(i), prefix << shape.getIndexShallow(i));
        }
    }

    Wire *leafWire(const CompoundDecorIndex &index) const {
        const auto at = mLeaves.find(index);
        return at == mLeaves.end() ? nullptr : at->second;
    }
    std::vector<MaybePort> leafPorts(const CompoundDecorIndex &index) const {
        const auto at = mPorts.find(index);
        return at == mPorts.end() ? std::vector<MaybePort>() : at->second;
    }

  private:
    Block &create(const StaticString &type, const char *word, const CompoundDecorIndex &prefix) {
        std::vector<PureValueRef> name{mName, StringValue::get(word, mContext)};
        for (const CompoundDecorIndex::Step &step : prefix.steps()) {
            name.emplace_back(NumberValue::get(step.index, mContext));
        }
        Block &block = *Block::create(mModel, PureTupleValue::get(name, mContext));
        block.setParam(A_BLOCK_TYPE, type);
        return block;
    }

    PureValueRef keyOf(const CompoundTypeInfo &shape, int element, const StaticString &real,
                       const StaticString &imaginary) const {
        if (!shape.topLevelIsComplex()) {
            return NumberValue::get(element, mContext);
        }
        ORVO_ASSERT(element < 2, "a complex number has more than two parts");
        return element == 0 ? real : imaginary;
    }

    CompoundTypeInfo mShape;
    Model &mModel;
    PureValueRef mName;
    Context *mContext;
    std::map<CompoundDecorIndex, Wire *> mLeaves;
    std::map<CompoundDecorIndex, std::vector<MaybePort>> mPorts;
};

} // namespace internal

SignalPacker::SignalPacker(const CompoundTypeInfo &shape, Model &model, const PureValueRef &name)
    : mImpl(std::make_unique<internal::SignalPackerImpl>(shape, model, name)) {}

SignalPacker::~SignalPacker() = default;

void SignalPacker::doUnpack(Wire &wire) {
    mImpl->doUnpackOnType(wire, mImpl->shape(), CompoundDecorIndex::createEmptyIndex());
}

void SignalPacker::doPack(const std::vector<MaybePort> &ports) {
    if (!ports.empty()) {
        mImpl->doPackOnType(ports, mImpl->shape(), CompoundDecorIndex::createEmptyIndex());
    }
}

Wire *SignalPacker::getUnpackedWire(const CompoundDecorIndex &index) const { return mImpl->leafWire(index); }

std::vector<MaybePort> SignalPacker::getPackedPorts(const CompoundDecorIndex &index) const {
    return mImpl->leafPorts(index);
}

} // namespace orvo
