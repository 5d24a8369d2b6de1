// The model around a function: input, pin of the type and entry into the schedule for each input, and the way back for
// each output.
#include <orvo/systembuilder.h>

#include <orvo/block.h>
#include <orvo/logging.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <fmt/printf.h>

#include <stdexcept>
#include <utility>

namespace orvo {

FuncInfo::FuncInfo(Model &model, std::string description) : mModel(&model), mDescription(std::move(description)) {}

FuncInfo::FuncInfo(Context *context, std::string description)
    : mOwnDesign(std::make_unique<Design>(context)), mModel(Model::create(*mOwnDesign, description)),
      mDescription(std::move(description)) {}

FuncInfo::~FuncInfo() = default;

void FuncInfo::addInputPortInfo(const PureValueRef &name, const PureValueRef &port, const NumTypeSpec &type,
                                Block *block) {
    ORVO_ASSERT(block != nullptr, "a port of a function belongs to no block");
    mInputs.emplace_back(name, port, type, block);
}

void FuncInfo::addOutputPortInfo(const PureValueRef &name, const PureValueRef &wire, const NumTypeSpec &type,
                                 Block *block) {
    ORVO_ASSERT(block != nullptr, "a port of a function belongs to no block");
    mOutputs.emplace_back(name, wire, type, block);
}

void FuncInfo::addParamPairToBlock(Block *block, const PureValueRef &key, const PureValueRef &value) {
    ORVO_ASSERT(block != nullptr, "a parameter of a function belongs to no block");
    mParams.push_back({block, key, value});
}

void FuncInfoDefault::UpdateInputs() {}
void FuncInfoDefault::UpdateOutputs() {}

namespace {

std::string textOf(const PureValueRef &value) {
    const StringValueRef text = stringVR(value);
    return text ? text->str() : value ? value->toString() : std::string();
}

double numberOf(const PureValueRef &value) {
    const NumberValueRef number = numberVR(value);
    return number ? number->toDouble() : 0.0;
}

std::vector<double> numbersOf(const PureValueRef &value) {
    std::vector<double> numbers;
    if (const PureTupleValueRef tuple = pureTupleVR(value)) {
        for (const PureValueRef &element : *tuple) {
            numbers.push_back(numberOf(element));
        }
    }
    return numbers;
}

} // namespace

GenerationParameters::GenerationParameters(const SynthesisOptions &options)
    : outputMode(options.outputMode ? options.outputMode : pureVR(A_SYNTH_OUTPUT_INTERNAL_ROOT)),
      deviceFamily(textOf(options.deviceFamily)), devicePart(textOf(options.devicePart)),
      deviceSpeedGrade(textOf(options.deviceSpeedGrade)), clockFrequency(numberOf(options.clockFreq)),
      clockName(textOf(options.clockName)), resetName(textOf(options.resetName)),
      initialiseMemories(options.deviceInitialiseMemories == A_TRUE), ulpValues(numbersOf(options.atbUnitUlpValues)) {}

namespace {

/// The blocks between the edge of the model and the function.
class Surroundings {
  public:
    explicit Surroundings(Model &model)
        : mModel(model), mInput(make("input", A_INPUT_BLOCK)), mOutput(make("output", A_OUTPUT_BLOCK)),
          mEntry(make("xIn", A_SIGNAL_IN_BLOCK)), mExit(make("xOut", A_SIGNAL_OUT_BLOCK)) {}

    void addInput(const PortInfo &port) {
        Wire &outside = *Wire::create(mInput, port.name());
        Wire &inside = *Wire::create(mEntry, port.name());
        mEntry.setParam(inside.getName(), pin(port, outside));
        port.block()->setParam(port.connection(), inside);
    }

    void addOutput(const PortInfo &port) {
        Wire *source = port.block()->getWire(port.connection());
        if (source == nullptr) {
            source = Wire::create(*port.block(), port.connection());
        }
        // Two outputs of one name stay apart by the name that the second wire gets.
        Wire &passed = *Wire::create(mExit, port.name());
        mExit.setParam(passed.getName(), *source);
        mOutput.setParam(passed.getName(), pin(port, passed));
    }

  private:
    Block &make(const char *name, const StaticString &type) { return *Block::create(mModel, name, type); }

