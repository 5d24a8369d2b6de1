// The registries of pass classes, filled once by the start-up and read by every scheduler.
#include "orvo/passregistry.h"

#include <orvo/logging.h>
#include <orvo/pass.h>

#include <algorithm>
#include <mutex>

namespace orvo {

namespace internal {

namespace {

std::mutex gPassRegistryMutex;
std::mutex gDefaultParamsRegistryMutex;

std::map<std::string, PassFactory> &passRegistry() {
    static std::map<std::string, PassFactory> registry;
    return registry;
}

std::map<std::string, const DefaultParamSettings *> &defaultParamsRegistry() {
    static std::map<std::string, const DefaultParamSettings *> registry;
    return registry;
}

std::vector<std::string> &registrationOrder() {
    static std::vector<std::string> order;
    return order;
}

} // namespace

DefaultParamSettings::DefaultParamSettings(std::string description, std::vector<ParamDeclaration> declarations)
    : mDescription(std::move(description)), mDeclarations(std::move(declarations)) {}

const ParamDeclaration *DefaultParamSettings::find(const std::string &name) const {
    auto hit = std::find_if(mDeclarations.begin(), mDeclarations.end(),
                            [&](const ParamDeclaration &one) { return one.getParamName() == name; });
    return hit == mDeclarations.end() ? nullptr : &*hit;
}

void registerPass(const std::string &name, PassFactory factory, const DefaultParamSettings *settings) {
    {
        std::lock_guard<std::mutex> lock(gPassRegistryMutex);
        if (passRegistry().insert_or_assign(name, factory).second) {
            registrationOrder().push_back(name);
        }
    }
    std::lock_guard<std::mutex> lock(gDefaultParamsRegistryMutex);
    defaultParamsRegistry().insert_or_assign(name, settings);
}

const DefaultParamSettings *findPassSettings(const std::string &name) {
    std::lock_guard<std::mutex> lock(gDefaultParamsRegistryMutex);
    auto hit = defaultParamsRegistry().find(name);
    return hit == defaultParamsRegistry().end() ? nullptr : hit->second;
}

PassFactory findPassFactory(const std::string &name) {
    std::lock_guard<std::mutex> lock(gPassRegistryMutex);
    auto hit = passRegistry().find(name);
    return hit == passRegistry().end() ? nullptr : hit->second;
}

std::vector<std::string> registeredPasses() {
    std::lock_guard<std::mutex> lock(gPassRegistryMutex);
    return registrationOrder();
}

/// Every parameter of the request must be declared by the pass.
void checkPassRequest(const PassRequest &request) {
    const DefaultParamSettings *settings = findPassSettings(request.name);
    ORVO_ASSERT(settings != nullptr, "a request names a pass that is not registered");
    for (const std::string &name : request.params.getParamNames()) {
        ORVO_ASSERT(settings->find(name) != nullptr, "a request sets a parameter that the pass does not declare");
    }
}

} // namespace internal

} // namespace orvo
