// Designs from lines of text, and the domains at their delays, which passes must keep.
#pragma once

#include "support/domainrig.h"
#include "support/invariants.h"

#include <orvo/pass.h>

#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace orvo::test {

/// The domains of the ports and wires of delays, by the names that these were drawn with.
using KeptDomains = std::map<std::string, std::string>;

/// Draws designs in which each delay has a name of its own and can be told by it wherever passes put it.
class KeptDomainsRig : public DomainRig {
  protected:
    /// One block a line:
    ///     d delay DRIVER             m min DRIVER...              a abs DRIVER
    ///     g goto TAG Reach DRIVER    f from TAG                   y out DRIVER, an output of the model
    ///     p vpack DRIVER...          u vunpack DRIVER             c call MODEL KEY=DRIVER...
    /// A driver is BLOCK for its only wire, BLOCK/WIRE, or in/NAME for an input of the model, and is drawn before.
    void draw(Model &model, const std::string &text) {
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) {
            std::istringstream words(line);
            std::string name;
            std::string kind;
            std::vector<std::string> rest;
            words >> name >> kind;
            for (std::string word; words >> word;) {
                rest.push_back(word);
            }
            if (!name.empty()) {
                drawBlock(model, name, kind, rest);
            }
        }
    }

    Wire &driver(Model &model, const std::string &text) {
        const std::size_t slash = text.find('/');
        const std::string blockName = text.substr(0, slash);
        if (blockName == "in") {
            return input(model, text.substr(slash + 1));
        }
        Block &block = *model.getBlock(value(blockName));
        if (slash == std::string::npos) {
            return *block.begin();
        }
        const PureValueRef name = value(text.substr(slash + 1));
        Wire *known = block.getWire(name);
        return known != nullptr ? *known : *Wire::create(block, name);
    }

    KeptDomains keptDomains() {
        DomainAnalysisInfo of = DomainInference::inferDomains({&top}, DomainInference::DefaultInferenceModifier());
        KeptDomains domains;
        RefChain chain;
        addDomains(of, top, chain, domains);
        return domains;
    }

    void run(const std::string &passes) {
        PassScheduler scheduler;
        std::istringstream names(passes);
        for (std::string name; names >> name;) {
            scheduler.addPass(name);
        }
        scheduler.apply(design);
        EXPECT_TRUE(checkInvariants(design));
    }

    /// Ends without a domain may get one.
    void expectKept(const std::string &passes) {
        const KeptDomains before = keptDomains();
        EXPECT_EQ(messages.lines, Lines());
        run(passes);
        KeptDomains after = keptDomains();
        EXPECT_EQ(messages.lines, Lines());
        for (const auto &[end, domain] : before) {
            if (domain != "-") {
                EXPECT_EQ(after[end], domain) << end << ": " << edges(top);
            }
        }
    }
    std::string edges(const Model &model) {
        const ValueRef all = model.getParam(A_SYNTH_SCHEDULE_DOMAINS);
        return all ? all->toString() : "";
    }

  private:
    /// With a type, so that all behind it has one.
    Wire &input(Model &model, const std::string &name) {
        Block *pins = model.getInputBlock();
        pins = pins != nullptr ? pins : &make(model, "in", A_INPUT_BLOCK);
        if (Wire *known = pins->getWire(value(name))) {
            return &model == &top ? *model.getBlock(value("pin" + name))->begin() : *known;
        }
        Wire &made = *Wire::create(*pins, value(name));
        if (&model != &top) {
            return made;
        }
        Block &pin = make(model, "pin" + name, A_TYPE_PIN_BLOCK);
        pin.setParam(A_TYPE_PIN_TYPE, any("(typeSFixed 8 0)"));
        pin.setParam(value("0"), made);
        return *Wire::create(pin, value("0"));
    }

    void connect(Block &block, const std::vector<std::string> &drivers) {
        for (std::size_t i = 0; i < drivers.size(); ++i) {
            block.setParam(value(std::to_string(i)), driver(block.getModel(), drivers[i]));
        }
    }

    void drawBlock(Model &model, const std::string &name, const std::string &kind,
                   const std::vector<std::string> &rest) {
        if (kind == "out") {
            Block *block = model.getOutputBlock();
            block = block != nullptr ? block : &make(model, "out", A_OUTPUT_BLOCK);
            block->setParam(value(name), driver(model, rest.at(0)));
        } else if (kind == "goto") {
            Block &block = make(model, name, A_GOTO_BLOCK);
            block.setParam(A_GOTO_TAG, value(rest.at(0)));
            block.setParam(A_GOTO_TAG_TYPE, value("gotoTagType" + rest.at(1)));
            block.setParam(A_GOTO_PORT_IN, driver(model, rest.at(2)));
        } else if (kind == "from") {
            Block &block = make(model, name, A_FROM_BLOCK);
            block.setParam(A_GOTO_TAG, value(rest.at(0)));
            Wire::create(block, A_FROM_WIRE_OUT);
        } else if (kind == "call") {
            Block &block = make(model, name, A_MODEL_BLOCK);
            block.setParam(A_MODEL_NODE, *design.getModel(value(rest.at(0))));
            for (std::size_t i = 1; i < rest.size(); ++i) {
                const std::size_t equals = rest[i].find('=');
                block.setParam(value(rest[i].substr(0, equals)), driver(model, rest[i].substr(equals + 1)));
            }
        } else if (kind == "vunpack") {
            make(model, name, A_VUNPACK_BLOCK).setParam(A_VUNPACK_PORT_IN, driver(model, rest.at(0)));
        } else if (kind == "vpack") {
            Block &block = make(model, name, A_VPACK_BLOCK);
            connect(block, rest);
            Wire::create(block, A_VPACK_WIRE_OUT);
        } else {
            const StaticString &type = kind == "delay" ? A_DELAY_BLOCK : kind == "min" ? A_MIN_BLOCK : A_ABS_BLOCK;
            Block &block = make(model, name, type);
            if (kind == "delay") {
                block.setParam(A_DELAY_LENGTH, any("1"));
                block.setParam(value("label"), value(name));
            }
            connect(block, rest);
            Wire::create(block, A_PRIM_WIRE_OUT);
        }
    }

    void addDomains(DomainAnalysisInfo &of, const Model &model, RefChain &chain, KeptDomains &domains) {
        const unsigned long id = of.getRefChainCollection().getOrCreateId(chain);
        for (const Block &block : model) {
            if (const ValueRef label = block.getParam(value("label"))) {
                domains[label->toString() + " in"] = shown(of.getDomain(*block.ports().begin(), id));
                domains[label->toString() + " out"] = shown(of.getDomain(*block.begin(), id));
            }
            if (const Model *below = Node::from<Model>(block.getParam(A_MODEL_NODE))) {
                chain.push_back(&block);
                addDomains(of, *below, chain, domains);
                chain.pop_back();
            }
        }
    }
};

} // namespace orvo::test
