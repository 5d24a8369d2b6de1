// What a target device offers to the designs that are built for it. The facts stand in a table of families, parts and
// speed grades, `orvo_devices.txt`, that ships as data beside the block catalogue and is compiled in, too.
#pragma once

#include <device/devicetable.h>
#include <orvo/api.h>

#include <atomic>
#include <string>
#include <string_view>

namespace device {

/// One part of a family in one speed grade. Belongs to the factory, which makes one for each and keeps it for the rest
/// of the process. Reading is safe from any thread, and so is setting the coefficient, which all readers share.
class ORVO_API Device {
  public:
    /// All three must outlive the device.
    Device(const Family &family, const Part &part, const SpeedGrade &grade);
    Device(const Device &) = delete;
    Device &operator=(const Device &) = delete;

    /// Whether the multiplier blocks compute half-precision floats.
    bool SupportsFP16() const { return mFamily.halfFloat; }
    /// Whether the multiplier blocks compute single-precision floats.
    bool SupportsFP32() const { return mFamily.singleFloat; }
    /// Which multiplier block it has, from 1; `Family::dspType` tells what they are.
    int GetDSPBlockType() const { return mFamily.dspType; }
    /// Whether registers stand in the routing, too, which have no reset.
    bool SupportsFabricRegisters() const { return mFamily.fabricRegisters; }
    /// How many look-up tables of four inputs are worth one multiplier of 18 by 18 bits.
    int GetDefaultMult18ToLUT4Ratio() const { return mFamily.mult18InLut4; }
    /// By how much the delay of routing grows for signals of so many bits; of the widest told for those beyond, and of
    /// the narrowest for 0 and less.
    float getRoutingCoefficientForWidth(int width) const;
    /// By how much the delay of routing is stretched for all that is built for this device, at first 1.0. No
    /// coefficient is negative: that is taken for 0.
    void setRoutingCoefficient(float coefficient);
    float getRoutingCoefficient() const { return mRoutingCoefficient.load(std::memory_order_relaxed); }

    const Family &family() const { return mFamily; }
    const Part &part() const { return mPart; }
    const SpeedGrade &speedGrade() const { return mGrade; }
    /// Under which delays of this device are told apart: the family and the grade.
    std::string timingModelName() const;

  private:
    const Family &mFamily;
    const Part &mPart;
    const SpeedGrade &mGrade;
    std::atomic<float> mRoutingCoefficient{1.0F};
};

/// Gives out devices. There is one for the process, `deviceFactory`, safe from any thread; it reads the table at the
/// first question: the file where it is found and sound, else, after an error that names the line, the one compiled in.
class ORVO_API DeviceFactory {
  public:
    constexpr DeviceFactory() = default;
    DeviceFactory(const DeviceFactory &) = delete;
    DeviceFactory &operator=(const DeviceFactory &) = delete;

    /// The device of these names, as `DeviceTable::find` takes them. Null, with the reason in `error`, if there is
    /// none.
    Device *GetDevice(std::string_view family, std::string_view part, std::string_view speedGrade,
                      std::string *error = nullptr);
    /// The same, but where there is none the default device, after one warning for each such request.
    Device &GetDeviceOrDefault(std::string_view family, std::string_view part, std::string_view speedGrade);
    /// The family in small letters and the grade's number: "halcyon_v_8".
    static std::string GenTimingModelName(std::string_view family, std::string_view speedGrade);
    const DeviceTable &table();

  private:
    struct State;
    State &state();
    /// Made at the first question and never ended: threads and destructors may still ask while the process ends.
    std::atomic<State *> mState{nullptr};
};

extern ORVO_API DeviceFactory deviceFactory;

} // namespace device
