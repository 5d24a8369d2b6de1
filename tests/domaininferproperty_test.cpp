// What holds of domains in any design: they depend on nothing but its structure, and reach what can be reached.
#include <orvo/domaininfer.h>

#include "support/randomdesigns.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/corevalues.h>
#include <orvo/design.h>
#include <orvo/logging.h>
#include <orvo/model.h>
#include <orvo/modelkinds.h>
#include <orvo/scheduledmodelhandle.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <tuple>

namespace orvo {
namespace {

/// What was said, with names and without, in no order.
struct Heard final : ContextListener {
    void onMessage(int, const char *tag, const log::LogParams &params) override {
        std::string line = tag;
        for (const auto &[name, value] : params) {
            line += " " + name + "=" + value;
        }
        whole.insert(line);
        nameless.insert(tag + (" " + params.at("existingDomain")) + " " + params.at("overwritingDomain"));
    }
    std::multiset<std::string> whole;
    std::multiset<std::string> nameless;
};

/// A port or wire of an instance, told by nothing that a renaming or a new connection changes but the names of ports.
using Place = std::tuple<RefChain, const Block *, bool, std::string>;
using Domains = std::map<Place, std::string>;

/// An edge by where it stands, since names change.
struct Mark {
    const Block *block;
    bool isWire;
    PureValueRef key;
    bool isBegin;
    PureValueRef domain;
};

class DomainProperty : public ::testing::Test {
  protected:
    DomainProperty() { mgr.context()->setListener(&heard); }
    ~DomainProperty() override { mgr.context()->setListener(nullptr); }

    /// A random design with its top as an output root, which another root instantiates; some of its other models are
    /// roots, too, and some are scheduled.
    std::unique_ptr<Design> draw() {
        gen::DesignGenerator generator(mgr.context());
        std::unique_ptr<Design> design = generator.make(*test::recipes(30));
        Model &top = *design->getModel(StringValue::get("top", mgr.context()));
        const StaticString *const modes[] = {&A_SYNTH_OUTPUT_HDL_ROOT, &A_SYNTH_OUTPUT_INTERNAL_ROOT,
                                             &A_SYNTH_OUTPUT_STANDALONE_ROOT};
        for (Model &model : *design) {
            const bool isTop = &model == &top;
            const auto mode = isTop ? 0 : *rc::gen::inRange<std::size_t>(0, 6);
            if (mode < std::size(modes)) {
                model.setParam(A_SYNTH_OUTPUT_MODE, *modes[mode]);
            }
            if (*rc::gen::inRange(0, isTop ? 8 : 2) == 1) {
                model.setParam(A_SYNTH_CIRCUIT_TIMED, A_TRUE);
            }
        }
        instantiate(top, *Model::create(*design, "around"));
        return design;
    }

    /// A ring of outputs and inputs, so that domains get from each instance to the next.
    void instantiate(Model &model, Model &around) {
        around.setParam(A_SYNTH_OUTPUT_MODE, A_SYNTH_OUTPUT_HDL_ROOT);
        std::vector<Block *> instances;
        std::vector<Wire *> outputs;
        for (const char *name : {"first", "second"}) {
            Block &instance = *Block::create(around, name, A_MODEL_BLOCK);
            instance.setParam(A_MODEL_NODE, model);
            instances.push_back(&instance);
            for (const Block *output : model.getOutputBlocks()) {
                for (const Port &port : output->ports()) {
                    outputs.push_back(Wire::create(instance, port.getName()));
                }
            }
        }
        std::size_t next = outputs.size() / 2;
        for (Block *instance : instances) {
            for (const Block *input : model.getInputBlocks()) {
                for (const Wire &wire : *input) {
                    if (!outputs.empty()) {
                        instance->setParam(wire.getName(), *outputs[next++ % outputs.size()]);
                    }
                }
            }
        }
    }

    PureValueRef drawDomain(int domains) { return NumberValue::get(*rc::gen::inRange(0, domains), mgr.context()); }

