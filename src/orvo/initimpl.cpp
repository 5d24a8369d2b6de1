// Start-up of the library, in its order. What a family registers stands in the family's own tables; the order of the
// modules matters only where two set the same interface, since a later one replaces what an earlier one set.
#include "orvo/initimpl.h"

#include "generator/modelgenerator.h"
#include "orvo/aggregateunrollers.h"
#include "orvo/complexunrollers.h"
#include "orvo/deadblockhandlers.h"
#include "orvo/decomposehandlers.h"
#include "orvo/domainhandlers.h"
#include "orvo/passregistry.h"
#include "orvo/passtable.h"
#include "orvo/portordering.h"
#include "orvo/propagatehandlers.h"
#include "orvo/typerules.h"
#include "orvo/unrelaxboolshandlers.h"
#include "orvo/valuetext.h"
#include "orvo/vectorunrollers.h"

#include <orvo/blocksinfo.h>
#include <orvo/context.h>
#include <orvo/handlers.h>
#include <orvo/nonsblocks.h>
#include <orvo/typeinfer.h>
#include <orvo/unrelaxbools.h>

#include <mutex>

namespace orvo {

namespace internal {

namespace {

std::mutex gOrvoInitialisationMutex;
bool gOrvoInitialised = false;
std::once_flag gCatalogueRead;
BlocksInfo *gCatalogue = nullptr;

/// Each module opens the context and registers what its families have to say.
void initialiseModule(Context *context, BlockModule module, std::initializer_list<std::span<const TypeRuleRow>> rules) {
    ContextMgr guard(context);
    registerDeadBlockHandlers(context, module);
    registerDomainHandlers(context, module);
    for (const std::span<const TypeRuleRow> rows : rules) {
        registerTypeRules(context, rows);
    }
}

void initialiseORVO_CommonBlocks(Context *context) {
    initialiseModule(context, BlockModule::Common, {commonTypeRules()});
}
void initialiseORVO_IPBlocks(Context *context) { initialiseModule(context, BlockModule::IP, {ipTypeRules()}); }
void initialiseORVO_PrimBlocks(Context *context) {
    initialiseModule(context, BlockModule::Prim, {primTypeRules(), mathTypeRules(), memoryTypeRules()});
    registerDecomposeHandlers(context);
    registerUnrelaxBoolsHandlers(context);
    registerPropagateHandlers(context);
}
void initialiseORVO_PipeBlock(Context *context) { initialiseModule(context, BlockModule::Pipe, {}); }
void initialiseORVO_BusBlocks(Context *context) { initialiseModule(context, BlockModule::Bus, {}); }
void initialiseORVO_SarnetBlocks(Context *context) { initialiseModule(context, BlockModule::Sarnet, {}); }
void initialiseORVO_ExtMemBlocks(Context *context) { initialiseModule(context, BlockModule::ExtMem, {}); }
void initialiseORVO_MiscBlocks(Context *context) { initialiseModule(context, BlockModule::Misc, {miscTypeRules()}); }
void initialiseORVO_FFTBlocks(Context *context) { initialiseModule(context, BlockModule::FFT, {}); }

void initialiseORVO_PortOrderingHandlers(Context *context) {
    ContextMgr guard(context);
    registerPortOrderingHandlers(context);
}

void initialiseORVO_AggregateUnrollers(Context *context) {
    ContextMgr guard(context);
    registerAggregateUnrollers(context);
}

void initialiseORVO_VectorUnrollers(Context *context) {
    ContextMgr guard(context);
    registerVectorUnrollers(context);
}

void initialiseORVO_ComplexUnrollers(Context *context) {
    ContextMgr guard(context);
    registerComplexUnrollers(context);
}

/// Variants for regions without scheduling behave as their plain types do.
void initialiseNONSBlocks(Context *context) {
    HandlerLinker linker(context,
                         {&typeid(AggregateUnrollHandler), &typeid(ComplexUnrollHandler), &typeid(VectorUnrollHandler),
                          &typeid(TypeInferHandler), &typeid(TypeInferHandler2), &typeid(UnrelaxBoolsHandler)});
    mapNONSBlocks(linker);
}

using Module = void (*)(Context *);
constexpr Module kModules[] = {
    initialiseORVO_CommonBlocks,       initialiseORVO_IPBlocks,        initialiseORVO_PrimBlocks,
    initialiseORVO_PipeBlock,          initialiseORVO_BusBlocks,       initialiseORVO_SarnetBlocks,
    initialiseORVO_ExtMemBlocks,       initialiseORVO_MiscBlocks,      initialiseORVO_PortOrderingHandlers,
    initialiseORVO_FFTBlocks,          initialiseORVO_VectorUnrollers, initialiseORVO_ComplexUnrollers,
    initialiseORVO_AggregateUnrollers,
};

} // namespace

void initialiseORVO_Global() {
    std::lock_guard<std::mutex> lock(gOrvoInitialisationMutex);
    if (gOrvoInitialised) {
        return;
    }
    registerCoreValues();
    registerAllPasses();
    setEmbeddedModelGenerator(&generator::estimateModel);
    gOrvoInitialised = true;
}

void initialiseORVO_Context(Context *context) {
    for (Module module : kModules) {
        module(context);
    }
    initialiseNONSBlocks(context);
}

void initialiseORVO(Context *context) {
    initialiseORVO_Global();
    initialiseORVO_Context(context);
    getBlocksInfo();
}

} // namespace internal

const BlocksInfo &getBlocksInfo() {
    std::call_once(internal::gCatalogueRead, [] {
        // Never destroyed: other threads, and the destructors of global objects, may still read it at exit.
        auto *catalogue = new BlocksInfo;
        catalogue->genBlocksInfo();
        internal::gCatalogue = catalogue;
    });
    return *internal::gCatalogue;
}

} // namespace orvo
