// Devices and the factory that keeps them.
#include <device/device.h>

#include <util/diagnostics.h>
#include <util/io.h>

#include <algorithm>
#include <deque>
#include <map>
#include <mutex>
#include <set>
#include <tuple>

namespace device {

Device::Device(const Family &family, const Part &part, const SpeedGrade &grade)
    : mFamily(family), mPart(part), mGrade(grade) {}

float Device::getRoutingCoefficientForWidth(int width) const {
    const auto step = std::find_if(mFamily.routing.begin(), mFamily.routing.end(),
                                   [width](const RoutingStep &one) { return width <= one.maxWidth; });
    return step == mFamily.routing.end() ? mFamily.routing.back().coefficient : step->coefficient;
}

void Device::setRoutingCoefficient(float coefficient) {
    // A NaN is no coefficient either, and greater than nothing.
    mRoutingCoefficient.store(coefficient > 0.0F ? coefficient : 0.0F, std::memory_order_relaxed);
}

std::string Device::timingModelName() const { return DeviceFactory::GenTimingModelName(mFamily.name, mGrade.name); }

std::string DeviceFactory::GenTimingModelName(std::string_view family, std::string_view speedGrade) {
    std::string name;
    const auto append = [&name](std::string_view text) {
        bool apart = !name.empty();
        for (const char c : text) {
            const bool large = c >= 'A' && c <= 'Z';
            if (!large && !(c >= 'a' && c <= 'z') && !(c >= '0' && c <= '9')) {
                apart = !name.empty();
                continue;
            }
            if (apart) {
                name += '_';
            }
            apart = false;
            name += large ? static_cast<char>(c - 'A' + 'a') : c;
        }
    };
    append(family);
    append(speedGrade);
    return name;
}

namespace {

DeviceTable loadTable() {
    const std::string path = installedDeviceTable();
    TableError error;
    if (std::string text; util::io::readFile(path, text)) {
        if (std::optional<DeviceTable> table = readDeviceTable(text, error)) {
            return *std::move(table);
        }
        brenn_error_printf("%s:%d: %s; the table of devices that is compiled in is used\n", path.c_str(), error.line,
                           error.reason.c_str());
    }
    return readDeviceTable(embeddedDeviceTable(), error).value();
}

} // namespace

struct DeviceFactory::State {
    const DeviceTable table = loadTable();
    std::mutex mutex;
    /// Devices stay where they are, for callers keep them.
    std::deque<Device> devices;
    std::map<std::pair<const Part *, const SpeedGrade *>, Device *> byRow;
    std::set<std::tuple<std::string, std::string, std::string>> refused;
};

DeviceFactory::State &DeviceFactory::state() {
    State *made = mState.load(std::memory_order_acquire);
    if (made == nullptr) {
        auto *fresh = new State;
        if (mState.compare_exchange_strong(made, fresh, std::memory_order_acq_rel)) {
            return *fresh;
        }
        delete fresh; // Another thread was first.
    }
    return *made;
}

const DeviceTable &DeviceFactory::table() { return state().table; }

Device *DeviceFactory::GetDevice(std::string_view family, std::string_view part, std::string_view speedGrade,
                                 std::string *error) {
    State &own = state();
    const std::optional<DeviceChoice> choice = own.table.find(family, part, speedGrade, error);
    if (!choice) {
        return nullptr;
    }
    std::lock_guard<std::mutex> lock(own.mutex);
    Device *&device = own.byRow[{choice->part, choice->grade}];
    if (device == nullptr) {
        device = &own.devices.emplace_back(*choice->family, *choice->part, *choice->grade);
    }
    return device;
}

Device &DeviceFactory::GetDeviceOrDefault(std::string_view family, std::string_view part, std::string_view speedGrade) {
    std::string error;
    if (Device *device = GetDevice(family, part, speedGrade, &error)) {
        return *device;
    }
    Device &standard = *GetDevice("", "", "");
    State &own = state();
    bool isNew = false;
    {
        std::lock_guard<std::mutex> lock(own.mutex);
        isNew = own.refused.emplace(family, part, speedGrade).second;
    }
    if (isNew) {
        brenn_warning_printf("%s; the default device %s is used\n", error.c_str(), standard.part().name.c_str());
    }
    return standard;
}

constinit DeviceFactory deviceFactory;

} // namespace device
