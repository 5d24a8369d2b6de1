// What is known of scheduled models, in memory and as a value.
#include <orvo/scheduledmodelhandle.h>

#include <orvo/staticstrings.h>

#include "support/randommappings.h"
#include "support/randomtuples.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

namespace orvo {
namespace {

class ScheduledModelTest : public ::testing::Test {
  protected:
    PureValueRef value(const std::string &text) { return pureVR(Value::parse(text, mgr.context())); }
    PureTupleValueRef elementsOf(const PureValueRef &tuple) { return pureTupleVR(tuple); }

    ScheduledModelTypes types(const std::string &in, const std::string &out) {
        return ScheduledModelTypes::createScheduledModelTypes({{value("x"), value(in)}}, {{value("y"), value(out)}});
    }
    ScheduledModelDomains domains() {
        return ScheduledModelDomains::createScheduledModelDomains({{value("x"), value("clk")}},
                                                                  {{value("y"), value("(bus 1)")}});
    }
    ScheduledModelHandle make() {
        return ScheduledModelHandle::createScheduledModelHandle(
            value("(note 1)"), ScheduledModelPortList({value("x")}, {value("y")}), types("a", "b"), domains(),
            ScheduledModelTimesteps({{value("x"), 2}}, {{value("y"), -7}}),
            StallLatencyReport::createStallLatencyReport(3, 4, {{"queue", 5}, {"a", 6}}));
    }
    UnrollMappings lanes() {
        UnrollMappings mappings;
        mappings.addMapping(value("x"), CompoundDecorIndex::createVectorIndex(0), value("x0"));
        return mappings;
    }

