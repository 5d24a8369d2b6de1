// Small designs with domains: made by calls, asked by names.
#pragma once

#include <orvo/domaininfer.h>

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/logging.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <gtest/gtest.h>

namespace orvo::test {

/// A design with an output root "top", and the messages of its context, each as "TAG name=value..." in the order of the
/// names.
class DomainRig : public ::testing::Test {
  protected:
    struct Listener final : ContextListener {
        void onMessage(int, const char *tag, const log::LogParams &params) override {
            std::string line = tag;
            for (const auto &[name, value] : params) {
                line += " " + name + "=" + value;
            }
            lines.push_back(line);
        }
        std::vector<std::string> lines;
    };
    using Lines = std::vector<std::string>;

    DomainRig() {
        mgr.context()->setListener(&messages);
        top.setParam(A_SYNTH_OUTPUT_MODE, A_SYNTH_OUTPUT_HDL_ROOT);
    }
    ~DomainRig() override { mgr.context()->setListener(nullptr); }

    ValueRef any(const std::string &text) { return Value::parse(text, mgr.context()); }
    PureValueRef value(const std::string &text) { return PureValueRef(any(text)); }
    Block &make(Model &model, const std::string &name, const StaticString &type) {
        return *Block::create(model, name, type);
    }
    Wire &wire(Block &block, const std::string &name = "w") { return *Wire::create(block, value(name)); }
    /// A block with ports "0" and so on, and the wire "w".
    Wire &operation(Model &model, const std::string &name, const StaticString &type,
                    const std::vector<Wire *> &drivers) {
        Block &block = make(model, name, type);
        for (std::size_t i = 0; i < drivers.size(); ++i) {
            block.setParam(value(std::to_string(i)), *drivers[i]);
        }
        return wire(block);
    }
    /// A block that tells nothing about domains.
    Wire &source(Model &model, const std::string &name) { return wire(make(model, name, A_TYPE_PIN_BLOCK)); }
    Block &instance(Model &model, const std::string &name, Model &of) {
        Block &block = make(model, name, A_MODEL_BLOCK);
        block.setParam(A_MODEL_NODE, of);
        return block;
    }
    /// As in "(scheduleDomainBegin red (block wireTag w))", without the outer part.
    void mark(Model &model, const std::string &specs) { model.setParam(A_SYNTH_SCHEDULE_DOMAINS, any(specs)); }
    static std::string begin(const std::string &domain, const std::string &signpost) {
        return "(scheduleDomainBegin " + domain + " " + signpost + ")";
    }
    static std::string end(const std::string &domain, const std::string &signpost) {
        return "(scheduleDomainEnd " + domain + " " + signpost + ")";
    }
    static std::string wireAt(const std::string &block, const std::string &name = "w") {
        return "(" + block + " " + A_WIRE_TAG.text() + " " + name + ")";
    }
    static std::string portAt(const std::string &block, const std::string &name = "0") {
        return "(" + block + " " + A_PORT_TAG.text() + " " + name + ")";
    }

    void infer() { info = DomainInference::inferDomains(design, DomainInference::DefaultInferenceModifier()); }
    std::string shown(const PureValueRef &domain) { return domain ? domain->toString() : "-"; }
    /// The domain of a wire or port in the instance of that chain.
    std::string of(const Wire &one, const RefChain &chain = {}) {
        return shown(info.getDomain(one, info.getRefChainCollection().getOrCreateId(chain)));
    }
    std::string of(const Block &block, const std::string &port, const RefChain &chain = {}) {
        const Port *one = block.getPort(value(port));
        return one == nullptr ? "no such port"
                              : shown(info.getDomain(*one, info.getRefChainCollection().getOrCreateId(chain)));
    }

    ContextMgr mgr;
    Listener messages;
    Design design{mgr.context()};
    Model &top = *Model::create(design, "top");
    DomainAnalysisInfo info;
};

} // namespace orvo::test
