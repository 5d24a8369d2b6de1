// How domains pass through blocks, type by type.
#include "support/domainrig.h"

#include <orvo/blockclass.h>
#include <orvo/corevalues.h>

#include <map>
#include <typeinfo>

namespace orvo {
namespace {

class DomainHandlers : public test::DomainRig {
  protected:
    const DomainPropagationHandler *handlerOf(const StaticString &type) {
        return mgr.context()->getBlockClass(type)->get<DomainPropagationHandler>();
    }
    /// The points that share a point's domain by the block's own handler, as "port 0 wire w".
    std::string reached(const DomainPoint &point) {
        const auto *handler = point.block()->getClass()->get<DomainPropagationHandler>();
        std::string text;
        for (const DomainPoint &one : handler->propagateFromPoint(point)) {
            EXPECT_EQ(one.refChainId(), point.refChainId());
            EXPECT_EQ(one.block(), point.block());
            text += (text.empty() ? "" : " ") + std::string(one.isPort() ? "port " : "wire ") + one.name()->toString();
        }
        return text;
    }
    std::string fromPort(Block &block, const std::string &name) {
        return reached(DomainPoint(*block.getPort(value(name)), 5));
    }
    std::string fromWire(Block &block, const std::string &name) {
        return reached(DomainPoint(*block.getWire(value(name)), 5));
    }
    std::string settled(const Block &block) {
        const auto *handler = block.getClass()->get<DomainPropagationHandler>();
        std::string text;
        for (const auto &[point, domain] : handler->inferStatic(block, 9)) {
            EXPECT_EQ(point.refChainId(), 9U);
            text += (text.empty() ? "" : " ") + std::string(point.isPort() ? "port " : "wire ") +
                    point.name()->toString() + "=" + domain->toString();
        }
        return text;
    }
    /// Ports and wires of the given names.
    Block &blockWith(const StaticString &type, const std::vector<std::string> &ports,
                     const std::vector<std::string> &wires) {
        Block &block = make(top, "block", type);
        Wire &driver = source(top, "driver");
        for (const std::string &port : ports) {
            block.setParam(value(port), driver);
        }
        for (const std::string &name : wires) {
            wire(block, name);
        }
        return block;
    }
};

TEST_F(DomainHandlers, standAtTheirTypes) {
    const std::map<const StaticString *, std::string> expected = {
        {&A_SIGNAL_IN_BLOCK, "PassthroughDomainHandler"},
        {&A_SIGNAL_OUT_BLOCK, "PassthroughDomainHandler"},
        {&A_TERMINAL_BLOCK, "PassthroughDomainHandler"},
        {&A_BOUNDARY_BLOCK, "PassthroughDomainHandler"},
        {&A_BUS_IN_BLOCK, "PassthroughDomainHandler"},
        {&A_INPUT_BLOCK, "IndependentPortsDomainHandler"},
        {&A_OUTPUT_BLOCK, "IndependentPortsDomainHandler"},
        {&A_MODEL_BLOCK, "IndependentPortsDomainHandler"},
        {&A_TYPE_PIN_BLOCK, "IndependentPortsDomainHandler"},
        {&A_HIDDEN_IFACE_BLOCK, "IndependentPortsDomainHandler"},
        {&A_EXT_IFACE_BLOCK, "IndependentPortsDomainHandler"},
        {&A_CHANNEL_IN_BLOCK, "ChannelBoundaryDomainHandler"},
        {&A_CHANNEL_OUT_BLOCK, "ChannelBoundaryDomainHandler"},
        {&A_SCHEDULED_MODEL_BLOCK, "ScheduledModelDomainHandler"},
        {&A_STALLVALID_CONNECTOR_BLOCK, "StallValidConnectorDomainPropagationHandler"},
    };
    for (const auto &[type, handler] : expected) {
        const DomainPropagationHandler *found = handlerOf(*type);
        ASSERT_NE(found, nullptr) << type->text();
        EXPECT_NE(std::string(typeid(*found).name()).find(handler), std::string::npos) << type->text();
    }
    for (const StaticString *type : {&A_ADD_BLOCK, &A_MUX_BLOCK, &A_FROM_BLOCK, &A_BUS_OUT_BLOCK}) {
        EXPECT_EQ(handlerOf(*type), nullptr) << type->text();
    }
}

TEST_F(DomainHandlers, byDefaultReachAllOtherPointsOfTheBlock) {
    Block &block = blockWith(A_ADD_BLOCK, {"0", "1"}, {"v", "w"});
    const DefaultDomainPropagationHandler handler;
    const auto count = [&](const DomainPoint &point) {
        std::map<std::string, int> names;
        for (const DomainPoint &one : handler.propagateFromPoint(point)) {
            EXPECT_EQ(one.refChainId(), 5U);
            ++names[one.name()->toString()];
        }
        return names;
    };
    EXPECT_EQ(count(DomainPoint(*block.getPort(value("0")), 5)),
              (std::map<std::string, int>{{"1", 1}, {"v", 1}, {"w", 1}}));
    EXPECT_EQ(count(DomainPoint(*block.getWire(value("w")), 5)),
              (std::map<std::string, int>{{"0", 1}, {"1", 1}, {"v", 1}}));
    EXPECT_TRUE(handler.inferStatic(block, 5).empty());
}

TEST_F(DomainHandlers, passAPortOnToTheWireOfItsName) {
    for (const StaticString *type : {&A_SIGNAL_IN_BLOCK, &A_BOUNDARY_BLOCK}) {
        Block &block = blockWith(*type, {"0", "1", "2"}, {"0", "1", "3"});
        EXPECT_EQ(fromPort(block, "0"), "wire 0");
        EXPECT_EQ(fromWire(block, "1"), "port 1");
        EXPECT_EQ(fromPort(block, "2"), "");
        EXPECT_EQ(fromWire(block, "3"), "");
        delete &block;
    }
}

TEST_F(DomainHandlers, keepIndependentPortsApart) {
    Block &block = blockWith(A_EXT_IFACE_BLOCK, {"0", "1"}, {"0"});
    EXPECT_EQ(fromPort(block, "0"), "");
    EXPECT_EQ(fromWire(block, "0"), "");
    EXPECT_EQ(settled(block), "");
}

TEST_F(DomainHandlers, pairTheSignalsOfAChannel) {
    for (const StaticString *type : {&A_CHANNEL_IN_BLOCK, &A_CHANNEL_OUT_BLOCK}) {
        Block &block = blockWith(*type, {"portValid", "portChannel", "portPacketBegin", "0", "(d 1)"},
                                 {"wireValid", "wireChannel", "wirePacketBegin", "0", "(d 1)"});
        EXPECT_EQ(fromPort(block, "portValid"), "wire wireValid");
        EXPECT_EQ(fromPort(block, "portChannel"), "wire wireChannel");
        EXPECT_EQ(fromPort(block, "portPacketBegin"), "wire wirePacketBegin");
        EXPECT_EQ(fromPort(block, "0"), "wire 0");
        EXPECT_EQ(fromPort(block, "(d 1)"), "wire (d 1)");
        EXPECT_EQ(fromWire(block, "wireValid"), "port portValid");
        EXPECT_EQ(fromWire(block, "wireChannel"), "port portChannel");
        EXPECT_EQ(fromWire(block, "wirePacketBegin"), "port portPacketBegin");
        EXPECT_EQ(fromWire(block, "0"), "port 0");
        delete &block;
    }
}

TEST_F(DomainHandlers, keepTheDataOfAChannelApartFromItsValid) {
    Block &block = blockWith(A_CHANNEL_IN_BLOCK, {"portValid", "0"}, {"wireValid", "0"});
    mark(top, "(" + begin("red", portAt("block", "0")) + ")");
    infer();
    EXPECT_EQ(of(*block.getWire(value("0"))), "red");
    EXPECT_EQ(of(*block.getWire(value("wireValid"))), "-");
}

class ScheduledModelDomainsTest : public DomainHandlers {
  protected:
    /// A handle with these domains and, behind, options.
    std::string handle(const std::string &domains, const std::string &options = "") {
        return "(scheduledModelHandleTag note (scheduledModelPortlistTag () ()) (scheduledModelTypesTag () ()) " +
               domains + " (scheduledModelTimestepsTag () ()) (unrollMappingsTag) (unrollMappingsTag) (0 0 ())" +
               options + ")";
    }
    const std::string kDomains = "(scheduledModelDomainsTag ((a red) (b blue) (gone red)) ((y green)))";
    const std::string kOriginal =
        " scheduledModelHandleOriginaldomainsTag (scheduledModelDomainsTag ((a black)) ((y white)))";
};

TEST_F(ScheduledModelDomainsTest, areThoseOfTheHandle) {
    Block &block = blockWith(A_SCHEDULED_MODEL_BLOCK, {"a", "b", "c"}, {"y", "z"});
    EXPECT_EQ(settled(block), "");
    block.setParam(A_SCHEDULED_MODEL_VALUE, any(handle(kDomains, kOriginal)));
    EXPECT_EQ(settled(block), "port a=red port b=blue wire y=green");
    EXPECT_EQ(fromPort(block, "a"), "");
    EXPECT_EQ(fromWire(block, "y"), "");
}

TEST_F(ScheduledModelDomainsTest, areTheOriginalOnesWhereTheBlockStandsForTheModelAsItWas) {
    Block &block = blockWith(A_SCHEDULED_MODEL_BLOCK, {"a", "b"}, {"y"});
    block.setParam(A_SCHEDULED_MODEL_ORIGINAL_TYPES, A_TRUE);
    block.setParam(A_SCHEDULED_MODEL_VALUE, any(handle(kDomains, kOriginal)));
    EXPECT_EQ(settled(block), "port a=black wire y=white");
    // Of a model in which nothing was taken apart, there is one kind of domains.
    block.setParam(A_SCHEDULED_MODEL_VALUE, any(handle(kDomains)));
    EXPECT_EQ(settled(block), "port a=red port b=blue wire y=green");
    block.setParam(A_SCHEDULED_MODEL_VALUE, any(handle(kDomains, kOriginal)));
    block.setParam(A_SCHEDULED_MODEL_ORIGINAL_TYPES, A_FALSE);
    EXPECT_EQ(settled(block), "port a=red port b=blue wire y=green");
}

TEST_F(ScheduledModelDomainsTest, areNoneOfAValueThatIsNoHandle) {
    Block &block = blockWith(A_SCHEDULED_MODEL_BLOCK, {"a"}, {"y"});
    for (const std::string &text :
         {std::string("red"), std::string("()"), handle("red"), handle("(scheduledModelDomainsTag ((a red)))"),
          handle("(scheduledModelTypesTag ((a red)) ())"), handle("(scheduledModelDomainsTag ((a red)) red)"),
          handle("(scheduledModelDomainsTag ((a red) (b)) ())"),
          handle("(scheduledModelDomainsTag ((a red)) ())", " 1 2 3 4 5"), "(note " + kDomains + ")"}) {
        block.setParam(A_SCHEDULED_MODEL_VALUE, any(text));
        EXPECT_EQ(settled(block), "") << text;
    }
}

TEST_F(ScheduledModelDomainsTest, flowFromTheBlockInEachInstance) {
    Model &below = *Model::create(design, "below");
    Block &block = make(below, "s", A_SCHEDULED_MODEL_BLOCK);
    Wire &input = source(below, "input");
    block.setParam(value("a"), input);
    Wire &y = wire(block, "y");
    Wire &after = operation(below, "after", A_NEG_BLOCK, {&y});
    block.setParam(A_SCHEDULED_MODEL_VALUE, any(handle(kDomains)));
    Block &i1 = instance(top, "i1", below);
    Block &i2 = instance(top, "i2", below);
    infer();
    for (const Block *one : {&i1, &i2}) {
        EXPECT_EQ(of(input, {one}), "red");
        EXPECT_EQ(of(after, {one}), "green");
    }
    EXPECT_EQ(of(after), "-");
}

TEST_F(ScheduledModelDomainsTest, giveWayToASignpost) {
    Block &block = blockWith(A_SCHEDULED_MODEL_BLOCK, {"a"}, {"y"});
    block.setParam(A_SCHEDULED_MODEL_VALUE, any(handle(kDomains)));
    mark(top, "(" + begin("black", wireAt("block", "y")) + ")");
    infer();
    EXPECT_EQ(of(*block.getWire(value("y"))), "black");
    EXPECT_EQ(of(block, "a"), "red");
    EXPECT_EQ(messages.lines, Lines());
}

TEST_F(DomainHandlers, keepTheStallNetworkOutOfDomains) {
    Block &block = blockWith(A_STALLVALID_CONNECTOR_BLOCK, {"0"}, {"0", "1"});
    EXPECT_EQ(settled(block), "wire 0=scheduleDomainIgnore wire 1=scheduleDomainIgnore");
    EXPECT_EQ(fromPort(block, "0"), "");
    EXPECT_EQ(fromWire(block, "0"), "");
    mark(top, "(" + begin("red", wireAt("driver")) + ")");
    infer();
    EXPECT_EQ(of(block, "0"), "red");
    EXPECT_EQ(of(*block.getWire(value("0"))), "scheduleDomainIgnore");
}

TEST_F(DomainHandlers, ofAClientTakePartInInference) {
    struct FirstToLast final : DomainPropagationHandler {
        std::vector<std::pair<DomainPoint, PureValueRef>> inferStatic(const Block &block,
                                                                      unsigned long id) const override {
            const Port *port = block.getPort(NumberValue::get(1, block.getContext()));
            return {{DomainPoint(*port, id), A_SCHEDULE_DOMAIN_DEFAULT}, {DomainPoint(), A_TRUE}};
        }
        std::vector<DomainPoint> propagateFromPoint(const DomainPoint &point) const override {
            return {DomainPoint(), DomainPoint(*point.block()->begin(), point.refChainId())};
        }
    };
    mgr.context()->getBlockClass(A_ADD_BLOCK)->registerHandler<DomainPropagationHandler>(new FirstToLast);
    Wire &a = source(top, "a");
    Wire &b = source(top, "b");
    Wire &sum = operation(top, "sum", A_ADD_BLOCK, {&a, &b});
    infer();
    EXPECT_EQ(of(sum), "scheduleDomainDefault");
    EXPECT_EQ(of(b), "scheduleDomainDefault");
    EXPECT_EQ(of(a), "-");
}

} // namespace
} // namespace orvo
