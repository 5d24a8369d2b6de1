// Devices, and the factory that gives them out.
#include <device/device.h>

#include <util/diagnostics.h>
#include <util/features.h>
#include <util/io.h>

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

namespace device {
namespace {

struct Sink final : util::DiagnosticSink {
    Sink() : before(util::setDiagnosticSink(this)) {}
    Sink(const Sink &) = delete;
    Sink &operator=(const Sink &) = delete;
    ~Sink() override { util::setDiagnosticSink(before); }
    void onDiagnostic(bool isError, const std::string &text) override { heard += (isError ? "E:" : "W:") + text; }
    util::DiagnosticSink *before;
    std::string heard;
};

TEST(DeviceFactory, givesTheDefaultDeviceWhereNothingIsNamed) {
    Device *device = deviceFactory.GetDevice("", "", "");
    ASSERT_NE(device, nullptr);
    EXPECT_EQ(device->family().name, "Halcyon V");
    EXPECT_EQ(device->part().name, "7HLXQR5D6F31C8");
    EXPECT_EQ(device->speedGrade().name, "-8");
    EXPECT_EQ(device->timingModelName(), "halcyon_v_8");
}

TEST(DeviceFactory, givesOneDeviceForEachPartAndGrade) {
    Device *device = deviceFactory.GetDevice("Halcyon V", "7HLXQR5D6F31C8", "-8");
    EXPECT_EQ(deviceFactory.GetDevice("halcyon v", "7hlxqr5d6f31c8", ""), device);
    EXPECT_NE(deviceFactory.GetDevice("Halcyon V", "7HLXQR5D6F31C8", "-6"), device);
    EXPECT_NE(deviceFactory.GetDevice("Halcyon V", "7HLXQR5D6F31C6", "-8"), device);
}

TEST(DeviceFactory, tellsWhyThereIsNoSuchDevice) {
    std::string error;
    EXPECT_EQ(deviceFactory.GetDevice("Nowhere", "", "", &error), nullptr);
    EXPECT_EQ(error.find("there is no device family 'Nowhere', but Halcyon V, "), 0U) << error;
    EXPECT_EQ(deviceFactory.GetDevice("Nowhere", "", ""), nullptr);
}

TEST(DeviceFactory, warnsOnceBeforeItGivesTheDefaultForAnother) {
    Sink sink;
    Device *standard = deviceFactory.GetDevice("", "", "");
    EXPECT_EQ(&deviceFactory.GetDeviceOrDefault("Halcyon V", "", "-77"), standard);
    EXPECT_EQ(sink.heard, "W:device family 'Halcyon V' has no speed grade '-77', but -6, -7, -8; the default device "
                          "7HLXQR5D6F31C8 is used\n");
    EXPECT_EQ(&deviceFactory.GetDeviceOrDefault("Halcyon V", "", "-77"), standard);
    EXPECT_EQ(std::count(sink.heard.begin(), sink.heard.end(), '\n'), 1);
    EXPECT_EQ(&deviceFactory.GetDeviceOrDefault("Halcyon V", "", "-78"), standard);
    EXPECT_EQ(std::count(sink.heard.begin(), sink.heard.end(), '\n'), 2);
}

TEST(DeviceFactory, namesTimingModelsAfterFamilyAndGrade) {
    EXPECT_EQ(DeviceFactory::GenTimingModelName("Corvane 10", "-2"), "corvane_10_2");
    EXPECT_EQ(DeviceFactory::GenTimingModelName(" A--b ", "C"), "a_b_c");
    EXPECT_EQ(DeviceFactory::GenTimingModelName("", "-6"), "6");
    EXPECT_EQ(DeviceFactory::GenTimingModelName("", ""), "");
}

TEST(DeviceFactory, givesTheSameDevicesToAllThreads) {
    static DeviceFactory factory;
    std::vector<Device *> seen(8);
    std::vector<std::thread> threads;
    for (Device *&one : seen) {
        threads.emplace_back([&one] { one = factory.GetDevice("Ostrel 3", "", ""); });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_NE(seen[0], nullptr);
    EXPECT_EQ(seen, std::vector<Device *>(seen.size(), seen[0]));
}

/// A root of the library's data that has this table of devices.
class DeviceDataTest : public ::testing::Test {
  protected:
    ~DeviceDataTest() override { util::ClearFeature("rootDirectory"); }
    void ship(const std::string &table) {
        std::filesystem::create_directories(root + "/include/orvo");
        std::ofstream(root + "/include/orvo/orvo_devices.txt") << table;
        util::SetFeatureString("rootDirectory", root);
    }
    const std::string root =
        std::string(ORVO_TEST_TMP_DIR) + "/" + ::testing::UnitTest::GetInstance()->current_test_info()->name();
};

TEST_F(DeviceDataTest, comesFromTheFileBesideTheCatalogue) {
    std::string table(embeddedDeviceTable());
    const std::string name = "Halcyon V]";
    ship(table.replace(table.find(name), name.size(), "Other 1]"));
    static DeviceFactory factory;
    EXPECT_EQ(factory.GetDevice("", "", "")->family().name, "Other 1");
}

TEST_F(DeviceDataTest, isTheCompiledInTableWhereTheFileIsMalformedAndSaysWhere) {
    ship("# mine\n[Other 1]\ndsp-type many\n");
    static DeviceFactory factory;
    Sink sink;
    EXPECT_EQ(factory.GetDevice("", "", "")->family().name, "Halcyon V");
    EXPECT_EQ(sink.heard, "E:" + root +
                              "/include/orvo/orvo_devices.txt:3: expected a whole number from 1 to 5, not 'many'; the "
                              "table of devices that is compiled in is used\n");
}

TEST_F(DeviceDataTest, isTheCompiledInTableWhereThereIsNoFile) {
    util::SetFeatureString("rootDirectory", root + "/none");
    static DeviceFactory factory;
    Sink sink;
    EXPECT_EQ(factory.table().families().front().name, "Halcyon V");
    EXPECT_EQ(sink.heard, "");
}

TEST(Device, answersFromItsFamily) {
    const Device &plain = *deviceFactory.GetDevice("Halcyon V", "", "");
    EXPECT_FALSE(plain.SupportsFP16());
    EXPECT_FALSE(plain.SupportsFP32());
    EXPECT_FALSE(plain.SupportsFabricRegisters());
    EXPECT_EQ(plain.GetDSPBlockType(), 2);
    EXPECT_EQ(plain.GetDefaultMult18ToLUT4Ratio(), 200);
    const Device &rich = *deviceFactory.GetDevice("Corvane 10", "", "");
    EXPECT_TRUE(rich.SupportsFP16());
    EXPECT_TRUE(rich.SupportsFP32());
    EXPECT_TRUE(rich.SupportsFabricRegisters());
    EXPECT_EQ(rich.GetDSPBlockType(), 4);
    EXPECT_TRUE(deviceFactory.GetDevice("Lindwell E", "", "")->SupportsFP16());
    EXPECT_FALSE(deviceFactory.GetDevice("Lindwell E", "", "")->SupportsFP32());
}

TEST(Device, stretchesRoutingByTheWidthOfTheSignal) {
    const Device &device = *deviceFactory.GetDevice("Halcyon V", "", "");
    const std::pair<int, float> steps[] = {{-1, 1.0F},  {0, 1.0F},   {16, 1.0F},  {17, 1.15F},
                                           {32, 1.15F}, {33, 1.35F}, {64, 1.35F}, {1000, 1.35F}};
    for (const auto &[width, coefficient] : steps) {
        EXPECT_FLOAT_EQ(device.getRoutingCoefficientForWidth(width), coefficient) << width;
    }
}

TEST(Device, keepsTheRoutingCoefficientThatItIsGiven) {
    static DeviceFactory factory;
    Device &device = *factory.GetDevice("Quillon 2", "", "");
    EXPECT_FLOAT_EQ(device.getRoutingCoefficient(), 1.0F);
    device.setRoutingCoefficient(1.75F);
    EXPECT_FLOAT_EQ(factory.GetDevice("Quillon 2", "", "")->getRoutingCoefficient(), 1.75F);
    EXPECT_FLOAT_EQ(factory.GetDevice("Quillon 2", "", "-7")->getRoutingCoefficient(), 1.0F);
    for (const float none : {-2.0F, std::nanf("")}) {
        device.setRoutingCoefficient(none);
        EXPECT_FLOAT_EQ(device.getRoutingCoefficient(), 0.0F);
    }
}

} // namespace
} // namespace device
