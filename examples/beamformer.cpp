// A digital beamformer of eight elements and four beams. Samples of all elements come as a vector of complex numbers
// and travel in a record with their valid flag and channel. Inside, the rows of a constant steering matrix weigh the
// elements of one beam each: a model that is drawn once, in a model of its own for the whole matrix.
#include "netlist.h"

using namespace example;

namespace {

constexpr int kElements = 8;
constexpr int kBeams = 4;
const std::string kSample = "(typeComplex (typeSFixed 1 13))";
const std::string kSamples = "(typeVector 8 " + kSample + ")";
const std::string kWeight = "(typeComplex (typeSFixed 1 11))";
const std::string kBeam = "(typeComplex (typeSFixed 4 12))";
const std::string kFlag = "(typeUFixed 1 0)";
const std::string kChannel = "(typeUFixed 3 0)";

/// Eight steps around the unit circle, in units of 2^-11, below 1 so that they fit.
constexpr int kCosine[8] = {2047, 1448, 0, -1448, -2047, -1448, 0, 1448};

/// The weight that turns the wave of a beam back to the phase of the first element. Elements stand half a wavelength
/// apart; the sines of the beams' angles are -3/4, -1/4, 1/4 and 3/4.
std::string weightOf(int beam, int element) {
    const int turn = (8 * kElements - (2 * beam - kBeams + 1) * element) % 8;
    const auto number = [](int units) { return NumberValue::fromInt64(units, 11, ContextMgr::get())->toString(); };
    return "(complexRollTag " + number(kCosine[turn]) + " " + number(kCosine[(turn + 6) % 8]) + ")";
}

/// A row for each beam.
std::string steeringMatrix() {
    std::string matrix = "(vectorRollTag";
    for (int beam = 0; beam < kBeams; ++beam) {
        matrix += " (vectorRollTag";
        for (int element = 0; element < kElements; ++element) {
            matrix += " " + weightOf(beam, element);
        }
        matrix += ")";
    }
    return matrix + ")";
}

Wire &record(Model &model, const std::string &name, std::initializer_list<Wire *> members) {
    return *Wire::create(block(model, name, A_APACK_BLOCK, members), A_APACK_WIRE_OUT);
}

Block &members(Model &model, const std::string &name, Wire &of) {
    Block &made = block(model, name, A_AUNPACK_BLOCK);
    made.setParam(A_AUNPACK_PORT_IN, of);
    return made;
}

/// One beam: the weighted sum of the elements, rounded, a cycle later.
Model &drawBeam(Design &design) {
    Model &beam = *Model::create(design, "beam");
    Block &input = block(beam, "in", A_INPUT_BLOCK);
    Wire &samples = *Wire::create(input, "samples");
    Wire &weights = *Wire::create(input, "weights");
    Wire &products = out(block(beam, "products", A_MULT_BLOCK, {&samples, &weights}));
    Wire &sum = out(block(beam, "sum", A_ADD_REDUCE_BLOCK, {&products}));
    Block &rounded = block(beam, "round", A_CAST_BLOCK, {&sum});
    rounded.setParam(A_CAST_OUTPUT_TYPE, value(kBeam));
    rounded.setParam(A_CAST_ROUNDING_MODE, A_ROUNDING_UNBIASED);
    rounded.setParam(A_CAST_SATURATE_MODE, A_SATURATE_SYM);
    block(beam, "out", A_OUTPUT_BLOCK).setParam(value("y"), delay(beam, "register", out(rounded), 1));
    return beam;
}

/// The matrix: a beam for each of its rows. Flag and channel take as long as the beams.
Model &drawSteering(Design &design, Model &beam) {
    Model &steering = *Model::create(design, "steering");
    Block &frame = members(steering, "frame", *Wire::create(block(steering, "in", A_INPUT_BLOCK), "frame"));
    Wire &samples = *Wire::create(frame, key(0));
    Wire &valid = *Wire::create(frame, key(1));
    Wire &channel = *Wire::create(frame, key(2));
    Block &rows = block(steering, "rows", A_VUNPACK_BLOCK);
    rows.setParam(A_VUNPACK_PORT_IN, constant(steering, "matrix", value(steeringMatrix()),
                                              value("(typeVector 4 (typeVector 8 " + kWeight + "))")));
    Block &beams = block(steering, "beams", A_VPACK_BLOCK);
    for (int row = 0; row < kBeams; ++row) {
        Block &instance = block(steering, "beam" + std::to_string(row), A_MODEL_BLOCK);
        instance.setParam(A_MODEL_NODE, beam);
        instance.setParam(value("samples"), samples);
        instance.setParam(value("weights"), *Wire::create(rows, key(row)));
        beams.setParam(key(row), *Wire::create(instance, "y"));
    }
    Wire &steered = record(steering, "steered",
                           {Wire::create(beams, A_VPACK_WIRE_OUT), &delay(steering, "validLater", valid, 1),
                            &delay(steering, "channelLater", channel, 1)});
    block(steering, "out", A_OUTPUT_BLOCK).setParam(value("steered"), steered);
    return steering;
}

} // namespace

int main() {
    ContextMgr context;
    Design design(context.context());
    Model &steering = drawSteering(design, drawBeam(design));
    Model &top = *Model::create(design, "beamformer");
    top.setParam(A_SYNTH_OUTPUT_MODE, A_TRUE);

    Block &input = block(top, "in", A_INPUT_BLOCK);
    Wire &samples = pinned(top, "samplesType", *Wire::create(input, "samples"), value(kSamples));
    Wire &valid = pinned(top, "validType", *Wire::create(input, "valid"), value(kFlag));
    Wire &channel = pinned(top, "channelType", *Wire::create(input, "channel"), value(kChannel));

    Block &instance = block(top, "steering", A_MODEL_BLOCK);
    instance.setParam(A_MODEL_NODE, steering);
    instance.setParam(value("frame"), record(top, "frame", {&samples, &valid, &channel}));
    Block &steered = members(top, "steered", *Wire::create(instance, "steered"));
    Block &output = block(top, "out", A_OUTPUT_BLOCK);
    output.setParam(value("beams"), *Wire::create(steered, key(0)));
    output.setParam(value("valid"), *Wire::create(steered, key(1)));
    output.setParam(value("channel"), *Wire::create(steered, key(2)));
    return write(design);
}
