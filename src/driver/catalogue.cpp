// The findings of the library's verifier, told with tags and parameters.
#include "driver/catalogue.h"

#include "driver/message_texts.h"

#include <orvo/block.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/netlistverification.h>
#include <orvo/port.h>
#include <orvo/wire.h>

namespace orvo::driver {

namespace {

using Kind = CatalogueFinding::Kind;

/// The tag of a kind, and the message's name for the subject.
struct KindText {
    const char *tag;
    const char *subject;
};

KindText textOf(Kind kind) {
    switch (kind) {
    case Kind::UnknownBlockType:
        return {"DRIVER_CHECK_UNKNOWN_BLOCK", "type"};
    case Kind::UnknownConnectionKind:
        return {"DRIVER_CHECK_UNKNOWN_KIND", "kind"};
    case Kind::MissingParam:
        return {"DRIVER_CHECK_MISSING_PARAM", "param"};
    case Kind::MissingPort:
        return {"DRIVER_CHECK_MISSING_PORT", "port"};
    case Kind::MissingWire:
        return {"DRIVER_CHECK_MISSING_WIRE", "wire"};
    case Kind::BadValue:
        return {"DRIVER_CHECK_BAD_VALUE", "param"};
    case Kind::Extra:
        return {"DRIVER_CHECK_EXTRA_PARAM", "param"};
    }
    return {"DRIVER_CHECK_UNKNOWN_KIND", "kind"};
}

Finding toFinding(const CatalogueFinding &found) {
    const KindText text = textOf(found.kind);
    const Block &block = *found.block;
    Finding finding{text.tag, {{text.subject, found.subject}}, found.block};
    finding.params["block"] = block.getName()->toString();
    finding.params["model"] = block.getModel().getName()->toString();
    if (found.kind == Kind::BadValue) {
        const ValueRef value = block.getParam(PureValueRef(Value::parse(found.subject, block.getContext())));
        if (value) {
            finding.params["value"] = value->toString();
        }
    }
    return finding;
}

/// What blocks read comes from their own model: a wire of another one goes with that model.
void addForeignWires(const Block &block, std::vector<Finding> &findings) {
    for (const Port &port : block.ports()) {
        const Wire &wire = *port.peekWire();
        if (&wire.getBlock().getModel() != &block.getModel()) {
            findings.push_back({"DRIVER_CHECK_FOREIGN_WIRE",
                                {{"port", port.getName()->toString()},
                                 {"block", block.getName()->toString()},
                                 {"model", block.getModel().getName()->toString()},
                                 {"wire", wire.value()->toString()}},
                                &block});
        }
    }
}

} // namespace

std::vector<Finding> checkDesign(const Design &design, const BlocksInfo &catalogue) {
    CatalogueVerifier verifier(catalogue, design.getContext());
    std::vector<Finding> findings;
    for (const Model &model : design) {
        for (const Block &block : model) {
            for (const CatalogueFinding &found : verifier.verify(block)) {
                findings.push_back(toFinding(found));
            }
            addForeignWires(block, findings);
        }
    }
    return findings;
}

std::vector<Finding> findForeignWires(const Design &design) {
    std::vector<Finding> findings;
    for (const Model &model : design) {
        for (const Block &block : model) {
            addForeignWires(block, findings);
        }
    }
    return findings;
}

Json toJson(const Finding &finding) {
    Json json;
    json["severity"] = finding.severity == Severity::Error ? "error" : "warning";
    json["tag"] = finding.tag;
    json["text"] = renderMessage(finding.tag, finding.params);
    for (const auto &[name, value] : finding.params) {
        json[name] = value;
    }
    return json;
}

} // namespace orvo::driver
