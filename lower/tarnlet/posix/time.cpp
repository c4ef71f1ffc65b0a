// The time of day from the real-time clock. POSIX code only.
#include "vektime.h"

#include <time.h>

void vekTimeval::GetTimeOfDay() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  // The seconds have 32 bits, as the interface fixes: the time of day fits
  // them up to 2038.
  seconds = static_cast<std::int32_t>(now.tv_sec);
  microseconds = static_cast<std::int32_t>(now.tv_nsec / 1000);
  Normalize();
}
