// The profiler's own-time accounting and its report line, and the clock under it.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cmath>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <thread>

#include "quillon.h"
#include "vektime.h"

namespace {

struct Report {
  unsigned long count = 0;
  double average = 0;
  double total = 0;
};

// Runs body, then reads the lines that the entries it destroyed wrote:
// "name: <count> times * <average> sec = <total> sec total".
std::map<std::string, Report> Reports(std::function<void()> const& body) {
  testing::internal::CaptureStdout();
  body();
  std::istringstream lines(testing::internal::GetCapturedStdout());
  std::map<std::string, Report> reports;
  for (std::string line; std::getline(lines, line);) {
    std::string::size_type colon = std::min(line.find(": "), line.size());
    unsigned long count = 0;
    char average[32] = "", total[32] = "";
    std::sscanf(line.c_str() + std::min(colon + 2, line.size()), "%lu times * %31s sec = %31s", &count, average, total);
    std::string name = line.substr(0, colon);
    if (line != name + ": " + std::to_string(count) + " times * " + average + " sec = " + total + " sec total") ADD_FAILURE() << line;
    else reports[name] = {count, std::stod(average), std::stod(total)};
  }
  return reports;
}

void Sleep(int ms) {
  std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

// The printed figures have six significant digits.
constexpr double kPrinted = 1e-5;

TEST(ProfilerClock, TimevalNormalizes) {
  vekTimeval carried(1, 2500000), borrowed(2, -250000);
  EXPECT_DOUBLE_EQ(carried.ToDouble(), 3.5);
  EXPECT_TRUE(borrowed.GetSeconds() == 1 && borrowed.GetMicroseconds() == 750000);
}

TEST(ProfilerReport, LineFormatAndAnUnusedEntry) {
  auto reports = Reports([] {
    ProfileEntry unused("idle"), nameless(nullptr), used("read");
    { ProfilePoint p(&used); }
    { ProfilePoint p(&used); }
  });
  ASSERT_EQ(reports.size(), 3u) << "a null name gives a line without one";
  EXPECT_EQ(reports["read"].count, 2u);
  EXPECT_TRUE(reports["idle"].count == 0 && std::isnan(reports["idle"].average) && reports["idle"].total == 0);
  EXPECT_NEAR(reports["read"].average * 2, reports["read"].total, kPrinted);
}

// Sleeps give lower bounds only; upper bounds come from the same clock read
// around the whole run, so no figure depends on the machine's speed.
TEST(ProfilerAccounting, NestedRepeatedAndSelfNestedPointsChargeOwnTimeOnly) {
  double span = 0;
  auto reports = Reports([&span] {
    ProfileEntry outer("outer"), inner("inner"), seq("seq");
    vekTimeMill begin;
    {
      ProfilePoint o(&outer);
      Sleep(30);
      {
        ProfilePoint i(&inner);
        Sleep(40);
        ProfilePoint again(&inner);
        Sleep(20);
      }
      Sleep(20);
    }
    for (int round = 0; round < 3; ++round) {
      ProfilePoint p(&seq);
      Sleep(10);
    }
    span = vekTimeMill() - begin;
  });
  Report o = reports["outer"], i = reports["inner"], s = reports["seq"];
  EXPECT_TRUE(o.count == 1 && i.count == 2 && s.count == 3);
  EXPECT_GE(o.total, 0.050 - kPrinted);
  EXPECT_GE(i.total, 0.060 - kPrinted);
  EXPECT_GE(s.total, 0.030 - kPrinted);
  // Together they cover the run once: no inner time is in an outer total as well.
  EXPECT_LE(o.total + i.total + s.total, span + kPrinted);
  EXPECT_LE(o.total, span - 0.090 + kPrinted);
}

}  // namespace
