// The locked count of the users of the XML platform.
#include "orvo/xmlplatform.h"

#include <xercesc/util/PlatformUtils.hpp>

#include <mutex>

namespace orvo::internal {

namespace {

std::mutex gPlatformMutex;

} // namespace

XMLPlatform::XMLPlatform() {
    std::lock_guard<std::mutex> lock(gPlatformMutex);
    xercesc::XMLPlatformUtils::Initialize();
}

XMLPlatform::~XMLPlatform() {
    std::lock_guard<std::mutex> lock(gPlatformMutex);
    xercesc::XMLPlatformUtils::Terminate();
}

} // namespace orvo::internal
