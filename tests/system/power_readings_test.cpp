// Battery history and prediction on virtual time, memory and load figures,
// and the Linux readings over a fake sysfs tree and /proc/stat.
#include <gtest/gtest.h>

#include <filesystem>
#include <initializer_list>
#include <string>
#include <utility>

#include "varnek/adds/adds.h"
#include "varnek/platform/linux/internal/linux_system_readings.h"
#include "varnek/platform/linux/test_doubles/sim_platform.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/dates.h"
#include "tests/runtime/test_folder.h"
#include "tests/runtime/test_util.h"

namespace varnek {
namespace {

struct PowerTest : ::testing::Test {
  // One POWER_Update per level, `gap` virtual seconds apart.
  void Levels(std::initializer_list<int> levels, double gap = 300) {
    for (int level : levels) {
      sim.readings.power.battery_life_percent = static_cast<uint8_t>(level);
      adds.POWER_Update();
      sim.loop.RunFor(gap);
    }
  }
  double Predicted() { return adds.POWER_DurationPredicted().serial; }

  SimPlatform sim;
  Adds adds{sim.platform};
};

TEST_F(PowerTest, PredictsFromFiveFallingChanges) {
  EXPECT_EQ(CLng(adds.POWER_Percent()), 0);  // before any reading
  EXPECT_EQ(adds.POWER_Source(), 0);
  EXPECT_EQ(Predicted(), 0.0);

  Levels({90, 88, 86});
  EXPECT_EQ(Predicted(), 0.0);  // not full yet
  Levels({84});
  EXPECT_EQ(Predicted(), 0.0);  // four changes, position 5 empty
  Levels({82});
  EXPECT_EQ(adds.POWER_Percent().Type(), VarType::Byte);
  EXPECT_EQ(CLng(adds.POWER_Percent()), 82);
  EXPECT_EQ(DateToHostText(Predicted()), u"1899-12-30 03:25:00");  // n = 300 * 82 / 2

  // A constant level adds nothing: the prediction stays on the same five.
  Levels({82, 82, 82});
  EXPECT_EQ(CLng(adds.PowerHistory[2].percent), 84);
  EXPECT_EQ(DateToHostText(Predicted()), u"1899-12-30 03:25:00");
  // One more change pushes the oldest (90) out.
  Levels({81});
  EXPECT_EQ(CLng(adds.PowerHistory[5].percent), 88);
}

TEST_F(PowerTest, NoPredictionUnlessEveryChangeFell) {
  Levels({10, 20, 30, 40, 50});
  EXPECT_EQ(Predicted(), 0.0) << "rising";
  Levels({60, 58, 59, 57, 55});
  EXPECT_EQ(Predicted(), 0.0) << "one rise among four changes";
  // A reading of 0 empties nothing but blocks the prediction: the battery ran out.
  Levels({50, 40, 30, 20, 0});
  EXPECT_EQ(Predicted(), 0.0);
}

TEST_F(PowerTest, FirstZeroRecordsNothingAndUnknownLineReadsTwo) {
  sim.readings.power = {255, 0};
  adds.POWER_Update();
  EXPECT_TRUE(adds.PowerHistory[1].percent.IsEmpty());
  EXPECT_EQ(adds.POWER_Source(), 2);
  sim.readings.power = {1, 255};  // no battery tells its level
  adds.POWER_Update();
  EXPECT_EQ(CLng(adds.POWER_Percent()), 255);
  EXPECT_EQ(adds.PowerHistory[1].source, 1);
  EXPECT_EQ(adds.PowerHistory[1].when.serial, sim.loop.Now());
  EXPECT_EQ(adds.POWER_Source(), 1);
  sim.readings.power = {0, 255};
  adds.POWER_Update();
  EXPECT_EQ(adds.POWER_Source(), 0);
  EXPECT_EQ(sim.readings.power_reads, 3);
}

TEST_F(PowerTest, TheSixteenBitPredictionOverflowsAndWholeDaysAreLost) {
  Levels({100, 99, 98, 97, 96}, 900);  // n = 900 * 96 = 86400
  EXPECT_EQ(FailureOf([&] { adds.POWER_DurationPredicted(); }), kErrOverflow);
  Levels({50, 40, 30, 20, 10}, 86400 + 60);  // a day and a minute apart: the day is lost
  EXPECT_EQ(DateToHostText(Predicted()), u"1899-12-30 00:01:00");
}

TEST_F(PowerTest, MemoryKeepsTheSigned32BitDivisionAndLoadPumpsOnce) {
  // 1.5 GB; 3 GB reads negative; past 4 GB: 0xFFFFFFFF, -1 \ 1024 = 0; -512 truncates towards zero
  sim.readings.memory = {1536ull << 20, 3ull << 30, 5ull << 30, 0xFFFFFE00ull};
  for (auto [kind, kb] : {std::pair{0, 1572864}, {1, -1048576}, {2, 0}, {3, 0}, {7, 0}, {-1, 0}}) {
    EXPECT_EQ(CLng(adds.Win_Memoria(kind)), kb) << kind;
  }
  sim.readings.memory.avail_virtual = 0xFFFFF800ull;
  EXPECT_EQ(CLng(adds.Win_Memoria(3)), -2);
  EXPECT_EQ(adds.Win_Memoria(0).Type(), VarType::Long);

  int64_t pumps = sim.loop.PumpCount();
  EXPECT_EQ(CLng(adds.Win_CPUUsage()), -1);  // no counters
  EXPECT_EQ(sim.loop.PumpCount(), pumps + 1);
  sim.readings.cpu = 37;
  EXPECT_EQ(CLng(adds.Win_CPUUsage()), 37);
}

// A fake /sys/class/power_supply and /proc/stat in a test folder.
struct FakeSysfs : ::testing::Test {
  // Each file below the supply class with its one line.
  void Write(std::initializer_list<std::pair<std::string, std::string>> files) {
    for (const auto& [file, text] : files) WriteBytes(root("power/" + file), text + "\n");
  }
  SystemPowerStatus Read() { return LinuxSystemReadings(root("power")).ReadPowerStatus(); }
  TestFolder root;
};

TEST_F(FakeSysfs, PowerSupplyClassReadsLineAndLevel) {
  // No supplies at all, and no folder at all: both unknown.
  std::filesystem::create_directories(root("power"));
  EXPECT_EQ(Read().ac_line_status, 255);
  EXPECT_EQ(Read().battery_life_percent, 255);
  EXPECT_EQ(LinuxSystemReadings(root("absent")).ReadPowerStatus().battery_life_percent, 255);

  // A desktop: mains only.
  Write({{"AC/type", "Mains"}, {"AC/online", "1"}});
  EXPECT_EQ(Read().ac_line_status, 1);
  EXPECT_EQ(Read().battery_life_percent, 255);

  // A laptop off line, with a mouse battery that must not count.
  // clang-format off
  Write({{"AC/online", "0"}, {"BAT0/type", "Battery"}, {"BAT0/capacity", "82"},
         {"BAT0/status", "Discharging"}, {"hidpp_battery_0/type", "Battery"},
         {"hidpp_battery_0/scope", "Device"}, {"hidpp_battery_0/capacity", "40"},
         {"ucsi-source-psy-USBC000:001/type", "USB"}, {"ucsi-source-psy-USBC000:001/online", "0"}});
  // clang-format on
  EXPECT_EQ(Read().ac_line_status, 0);
  EXPECT_EQ(Read().battery_life_percent, 82);
  Write({{"ucsi-source-psy-USBC000:001/online", "1"}});  // any line supply online
  EXPECT_EQ(Read().ac_line_status, 1);

  // Levels the battery reports badly, or not at all.
  for (const char* bad : {"255", "300", "-3", ""}) {
    Write({{"BAT0/capacity", bad}});
    EXPECT_EQ(Read().battery_life_percent, 255) << bad;
  }
  std::filesystem::remove(root("power/BAT0/capacity"));
  EXPECT_EQ(Read().battery_life_percent, 255);

  // With no line supply the battery's status tells the line.
  for (const char* line : {"AC", "ucsi-source-psy-USBC000:001"})
    std::filesystem::remove_all(root("power/") + line);
  Write({{"BAT0/capacity", "64"}});
  // clang-format off
  for (auto [status, line] :
       {std::pair{"Charging", 1}, {"Full", 1}, {"Not charging", 1}, {"Discharging", 0},
        {"Unknown", 255}}) {
    Write({{"BAT0/status", status}});
    EXPECT_EQ(Read().ac_line_status, line) << status;
  }
  // clang-format on
  // A slot with its battery taken out.
  Write({{"BAT0/present", "0"}});
  EXPECT_EQ(Read().battery_life_percent, 255);
}

TEST_F(FakeSysfs, AddsReadsTheFakeTreeThroughThePlatform) {
  Write({{"BAT1/type", "Battery"}, {"BAT1/capacity", "255"}});
  LinuxSystemReadings readings(root("power"));
  SimPlatform sim;
  sim.platform.readings = readings;
  Adds adds(sim.platform);
  adds.POWER_Update();
  EXPECT_EQ(CLng(adds.POWER_Percent()), 255);
  EXPECT_EQ(adds.POWER_Source(), 2);
  EXPECT_EQ(CLng(adds.PowerHistory[1].percent), 255);
}

TEST_F(FakeSysfs, ProcStatGivesTheLoadSinceThePreviousReading) {
  LinuxSystemReadings readings("/nonexistent", root("stat"));
  EXPECT_FALSE(readings.ReadCpuUsage().has_value());  // no file
  // user nice system idle iowait irq softirq steal guest guest_nice
  const std::pair<const char*, std::optional<int32_t>> rows[] = {
      {"intr 1 2 3\n", std::nullopt},                             // no cpu line
      {"cpu  100 0 100 700 100 0 0 0 50 0\ncpu0 1 2 3 4\n", 20},  // since boot: 200 busy of 1000
      {"cpu  100 0 100 700 100 0 0 0 50 0\n", 0},                 // nothing elapsed
      {"cpu  130 0 100 760 110 0 0 0 50 0\n", 30},   // 30 busy of 100; iowait counts as idle
      {"cpu  430 0 100 860 110 0 0 0 50 0\n", 75}};  // 300 busy of 400
  for (auto [stat, load] : rows) {
    WriteBytes(root("stat"), stat);
    EXPECT_EQ(readings.ReadCpuUsage(), load) << stat;
  }

  SimPlatform sim;
  LinuxSystemReadings missing("/nonexistent", root("none"));
  sim.platform.readings = missing;
  Adds adds(sim.platform);
  EXPECT_EQ(CLng(adds.Win_CPUUsage()), -1);
}

TEST(LinuxReadings, MemoryComesFromSysinfo) {
  MemoryStatus m = LinuxSystemReadings().ReadMemoryStatus();
  EXPECT_GT(m.total_phys, 0u);
  EXPECT_LE(m.avail_phys, m.total_phys);
  EXPECT_GE(m.total_virtual, m.total_phys);
  EXPECT_LE(m.avail_virtual, m.total_virtual);
  std::optional<int32_t> load = LinuxSystemReadings().ReadCpuUsage();
  ASSERT_TRUE(load.has_value());
  EXPECT_GE(*load, 0);
  EXPECT_LE(*load, 100);
}

}  // namespace
}  // namespace varnek
