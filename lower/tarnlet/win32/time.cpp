// The time of day from the precise system clock. Windows code only.
#include "vektime.h"

#include <windows.h>

void vekTimeval::GetTimeOfDay() {
  // The system clock in 100-nanosecond steps since 1601, to the microsecond.
  FILETIME now{};
  GetSystemTimePreciseAsFileTime(&now);
  std::uint64_t const ticks = (static_cast<std::uint64_t>(now.dwHighDateTime) << 32) | now.dwLowDateTime;
  std::uint64_t const from1601To1970 = 116444736000000000ULL;
  std::uint64_t const microsecondsSince1970 = (ticks - from1601To1970) / 10;
  // The seconds have 32 bits, as the interface fixes: the time of day fits
  // them up to 2038.
  seconds = static_cast<std::int32_t>(microsecondsSince1970 / 1000000);
  microseconds = static_cast<std::int32_t>(microsecondsSince1970 % 1000000);
  Normalize();
}
