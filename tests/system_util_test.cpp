#include <gtest/gtest.h>
#include <nivur/stop_watch.h>
#include <nivur/system_property.h>
#include <nivur/system_util.h>
#include <unistd.h>

namespace NIVUR {
namespace {

TEST(SystemUtil, ClocksAgree) {
    const uint64_t ms = SystemUtil::getCPUTime();
    const uint64_t us = SystemUtil::getCPUTimeInMicroseconds();
    EXPECT_LE(us / 1000 - ms, 2000U);  // the machine may be slow
    EXPECT_EQ(SystemUtil::getpid(), getpid());
}

TEST(SystemUtil, DeviceInfoComesFromThePropertiesInLowerCase) {
    EXPECT_EQ(SystemUtil::getAppDataFolder(), "/mnt/sdcard/");
    const std::string longest(1023, 'x'), tooLong = longest + "Y";
    const std::tuple<const char*, const char*, std::string, std::string> kCases[] = {
        {nullptr, "XY", "before", "before"},
        {"ABC Mobile", "", "abc mobile", "before"},
        {"@AZ[\xc0\xdc", tooLong.c_str(), "@az[\xc0\xdc", longest},
        {nullptr, "XY", "before", "before"}};
    for (const auto& [newManufacturer, newModel, expectedManufacturer, expectedModel] : kCases) {
        setSystemProperty("ro.product.manufacturer", newManufacturer);
        setSystemProperty("ro.product.model", newModel);
        std::string manufacturer = "before", model = "before";
        EXPECT_EQ(SystemUtil::getDeviceInfo(manufacturer, model), expectedModel != "before");
        EXPECT_EQ(manufacturer, expectedManufacturer);
        EXPECT_EQ(model, expectedModel);
    }
}

TEST(StopWatch, CountsAndMeasuresFromItsConstruction) {
    StopWatch watch;
    for (const unsigned int passed : {20U, 40U}) {
        SystemUtil::sleep(20);  // the time to be measured
        EXPECT_GE(watch.record(), passed);
    }
    EXPECT_EQ(watch.getCount(), 2U);
}

}  // namespace
}  // namespace NIVUR
