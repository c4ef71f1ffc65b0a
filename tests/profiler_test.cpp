// The profiler's own-time accounting and its report line, and the clock
// under it. Sleeps give lower bounds only; upper bounds come from the same
// clock read around the whole run, so no figure depends on the machine's speed.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <ctime>
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

// Runs body, then reads the lines that the entries it destroyed wrote.
std::map<std::string, Report> Reports(std::function<void()> const& body, std::string* raw = nullptr) {
  std::ostringstream captured;
  std::streambuf* old = std::cout.rdbuf(captured.rdbuf());
  body();
  std::cout.rdbuf(old);
  if (raw != nullptr) *raw = captured.str();
  std::map<std::string, Report> reports;
  std::istringstream lines(captured.str());
  for (std::string line; std::getline(lines, line);) {
    // name: <count> times * <average> sec = <total> sec total
    std::string::size_type colon = line.find(": ");
    EXPECT_NE(colon, std::string::npos) << line;
    if (colon == std::string::npos) continue;
    std::istringstream fields(line.substr(colon + 2));
    std::string count, times, star, average, sec, equals, total;
    fields >> count >> times >> star >> average >> sec >> equals >> total;
    std::string name = line.substr(0, colon);
    EXPECT_EQ(line, name + ": " + count + " times * " + average + " sec = " + total + " sec total");
    reports[name] = {std::stoul(count), std::strtod(average.c_str(), nullptr),
                     std::strtod(total.c_str(), nullptr)};
  }
  return reports;
}

void Sleep(int ms) {
  std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

// The printed figures have six significant digits.
constexpr double kPrinted = 1e-5;

TEST(ProfilerClock, TimevalNormalizesAndReadsTheTimeOfDay) {
  vekTimeval carried(1, 2500000);
  EXPECT_EQ(carried.GetSeconds(), 3);
  EXPECT_EQ(carried.GetMicroseconds(), 500000);
  EXPECT_DOUBLE_EQ(carried.ToDouble(), 3.5);
  vekTimeval borrowed(2, -250000);
  EXPECT_EQ(borrowed.GetSeconds(), 1);
  EXPECT_EQ(borrowed.GetMicroseconds(), 750000);

  std::time_t before = std::time(nullptr);
  vekTimeMill now;
  std::time_t after = std::time(nullptr);
  EXPECT_GE(now.GetSeconds(), static_cast<std::int32_t>(before));
  EXPECT_LE(now.GetSeconds(), static_cast<std::int32_t>(after));
  EXPECT_DOUBLE_EQ(static_cast<double>(now), now.ToDouble());
}

TEST(ProfilerReport, LineFormatAndAnUnusedEntry) {
  std::string raw;
  auto reports = Reports(
      [] {
        ProfileEntry unused("idle");
        ProfileEntry nameless(nullptr);
        ProfileEntry used("read");
        { ProfilePoint p(&used); }
        { ProfilePoint p(&used); }
      },
      &raw);
  ASSERT_EQ(reports.size(), 3u);
  EXPECT_EQ(raw.rfind("read: 2 times * ", 0), 0u) << raw;  // the last made goes first
  EXPECT_NE(raw.find("\n: 0 times * "), std::string::npos) << raw;
  EXPECT_NE(raw.find("\nidle: 0 times * "), std::string::npos) << raw;
  EXPECT_EQ(reports["idle"].count, 0u);
  EXPECT_TRUE(std::isnan(reports["idle"].average));
  EXPECT_EQ(reports["idle"].total, 0.0);
  EXPECT_NEAR(reports["read"].average * 2, reports["read"].total, kPrinted);
}

TEST(ProfilerAccounting, NestedPointsChargeOwnTimeOnly) {
  double span = 0;
  auto reports = Reports([&span] {
    ProfileEntry outer("outer"), inner("inner");
    vekTimeMill begin;
    {
      ProfilePoint o(&outer);
      Sleep(30);
      {
        ProfilePoint i(&inner);
        Sleep(60);
      }
      Sleep(20);
    }
    span = vekTimeMill() - begin;
  });
  Report o = reports["outer"], i = reports["inner"];
  EXPECT_EQ(o.count, 1u);
  EXPECT_EQ(i.count, 1u);
  EXPECT_GE(i.total, 0.060 - kPrinted);
  EXPECT_GE(o.total, 0.050 - kPrinted);
  // Together they cover the outer point's life once: the inner time is not
  // in the outer total as well.
  EXPECT_LE(o.total + i.total, span + kPrinted);
  EXPECT_LE(o.total, span - 0.060 + kPrinted);
}

TEST(ProfilerAccounting, RepeatedAndSelfNestedPointsAddUp) {
  double span = 0;
  auto reports = Reports([&span] {
    ProfileEntry same("same"), seq("seq");
    vekTimeMill begin;
    {
      ProfilePoint a(&same);
      Sleep(20);
      ProfilePoint b(&same);
      Sleep(30);
    }
    for (int round = 0; round < 3; ++round) {
      ProfilePoint p(&seq);
      Sleep(10);
    }
    span = vekTimeMill() - begin;
  });
  EXPECT_EQ(reports["same"].count, 2u);
  EXPECT_GE(reports["same"].total, 0.050 - kPrinted);
  EXPECT_EQ(reports["seq"].count, 3u);
  EXPECT_GE(reports["seq"].total, 0.030 - kPrinted);
  EXPECT_LE(reports["same"].total + reports["seq"].total, span + kPrinted);
}

}  // namespace
