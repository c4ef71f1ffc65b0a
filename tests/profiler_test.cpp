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

// Sleeps give lower bounds only; upper bounds come from the same clock read
// around the whole run, so no figure depends on the machine's speed.
TEST(ProfilerReport, OwnTimeOfNestedSelfNestedAndLaterPointsAndALineForEachEntry) {
  double span = 0;
  auto reports = Reports([&span] {
    ProfileEntry unused("idle"), nameless(nullptr), outer("outer"), inner("inner");
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
    {
      ProfilePoint later(&inner);  // after the others ended: none of them is charged again
      Sleep(10);
    }
    span = vekTimeMill() - begin;
  });
  ASSERT_EQ(reports.size(), 4u) << "a null name gives a line without one";
  EXPECT_TRUE(reports["idle"].count == 0 && std::isnan(reports["idle"].average) && reports["idle"].total == 0);
  Report o = reports["outer"], i = reports["inner"];
  EXPECT_TRUE(o.count == 1 && i.count == 3);
  EXPECT_NEAR(i.average * 3, i.total, kPrinted);
  EXPECT_GE(o.total, 0.050 - kPrinted);
  EXPECT_GE(i.total, 0.070 - kPrinted);
  // Together they cover the run once: no inner time is in an outer total as well.
  EXPECT_LE(o.total + i.total, span + kPrinted);
}

}  // namespace
