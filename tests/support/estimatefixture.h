// Designs of models that instantiate each other, to be estimated.
#pragma once

#include "support/simulatorfixture.h"
#include "support/typetable.h"

namespace orvo::test {

class EstimateFixture : public SimulatorFixture {
  protected:
    /// A model whose input x, without a type of its own, goes through one block to its output y.
    Model &generic(const std::string &name, const std::string &type, const Texts &params = {}) {
        Model &made = *Model::create(design, name);
        Block &in = *Block::create(made, "in", A_INPUT_BLOCK);
        Block::create(made, "out", A_OUTPUT_BLOCK)
            ->setParam(value("y"), out(unary(made, "own", type, *Wire::create(in, value("x")), params)));
        return made;
    }
    Model &negator(const std::string &name) { return generic(name, "negBlock"); }
    /// The same around an instance of another model.
    Model &wrapper(const std::string &name, Model &below) {
        Model &made = *Model::create(design, name);
        Block &in = *Block::create(made, "in", A_INPUT_BLOCK);
        Block::create(made, "out", A_OUTPUT_BLOCK)
            ->setParam(value("y"), instance(made, "i", below, *Wire::create(in, value("x"))));
        return made;
    }
    Wire &instance(Model &in, const std::string &name, Model &of, Wire &wire) {
        Block &made = *Block::create(in, name, A_MODEL_BLOCK);
        made.setParam(A_MODEL_NODE, of);
        made.setParam(value("x"), wire);
        return *Wire::create(made, value("y"));
    }

    Design design{mgr.context()};
    Model &model = *Model::create(design, "top");
};

} // namespace orvo::test