    ContextMgr mgr;
};

const char *const kWhole = "(scheduledModelHandleTag (note 1) (scheduledModelPortlistTag (x) (y)) "
                           "(scheduledModelTypesTag ((x a)) ((y b))) "
                           "(scheduledModelDomainsTag ((x clk)) ((y (bus 1)))) "
                           "(scheduledModelTimestepsTag ((x 2)) ((y -7))) (unrollMappingsTag) (unrollMappingsTag) "
                           "(3 4 ((a 6) (queue 5))))";

TEST_F(ScheduledModelTest, isWrittenAsOneTuple) { EXPECT_EQ(make().toValue()->toString(), kWhole); }

TEST_F(ScheduledModelTest, tellsWhatItWasMadeWith) {
    const ScheduledModelHandle handle = ScheduledModelHandle::fromValue(value(kWhole));
    ASSERT_TRUE(handle.valid());
    EXPECT_EQ(handle.getGenerationInfoValue(), value("(note 1)"));
    EXPECT_EQ(handle.getInputNames(), (std::vector<PureValueRef>{value("x")}));
    EXPECT_EQ(handle.getOutputNames(), (std::vector<PureValueRef>{value("y")}));
    EXPECT_EQ(handle.getInputTimestep(value("x")), 2);
    EXPECT_EQ(handle.getInputTimestep(value("y")), 0);
    EXPECT_EQ(handle.getOutputTimestep(value("y")), -7);
    EXPECT_EQ(handle.getScheduledModelTypes().getInputPortType(value("x")), value("a"));
    EXPECT_EQ(handle.getScheduledModelTypes().getOutputPortType(value("y")), value("b"));
    EXPECT_FALSE(handle.getScheduledModelTypes().getInputPortType(value("y")));
    EXPECT_EQ(handle.getScheduledModelDomains().getInputPortDomain(value("x")), value("clk"));
    EXPECT_EQ(handle.getScheduledModelDomains().getOutputPortDomain(value("y")), value("(bus 1)"));
    EXPECT_FALSE(handle.getScheduledModelDomains().getOutputPortDomain(value("x")));
    EXPECT_EQ(handle.getStallLatencyReport().getInternalUpstreamLatency(), 3);
    EXPECT_EQ(handle.getStallLatencyReport().getInternalDownstreamLatency(), 4);
    EXPECT_EQ(handle.getStallLatencyReport().getAlmostFullOrEmptyValue("queue"), 5);
    EXPECT_EQ(handle.getStallLatencyReport().getAlmostFullOrEmptyValue("other"), 0);
    EXPECT_TRUE(handle.getInputUnrollMappings().valid());
    EXPECT_TRUE(handle.getOutputUnrollMappings().empty());
    EXPECT_EQ(handle.getOriginalModelTypes(), nullptr);
    EXPECT_EQ(handle.getOriginalModelDomains(), nullptr);
}

TEST_F(ScheduledModelTest, sharesItsRecordAmongCopies) {
    ScheduledModelHandle handle = make();
    const ScheduledModelHandle copy = handle;
    handle.setOriginalModelTypes(types("whole", "b"));
    handle.setOriginalModelDomains(domains());
    handle.setInputUnrollMappings(lanes());
    ASSERT_NE(copy.getOriginalModelTypes(), nullptr);
    EXPECT_EQ(copy.getOriginalModelTypes()->getInputPortType(value("x")), value("whole"));
    ASSERT_NE(copy.getOriginalModelDomains(), nullptr);
    EXPECT_EQ(copy.getOriginalModelDomains()->getInputPortDomain(value("x")), value("clk"));
    const CompoundDecorIndex lane = CompoundDecorIndex::createVectorIndex(0);
    EXPECT_EQ(copy.getCompoundInputIndexName(value("x"), lane), value("x0"));
    EXPECT_FALSE(copy.getCompoundOutputIndexName(value("x"), lane));
    handle.setOutputUnrollMappings(lanes());
    EXPECT_EQ(copy.getCompoundOutputIndexName(value("x"), lane), value("x0"));
    EXPECT_FALSE(copy == make());
    EXPECT_TRUE(copy == handle);
}

TEST_F(ScheduledModelTest, readsBackWithAndWithoutWhatItWasBefore) {
    for (int with = 0; with < 4; ++with) {
        ScheduledModelHandle handle = make();
        handle.setInputUnrollMappings(lanes());
        if ((with & 1) != 0) {
            handle.setOriginalModelTypes(types("whole", "b"));
        }
        if ((with & 2) != 0) {
            handle.setOriginalModelDomains(domains());
        }
        const PureValueRef tuple = handle.toValue();
        EXPECT_EQ(elementsOf(tuple)->size(), with == 0 ? 9U : with == 3 ? 13U : 11U);
        const ScheduledModelHandle read = ScheduledModelHandle::fromValue(tuple);
        ASSERT_TRUE(read.valid());
        EXPECT_TRUE(read == handle) << with;
        EXPECT_EQ(read.toValue(), tuple);
    }
    // In the other order they tell the same.
    std::string text = kWhole;
    text.pop_back();
    const std::string domain = " scheduledModelHandleOriginaldomainsTag (scheduledModelDomainsTag ((x clk)) ())";
    const std::string type = " scheduledModelHandleOriginaltypesTag (scheduledModelTypesTag ((x whole)) ())";
    const ScheduledModelHandle one = ScheduledModelHandle::fromValue(value(text + domain + type + ")"));
    ASSERT_TRUE(one.valid());
    EXPECT_TRUE(one == ScheduledModelHandle::fromValue(value(text + type + domain + ")")));
}

TEST_F(ScheduledModelTest, isInvalidForTuplesOfAnotherForm) {
    EXPECT_FALSE(ScheduledModelHandle::fromValue(nullptr).valid());
    EXPECT_FALSE(ScheduledModelHandle::fromValue(value("scheduledModelHandleTag")).valid());
    const PureTupleValueRef whole = elementsOf(value(kWhole));
    const std::vector<PureValueRef> elements(whole->begin(), whole->end());
    const auto read = [&](const std::vector<PureValueRef> &parts) {
        return ScheduledModelHandle::fromValue(PureTupleValue::get(parts, mgr.context())).valid();
    };
    const auto with = [&](const std::string &more) {
        std::string text = kWhole;
        text.pop_back();
        return ScheduledModelHandle::fromValue(value(text + " " + more + ")")).valid();
    };
    ASSERT_TRUE(read(elements));
    EXPECT_FALSE(read(std::vector<PureValueRef>(elements.begin(), elements.end() - 1)));
    for (std::size_t i = 0; i < elements.size(); ++i) {
        std::vector<PureValueRef> broken = elements;
        broken[i] = value("(z)");
        EXPECT_EQ(read(broken), i == 1) << i;
    }
    const std::string type = "scheduledModelHandleOriginaltypesTag (scheduledModelTypesTag () ())";
    const std::string domain = "scheduledModelHandleOriginaldomainsTag (scheduledModelDomainsTag () ())";
    EXPECT_TRUE(with(type + " " + domain));
    EXPECT_FALSE(with(type + " " + domain + " x"));
    EXPECT_FALSE(with(type + " " + domain + " " + type));
    EXPECT_FALSE(with(type + " " + type));
    EXPECT_FALSE(with(domain + " " + domain));
    EXPECT_FALSE(with("scheduledModelHandleOriginaltypesTag"));
    EXPECT_FALSE(with("otherTag (scheduledModelTypesTag () ())"));
    EXPECT_FALSE(with("scheduledModelHandleOriginaltypesTag (scheduledModelDomainsTag () ())"));
    EXPECT_FALSE(with("scheduledModelHandleOriginaldomainsTag (scheduledModelTypesTag () ())"));
}

TEST_F(ScheduledModelTest, refusesToBeAskedWhileInvalid) {
    ScheduledModelHandle none;
    EXPECT_FALSE(none.valid());
    EXPECT_FALSE(none.toValue());
    EXPECT_TRUE(none == ScheduledModelHandle());
    EXPECT_FALSE(none == make());
    EXPECT_FALSE(make() == none);
    EXPECT_DEATH(none.getInputNames(), "invalid handle");
    EXPECT_DEATH(none.setInputUnrollMappings(UnrollMappings()), "invalid handle");
}

TEST_F(ScheduledModelTest, hasNoValueWithAPartThatIsInvalid) {
    const ScheduledModelPortList ports({}, {});
    const ScheduledModelTypes someTypes = ScheduledModelTypes::createScheduledModelTypes({}, {});
    const ScheduledModelDomains someDomains = ScheduledModelDomains::createScheduledModelDomains({}, {});
    const ScheduledModelTimesteps times({}, {});
    const StallLatencyReport stalls = StallLatencyReport::createStallLatencyReport(0, 0, {});
    const auto written = [](const ScheduledModelHandle &handle) { return static_cast<bool>(handle.toValue()); };
    const PureValueRef info = value("note");
    const auto create = ScheduledModelHandle::createScheduledModelHandle;
    EXPECT_TRUE(written(create(info, ports, someTypes, someDomains, times, stalls)));
    EXPECT_FALSE(written(create(nullptr, ports, someTypes, someDomains, times, stalls)));
    EXPECT_FALSE(written(create(info, {}, someTypes, someDomains, times, stalls)));
    EXPECT_FALSE(written(create(info, ports, {}, someDomains, times, stalls)));
    EXPECT_FALSE(written(create(info, ports, someTypes, {}, times, stalls)));
    EXPECT_FALSE(written(create(info, ports, someTypes, someDomains, {}, stalls)));
    EXPECT_FALSE(written(create(info, ports, someTypes, someDomains, times, {})));
    ScheduledModelHandle handle = make();
    handle.setOutputUnrollMappings(UnrollMappings::fromValue(nullptr));
    EXPECT_FALSE(handle.toValue());
    handle = make();
    handle.setOriginalModelTypes({});
    EXPECT_FALSE(handle.toValue());
    handle = make();
    handle.setOriginalModelDomains({});
    EXPECT_FALSE(handle.toValue());
}

TEST_F(ScheduledModelTest, partsAreInvalidWithNullInThem) {
    EXPECT_FALSE(ScheduledModelPortList({nullptr}, {}).valid());
    EXPECT_FALSE(ScheduledModelPortList({}, {nullptr}).toValue());
    EXPECT_FALSE(ScheduledModelTypes::createScheduledModelTypes({{nullptr, value("a")}}, {}).valid());
    EXPECT_FALSE(ScheduledModelTypes::createScheduledModelTypes({}, {{value("a"), nullptr}}).toValue());
    EXPECT_FALSE(ScheduledModelDomains::createScheduledModelDomains({{value("a"), nullptr}}, {}).toValue());
    EXPECT_FALSE(ScheduledModelTimesteps({{nullptr, 1}}, {}).valid());
    EXPECT_FALSE(ScheduledModelTimesteps({}, {{nullptr, 1}}).toValue());
    EXPECT_FALSE(StallLatencyReport().toValue());
    EXPECT_EQ(StallLatencyReport().getAlmostFullOrEmptyValue("a"), 0);
}

TEST_F(ScheduledModelTest, partsAreInvalidForTuplesOfAnotherForm) {
    EXPECT_TRUE(ScheduledModelPortList::fromValue(value("(scheduledModelPortlistTag (a a) ())")).valid());
    for (const char *text : {"(scheduledModelPortlistTag (a))", "(scheduledModelPortlistTag (a) b)",
                             "(scheduledModelPortlistTag (a) () ())", "(other (a) (b))", "a", "()"}) {
        EXPECT_FALSE(ScheduledModelPortList::fromValue(value(text)).valid()) << text;
    }
    EXPECT_TRUE(ScheduledModelTypes::fromValue(value("(scheduledModelTypesTag ((b t) (a t)) ())")).valid());
    for (const char *text : {"(scheduledModelTypesTag ((a t)))", "(scheduledModelTypesTag ((a)) ())",
                             "(scheduledModelTypesTag () ((a t u)))", "(scheduledModelTypesTag (a) ())",
                             "(scheduledModelTypesTag ((a t) (a u)) ())", "(scheduledModelDomainsTag () ())"}) {
        EXPECT_FALSE(ScheduledModelTypes::fromValue(value(text)).valid()) << text;
    }
    EXPECT_TRUE(ScheduledModelDomains::fromValue(value("(scheduledModelDomainsTag () ((a d)))")).valid());
    EXPECT_FALSE(ScheduledModelDomains::fromValue(value("(scheduledModelTypesTag () ())")).valid());
    EXPECT_TRUE(ScheduledModelTimesteps::fromValue(value("(scheduledModelTimestepsTag ((a -1)) ())")).valid());
    for (const char *text :
         {"(scheduledModelTimestepsTag ((a b)) ())", "(scheduledModelTimestepsTag ((a 0.5)) ())",
          "(scheduledModelTimestepsTag () ((a 4294967296)))", "(scheduledModelTimestepsTag ((a 1) (a 1)) ())",
          "(scheduledModelTimestepsTag ((a +nan)) ())", "(scheduledModelTimestepsTag ((a +inf)) ())",
          "(scheduledModelTimestepsTag () ((a -inf)))", "(scheduledModelTimestepsTag () ((a -zero)))",
          "(scheduledModelTimestepsTag ((a 0x0.8)) ())", "(scheduledModelTimestepsTag ((a 1 1)) ())",
          "(scheduledModelTimestepsTag ((a 1)))"}) {
        EXPECT_FALSE(ScheduledModelTimesteps::fromValue(value(text)).valid()) << text;
    }
    EXPECT_TRUE(StallLatencyReport::fromValue(value("(-1 2 ((a 3)))")).valid());
    for (const char *text : {"(1 2)",
                             "(1 2 () ())",
                             "(a 2 ())",
                             "(1 b ())",
                             "(1.5 2 ())",
                             "(1 2 a)",
                             "(1 2 (a))",
                             "(1 2 ((a)))",
                             "(1 2 ((3 4)))",
                             "(1 2 ((a b)))",
                             "(1 2 ((a 1) (a 1)))",
                             "a",
                             "(+nan 2 ())",
                             "(1 -zero ())",
                             "(1 +inf ())",
                             "(0x0.8 2 ())",
                             "(2147483648 2 ())",
                             "(1 2 ((a +nan)))",
                             "(1 2 ((a -zero)))",
                             "(1 2 ((a 0x0.8)))",
                             "(1 2 ((a 3 3)))"}) {
        EXPECT_FALSE(StallLatencyReport::fromValue(value(text)).valid()) << text;
    }
}

/// Ports by chance, named by numbers.
std::map<PureValueRef, PureValueRef> chancePorts(Context *context) {
    std::map<PureValueRef, PureValueRef> ports;
    for (const int number : *rc::gen::container<std::vector<int>>(rc::gen::inRange(0, 20))) {
        ports.emplace(NumberValue::get(number, context), test::chanceValue(context));
    }
    return ports;
}

std::map<PureValueRef, int> chanceTimes(Context *context) {
    std::map<PureValueRef, int> times;
    for (const auto &[name, time] : *rc::gen::container<std::vector<std::pair<int, int>>>(
             rc::gen::pair(rc::gen::inRange(0, 20), rc::gen::arbitrary<int>()))) {
        times.emplace(NumberValue::get(name, context), time);
    }
    return times;
}

ScheduledModelTypes chanceTypes(Context *context) {
    return ScheduledModelTypes::createScheduledModelTypes(chancePorts(context), chancePorts(context));
}

ScheduledModelDomains chanceDomains(Context *context) {
    return ScheduledModelDomains::createScheduledModelDomains(chancePorts(context), chancePorts(context));
}

ScheduledModelHandle chanceHandle(Context *context) {
    const auto names = [context] {
        std::vector<PureValueRef> made;
        for (int i = *rc::gen::inRange(0, 4); i > 0; --i) {
            made.push_back(test::chanceValue(context));
        }
        return made;
    };
    const auto marks = *rc::gen::container<std::map<std::string, int>>(
        rc::gen::container<std::string>(rc::gen::inRange('a', 'd')), rc::gen::arbitrary<int>());
    ScheduledModelHandle handle = ScheduledModelHandle::createScheduledModelHandle(
        test::chanceValue(context), ScheduledModelPortList(names(), names()), chanceTypes(context),
        chanceDomains(context), ScheduledModelTimesteps(chanceTimes(context), chanceTimes(context)),
        StallLatencyReport::createStallLatencyReport(*rc::gen::arbitrary<int>(), *rc::gen::arbitrary<int>(), marks));
    handle.setInputUnrollMappings(test::chanceMappings(context));
    handle.setOutputUnrollMappings(test::chanceMappings(context));
    if (*rc::gen::arbitrary<bool>()) {
        handle.setOriginalModelTypes(chanceTypes(context));
    }
    if (*rc::gen::arbitrary<bool>()) {
        handle.setOriginalModelDomains(chanceDomains(context));
    }
    return handle;
}

RC_GTEST_FIXTURE_PROP(ScheduledModelTest, readsWhatItWrites, ()) {
    const ScheduledModelHandle handle = chanceHandle(mgr.context());
    const PureValueRef tuple = handle.toValue();
    const ScheduledModelHandle read = ScheduledModelHandle::fromValue(tuple);
    RC_ASSERT(read.valid());
    RC_ASSERT(read == handle);
    RC_ASSERT(read.toValue() == tuple);
    RC_ASSERT(Value::parse(tuple->toString(), mgr.context()) == tuple);
}

/// A tuple (tag, map, map) with its maps in the order of their keys.
PureValueRef sortedMaps(const PureValueRef &value, Context *context) {
    const PureTupleValueRef pair = pureTupleVR(value);
    std::vector<PureValueRef> parts(pair->begin(), pair->end());
    for (const std::size_t at : {std::size_t{1}, std::size_t{2}}) {
        parts[at] = test::sortedEntries(parts[at], 0, DeepValueCmp(), context);
    }
    return PureTupleValue::get(parts, context);
}

PureValueRef sortedMarks(const PureValueRef &value, Context *context) {
    const PureTupleValueRef report = pureTupleVR(value);
    std::vector<PureValueRef> parts(report->begin(), report->end());
    const auto byText = [](const PureValueRef &a, const PureValueRef &b) {
        return stringVR(a)->str() < stringVR(b)->str();
    };
    parts[2] = test::sortedEntries(parts[2], 0, byText, context);
    return PureTupleValue::get(parts, context);
}

/// The tuple of a handle with all that has no order of its own in the order in which it is written.
PureValueRef sortedHandle(const PureValueRef &value, Context *context) {
    const PureTupleValueRef tuple = pureTupleVR(value);
    std::vector<PureValueRef> parts(tuple->begin(), tuple->end());
    for (const std::size_t at : {3U, 4U, 5U, 10U, 12U}) {
        if (at < parts.size()) {
            parts[at] = sortedMaps(parts[at], context);
        }
    }
    parts[6] = test::sortedMappings(parts[6], context);
    parts[7] = test::sortedMappings(parts[7], context);
    parts[8] = sortedMarks(parts[8], context);
    if (parts.size() == 13 && parts[9] == A_SCHEDULED_MODEL_HANDLE_ORIGINALDOMAINS_TAG) {
        std::swap(parts[9], parts[11]);
        std::swap(parts[10], parts[12]);
    }
    return PureTupleValue::get(parts, context);
}

RC_GTEST_FIXTURE_PROP(ScheduledModelTest, readsMutatedTuplesOnlyIfTheyAreHandles, ()) {
    const ScheduledModelHandle original = chanceHandle(mgr.context());
    const PureValueRef tuple = test::mutatedSome(original.toValue(), mgr.context());
    const ScheduledModelHandle handle = ScheduledModelHandle::fromValue(tuple);
    if (handle.valid()) {
        // A reader may be given another order, but nothing is lost or made up.
        const PureValueRef written = handle.toValue();
        RC_ASSERT(written == sortedHandle(tuple, mgr.context()));
        RC_ASSERT(ScheduledModelHandle::fromValue(written) == handle);
    }
}

// A part alone is mutated more deeply than inside a handle, where most places are elsewhere.
RC_GTEST_FIXTURE_PROP(ScheduledModelTest, partsReadMutatedTuplesOnlyIfTheyAreOfTheirForm, ()) {
    Context *context = mgr.context();
    const PureTupleValueRef whole = pureTupleVR(chanceHandle(context).toValue());
    const auto mutatedPart = [&](std::size_t at) { return test::mutatedSome(whole->at(at), context); };
    const PureValueRef ports = mutatedPart(2);
    if (const auto read = ScheduledModelPortList::fromValue(ports); read.valid()) {
        RC_ASSERT(read.toValue() == ports);
    }
    const PureValueRef typesOfPorts = mutatedPart(3);
    if (const auto read = ScheduledModelTypes::fromValue(typesOfPorts); read.valid()) {
        RC_ASSERT(read.toValue() == sortedMaps(typesOfPorts, context));
    }
    const PureValueRef domainsOfPorts = mutatedPart(4);
    if (const auto read = ScheduledModelDomains::fromValue(domainsOfPorts); read.valid()) {
        RC_ASSERT(read.toValue() == sortedMaps(domainsOfPorts, context));
    }
    const PureValueRef times = mutatedPart(5);
    if (const auto read = ScheduledModelTimesteps::fromValue(times); read.valid()) {
        RC_ASSERT(read.toValue() == sortedMaps(times, context));
    }
    const PureValueRef report = mutatedPart(8);
    if (const auto read = StallLatencyReport::fromValue(report); read.valid()) {
        RC_ASSERT(read.toValue() == sortedMarks(report, context));
    }
}

} // namespace
} // namespace orvo
