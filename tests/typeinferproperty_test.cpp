// What holds of the inference on any design: the answers depend on nothing but the design.
#include <orvo/typeinferpass.h>

#include "support/typetable.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/logging.h>
#include <orvo/model.h>
#include <orvo/modeltreepass.h>
#include <orvo/staticstrings.h>
#include <orvo/types.h>
#include <orvo/wire.h>
#include <orvo/xmlservices.h>

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <random>
#include <sstream>

namespace orvo {
namespace {

struct CountedMessages final : ContextListener {
    void onMessage(int, const char *, const log::LogParams &) override { ++count; }
    int count = 0;
};

/// The types of all wires, in all instances, by the places of the wires.
using Answers = std::map<std::string, std::string>;

/// An end to ask for: a wire in one instance.
struct Question {
    std::string place;
    const Wire *wire;
    RefChain chain;
};

std::vector<Question> questionsOf(const Design &design) {
    std::vector<Question> all;
    const auto ask = [&all](const Model &model, const RefChain &chain, const std::string &place) {
        for (const Block &block : model) {
            for (const Wire &wire : block) {
                all.push_back({place + block.getName()->toString() + "/" + wire.getName()->toString(), &wire, chain});
            }
        }
    };
    for (const Model &model : design) {
        if (!model.getParentBlocks().empty()) {
            continue;
        }
        ask(model, {}, "");
        for (const Block &block : model) {
            if (block.type() == A_MODEL_BLOCK.get_ptr()) {
                ask(*Node::from<Model>(block[A_MODEL_NODE]), {&block}, block.getName()->toString() + "/");
            }
        }
    }
    return all;
}

Answers answersTo(const std::vector<Question> &questions, GlobalTypePass &types) {
    Answers answers;
    for (const Question &question : questions) {
        answers[question.place] = readableType(types.getType(*question.wire, question.chain).get_ptr());
    }
    return answers;
}

/// A design with operations, delays, casts, compounds, records, a ring and two models below, drawn from numbers.
class DrawnDesign {
  public:
    /// `naming` decides the names, and so the order of the blocks; the structure does not depend on it.
    DrawnDesign(Context *context, const std::vector<std::uint32_t> &drawn, unsigned naming)
        : design(std::make_unique<Design>(context)), mNaming(naming), mRandom(naming) {
        mTop = Model::create(*design, "top");
        for (const char *text : {"s8.4", "u3.0", "[4] s2.0", "complex s1.7", "float(23,8)"}) {
            mWires.push_back(&pinned(text));
        }
        Model &negator = *drawModel("below", A_NEG_BLOCK);
        Model &holder = *drawModel("hold", A_DELAY_BLOCK);
        for (const std::uint32_t number : drawn) {
            draw(number, number / 7 % 2 == 0 ? negator : holder);
        }
        drawRing();
    }

    std::unique_ptr<Design> design;
    /// The blocks of the top model in the order of their making, whatever their names.
    std::vector<Block *> blocks;