    /// Puts blocks that settle domains by themselves between the wires and the ports of the models.
    void drawSeeds(Design &design, int most, int domains) {
        std::vector<Model *> models;
        for (Model &model : design) {
            models.push_back(&model);
        }
        for (int left = *rc::gen::inRange(0, most); left > 0; --left) {
            Model &model = *models[*rc::gen::inRange<std::size_t>(0, models.size())];
            std::vector<Wire *> wires;
            std::vector<std::pair<Block *, PureValueRef>> ports;
            for (Block &block : model) {
                for (Wire &wire : block) {
                    wires.push_back(&wire);
                }
                for (const Port &port : block.ports()) {
                    ports.emplace_back(&block, port.getName());
                }
            }
            if (wires.empty() || ports.empty()) {
                continue;
            }
            const bool isScheduled = *rc::gen::arbitrary<bool>();
            Block &seed = *Block::create(model, "seed" + std::to_string(left),
                                         isScheduled ? A_SCHEDULED_MODEL_BLOCK : A_STALLVALID_CONNECTOR_BLOCK);
            ScheduledModelDomains::Map inputs;
            ScheduledModelDomains::Map outputs;
            for (int i = 0; i < 2; ++i) {
                const PureValueRef key = NumberValue::get(i, mgr.context());
                seed.setParam(key, *wires[*rc::gen::inRange<std::size_t>(0, wires.size())]);
                inputs[key] = drawDomain(domains);
                const auto &[reader, port] = ports[*rc::gen::inRange<std::size_t>(0, ports.size())];
                reader->setParam(port, *Wire::create(seed, key));
                outputs[key] = drawDomain(domains);
            }
            if (isScheduled) {
                seed.setParam(A_SCHEDULED_MODEL_VALUE,
                              handleOf(ScheduledModelDomains::createScheduledModelDomains(inputs, outputs)));
            }
        }
    }

    ValueRef handleOf(const ScheduledModelDomains &domains) {
        return Value::parse(
            "(scheduledModelHandleTag note (scheduledModelPortlistTag () ()) (scheduledModelTypesTag () "
            "()) " +
                domains.toValue(mgr.context())->toString() +
                " (scheduledModelTimestepsTag () ()) (unrollMappingsTag) (unrollMappingsTag) (0 0 ()))",
            mgr.context());
    }

    std::vector<Mark> drawMarks(const Design &design, int most, int domains) {
        std::vector<Mark> points;
        for (const Model &model : design) {
            for (const Block &block : model) {
                for (const Wire &wire : block) {
                    points.push_back({&block, true, wire.getName(), true, {}});
                }
                for (const Port &port : block.ports()) {
                    points.push_back({&block, false, port.getName(), true, {}});
                }
            }
        }
        std::vector<Mark> marks;
        for (int left = *rc::gen::inRange(1, most); left > 0 && !points.empty(); --left) {
            const auto at = *rc::gen::inRange<std::size_t>(0, points.size());
            marks.push_back(points[at]);
            marks.back().isBegin = *rc::gen::arbitrary<bool>();
            marks.back().domain = drawDomain(domains);
            points.erase(points.begin() + static_cast<std::ptrdiff_t>(at));
        }
        return marks;
    }

    /// Writes the marks onto their models, in their order.
    void write(Design &design, const std::vector<Mark> &marks) {
        std::map<const Model *, std::vector<PureValueRef>> specs;
        for (const Mark &mark : marks) {
            const PureValueRef signpost = PureTupleValue::get(
                mark.block->getName(), mark.isWire ? PureValueRef(A_WIRE_TAG) : PureValueRef(A_PORT_TAG), mark.key,
                mgr.context());
            specs[&mark.block->getModel()].emplace_back(PureTupleValue::get(
                mark.isBegin ? PureValueRef(A_SCHEDULE_DOMAIN_BEGIN) : PureValueRef(A_SCHEDULE_DOMAIN_END), mark.domain,
                signpost, mgr.context()));
        }
        for (Model &model : design) {
            const auto found = specs.find(&model);
            model.setParam(A_SYNTH_SCHEDULE_DOMAINS, found == specs.end()
                                                         ? ValueRef()
                                                         : ValueRef(PureTupleValue::get(found->second, mgr.context())));
        }
    }

    /// All output roots are instances of the empty chain.
    static std::vector<const Model *> modelsAt(const RefChain &chain, const Design &design) {
        if (!chain.empty()) {
            return {Node::from<Model>((*chain.back())[A_MODEL_NODE])};
        }
        std::vector<const Model *> roots;
        for (const Model &model : design) {
            if (DomainInference::isOutputRoot(model)) {
                roots.push_back(&model);
            }
        }
        return roots;
    }

