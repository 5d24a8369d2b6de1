// Where the library and its data stand.
#pragma once

#include <orvo/api.h>

#include <string>

/// The root directory below which "include/orvo" with the library's data stands: the value of the feature
/// "rootDirectory" if that is set, else found from the place that the library itself was loaded from, so that a build
/// tree, an installed tree and a tree that was moved all work. Without an end slash; "." if nothing is found.
ORVO_API std::string GetLumoBackendRootDir();
