#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "host/engine/histogram.h"
#include "host/engine/trace.h"
#include "host/input/source.h"
#include "host/outputfile.h"
#include "tests/support/bits.h"
#include "tests/support/temporary.h"

namespace {

TEST(OutputFile, AppearsWholeOrNotAtAll) {
  const Temporary temporary;
  const std::string path = temporary.write("out", "old");
  {
    host::OutputFile dropped(path);
    dropped.write("half", 4);
  }
  EXPECT_EQ(contentsOf(path), "old");
  EXPECT_FALSE(temporary.holds("out.torvex-part"));
  (void)temporary.write("out.torvex-part", "what a killed process left");
  host::OutputFile file(path);
  file.write("new", 3);
  EXPECT_EQ(contentsOf(path), "old");
  EXPECT_THROW(host::OutputFile{path}, host::InputError) << "it is being written";
  file.commit();
  EXPECT_EQ(contentsOf(path), "new");
  EXPECT_FALSE(temporary.holds("out.torvex-part"));
  EXPECT_THROW(host::OutputFile{temporary.path("none/out")}, host::InputError);
  EXPECT_THROW(host::OutputFile{temporary.path("")}, host::InputError);
}

TEST(Trace, WritesFloatsThatReadBackExactly) {
  const Temporary temporary;
  const float values[] = {0.1F, -0.0F, 1.17549435e-38F, 3.4028235e38F, 16777217.0F};
  {
    host::Trace trace(temporary.path("t.csv"), {"a", "a2", "b,\"c\"", "d"});
    for (const float value : values) {
      trace.pushWaiting({1e10, value, 1.0, -value, 2.0});
    }
    trace.finish();
  }
  std::istringstream text(contentsOf(temporary.path("t.csv")));
  std::string line;
  std::getline(text, line);
  EXPECT_EQ(line, R"(time_ms,a,a2,"b,""c""",d)");
  for (const float value : values) {
    std::getline(text, line);
    EXPECT_EQ(line.substr(0, 12), "10000000000,");
    const float read = std::strtof(line.c_str() + 12, nullptr);
    EXPECT_EQ(bitsOf(read), bitsOf(value)) << line;
  }
  EXPECT_FALSE(std::getline(text, line));
}

TEST(Histogram, QuantilesLieWithinABucketOfTheTruth) {
  std::mt19937_64 random(7);
  std::vector<std::uint64_t> values;
  host::Histogram histogram;
  for (int i = 0; i < 5000; ++i) {
    values.push_back(random() >> (random() % 64));
    histogram.add(values.back());
  }
  std::sort(values.begin(), values.end());
  EXPECT_EQ(histogram.minimum(), values.front());
  EXPECT_EQ(histogram.maximum(), values.back());
  for (const double share : {0.001, 0.25, 0.5, 0.99, 1.0}) {
    const auto rank = static_cast<std::size_t>(share * 5000) - 1;
    const std::uint64_t found = histogram.quantile(share);
    EXPECT_GE(found, values[rank]);
    EXPECT_LE(found - values[rank], values[rank] / 32);
  }
}

}  // namespace