    Domains infer(const Design &design,
                  const DomainInference::InferenceModifier &modifier = DomainInference::DefaultInferenceModifier()) {
        heard.whole.clear();
        heard.nameless.clear();
        const DomainAnalysisInfo info = DomainInference::inferDomains(design, modifier);
        const RefChainCollection &chains = info.getRefChainCollection();
        Domains all;
        for (unsigned long id = 0; id < chains.size(); ++id) {
            const RefChain chain = chains.getRefChain(id);
            for (const Model *model : modelsAt(chain, design)) {
                for (const Block &block : *model) {
                    const auto add = [&](bool isWire, const PureValueRef &name, const PureValueRef &domain) {
                        all[{chain, &block, isWire, name->toString()}] = domain ? domain->toString() : "";
                    };
                    for (const Wire &wire : block) {
                        add(true, wire.getName(), info.getDomain(wire, id));
                    }
                    for (const Port &port : block.ports()) {
                        add(false, port.getName(), info.getDomain(port, id));
                    }
                }
            }
        }
        return all;
    }

    /// New names for all models and blocks, so that everything is met in another order.
    void rename(Design &design, std::mt19937 &random) {
        std::vector<Node *> nodes;
        for (Model &model : design) {
            nodes.push_back(&model);
            for (Block &block : model) {
                nodes.push_back(&block);
            }
        }
        for (std::size_t i = 0; i < nodes.size(); ++i) {
            nodes[i]->setName(
                StringValue::get("n" + std::to_string(random() % 1000) + "_" + std::to_string(i), mgr.context()));
        }
    }

    /// Makes all connections and all instances again, in another order.
    void reconnect(Design &design, std::mt19937 &random) {
        struct Link {
            Block *block;
            PureValueRef key;
            ValueRef value;
        };
        std::vector<Link> links;
        for (Model &model : design) {
            for (Block &block : model) {
                for (const Port &port : block.ports()) {
                    links.push_back({&block, port.getName(), block.getParam(port.getName())});
                }
                if (block.type() == A_MODEL_BLOCK.get_ptr()) {
                    links.push_back({&block, A_MODEL_NODE, block.getParam(A_MODEL_NODE)});
                }
            }
        }
        std::shuffle(links.begin(), links.end(), random);
        for (const Link &link : links) {
            link.block->setParam(link.key, nullptr);
        }
        std::shuffle(links.begin(), links.end(), random);
        for (const Link &link : links) {
            link.block->setParam(link.key, link.value);
        }
    }

    ContextMgr mgr;
    Heard heard;
    const DomainInference::UnscheduledInferenceModifier mUnscheduled;
};

RC_GTEST_FIXTURE_PROP(DomainProperty, doesNotDependOnNames, ()) {
    const std::unique_ptr<Design> design = draw();
    drawSeeds(*design, 6, 12);
    const std::vector<Mark> marks = drawMarks(*design, 30, 12);
    write(*design, marks);
    const Domains before = infer(*design);
    const auto saidBefore = heard.nameless;
    std::mt19937 random(*rc::gen::arbitrary<unsigned>());
    for (int i = 0; i < 4; ++i) {
        rename(*design, random);
        write(*design, marks);
        RC_ASSERT(infer(*design) == before);
        RC_ASSERT(heard.nameless == saidBefore);
    }
}

RC_GTEST_FIXTURE_PROP(DomainProperty, doesNotDependOnTheOrderInWhichADesignWasMade, ()) {
    const std::unique_ptr<Design> design = draw();
    drawSeeds(*design, 6, 12);
    std::vector<Mark> marks = drawMarks(*design, 30, 12);
    write(*design, marks);
    const Domains before = infer(*design);
    const auto saidBefore = heard.whole;
    const Domains unscheduledBefore = infer(*design, mUnscheduled);
    const auto saidOfUnscheduledBefore = heard.whole;
    std::mt19937 random(*rc::gen::arbitrary<unsigned>());
    for (int i = 0; i < 4; ++i) {
        reconnect(*design, random);
        std::shuffle(marks.begin(), marks.end(), random);
        write(*design, marks);
        RC_ASSERT(infer(*design) == before);
        RC_ASSERT(heard.whole == saidBefore);
        RC_ASSERT(infer(*design, mUnscheduled) == unscheduledBefore);
        RC_ASSERT(heard.whole == saidOfUnscheduledBefore);
    }
}

RC_GTEST_FIXTURE_PROP(DomainProperty, isNoneInScheduledModelsThatTakeNoPart, ()) {
    const std::unique_ptr<Design> design = draw();
    drawSeeds(*design, 6, 12);
    write(*design, drawMarks(*design, 30, 12));
    for (const auto &[place, domain] : infer(*design, mUnscheduled)) {
        const Block &block = *std::get<const Block *>(place);
        RC_ASSERT(domain.empty() || !isScheduledModel(block.getModel()));
    }
}

/// A walk over the points of a design that any domain reaches, without steps, tables or ids.
class Walk {
  public:
    explicit Walk(const std::vector<Mark> &marks) : mMarks(marks) {}

