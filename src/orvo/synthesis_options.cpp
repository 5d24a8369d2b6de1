// Moving the options of a build between records and models.
#include <orvo/synthesis_options.h>

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>

#include <util/features.h>
#include <util/strings.h>

#include <algorithm>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace orvo {

std::span<const SynthesisOptions::Option> SynthesisOptions::options() {
    static constexpr Option table[] = {
#define ORVO_SYNTHESIS_OPTION(FIELD, KEY, DEFAULT, INHERITANCE)                                                        \
    {&KEY, &SynthesisOptions::FIELD, Inheritance::INHERITANCE},
#include <orvo/synthesisoptions.def>
#undef ORVO_SYNTHESIS_OPTION
    };
    return table;
}

SynthesisOptions SynthesisOptions::createDefaultSynthesisOptions() {
    Context *context = ContextMgr::get();
    [[maybe_unused]] const auto unset = [] { return PureValueRef(); };
    [[maybe_unused]] const auto word = [](const StaticString &one) { return pureVR(one); };
    [[maybe_unused]] const auto text = [context](const char *one) { return pureVR(StringValue::get(one, context)); };
    [[maybe_unused]] const auto number = [context](int one) { return pureVR(NumberValue::get(one, context)); };
    SynthesisOptions made;
#define ORVO_SYNTHESIS_OPTION(FIELD, KEY, DEFAULT, INHERITANCE) made.FIELD = DEFAULT;
#include <orvo/synthesisoptions.def>
#undef ORVO_SYNTHESIS_OPTION
    return made;
}

SynthesisOptions SynthesisOptions::createSynthesisOptionsFromExistingModel(const Model &model) {
    SynthesisOptions made;
    for (const Option &option : options()) {
        made.*option.field = pureVR(model[*option.key]);
    }
    return made;
}

void SynthesisOptions::setSynthesisOptionsOnModel(Model &model, const SynthesisOptions &options) {
    for (const Option &option : SynthesisOptions::options()) {
        conditionallySetOption(model, *option.key, options.*option.field);
    }
}

void SynthesisOptions::conditionallySetOption(Model &model, const PureValueRef &key, const PureValueRef &value) {
    if (value) {
        model.setParam(key, value);
    }
}

namespace {

/// The models that this one instantiates, each once, in the order of its blocks.
std::vector<Model *> modelsBelow(const Model &model) {
    std::vector<Model *> below;
    std::unordered_set<const Model *> seen;
    for (const Block &block : model) {
        Model *one =
            block.type() == A_MODEL_BLOCK.get_ptr() ? Node::from<Model>(block.getParam(A_MODEL_NODE)) : nullptr;
        if (one != nullptr && seen.insert(one).second) {
            below.push_back(one);
        }
    }
    return below;
}

struct Level {
    Model *model;
    std::vector<Model *> below;
    std::size_t next = 0;
};

/// Each model before those that it instantiates; on a cycle, from where the walk came upon it.
std::vector<Level> fromTheTop(Design &design) {
    std::vector<Level> done;
    std::vector<Level> open;
    std::unordered_set<const Model *> seen;
    const auto enter = [&open, &seen](Model &model) {
        if (seen.insert(&model).second) {
            open.push_back({&model, modelsBelow(model)});
        }
    };
    const auto walkFrom = [&](Model &top) {
        enter(top);
        while (!open.empty()) {
            Level &level = open.back();
            if (level.next < level.below.size()) {
                enter(*level.below[level.next++]);
            } else {
                done.push_back(std::move(level));
                open.pop_back();
            }
        }
    };
    std::vector<Model *> models;
    for (Model &model : design) {
        models.push_back(&model);
    }
    // From the tops first: a model on a cycle is come upon from above, not from a model of the cycle. Backwards, for
    // the order is turned round at the end.
    std::vector<Model *> starts;
    std::copy_if(models.rbegin(), models.rend(), std::back_inserter(starts),
                 [](const Model *model) { return model->getParentBlocks().empty(); });
    starts.insert(starts.end(), models.rbegin(), models.rend());
    for (Model *model : starts) {
        walkFrom(*model);
    }
    std::reverse(done.begin(), done.end());
    return done;
}

void handDown(const Model &from, Model &to) {
    for (const SynthesisOptions::Option &option : SynthesisOptions::options()) {
        if (option.inheritance == SynthesisOptions::Inheritance::Handed) {
            SynthesisOptions::conditionallySetOption(to, *option.key, pureVR(from[*option.key]));
        }
    }
}

} // namespace

void SynthesisOptions::propogateSynthesisOptions(Design &design) {
    for (const Level &level : fromTheTop(design)) {
        for (Model *below : level.below) {
            if (below != level.model) {
                handDown(*level.model, *below);
            }
        }
    }
}

const Node *nodeOfDesignOption(const Design &design, const StaticString &key) {
    if (design.findParam(key) != nullptr) {
        return &design;
    }
    const auto root = std::find_if(design.begin(), design.end(), [&key](const Model &model) {
        return model.findParam(A_SYNTH_OUTPUT_MODE) != nullptr && model.findParam(key) != nullptr;
    });
    return root == design.end() ? nullptr : &*root;
}

ValueRef designOption(const Design &design, const StaticString &key) {
    const Node *node = nodeOfDesignOption(design, key);
    return node == nullptr ? ValueRef() : node->getParam(key);
}

bool IsOptimisationDisabled(const StaticString &name) {
    const std::vector<std::string> disabled = util::split(util::GetFeature(Features::DISABLED_OPTIMISATIONS), ",");
    return std::any_of(disabled.begin(), disabled.end(), [&name](std::string_view one) {
        // People write blanks behind commas.
        const std::size_t first = one.find_first_not_of(" \t");
        one.remove_prefix(std::min(first, one.size()));
        return one.substr(0, one.find_last_not_of(" \t") + 1) == name.text();
    });
}

} // namespace orvo
