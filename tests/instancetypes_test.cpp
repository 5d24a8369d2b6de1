// Models that are used twice, with inputs of other widths: one netlist must serve both, whatever comes apart in it.
#include "support/checkedrun.h"
#include "support/lowering.h"
#include "support/randomdesigns.h"
#include "support/samebehaviour.h"

#include <orvo/block.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>
#include <orvo/xmlservices.h>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <regex>
#include <sstream>

namespace orvo {
namespace {

using Lines = std::vector<std::string>;

/// The type with so many bits more before the point of each number but bits, and behind it.
PureValueRef widened(const PureValueRef &type, int before, int behind) {
    static const std::regex number("type([SU])Fixed ([0-9]+) (-?[0-9]+)");
    const std::string text = type->toString();
    std::string made;
    auto rest = text.cbegin();
    for (std::sregex_iterator at(text.begin(), text.end(), number), end; at != end; ++at) {
        made.append(rest, (*at)[0].first);
        const int bits = std::stoi((*at)[2]);
        const bool isBit = bits == 1;
        made += "type" + (*at)[1].str() + "Fixed " + std::to_string(bits + (isBit ? 0 : before + behind)) + " " +
                std::to_string(std::stoi((*at)[3]) + (isBit ? 0 : behind));
        rest = (*at)[0].second;
    }
    made.append(rest, text.cend());
    return PureValueRef(Value::parse(made, type->context()));
}

/// A design by chance, whose top is instantiated twice by "both". Bit i of `wider` tells whether input i of the second
/// instance has more bits, which then need not all be known in what is behind.
std::unique_ptr<Design> makeTwice(ContextMgr &mgr, const std::vector<gen::Recipe> &recipes, std::uint32_t wider,
                                  int before, int behind) {
    Context *context = mgr.context();
    gen::DesignGenerator generator(context);
    std::unique_ptr<Design> design = generator.make(recipes);
    Model &top = *design->getModel(StringValue::get("top", context));
    Model &both = *Model::create(*design, "both");
    both.setParam(A_SYNTH_CLOCK_FREQ, top.getParam(A_SYNTH_CLOCK_FREQ));
    Block &in = *Block::create(both, "in", A_INPUT_BLOCK);
    Block &out = *Block::create(both, "out", A_OUTPUT_BLOCK);
    Block *calls[2] = {};
    for (std::size_t i = 0; i < 2; ++i) {
        calls[i] = Block::create(both, i == 0 ? "first" : "second", A_MODEL_BLOCK);
        calls[i]->setParam(A_MODEL_NODE, top);
    }
    const PureValueRef zero = NumberValue::get(0, context);
    std::uint32_t number = 0;
    for (Wire &wire : *top.getInputBlock()) {
        const bool isWider = ((wider >> number++ % 32) & 1U) != 0;
        if (wire.port_size() == 0) {
            continue;
        }
        // The pin goes around the instances.
        Block &pin = wire.port_begin()->getBlock();
        const PureValueRef type(pin.getParam(A_TYPE_PIN_TYPE));
        pin.getWire(zero)->replace(wire);
        delete &pin;
        for (std::size_t i = 0; i < 2; ++i) {
            const std::string name = wire.getName()->toString() + (i == 0 ? "a" : "b");
            Block &outside = *Block::create(both, "pin" + name, A_TYPE_PIN_BLOCK);
            outside.setParam(A_TYPE_PIN_TYPE, i == 1 && isWider ? widened(type, before, behind) : type);
            outside.setParam(zero, *Wire::create(in, StringValue::get(name, context)));
            calls[i]->setParam(wire.getName(), *Wire::create(outside, zero));
        }
    }
    for (const Port &port : top.getOutputBlock()->ports()) {
        for (std::size_t i = 0; i < 2; ++i) {
            out.setParam(StringValue::get(port.getName()->toString() + (i == 0 ? "a" : "b"), context),
                         *Wire::create(*calls[i], port.getName()));
        }
    }
    return design;
}

/// Whether the types of a design are consistent, and it can be run. What comes scheduled was compiled for one width,
/// and a pin tells one to all instances.
bool isSound(const Design &design) {
    const auto hasOneWidth = [](const Block &block) {
        return block.type() == A_SCHEDULED_MODEL_BLOCK.get_ptr() || block.type() == A_TYPE_PIN_BLOCK.get_ptr();
    };
    for (const Model &model : design) {
        const bool isOutermost = stringVR(model.getName())->str() == "both";
        if (!isOutermost && std::any_of(model.begin(), model.end(), hasOneWidth)) {
            return false;
        }
    }
    test::HeardMessages heard(design.getContext());
    sim::CompareOptions options;
    options.cycles = 1;
    return test::sameBehaviour(design, design, "both", options) && heard.take().empty();
}

bool tellsOfInstances(const std::string &line) {
    return line.find("its signals differ in type between the instances of the model") != std::string::npos;
}

void computesTheSame(const std::vector<const char *> &passes) {
    const auto recipes = *test::recipes(12);
    const auto wider = *rc::gen::arbitrary<std::uint32_t>();
    const int before = *rc::gen::inRange(0, 4);
    const int behind = *rc::gen::inRange(0, 3);
    ContextMgr mgr;
    const auto source = makeTwice(mgr, recipes, wider, before, behind);
    // Not all blocks take numbers of all widths.
    const bool sound = isSound(*source);
    RC_CLASSIFY(sound, "sound");
    if (!sound) {
        return;
    }
    const auto design = makeTwice(mgr, recipes, wider, before, behind);
    Lines heard = test::runChecked(*design, passes);
    RC_CLASSIFY(std::any_of(heard.begin(), heard.end(), tellsOfInstances), "refused");
    std::erase_if(heard, [](const std::string &line) { return test::isRefusal(line) || tellsOfInstances(line); });
    sim::CompareOptions options;
    options.cycles = 40;
    const auto same = test::sameBehaviour(*source, *design, "both", options);
    if (!heard.empty() || !same) {
        std::ostringstream text;
        XMLServices().toXML(text, *source);
        RC_LOG() << (heard.empty() ? "" : heard.front()) << same.message() << text.str();
    }
    RC_ASSERT(heard.empty());
    RC_ASSERT(static_cast<bool>(same));
}

RC_GTEST_PROP(InstancesOfOtherWidths, computeTheSameInParts, ()) { computesTheSame({"UnrollComplexPass"}); }

RC_GTEST_PROP(InstancesOfOtherWidths, computeTheSameInLanes, ()) { computesTheSame({"UnrollVectorPass"}); }

RC_GTEST_PROP(InstancesOfOtherWidths, computeTheSameInMembers, ()) { computesTheSame({"UnrollAggregatePass"}); }

TEST(InstancesOfOtherWidths, areSoundByChance) {
    ContextMgr mgr;
    std::size_t sound = 0;
    for (std::uint64_t seed = 0; seed < 40; ++seed) {
        sound += isSound(*makeTwice(mgr, gen::recipesOf(seed, 8), ~0U, 2, 0)) ? 1 : 0;
    }
    EXPECT_GT(sound, 5U);
}

} // namespace
} // namespace orvo