    void from(const Model &model, const RefChain &chain) {
        for (const Mark &mark : mMarks) {
            if (&mark.block->getModel() == &model) {
                enter(chain, *mark.block, mark.isWire, mark.key);
            }
        }
        for (const Block &block : model) {
            for (const auto &[point, domain] : handlerOf(block).inferStatic(block, 0)) {
                enter(chain, block, point.isWire(), point.name());
            }
            if (block.type() == A_MODEL_BLOCK.get_ptr()) {
                RefChain below = chain;
                below.push_back(&block);
                from(*Node::from<Model>(block[A_MODEL_NODE]), below);
            }
        }
        run();
    }
    std::set<Place> reached;

  private:
    struct At {
        RefChain chain;
        const Block *block;
        bool isWire;
        PureValueRef key;
    };
    void enter(const RefChain &chain, const Block &block, bool isWire, const PureValueRef &key) {
        const bool exists = isWire ? block.getWire(key) != nullptr : block.getPort(key) != nullptr;
        if (exists && reached.insert({chain, &block, isWire, key->toString()}).second) {
            mOpen.push_back({chain, &block, isWire, key});
        }
    }
    void run() {
        while (!mOpen.empty()) {
            const At at = mOpen.back();
            mOpen.pop_back();
            const auto mark = std::find_if(mMarks.begin(), mMarks.end(), [&](const Mark &one) {
                return one.block == at.block && one.isWire == at.isWire && one.key == at.key;
            });
            const bool isFree = mark == mMarks.end();
            if (at.isWire ? isFree || mark->isBegin : isFree || !mark->isBegin) {
                alongNet(at);
            }
            if (at.isWire ? isFree || !mark->isBegin : isFree || mark->isBegin) {
                throughBlock(at);
                acrossModels(at);
            }
        }
    }
    void alongNet(const At &at) {
        if (!at.isWire) {
            const Wire &wire = *at.block->getPort(at.key)->peekWire();
            enter(at.chain, wire.getBlock(), true, wire.getName());
            return;
        }
        for (const Port &port : at.block->getWire(at.key)->ports()) {
            enter(at.chain, port.getBlock(), false, port.getName());
        }
    }
    static const DomainPropagationHandler &handlerOf(const Block &block) {
        static const DefaultDomainPropagationHandler byDefault;
        const auto *own = block.getClass()->get<DomainPropagationHandler>();
        return own == nullptr ? byDefault : *own;
    }
    void throughBlock(const At &at) {
        const DomainPoint point =
            at.isWire ? DomainPoint(*at.block->getWire(at.key), 0) : DomainPoint(*at.block->getPort(at.key), 0);
        for (const DomainPoint &other : handlerOf(*at.block).propagateFromPoint(point)) {
            enter(at.chain, *at.block, other.isWire(), other.name());
        }
    }
    void acrossModels(const At &at) {
        const Value *type = at.block->type();
        if (type == (at.isWire ? A_INPUT_BLOCK : A_OUTPUT_BLOCK).get_ptr() && !at.chain.empty()) {
            RefChain above = at.chain;
            const Block &instance = *above.back();
            above.pop_back();
            enter(above, instance, !at.isWire, at.key);
        } else if (type == A_MODEL_BLOCK.get_ptr()) {
            RefChain below = at.chain;
            below.push_back(at.block);
            const auto &model = *Node::from<Model>((*at.block)[A_MODEL_NODE]);
            if (const Block *edge = at.isWire ? model.getOutputBlock() : model.getInputBlock()) {
                enter(below, *edge, !at.isWire, at.key);
            }
        }
    }

    const std::vector<Mark> &mMarks;
    std::vector<At> mOpen;
};

RC_GTEST_FIXTURE_PROP(DomainProperty, standsWhereAWalkReaches, ()) {
    const std::unique_ptr<Design> design = draw();
    const int domains = *rc::gen::element(1, 12);
    drawSeeds(*design, 3, domains);
    const std::vector<Mark> marks = drawMarks(*design, 5, domains);
    write(*design, marks);
    std::set<Place> found;
    std::set<std::string> different;
    for (const auto &[place, domain] : infer(*design)) {
        if (!domain.empty()) {
            found.insert(place);
            different.insert(domain);
        }
    }
    Walk walk(marks);
    for (const Model *root : modelsAt({}, *design)) {
        walk.from(*root, {});
    }
    RC_ASSERT(found == walk.reached);
    RC_ASSERT(different.size() > 1u || heard.whole.empty());
}

} // namespace
} // namespace orvo
