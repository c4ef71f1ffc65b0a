/// \file
/// tarnlet: the time of day with microseconds.
///
/// Contract:
/// - vekTimeval holds a point in time or a span as whole seconds and
///   microseconds, each signed 32 bits. Normalize keeps microseconds in
///   [0, 1000000) and carries whole seconds into seconds, so a negative span
///   has negative seconds and a remainder that is not negative. Every
///   constructor normalizes.
/// - GetTimeOfDay() sets the value to the current time of day: the system's
///   real-time clock, in seconds since 1970, to the microsecond. Only
///   differences of readings mean something, and only while nobody sets the
///   clock.
/// - ToDouble() gives seconds + microseconds / 1000000.
/// - vekTimeMill is a vekTimeval that reads the clock when it is made.
#ifndef VEKTIME_H
#define VEKTIME_H

#include "vekplatform.h"

#include <cstdint>

/// A point in time or a span in whole seconds and microseconds, kept
/// normalized. A value: one thread at a time.
class TARNLET_API vekTimeval {
 public:
  /// The value seconds + microseconds / 1000000, normalized.
  vekTimeval(std::int32_t seconds, std::int32_t microseconds);

  /// Sets the value to the current time of day (the real-time clock, seconds
  /// since 1970, to the microsecond).
  void GetTimeOfDay();
  double ToDouble() const;  ///< seconds + microseconds / 1000000.

  std::int32_t GetSeconds() const { return seconds; }  ///< The whole seconds, signed.
  /// The microseconds, in [0, 1000000).
  std::int32_t GetMicroseconds() const { return microseconds; }

 private:
  vekTimeval& Normalize();

  std::int32_t seconds;
  std::int32_t microseconds;
};

/// A vekTimeval that reads the clock when it is made. One thread at a time.
class TARNLET_API vekTimeMill : public vekTimeval {
 public:
  vekTimeMill();  ///< The current time of day.
  operator double() const { return ToDouble(); }  ///< As ToDouble().
};

#endif
