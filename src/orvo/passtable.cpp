// The table of passes, in the order of their registration. A pass stands here from the day that it does its work.
#include "orvo/passtable.h"

#include "orvo/analysedesignpass.h"
#include "orvo/checkconstantspass.h"
#include "orvo/checkscalarsignalspass.h"
#include "orvo/constcastpass.h"
#include "orvo/constmultpass.h"
#include "orvo/deadblockpass.h"
#include "orvo/deadmodelpass.h"
#include "orvo/decomposecompositepass.h"
#include "orvo/dumptypespass.h"
#include "orvo/dumpxmlpass.h"
#include "orvo/elideconstshiftspass.h"
#include "orvo/elidefromgotopass.h"
#include "orvo/elideterminalpass.h"
#include "orvo/elideunpackpass.h"
#include "orvo/flatteneverythingpass.h"
#include "orvo/flattenexplicitpass.h"
#include "orvo/flattensimulinkpass.h"
#include "orvo/flattenzrtexplicitpass.h"
#include "orvo/insertcastspass.h"
#include "orvo/narrowmultpass.h"
#include "orvo/netlistverificationpass.h"
#include "orvo/precisionadjustmentpass.h"
#include "orvo/preparetierpass.h"
#include "orvo/propagateconstantspass.h"
#include "orvo/removenogrowthcastspass.h"
#include "orvo/unrelaxboolspass.h"
#include "orvo/unrollaggregatepass.h"
#include "orvo/unrollcomplexpass.h"
#include "orvo/unrollscheduledmodelpass.h"
#include "orvo/unrollvectorpass.h"
#include "orvo/validatemodelpass.h"

#include <orvo/modeltreepass.h>
#include <orvo/typeinferpass.h>

namespace orvo::internal {

namespace {

struct Row {
    const char *name;
    PassFactory create;
    const DefaultParamSettings &(*settings)();
};

#define ORVO_PASS_ROW(PASS)                                                                                            \
    { #PASS, &PASS::create, &PASS::defaultParamSettings }
constexpr Row kPasses[] = {
    ORVO_PASS_ROW(DeadBlockPass),
    ORVO_PASS_ROW(DeadBlockLatePass),
    ORVO_PASS_ROW(AggressiveDeadBlockPass),
    ORVO_PASS_ROW(AggressiveDeadBlockLatePass),
    ORVO_PASS_ROW(AnalyseDesignPass),
    ORVO_PASS_ROW(DumpTypesPass),
    ORVO_PASS_ROW(DumpXMLPass),
    ORVO_PASS_ROW(GlobalTypePass),
    ORVO_PASS_ROW(FlattenEverythingPass),
    ORVO_PASS_ROW(FlattenSimulinkPass),
    ORVO_PASS_ROW(FlattenExplicitPass),
    ORVO_PASS_ROW(FlattenZRTExplicitPass),
    ORVO_PASS_ROW(ElideTerminalPass),
    ORVO_PASS_ROW(UnrollAggregatePass),
    ORVO_PASS_ROW(UnrollAggregateCrossModelPass),
    ORVO_PASS_ROW(UnrollComplexPass),
    ORVO_PASS_ROW(UnrollComplexCrossModelPass),
    ORVO_PASS_ROW(UnrollVectorPass),
    ORVO_PASS_ROW(UnrollVectorCrossModelPass),
    ORVO_PASS_ROW(ElideUnpackPass),
    ORVO_PASS_ROW(ElideFromGotoPass),
    ORVO_PASS_ROW(ModelTreePass),
    ORVO_PASS_ROW(DeadModelPass),
    ORVO_PASS_ROW(PrecisionAdjustmentPass),
    ORVO_PASS_ROW(DecomposeCompositePass),
    ORVO_PASS_ROW(PropagateConstantsPass),
    ORVO_PASS_ROW(ElideConstShiftsPass),
    ORVO_PASS_ROW(ConstMultPass),
    ORVO_PASS_ROW(UnrelaxBoolsPass),
    ORVO_PASS_ROW(PrepareTierPass),
    ORVO_PASS_ROW(UnrollScheduledModelPass),
    ORVO_PASS_ROW(InsertCastsPass),
    ORVO_PASS_ROW(ConstCastPass),
    ORVO_PASS_ROW(NarrowMultPass),
    ORVO_PASS_ROW(CheckConstantsPass),
    ORVO_PASS_ROW(ValidateModelPass),
    ORVO_PASS_ROW(NetlistVerificationPass),
    ORVO_PASS_ROW(RemoveNoGrowthCastsPass),
    ORVO_PASS_ROW(CheckScalarSignalsPass),
};
#undef ORVO_PASS_ROW

} // namespace

void registerAllPasses() {
    for (const Row &row : kPasses) {
        registerPass(row.name, row.create, &row.settings());
    }
}

} // namespace orvo::internal
