// Measures lowering from file to file: a design of many instances of one model is read, flattened, rid of what nobody
// reads, and written, here and by compilers from elsewhere that do the same to the same graph.
#include "peers.h"
#include "synthetic.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>
#include <orvo/xmlservices.h>

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

using namespace orvo;
using namespace orvo::bench;

/// What other languages call an operation.
struct Operation {
    const StaticString *type;
    const char *dialect;
    const char *cell;
};
const Operation kOperations[] = {{&A_ADD_BLOCK, "arith.addi", "$add"},
                                 {&A_SUB_BLOCK, "arith.subi", "$sub"},
                                 {&A_OR_BLOCK, "arith.ori", "$or"},
                                 {&A_AND_BLOCK, "arith.andi", "$and"}};
constexpr int kWidth = 20;

const Operation &operationOf(const Block &block) {
    const auto *found = std::find_if(std::begin(kOperations), std::end(kOperations),
                                     [&](const Operation &one) { return block.type() == one.type->get_ptr(); });
    if (found == std::end(kOperations)) {
        std::fprintf(stderr, "no other language has %s\n", block.type()->toString().c_str());
        std::exit(1);
    }
    return *found;
}

/// The same model in another language, block by block.
class Translation {
  public:
    explicit Translation(std::ostream &out) : mOut(out) {}
    virtual ~Translation() = default;
    Translation(const Translation &) = delete;
    Translation &operator=(const Translation &) = delete;

    void write(const Model &model) {
        begin(model.getName()->toString());
        std::string result;
        for (const Block &block : model) {
            const std::vector<std::string> inputs = inputsOf(block);
            const std::string name = block.getName()->toString();
            if (block.type() == A_OUTPUT_BLOCK.get_ptr()) {
                result = inputs.front();
            } else if (const Model *below = Node::from<Model>(block[A_MODEL_NODE])) {
                call(name, below->getName()->toString(), inputs.front());
            } else if (block.type() != A_INPUT_BLOCK.get_ptr() && block.type() != A_TYPE_PIN_BLOCK.get_ptr()) {
                apply(name, operationOf(block), inputs);
            }
        }
        end(result);
    }

  protected:
    std::ostream &out() { return mOut; }

  private:
    /// Types of pins stand at every signal in the other languages.
    static std::string driverOf(const Wire &wire) {
        const Block &block = wire.getBlock();
        return block.type() == A_TYPE_PIN_BLOCK.get_ptr() ? driverOf(*block.ports().begin()->peekWire())
                                                          : block.getName()->toString();
    }
    static std::vector<std::string> inputsOf(const Block &block) {
        std::vector<std::string> inputs;
        for (const Port &port : block.ports()) {
            inputs.push_back(driverOf(*port.peekWire()));
        }
        return inputs;
    }
    virtual void begin(const std::string &model) = 0;
    virtual void apply(const std::string &name, const Operation &operation, const std::vector<std::string> &inputs) = 0;
    virtual void call(const std::string &name, const std::string &model, const std::string &input) = 0;
    virtual void end(const std::string &result) = 0;

    std::ostream &mOut;
};

class MLIRTranslation final : public Translation {
  public:
    using Translation::Translation;

  private:
    void begin(const std::string &model) override {
        out() << fmt::format("func {}@{}(%in: i{}) -> i{} {{\n", model == "top" ? "" : "private ", model, kWidth,
                             kWidth);
    }
    void apply(const std::string &name, const Operation &operation, const std::vector<std::string> &inputs) override {
        out() << fmt::format("  %{} = {} %{}, %{} : i{}\n", name, operation.dialect, inputs[0], inputs[1], kWidth);
    }
    void call(const std::string &name, const std::string &model, const std::string &input) override {
        out() << fmt::format("  %{} = call @{}(%{}) : (i{}) -> i{}\n", name, model, input, kWidth, kWidth);
    }
    void end(const std::string &result) override { out() << fmt::format("  return %{} : i{}\n}}\n", result, kWidth); }
};

class RTLILTranslation final : public Translation {
  public:
    using Translation::Translation;

