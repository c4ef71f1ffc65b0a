#include "vektime.h"

vekTimeval::vekTimeval(std::int32_t seconds, std::int32_t microseconds)
    : seconds(seconds), microseconds(microseconds) {
  Normalize();
}

vekTimeval& vekTimeval::Normalize() {
  constexpr std::int64_t kPerSecond = 1000000;
  std::int64_t carry = microseconds / kPerSecond;
  std::int64_t rest = microseconds % kPerSecond;
  if (rest < 0) {  // the remainder stays positive; the seconds take the sign
    rest += kPerSecond;
    --carry;
  }
  seconds = static_cast<std::int32_t>(seconds + carry);
  microseconds = static_cast<std::int32_t>(rest);
  return *this;
}

double vekTimeval::ToDouble() const {
  return seconds + microseconds / 1000000.0;
}

vekTimeMill::vekTimeMill() : vekTimeval(0, 0) {
  GetTimeOfDay();
}
