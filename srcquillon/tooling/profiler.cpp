// Profiling with own-time accounting: a point banks the time of the point
// it interrupts and restarts that point's clock when it ends, both at the
// same reading, so no stretch is lost or counted twice.
#include "profiler.h"

#include <iostream>

#include "vektime.h"

// A plain pointer with a constant initial value: it is in place before any
// code runs and needs no step in the load order.
ProfilePoint* ProfilePoint::current = nullptr;

ProfileEntry::ProfileEntry(char const* name) : name(name), count(0), total(0) {}

ProfileEntry::~ProfileEntry() {
  // With no point ended the average is 0 / 0, printed as the stream prints
  // a value that is not a number.
  std::cout << name << ": " << count << " times * " << total / count << " sec = " << total
            << " sec total" << std::endl;
}

ProfilePoint::ProfilePoint(ProfileEntry* entry) : previous(nullptr), entry(entry), start(0) {
  double now = vekTimeMill();
  previous = current;
  if (previous != nullptr) {
    previous->entry->total += now - previous->start;
    previous->start = 0;
  }
  current = this;
  start = now;
}

ProfilePoint::~ProfilePoint() {
  double now = vekTimeMill();
  entry->total += now - start;
  ++entry->count;
  start = 0;
  if (previous != nullptr) previous->start = now;
  current = previous;
}
