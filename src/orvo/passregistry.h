// Checks on requests, shared by the scheduler and the declarations of passes.
#pragma once

namespace orvo {
struct PassRequest;
}

namespace orvo::internal {

/// An unknown pass, or a parameter that it does not declare, is an assertion.
void checkPassRequest(const PassRequest &request);

} // namespace orvo::internal