  private:
    PureValueRef value(const std::string &text) { return PureValueRef(Value::parse(text, design->getContext())); }
    Block &make(const StaticString &type) {
        // Names that sort in any order; in the reference, in the order of making.
        const unsigned random = mNaming == 0 ? 0 : static_cast<unsigned>(mRandom() % 1000);
        const std::size_t number = 10000 + blocks.size();
        blocks.push_back(Block::create(*mTop, "b" + std::to_string(random) + "_" + std::to_string(number), type));
        return *blocks.back();
    }
    Wire &pinned(const std::string &text) {
        Block &block = make(A_TYPE_PIN_BLOCK);
        block.setParam(A_TYPE_PIN_TYPE, value(testing::typeText(text)));
        return *Wire::create(block, A_PRIM_WIRE_OUT);
    }
    Wire &operation(const StaticString &type, std::initializer_list<Wire *> inputs) {
        Block &block = make(type);
        int port = 0;
        for (Wire *wire : inputs) {
            block.setParam(NumberValue::get(port++, design->getContext()), *wire);
        }
        return *Wire::create(block, A_PRIM_WIRE_OUT);
    }
    Model *drawModel(const char *name, const StaticString &type) {
        Model *model = Model::create(*design, name);
        Wire &input = *Wire::create(*Block::create(*model, "in", A_INPUT_BLOCK), value("x"));
        Block &block = *Block::create(*model, "inner", type);
        block.setParam(value("0"), input);
        Block::create(*model, "out", A_OUTPUT_BLOCK)->setParam(value("y"), *Wire::create(block, A_PRIM_WIRE_OUT));
        return model;
    }
    void draw(std::uint32_t number, Model &below) {
        Wire *a = mWires[number / 64 % mWires.size()];
        Wire *b = mWires[number / 4096 % mWires.size()];
        switch (number % 7) {
        case 0:
            mWires.push_back(&operation(A_ADD_BLOCK, {a, b}));
            break;
        case 1:
            mWires.push_back(&operation(A_DELAY_BLOCK, {a}));
            break;
        case 2: {
            Block &block = make(A_MODEL_BLOCK);
            block.setParam(A_MODEL_NODE, below);
            block.setParam(value("x"), *a);
            mWires.push_back(Wire::create(block, value("y")));
            break;
        }
        case 3: {
            Block &block = make(A_CPACK_BLOCK);
            block.setParam(A_CPACK_PORT_REAL, *a);
            block.setParam(A_CPACK_PORT_IMAG, *a);
            mWires.push_back(Wire::create(block, A_CPACK_WIRE_OUT));
            break;
        }
        case 4: {
            Block &pack = make(A_APACK_BLOCK);
            pack.setParam(value("0"), *a);
            pack.setParam(value("1"), *b);
            Block &unpack = make(A_AUNPACK_BLOCK);
            unpack.setParam(A_AUNPACK_PORT_IN, *Wire::create(pack, A_APACK_WIRE_OUT));
            Wire::create(unpack, value("0"));
            mWires.push_back(Wire::create(unpack, value("1")));
            break;
        }
        case 5:
            mWires.push_back(&operation(A_MULT_BLOCK, {a, b}));
            break;
        default:
            mWires.push_back(&operation(A_CMP_EQ_BLOCK, {a, b}));
        }
    }
    /// Typed at one place.
    void drawRing() {
        Wire &first = operation(A_DELAY_BLOCK, {});
        Wire *last = &first;
        for (int i = 0; i < 5; ++i) {
            last = &operation(A_DELAY_BLOCK, {last});
        }
        first.getBlock().setParam(value("0"), *last);
        Block &pin = make(A_TYPE_PIN_BLOCK);
        pin.setParam(A_TYPE_PIN_TYPE, value(testing::typeText("s9.0")));
        pin.setParam(value("0"), *last);
    }