  private:
    void begin(const std::string &model) override {
        out() << fmt::format("module \\{}\n  wire width {} input 1 \\in\n  wire width {} output 2 \\result\n", model,
                             kWidth, kWidth);
    }
    void apply(const std::string &name, const Operation &operation, const std::vector<std::string> &inputs) override {
        out() << fmt::format(
            "  wire width {1} \\{0}\n  cell {2} \\cell_{0}\n    parameter \\A_SIGNED 1\n    parameter "
            "\\A_WIDTH {1}\n    parameter \\B_SIGNED 1\n    parameter \\B_WIDTH {1}\n    parameter "
            "\\Y_WIDTH {1}\n    connect \\A \\{3}\n    connect \\B \\{4}\n    connect \\Y \\{0}\n  end\n",
            name, kWidth, operation.cell, inputs[0], inputs[1]);
    }
    void call(const std::string &name, const std::string &model, const std::string &input) override {
        out() << fmt::format("  wire width {1} \\{0}\n  cell \\{2} \\cell_{0}\n    connect \\in \\{3}\n    connect "
                             "\\result \\{0}\n  end\n",
                             name, kWidth, model, input);
    }
    void end(const std::string &result) override { out() << fmt::format("  connect \\result \\{}\nend\n", result); }
};

struct Tool {
    const char *name;
    std::string program;
    std::string arguments;
    /// What a line of the result that is an operation contains.
    const char *operation;
};

std::size_t linesWith(const std::filesystem::path &file, const std::string &part) {
    std::ifstream in(file);
    std::size_t count = 0;
    for (std::string line; std::getline(in, line);) {
        count += line.find(part) != std::string::npos ? 1 : 0;
    }
    return count;
}

std::string firstLineOf(const std::filesystem::path &file) {
    std::ifstream in(file);
    std::string line;
    std::getline(in, line);
    return line;
}

/// The median of three.
std::optional<double> secondsOf(const std::string &command) {
    std::vector<double> runs;
    for (int run = 0; run < 3; ++run) {
        const std::optional<double> seconds = timed(command);
        if (!seconds) {
            return std::nullopt;
        }
        runs.push_back(*seconds);
    }
    std::sort(runs.begin(), runs.end());
    return runs[1];
}

} // namespace

int main(int argc, char **argv) {
    const std::size_t blocks = argc > 1 ? static_cast<std::size_t>(std::atol(argv[1])) : 100000;
    const Scratch scratch;
    {
        ContextMgr context;
        Design design(context.context());
        SyntheticOptions options;
        options.blocks = blocks;
        options.instances = blocks / 20;
        options.typed = true;
        options.allNeeded = true;
        makeSynthetic(design, options);
        std::ofstream xml(scratch.path() / "in.xml");
        XMLServices().toXML(xml, design);
        std::ofstream mlir(scratch.path() / "in.mlir");
        std::ofstream rtlil(scratch.path() / "in.il");
        for (const Model &model : design) {
            MLIRTranslation(mlir).write(model);
            RTLILTranslation(rtlil).write(model);
        }
    }
    const std::string own = (std::filesystem::absolute(argv[0]).parent_path() / "orvo").string();
    const Tool tools[] = {
        {"orvo", own, "lower --preset structural in.xml -o out", "<block "},
        {"mlir-opt", isInstalled("mlir-opt-14") ? "mlir-opt-14" : "mlir-opt",
         "-inline -sccp -canonicalize in.mlir -o out", " = arith."},
        {"Yosys", "yosys", "-q -p 'read_rtlil in.il; hierarchy -top top; flatten; opt; write_rtlil out'", "  cell $"}};
    std::printf("%-12s %10s %12s %10s   from file to file, %zu blocks in\n", "tool", "cpu s", "us/block", "blocks",
                blocks);
    double first = 0;
    for (const Tool &tool : tools) {
        if (!isInstalled(tool.program)) {
            std::printf("%-12s is not installed: skipped\n", tool.name);
            continue;
        }
        const std::optional<double> seconds = secondsOf(
            fmt::format("cd '{}' && '{}' {} >log 2>&1", scratch.path().string(), tool.program, tool.arguments));
        if (!seconds) {
            std::printf("%-12s fails: %s\n", tool.name, firstLineOf(scratch.path() / "log").c_str());
            return 1;
        }
        first = first == 0 ? *seconds : first;
        std::printf("%-12s %10.3f %12.2f %10zu   %.2f times the first\n", tool.name, *seconds,
                    *seconds / static_cast<double>(blocks) * 1e6, linesWith(scratch.path() / "out", tool.operation),
                    *seconds / first);
    }
    return 0;
}