    /// Behind a pin that gives it the port's type, the signal of `source`.
    Wire &pin(const PortInfo &port, Wire &source) {
        Block &made = *Block::create(mModel, fmt::sprintf("typePin_%s", textOf(port.name())), A_TYPE_PIN_BLOCK);
        made.setParam(A_TYPE_PIN_TYPE, port.type().toValue(mModel.getContext()));
        made.setParam(NumberValue::get(0, mModel.getContext()), source);
        return *Wire::create(made, A_PRIM_WIRE_OUT);
    }

    Model &mModel;
    Block &mInput;
    Block &mOutput;
    Block &mEntry;
    Block &mExit;
};

Model &modelOf(const FuncInfo *function) {
    if (function == nullptr) {
        throw std::runtime_error("Trying to fetch the type of an uninitialized pointer");
    }
    return function->model();
}

} // namespace

ORVOSystem::ORVOSystem(FuncInfo *function, GenerationParameters parameters, runModelGenerationHelperPointerType helper)
    : mModel(&modelOf(function)), mParameters(std::move(parameters)), mHelper(helper) {
    ORVO_ASSERT(helper != nullptr, "a function is to be generated by nobody");
    const std::string &name = mParameters.name.empty() ? function->description() : mParameters.name;
    mModel->setName(StringValue::get(name, mModel->getContext()));
    function->UpdateInputs();
    function->UpdateOutputs();
    Surroundings surroundings(*mModel);
    for (const FuncInfo::BlockParam &param : function->params()) {
        param.block->setParam(param.key, param.value);
    }
    for (const PortInfo &port : function->inputs()) {
        surroundings.addInput(port);
    }
    for (const PortInfo &port : function->outputs()) {
        surroundings.addOutput(port);
    }
    setOptions();
}

void ORVOSystem::setOptions() {
    Context *context = mModel->getContext();
    const auto setText = [this, context](const StaticString &key, const std::string &text) {
        if (!text.empty()) {
            mModel->setParam(key, StringValue::get(text, context));
        }
    };
    const GenerationParameters &from = mParameters;
    setText(A_GENERATE_LANGUAGE, from.language == GenerationParameters::Language::VHDL ? "VHDL" : "VERILOG");
    setText(A_GENERATE_OUTPUT_PATH, from.outputPath);
    setText(A_SYNTH_OUTPUT_HDL_ROOT, from.hdlRoot);
    mModel->setParam(A_SYNTH_OUTPUT_MODE, from.outputMode);
    setText(A_SYNTH_DEVICE_FAMILY, from.deviceFamily);
    setText(A_SYNTH_DEVICE_PART, from.devicePart);
    setText(A_SYNTH_DEVICE_SPEED_GRADE, from.deviceSpeedGrade);
    if (from.clockFrequency != 0.0) {
        mModel->setParam(A_SYNTH_CLOCK_FREQ, NumberValue::get(from.clockFrequency, context));
    }
    setText(A_SYNTH_CLOCK_NAME, from.clockName);
    setText(A_SYNTH_RESET_NAME, from.resetName);
    mModel->setParam(A_SYNTH_ATB_UNIT_RIGUROUS_TESTING, A_TRUE);
    mModel->setParam(A_SYNTH_DEVICE_INITIALISE_MEMORIES, from.initialiseMemories ? A_TRUE : A_FALSE);
    mModel->setParam(A_SYNTH_ATB_STM_FILE_MODE, A_SYNTH_ATB_STM_FILE_MODE_BINARY);
    std::vector<PureValueRef> ulps;
    for (const double value : from.ulpValues) {
        ulps.push_back(NumberValue::get(value, context));
    }
    mModel->setParam(A_SYNTH_ATB_UNIT_ULP_VALUES, PureTupleValue::get(ulps, context));
}

void ORVOSystem::dump() const {
    const std::string stem = Node::legaliseString(textOf(mModel->getName()));
    const StringValueRef file = StringValue::get(fmt::sprintf("%s_dump.xml", stem), mModel->getContext());
    PassScheduler scheduler;
    scheduler.addPass("DumpXMLPass", WithParam("P_FILENAME", file));
    scheduler.apply(mModel->getDesign());
}

ResourceUsageAndLatencyHelper ORVOSystem::generate() {
    if (mParameters.dumpDesign) {
        dump();
    }
    return mHelper(*mModel, false, false, false);
}

} // namespace orvo
