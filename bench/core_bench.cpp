// The hot paths of the core, one by one.
#include "synthetic.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/corevalues.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/pass.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>
#include <orvo/xmlservices.h>

#include <benchmark/benchmark.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace orvo {
namespace {

void internPresentText(benchmark::State &state) {
    ContextMgr mgr;
    const StringValueRef held = StringValue::get("block1234567", mgr.context());
    const std::string text = held->str();
    for (auto _ : state) {
        benchmark::DoNotOptimize(StringValue::get(text, mgr.context()));
    }
}
BENCHMARK(internPresentText);

void internNewText(benchmark::State &state) {
    ContextMgr mgr;
    std::vector<StringValueRef> held;
    std::size_t number = 0;
    for (auto _ : state) {
        held.push_back(StringValue::get("name" + std::to_string(number++), mgr.context()));
    }
}
BENCHMARK(internNewText);

void internType(benchmark::State &state) {
    ContextMgr mgr;
    Context *context = mgr.context();
    const auto make = [&] {
        return PureTupleValue::get(A_TYPE_SFIXED, NumberValue::get(2, context), NumberValue::get(14, context), context);
    };
    const PureTupleValueRef held = make();
    for (auto _ : state) {
        benchmark::DoNotOptimize(make());
    }
}
BENCHMARK(internType);

void parseType(benchmark::State &state) {
    ContextMgr mgr;
    ValueTextReader reader(mgr.context());
    const ValueRef held = reader.parse("(typeVector 4 (typeComplex (typeSFixed 1 15)))");
    for (auto _ : state) {
        benchmark::DoNotOptimize(reader.parse("(typeVector 4 (typeComplex (typeSFixed 1 15)))"));
    }
}
BENCHMARK(parseType);

void setParam(benchmark::State &state) {
    ContextMgr mgr;
    Design design(mgr.context());
    Block &block = *Block::create(*Model::create(design, "m"), "b");
    const ValueRef values[] = {A_TRUE, A_FALSE};
    std::size_t i = 0;
    for (auto _ : state) {
        block.setParam(A_ADD_NO_GROWTH, values[i++ % 2]);
    }
}
BENCHMARK(setParam);

void getParam(benchmark::State &state) {
    ContextMgr mgr;
    Design design(mgr.context());
    Block &block = *Block::create(*Model::create(design, "m"), "b");
    block.setParam(A_BLOCK_TYPE, A_ADD_BLOCK);
    block.setParam(A_ADD_NO_GROWTH, A_TRUE);
    for (auto _ : state) {
        benchmark::DoNotOptimize(block.findParam(A_ADD_NO_GROWTH));
    }
}
BENCHMARK(getParam);

void findChild(benchmark::State &state) {
    ContextMgr mgr;
    Design design(mgr.context());
    Model &model = *Model::create(design, "m");
    std::vector<PureValueRef> names;
    for (int i = 0; i < state.range(0); ++i) {
        names.push_back(Block::create(model, "block" + std::to_string(i))->getName());
    }
    std::size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(model.getBlock(names[i++ % names.size()]));
    }
}
BENCHMARK(findChild)->Arg(16)->Arg(1000)->Arg(100000);

void replaceWire(benchmark::State &state) {
    ContextMgr mgr;
    Design design(mgr.context());
    Model &model = *Model::create(design, "m");
    Block &source = *Block::create(model, "source");
    Wire *wires[] = {Wire::create(source, "a"), Wire::create(source, "b")};
    Block &reader = *Block::create(model, "reader");
    for (int i = 0; i < state.range(0); ++i) {
        reader.setParam(NumberValue::get(i, mgr.context()), *wires[0]);
    }
    std::size_t i = 0;
    for (auto _ : state) {
        wires[i % 2]->replace(*wires[(i + 1) % 2]);
        ++i;
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(replaceWire)->Arg(1)->Arg(1000)->Arg(100000);

bench::SyntheticOptions optionsFor(const benchmark::State &state) {
    bench::SyntheticOptions options;
    options.blocks = static_cast<std::size_t>(state.range(0));
    return options;
}

void loadXml(benchmark::State &state) {
    ContextMgr mgr;
    XMLServices xml;
    std::ostringstream out;
    {
        Design design(mgr.context());
        bench::makeSynthetic(design, optionsFor(state));
        xml.toXML(out, design);
    }
    for (auto _ : state) {
        Design design(mgr.context());
        std::istringstream in(out.str());
        xml.fromXML(in, design, XMLServices::defaultErrorFunc);
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(loadXml)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

void writeXml(benchmark::State &state) {
    ContextMgr mgr;
    XMLServices xml;
    Design design(mgr.context());
    bench::makeSynthetic(design, optionsFor(state));
    for (auto _ : state) {
        std::ostringstream out;
        xml.toXML(out, design);
        benchmark::DoNotOptimize(out.tellp());
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(writeXml)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

void schedulerOverhead(benchmark::State &state) {
    ContextMgr mgr;
    Design design(mgr.context());
    PassScheduler scheduler;
    for (int i = 0; i < 100; ++i) {
        scheduler.addPass("ModelTreePass");
    }
    for (auto _ : state) {
        scheduler.apply(design);
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * 100);
}
BENCHMARK(schedulerOverhead);

void deadBlocks(benchmark::State &state) {
    ContextMgr mgr;
    bench::SyntheticOptions options = optionsFor(state);
    options.halfDead = true;
    PassScheduler scheduler;
    scheduler.addPass("DeadBlockPass");
    for (auto _ : state) {
        state.PauseTiming();
        auto design = std::make_unique<Design>(mgr.context());
        bench::makeSynthetic(*design, options);
        state.ResumeTiming();
        scheduler.apply(*design);
        state.PauseTiming();
        design.reset();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(deadBlocks)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

} // namespace
} // namespace orvo
