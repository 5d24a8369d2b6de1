// One model through one pass that rewrites it: what is drawn then, and that neither what is computed nor the types at
// the outputs have changed.
#pragma once

#include "support/onepass.h"
#include "support/porttypes.h"
#include "support/samebehaviour.h"
#include "support/simulatorfixture.h"
#include "support/typetable.h"

#include "gen/designgenerator.h"

#include <orvo/modeltreepass.h>
#include <orvo/nameorigin.h>
#include <orvo/pass.h>
#include <orvo/typeinferpass.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace orvo::test {

/// Whether a design by chance computes the same after the pass, with the same types at what is still there. Counts the
/// blocks that went.
inline ::testing::AssertionResult computesTheSame(gen::DesignGenerator &generator,
                                                  const std::vector<gen::Recipe> &recipes, const char *pass,
                                                  std::size_t *replaced) {
    const auto before = generator.make(recipes);
    const auto design = generator.make(recipes);
    const auto types = portTypes(*before);
    runPass(*design, pass);
    const NameOrigins origins(*before);
    for (const Model &model : *design) {
        for (const Block &block : model) {
            if (!origins.originOf(block)) {
                return ::testing::AssertionFailure() << block.value()->getPath() << " leads back to no block";
            }
        }
    }
    for (const auto &[port, type] : portTypes(*design)) {
        const auto was = types.find(port);
        if (was != types.end() && was->second != type) {
            return ::testing::AssertionFailure() << port << " was " << was->second << " and is " << type;
        }
    }
    for (const Model &model : *before) {
        const Model &same = *design->getModel(model.getName());
        for (const Block &block : model) {
            if (replaced != nullptr && same.getBlock(block.getName()) == nullptr) {
                ++*replaced;
            }
        }
    }
    sim::CompareOptions options;
    options.cycles = 24;
    options.streams = 1;
    return sameBehaviour(*before, *design, "top", options);
}

class RewriteFixture : public SimulatorFixture {
  protected:
    using Lines = std::vector<std::string>;
    explicit RewriteFixture(const char *pass) : mPass(pass) {}

    /// A block with one output. Its first ports read the wires.
    Block &reading(const std::string &name, const std::string &type, const std::vector<Wire *> &wires,
                   const Texts &params = {}, Model *in = nullptr) {
        Block &made = block(in == nullptr ? model : *in, name, type, params);
        for (std::size_t i = 0; i < wires.size(); ++i) {
            made.setParam(value(std::to_string(i)), *wires[i]);
        }
        Wire::create(made, A_PRIM_WIRE_OUT);
        return made;
    }
    /// A constant of a type in the short form; none for "".
    Wire &constant(const std::string &name, const std::string &type, const std::string &of) {
        Block &made = reading(name, "constBlock", {});
        made.setParam(A_CONST_VALUE, Value::parse(of, mgr.context()));
        if (!type.empty()) {
            made.setParam(A_CONST_TYPE, ValueRef(value(testing::typeText(type))));
        }
        return out(made);
    }
    Block &cast(const std::string &name, Wire &wire, const std::string &type, const Texts &params = {}) {
        Block &made = reading(name, "castBlock", {&wire}, params);
        if (!type.empty()) {
            made.setParam(A_CAST_OUTPUT_TYPE, ValueRef(value(testing::typeText(type))));
        }
        return made;
    }

    void rewrite() { runPass(design, mPass); }
    /// The same for a design that can be simulated.
    void run() {
        const std::unique_ptr<Design> before = copyOf(design);
        const Lines types = typesAtOutputs(*before);
        rewrite();
        EXPECT_EQ(typesAtOutputs(design), types);
        expectSameBehaviour(*before, design);
    }
    static Lines typesAtOutputs(Design &of) {
        PassScheduler scheduler;
        scheduler.requirePass("GlobalTypePass");
        const PassResults results = scheduler.apply(of);
        Lines types;
        for (Model &one : of) {
            if (one.getName()->toString() != "top" || one.getOutputBlock() == nullptr) {
                continue;
            }
            for (const Port &port : one.getOutputBlock()->ports()) {
                const PureValueRef type = results.getPass<GlobalTypePass>()->getType(port, {});
                types.push_back(port.getName()->toString() + " " + (type ? type->toString() : "?"));
            }
        }
        return types;
    }
    /// The blocks between inputs and outputs: name, type, and what some parameters say. By name.
    Lines drawn() {
        Lines lines;
        for (const Block &one : model) {
            const std::string type = one.type()->toString();
            const std::string name = one.getName()->toString();
            const bool isInput = type == "inputBlock" || name == "pin" || name.ends_with(" pin)");
            if (isInput || type == "outputBlock") {
                continue;
            }
            std::string line = name + " " + type;
            for (const StaticString *key :
                 {&A_CONST_TYPE, &A_CONST_VALUE, &A_ADD_NO_GROWTH, &A_TYPE_PIN_TYPE, &A_RAW_SHIFT_MODE,
                  &A_RAW_SHIFT_VALUE, &A_BIT_SELECT_BIT_OFFSET, &A_BIT_SELECT_OUTPUT_TYPE, &A_CAST_OUTPUT_TYPE}) {
                const ValueRef param = one.getParam(*key);
                line += param ? " " + param->toString() : "";
            }
            lines.push_back(line);
        }
        std::sort(lines.begin(), lines.end());
        return lines;
    }
    /// By its name, which may be any text or a value as a text. Null if there is none.
    Block *find(const std::string &name) {
        Block *found = model.getBlock(StringValue::get(name, mgr.context()));
        return found != nullptr ? found : model.getBlock(value(name));
    }
    std::string text(const std::string &name, const StaticString &key) {
        const Block *found = find(name);
        const ValueRef set = found == nullptr ? ValueRef() : found->getParam(key);
        return set ? set->toString() : "";
    }
    bool has(const std::string &name) { return find(name) != nullptr; }
    /// Instances "i0" and so on of a model, each with an input "x" of its type and an output "y".
    void instantiate(Model &below, const std::vector<std::string> &types) {
        for (std::size_t i = 0; i < types.size(); ++i) {
            const std::string number = std::to_string(i);
            Block &instance = *Block::create(model, "i" + number, A_MODEL_BLOCK);
            instance.setParam(A_MODEL_NODE, below);
            instance.setParam(value("x"), input(model, "in" + number, types[i]));
            output(model, "o" + number, *Wire::create(instance, value("y")));
        }
    }

    Design design{mgr.context()};
    Model &model = *Model::create(design, "top");

  private:
    const char *mPass;
};

} // namespace orvo::test
