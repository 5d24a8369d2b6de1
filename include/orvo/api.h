// ORVO_API marks what the shared library exports; everything else is hidden by the build's default visibility.
#pragma once

#define ORVO_API __attribute__((visibility("default")))
