// Reading the edges of domains. The parameter comes from front ends, so nothing about its form is taken for granted.
#include "orvo/domainsignposts.h"

#include <orvo/block.h>
#include <orvo/logging.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <optional>
#include <unordered_set>

namespace orvo {

namespace {

using SignpostInfo = DomainInference::SignpostInfo;

/// One entry of a model's parameter. Each step of reading gives nothing after a message.
class BoundaryReader {
  public:
    BoundaryReader(const Model &model, const ValueRef &spec) : mModel(model), mSpec(spec) {}

    std::optional<SignpostInfo> read() const {
        const TupleValueRef spec = tupleVR(mSpec);
        if (!spec || spec->size() != 3) {
            log::msg(msg::error::BAD_DOMAIN_BOUNDARY_SPEC, where());
            return {};
        }
        const bool isBegin = spec->at(0) == A_SCHEDULE_DOMAIN_BEGIN;
        if (!isBegin && !(spec->at(0) == A_SCHEDULE_DOMAIN_END)) {
            log::msg(msg::error::BAD_DOMAIN_BOUNDARY_SPEC_BEGINEND, log::p("beginOrEnd", spec->at(0)) % where());
            return {};
        }
        const PureValueRef domain(spec->at(1));
        if (!domain) {
            log::msg(msg::error::BAD_DOMAIN_BOUNDARY_SPEC_INVALIDDOMAIN, where());
            return {};
        }
        const DomainPoint point = readPoint(spec->at(2));
        if (!point.valid()) {
            return {};
        }
        return SignpostInfo{isBegin ? DomainInference::SIGNPOST_BEGIN : DomainInference::SIGNPOST_END, domain, point};
    }

  private:
    log::LogParams where() const { return log::p("modelName", mModel.getName()) % log::p("boundarySpec", mSpec); }

    DomainPoint readPoint(const ValueRef &text) const {
        const TupleValueRef signpost = tupleVR(text);
        const bool hasForm = signpost && signpost->size() == 3;
        const PureValueRef blockName(hasForm ? signpost->at(0) : ValueRef());
        const PureValueRef tag(hasForm ? signpost->at(1) : ValueRef());
        const PureValueRef key(hasForm ? signpost->at(2) : ValueRef());
        if (!blockName || !key || !(tag == A_WIRE_TAG || tag == A_PORT_TAG)) {
            log::msg(msg::error::BAD_DOMAIN_BOUNDARY_SPEC_BADSIGNPOST, log::p("signpost", text) % where());
            return {};
        }
        const Block *block = mModel.getBlock(blockName);
        if (block == nullptr) {
            log::msg(msg::error::BAD_DOMAIN_BOUNDARY_SPEC_BADSIGNPOST_NOBLOCK,
                     log::p("blockName", blockName) % log::p("signpost", text) % where());
            return {};
        }
        return tag == A_WIRE_TAG ? wireOf(*block, key) : portOf(*block, key);
    }

    DomainPoint wireOf(const Block &block, const PureValueRef &key) const {
        if (const Wire *wire = block.getWire(key)) {
            return DomainPoint(*wire, 0);
        }
        log::msg(msg::error::BAD_DOMAIN_BOUNDARY_SPEC_BADSIGNPOST_NOWIRE,
                 log::p("wireName", key) % log::p("blockName", block.getName()) % where());
        return {};
    }

    DomainPoint portOf(const Block &block, const PureValueRef &key) const {
        if (const Port *port = block.getPort(key)) {
            return DomainPoint(*port, 0);
        }
        log::msg(msg::error::BAD_DOMAIN_BOUNDARY_SPEC_BADSIGNPOST_NOPORT,
                 log::p("portName", key) % log::p("blockName", block.getName()) % where());
        return {};
    }

    const Model &mModel;
    const ValueRef mSpec;
};

} // namespace

DomainInference::ParsedDomains DomainInference::parseScheduledDomainsParameter(const Model &model) {
    ParsedDomains parsed;
    const ValueRef param = model.getParam(A_SYNTH_SCHEDULE_DOMAINS);
    if (!param) {
        return parsed;
    }
    const TupleValueRef specs = tupleVR(param);
    if (!specs) {
        log::msg(msg::error::BAD_SCHEDULE_DOMAINS,
                 log::p("scheduledDomains", param) % log::p("modelName", model.getName()));
        return parsed;
    }
    for (const ValueRef &spec : *specs) {
        if (auto signpost = BoundaryReader(model, spec).read()) {
            (signpost->kind == SIGNPOST_BEGIN ? parsed.begins : parsed.ends).push_back(std::move(*signpost));
        }
    }
    return parsed;
}

void internal::addDeliminators(const Model &model, DomainInference::DomainDeliminators &all) {
    const auto [at, isNew] = all.try_emplace(&model);
    if (!isNew) {
        return;
    }
    const DomainInference::ParsedDomains parsed = DomainInference::parseScheduledDomainsParameter(model);
    for (const auto *list : {&parsed.begins, &parsed.ends}) {
        for (const SignpostInfo &signpost : *list) {
            if (!at->second.emplace(signpost.point, signpost).second) {
                log::msg(msg::error::BAD_DOMAIN_MULTIPLE_SIGNPOSTS,
                         log::p("blockName", signpost.point.block()->getName()) % log::p("modelName", model.getName()));
            }
        }
    }
}

DomainInference::DomainDeliminators DomainInference::parsedDomainsModelTree(const Model &model,
                                                                            const InferenceModifier &modifier) {
    DomainDeliminators all;
    std::unordered_set<const Model *> seen{&model};
    std::vector<const Model *> open{&model};
    while (!open.empty()) {
        const Model &at = *open.back();
        open.pop_back();
        internal::addDeliminators(at, all);
        for (const Block &block : at) {
            const auto *below =
                block.type() == A_MODEL_BLOCK.get_ptr() ? Node::from<Model>(block[A_MODEL_NODE]) : nullptr;
            if (below != nullptr && modifier.accept(*below) && seen.insert(below).second) {
                open.push_back(below);
            }
        }
    }
    return all;
}

} // namespace orvo
