#include "host/engine/diagnosis.h"

#include <gtest/gtest.h>

#include "tests/support/temporary.h"

namespace {

/// What the system's files tell, with the verdicts.
std::string diagnosed(const Temporary& root) {
  std::string text;
  const std::vector<host::Condition> conditions = host::diagnose(root.path(""));
  for (std::size_t i = 2; i < 6; ++i) {
    text += conditions.at(i).found + "+-?"[static_cast<std::size_t>(conditions[i].rating)] + " ";
    EXPECT_EQ(conditions[i].advice.empty(), conditions[i].rating == host::Rating::good);
  }
  return text;
}

TEST(Diagnosis, TellsGoodFromPoorFromUnknown) {
  const Temporary root;
  EXPECT_EQ(diagnosed(root), "unknown? unknown? unknown? unknown? ");
  const auto write = [&root](const std::string& name, const std::string& line) {
    std::filesystem::create_directories(std::filesystem::path(root.path(name)).parent_path());
    (void)root.write(name, line + "\n");
  };
  const auto writeAll = [&](const char* kernel, const char* governor, const char* isolated,
                            const char* clock) {
    write("proc/sys/kernel/version", kernel);
    write("sys/devices/system/cpu/cpu0/cpufreq/scaling_governor", "performance");
    write("sys/devices/system/cpu/cpu1/cpufreq/scaling_governor", governor);
    write("sys/devices/system/cpu/isolated", isolated);
    write("sys/devices/system/clocksource/clocksource0/current_clocksource", clock);
  };
  writeAll("#1 SMP PREEMPT_DYNAMIC", "powersave", "", "hpet");
  EXPECT_EQ(diagnosed(root), "PREEMPT_DYNAMIC- performance, powersave- no processor- hpet- ");
  writeAll("#1 SMP PREEMPT_RT", "performance", "2-3", "tsc");
  EXPECT_EQ(diagnosed(root), "PREEMPT_RT+ performance+ processors 2-3+ tsc+ ");
}

}  // namespace
