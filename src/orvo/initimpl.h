// Start-up of the library: the only place that knows all block families and all passes.
#pragma once

namespace orvo {
class Context;
}

namespace orvo::internal {

/// Called at the end of each `Context`'s construction: fills the process-wide registries the first time, and the block
/// classes of the context each time.
void initialiseORVO(Context *context);
void initialiseORVO_Global();
void initialiseORVO_Context(Context *context);

} // namespace orvo::internal
