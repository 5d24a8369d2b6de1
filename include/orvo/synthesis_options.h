// The options of a build: what a back end needs to know of clocks, device, bus, thresholds and test benches. They are
// parameters of models; a record carries them from one model to another.
#pragma once

#include <orvo/value.h>

#include <span>

namespace orvo {

class Design;
class Model;
class Node;

/// One reference for each option, null where it is not set.
class ORVO_API SynthesisOptions {
  public:
    /// What a model below takes from the one around it.
    enum class Inheritance {
        /// The value of the model around it.
        Handed,
        /// Nothing. That is so for `A_SYNTH_OUTPUT_MODE` alone, which tells the models that are written out from those
        /// that are only parts of them: handed down, it would make a top model of every part, and each would be
        /// written, kept and checked by itself.
        Own,
    };
    /// An option as data.
    struct Option {
        const StaticString *key;
        PureValueRef SynthesisOptions::*field;
        Inheritance inheritance;
    };

#define ORVO_SYNTHESIS_OPTION(FIELD, KEY, DEFAULT, INHERITANCE) PureValueRef FIELD;
#include <orvo/synthesisoptions.def>
#undef ORVO_SYNTHESIS_OPTION

    /// The options in their order.
    static std::span<const Option> options();

    /// What a build has that asks for nothing. Needs a current context, to which the values belong.
    static SynthesisOptions createDefaultSynthesisOptions();
    /// What the model sets; all else is null.
    static SynthesisOptions createSynthesisOptionsFromExistingModel(const Model &model);
    /// Sets what the record sets, and leaves the model's other options as they are.
    static void setSynthesisOptionsOnModel(Model &model, const SynthesisOptions &options);
    /// A null value leaves the model as it is.
    static void conditionallySetOption(Model &model, const PureValueRef &key, const PureValueRef &value);
    /// Hands the options of each model down to those that it instantiates, from the top: those of a top model reach
    /// every model below it. Of several models that instantiate one, one has the last word, the same in every run.
    /// Linear in the size of the design; models that contain themselves are gone through once.
    static void propogateSynthesisOptions(Design &design);
};

/// Where an option of the whole design stands: the design itself, if it sets the option, else the first model that is
/// written out (`A_SYNTH_OUTPUT_MODE`) and sets it. Null if none does.
ORVO_API const Node *nodeOfDesignOption(const Design &design, const StaticString &key);
/// Its value there, null if it is not set.
ORVO_API ValueRef designOption(const Design &design, const StaticString &key);

/// Whether the feature `DISABLED_OPTIMISATIONS`, names with commas and any blanks between them, has this name.
ORVO_API bool IsOptimisationDisabled(const StaticString &name);

} // namespace orvo
