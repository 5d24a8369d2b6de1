// Designs as Verilog modules, so that simulators from elsewhere tell what they compute. Each block is written by its
// meaning and shares no code with the kernels of the simulator that it judges.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace orvo {
class Design;
class Model;
class Value;
} // namespace orvo

namespace orvo::test {

/// A design that has no form as a module: a block type without a row, a record, a float.
class VerilogError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct VerilogPort {
    /// As the simulator names the scalar.
    std::string scalar;
    /// The port of the module.
    std::string net;
    int width;
    bool isSigned;
};

struct VerilogModule {
    std::string text;
    std::vector<VerilogPort> inputs;
    std::vector<VerilogPort> outputs;
};

/// All instances below the model in one module, which has the clock `clk` beside these ports; it starts in
/// the state before the first cycle. What is unknown is x.
VerilogModule verilogModule(const Design &design, const Model &top, const std::string &name);

/// Whether a block type can stand in such a module.
bool hasVerilog(const Value *blockType);

} // namespace orvo::test
