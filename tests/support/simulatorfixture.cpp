// Making designs and running them.
#include "simulatorfixture.h"

#include "typetable.h"

namespace orvo::test {

PureValueRef SimulatorFixture::value(const std::string &text) {
    return PureValueRef(Value::parse(text, mgr.context()));
}

Wire &SimulatorFixture::input(Model &model, const std::string &name, const std::string &type) {
    Block *in = model.getInputBlock();
    in = in == nullptr ? Block::create(model, "in", A_INPUT_BLOCK) : in;
    return pinned(*Wire::create(*in, value(name)), type);
}

Wire &SimulatorFixture::pinned(Wire &wire, const std::string &type) {
    Block &pin = *Block::create(wire.getBlock().getModel(), "pin", A_TYPE_PIN_BLOCK);
    pin.setParam(A_TYPE_PIN_TYPE, ValueRef(value(testing::typeText(type))));
    pin.setParam(value("0"), wire);
    return *Wire::create(pin, value("0"));
}

Block &SimulatorFixture::block(Model &model, const std::string &name, const std::string &type, const Texts &params) {
    Block &made = *Block::create(model, name, value(type));
    for (const auto &[key, text] : params) {
        made.setParam(value(key), ValueRef(value(text)));
    }
    return made;
}

void SimulatorFixture::output(Model &model, const std::string &name, Wire &wire) {
    Block *out = model.getOutputBlock();
    out = out == nullptr ? Block::create(model, "out", A_OUTPUT_BLOCK) : out;
    out->setParam(value(name), wire);
}

Block &SimulatorFixture::unary(Model &model, const std::string &name, const std::string &type, Wire &wire,
                               const Texts &params) {
    Block &made = block(model, name, type, params);
    made.setParam(value("0"), wire);
    out(made);
    return made;
}

Wire &SimulatorFixture::out(Block &block) {
    Wire *wire = block.getWire(A_PRIM_WIRE_OUT);
    return wire != nullptr ? *wire : *Wire::create(block, A_PRIM_WIRE_OUT);
}

Model &SimulatorFixture::oneBlock(Design &design, const std::string &type, const Texts &inputs, const Texts &outputs,
                                  const Texts &params) {
    Model &top = *Model::create(design, "top");
    Block &made = block(top, "block", type, params);
    for (const auto &[key, text] : inputs) {
        made.setParam(value(key), input(top, key, text));
    }
    for (const auto &[key, text] : outputs) {
        Wire &wire = *Wire::create(made, value(key));
        output(top, key, *text == 0 ? wire : pinned(wire, text));
    }
    return top;
}

std::vector<std::string> SimulatorFixture::portsOf(const Block &block) {
    std::vector<std::string> names;
    for (const Port &port : block.ports()) {
        names.push_back(port.getName()->toString());
    }
    return names;
}

std::vector<std::string> SimulatorFixture::wiresOf(const Block &block) {
    std::vector<std::string> names;
    for (const Wire &wire : block) {
        names.push_back(wire.getName()->toString());
    }
    return names;
}

Numbers SimulatorFixture::stepWith(sim::Simulator &simulator, const Numbers &in) {
    for (std::size_t i = 0; i < in.size(); ++i) {
        simulator.setInput(i, in[i]);
    }
    simulator.step();
    Numbers numbers;
    for (std::size_t i = 0; i < simulator.outputs().size(); ++i) {
        numbers.push_back(simulator.outputInteger(i));
    }
    return numbers;
}

std::map<std::string, std::int64_t> SimulatorFixture::stepByName(sim::Simulator &simulator,
                                                                 const std::map<std::string, std::int64_t> &in) {
    std::size_t found = 0;
    for (std::size_t i = 0; i < simulator.inputs().size(); ++i) {
        if (const auto at = in.find(simulator.inputs()[i].name); at != in.end()) {
            simulator.setInput(i, at->second);
            ++found;
        }
    }
    EXPECT_EQ(found, in.size()) << "an input is missing";
    simulator.step();
    std::map<std::string, std::int64_t> out;
    for (std::size_t i = 0; i < simulator.outputs().size(); ++i) {
        out[simulator.outputs()[i].name] = simulator.outputInteger(i);
    }
    return out;
}

std::string SimulatorFixture::refusal(const Design &design, const Model &top) {
    try {
        const sim::Simulator simulator(design, top);
    } catch (const sim::SimulationError &error) {
        std::string text = error.what();
        for (const std::string &place : error.blocks()) {
            text += " " + place;
        }
        return text;
    }
    return "";
}

} // namespace orvo::test
