// The short way to generated logic, for a client that has one function rather than a drawn design: it makes the blocks
// of the function and tells its ports; a model is built around them and given to whoever generates logic.
#pragma once

#include <orvo/design.h>
#include <orvo/pass.h>
#include <orvo/resourceusage.h>
#include <orvo/synthesis_options.h>
#include <orvo/types.h>

#include <memory>
#include <string>
#include <vector>

namespace orvo {

class Block;
class Model;

/// One port of a function: an input goes to a port of an inner block, an output comes from one of its wires.
class ORVO_API PortInfo {
  public:
    PortInfo(const PureValueRef &name, const PureValueRef &connection, const NumTypeSpec &type, Block *block)
        : mName(name), mConnection(connection), mType(type), mBlock(block) {}

    const PureValueRef &name() const { return mName; }
    /// The port or the wire of the inner block.
    const PureValueRef &connection() const { return mConnection; }
    /// All bits of a lane's part; 0 for an invalid type.
    int width() const { return mType.isFloat() ? mType.floatBits() : mType.fixedBits(); }
    int fraction() const { return mType.fracBits(); }
    bool isSigned() const { return mType.isSigned(); }
    bool isComplex() const { return mType.isComplex(); }
    /// Innermost dimension first; none for a scalar.
    const std::vector<int> &vectorLengths() const { return mType.vectorLengths(); }
    const NumTypeSpec &type() const { return mType; }
    /// Not owned.
    Block *block() const { return mBlock; }

  private:
    PureValueRef mName;
    PureValueRef mConnection;
    NumTypeSpec mType;
    Block *mBlock;
};

/// What a function is made of. Its blocks stand in `model()`, where the client makes them.
class ORVO_API FuncInfo {
  public:
    /// A parameter that a block gets when the model is built.
    struct BlockParam {
        Block *block;
        PureValueRef key;
        PureValueRef value;
    };

    /// Fills the client's model, which must outlive this.
    FuncInfo(Model &model, std::string description);
    /// Fills a model in a design of its own, which goes with this; the context must outlive both.
    FuncInfo(Context *context, std::string description);
    FuncInfo(const FuncInfo &) = delete;
    FuncInfo &operator=(const FuncInfo &) = delete;
    virtual ~FuncInfo();

    /// The last chance to tell of inputs, called before anything is built around the function.
    virtual void UpdateInputs() = 0;
    /// The same for outputs.
    virtual void UpdateOutputs() = 0;

    /// Here and below, a null block is an assertion.
    void addInputPortInfo(const PureValueRef &name, const PureValueRef &port, const NumTypeSpec &type, Block *block);
    /// A wire that the block does not have is made.
    void addOutputPortInfo(const PureValueRef &name, const PureValueRef &wire, const NumTypeSpec &type, Block *block);
    void addParamPairToBlock(Block *block, const PureValueRef &key, const PureValueRef &value);

    const std::vector<PortInfo> &inputs() const { return mInputs; }
    const std::vector<PortInfo> &outputs() const { return mOutputs; }
    const std::vector<BlockParam> &params() const { return mParams; }
    Model &model() const { return *mModel; }
    /// What the function is for, in words.
    const std::string &description() const { return mDescription; }

  private:
    std::unique_ptr<Design> mOwnDesign;
    Model *mModel;
    std::string mDescription;
    std::vector<PortInfo> mInputs;
    std::vector<PortInfo> mOutputs;
    std::vector<BlockParam> mParams;
};

/// A function whose ports are all told beforehand.
class ORVO_API FuncInfoDefault : public FuncInfo {
  public:
    using FuncInfo::FuncInfo;
    void UpdateInputs() override;
    void UpdateOutputs() override;
};

/// How a function's logic is to be generated. What is empty, or 0, is not set on the model.
struct ORVO_API GenerationParameters {
    enum class Language { VHDL, Verilog };

    /// Takes what the options set.
    explicit GenerationParameters(const SynthesisOptions &options);

    /// Of the model; empty, the function's description names it.
    std::string name;
    Language language = Language::VHDL;
    std::string outputPath;
    /// The folder of the logic's files.
    std::string hdlRoot;
    /// One of the values of `A_SYNTH_OUTPUT_MODE`, `A_SYNTH_OUTPUT_INTERNAL_ROOT` unless the options say otherwise: a
    /// function is written out by itself.
    PureValueRef outputMode;
    std::string deviceFamily;
    std::string devicePart;
    std::string deviceSpeedGrade;
    /// MHz.
    double clockFrequency = 0.0;
    std::string clockName;
    std::string resetName;
    bool initialiseMemories = false;
    /// By how many units in the last place float outputs may be off in the test bench.
    std::vector<double> ulpValues;
    /// Whether `generate` writes the design to a file, NAME_dump.xml, before.
    bool dumpDesign = false;
};

/// What generates, or estimates: the model, whether files of its logic are wanted, whether those of a test bench are,
/// and whether the model is one of a user's design rather than built for this question. It leaves the model as it is.
using runModelGenerationHelperPointerType = ModelGenerationHelper;

/// Builds the model of a function and has its logic generated.
class ORVO_API ORVOSystem {
  public:
    /// Names the model of `function`, puts its ports around its blocks and sets the options of the build on it. A null
    /// function throws `std::runtime_error`, a null helper is an assertion.
    ORVOSystem(FuncInfo *function, GenerationParameters parameters, runModelGenerationHelperPointerType helper);
    /// Writes the dump, if asked for, and gives the model to the helper. May be called again, after parameters of the
    /// function's blocks have changed.
    ResourceUsageAndLatencyHelper generate();
    Model &model() const { return *mModel; }

  private:
    void setOptions();
    void dump() const;

    Model *mModel;
    GenerationParameters mParameters;
    runModelGenerationHelperPointerType mHelper;
};

} // namespace orvo