    Model *mTop;
    std::vector<Wire *> mWires;
    unsigned mNaming;
    std::mt19937 mRandom;
};

class TypeProperty : public ::testing::Test {
  protected:
    TypeProperty() { mgr.context()->setListener(&messages); }
    ~TypeProperty() override { mgr.context()->setListener(nullptr); }
    ContextMgr mgr;
    CountedMessages messages;
};

Answers inferred(const Design &design) {
    GlobalTypePass types;
    return answersTo(questionsOf(design), types);
}

std::vector<std::uint32_t> drawn() {
    return *rc::gen::container<std::vector<std::uint32_t>>(rc::gen::arbitrary<std::uint32_t>());
}

RC_GTEST_FIXTURE_PROP(TypeProperty, doesNotDependOnTheOrderOfQueries, ()) {
    const DrawnDesign drawing(mgr.context(), drawn(), 0);
    const Answers expected = inferred(*drawing.design);
    std::vector<Question> questions = questionsOf(*drawing.design);
    const auto seed = *rc::gen::arbitrary<unsigned>();
    std::shuffle(questions.begin(), questions.end(), std::mt19937(seed));
    GlobalTypePass types;
    RC_ASSERT(answersTo(questions, types) == expected);
    RC_ASSERT(messages.count == 0);
}

RC_GTEST_FIXTURE_PROP(TypeProperty, doesNotDependOnMinimalSets, ()) {
    const DrawnDesign drawing(mgr.context(), drawn(), 0);
    const Answers expected = inferred(*drawing.design);
    std::vector<Question> questions = questionsOf(*drawing.design);
    std::shuffle(questions.begin(), questions.end(), std::mt19937(*rc::gen::arbitrary<unsigned>()));
    ModelTreePass tree;
    tree.bindEvents(*drawing.design);
    GlobalTypePass types;
    types.enableMinimalSet(&tree);
    types.limitMinimalSetSize(*rc::gen::inRange<std::size_t>(1, 40));
    RC_ASSERT(answersTo(questions, types) == expected);
    RC_ASSERT(messages.count == 0);
    tree.unbindEvents();
}

RC_GTEST_FIXTURE_PROP(TypeProperty, doesNotDependOnNames, ()) {
    const auto numbers = drawn();
    const auto inOrder = [](const DrawnDesign &drawing) {
        GlobalTypePass types;
        std::vector<std::string> found;
        for (const Block *block : drawing.blocks) {
            for (const Wire &wire : *block) {
                found.push_back(readableType(types.getType(wire, {}).get_ptr()));
            }
        }
        return found;
    };
    const auto naming = *rc::gen::inRange(1U, 100000U);
    RC_ASSERT(inOrder(DrawnDesign(mgr.context(), numbers, 0)) == inOrder(DrawnDesign(mgr.context(), numbers, naming)));
}

RC_GTEST_FIXTURE_PROP(TypeProperty, staysTheSameWhenTheDesignIsWrittenAndRead, ()) {
    const DrawnDesign drawing(mgr.context(), drawn(), 7);
    std::stringstream text;
    XMLServices().toXML(text, *drawing.design);
    Design read(mgr.context());
    RC_ASSERT(XMLServices().fromXML(text, read, XMLServices::defaultErrorFunc));
    RC_ASSERT(inferred(read) == inferred(*drawing.design));
}

RC_GTEST_FIXTURE_PROP(TypeProperty, comesBackWhenEditsAreTakenBack, ()) {
    const DrawnDesign drawing(mgr.context(), drawn(), 0);
    const std::vector<Question> questions = questionsOf(*drawing.design);
    GlobalTypePass types;
    types.bindEvents(*drawing.design);
    const Answers before = answersTo(questions, types);
    struct Edit {
        Block *block;
        PureValueRef key;
        ValueRef old;
    };
    std::vector<Edit> edits;
    for (int left = *rc::gen::inRange(1, 12); left > 0; --left) {
        Block *block = *rc::gen::elementOf(drawing.blocks);
        std::vector<PureValueRef> keys;
        for (auto param = block->param_begin(); param != block->param_end(); ++param) {
            keys.emplace_back((*param).first);
        }
        // By index: what a generator gives may outlive the context.
        const PureValueRef key = keys[*rc::gen::inRange<std::size_t>(0, keys.size())];
        const ValueRef old = (*block)[key];
        const bool drops = *rc::gen::arbitrary<bool>();
        Block *other = *rc::gen::elementOf(drawing.blocks);
        const ValueRef instead = drops ? ValueRef() : (*other)[key];
        edits.push_back({block, key, old});
        block->setParam(key, instead);
        // What is asked in between is of no other design than the one at hand.
        const Question &question = questions[*rc::gen::inRange<std::size_t>(0, questions.size())];
        GlobalTypePass fresh;
        const bool hasConflict = messages.count != 0;
        const auto now = types.getType(*question.wire, question.chain);
        if (!hasConflict && messages.count == 0) {
            RC_ASSERT(now.get_ptr() == fresh.getType(*question.wire, question.chain).get_ptr());
        }
    }
    for (auto edit = edits.rbegin(); edit != edits.rend(); ++edit) {
        edit->block->setParam(edit->key, edit->old);
    }
    RC_ASSERT(answersTo(questions, types) == before);
    types.unbindEvents();
}

RC_GTEST_FIXTURE_PROP(TypeProperty, onlyGoesFromUnknownToKnown, ()) {
    const DrawnDesign drawing(mgr.context(), drawn(), 0);
    std::vector<Question> questions = questionsOf(*drawing.design);
    ModelTreePass tree;
    tree.bindEvents(*drawing.design);
    GlobalTypePass types;
    types.enableMinimalSet(&tree);
    types.limitMinimalSetSize(6);
    Answers known;
    // Each query may evaluate more of the design; what was told before stays as it was told.
    for (std::size_t i = 0; i < questions.size(); ++i) {
        const Answers now = answersTo({questions.begin(), questions.begin() + static_cast<std::ptrdiff_t>(i)}, types);
        for (const auto &[place, type] : known) {
            RC_ASSERT(type == "?" || now.at(place) == type);
        }
        known = now;
    }
    tree.unbindEvents();
}

} // namespace
} // namespace orvo
