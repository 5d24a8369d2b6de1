// MPFR keeps caches for each thread; whoever uses it says so here, and the caches go when the thread ends.
#pragma once

namespace orvo::internal {

void useMpfrOnThisThread();

} // namespace orvo::internal
