// Start-up of the library, in its order. What a family registers stands in the family's own tables; the order of the
// modules matters only where two set the same interface, since a later one replaces what an earlier one set.
#include "orvo/initimpl.h"

#include "orvo/deadblockhandlers.h"
#include "orvo/passtable.h"
#include "orvo/portordering.h"
#include "orvo/valuetext.h"

#include <orvo/blocksinfo.h>
#include <orvo/context.h>
#include <orvo/handlers.h>
#include <orvo/nonsblocks.h>

#include <mutex>

namespace orvo {

namespace internal {

namespace {

std::mutex gOrvoInitialisationMutex;
bool gOrvoInitialised = false;
std::once_flag gCatalogueRead;
BlocksInfo *gCatalogue = nullptr;

/// A module of block families: opens the context and registers what its families have to say.
using Module = void (*)(Context *);

template <BlockModule kModule> void initialiseModule(Context *context) {
    ContextMgr guard(context);
    registerDeadBlockHandlers(context, kModule);
}

void initialiseORVO_PortOrderingHandlers(Context *context) {
    ContextMgr guard(context);
    registerPortOrderingHandlers(context);
}

/// Variants for regions without scheduling behave as their plain types do.
void initialiseNONSBlocks(Context *context) {
    HandlerLinker linker(context,
                         {&typeid(AggregateUnrollHandler), &typeid(ComplexUnrollHandler), &typeid(VectorUnrollHandler),
                          &typeid(TypeInferHandler), &typeid(TypeInferHandler2)});
    mapNONSBlocks(linker);
}

constexpr Module kModules[] = {
    initialiseModule<BlockModule::Common>, initialiseModule<BlockModule::IP>,   initialiseModule<BlockModule::Prim>,
    initialiseModule<BlockModule::Pipe>,   initialiseModule<BlockModule::Bus>,  initialiseModule<BlockModule::Sarnet>,
    initialiseModule<BlockModule::ExtMem>, initialiseModule<BlockModule::Misc>, initialiseORVO_PortOrderingHandlers,
    initialiseModule<BlockModule::FFT>,
};

} // namespace

void initialiseORVO_Global() {
    std::lock_guard<std::mutex> lock(gOrvoInitialisationMutex);
    if (gOrvoInitialised) {
        return;
    }
    registerCoreValues();
    registerAllPasses();
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
        // Lives as long as the process: contexts on other threads may still read it at exit.
        static BlocksInfo catalogue;
        catalogue.genBlocksInfo();
        internal::gCatalogue = &catalogue;
    });
    return *internal::gCatalogue;
}

} // namespace orvo
