/// \file
/// quillon profiling: named accounts of time, charged by guard objects.
///
/// A ProfilePoint charges its ProfileEntry for as long as it lives. Points
/// nest, and nested points do not count twice: while an inner point lives,
/// the clock of the outer one stands still, so each entry gets its own time.
/// When an entry is destroyed it writes one line of totals to standard
/// output:
/// \verbatim
///   read: 4 times * 0.25 sec = 1 sec total
/// \endverbatim
/// The innermost live point is one process-wide pointer, with no lock: points
/// must nest strictly, on one thread at a time, and an entry must outlive its
/// points. A point costs two readings of the clock and allocates nothing.
#ifndef PROFILER_H
#define PROFILER_H

#include <cstdint>

#include "dsstring.h"
// The clock that the points read: vekTimeval and vekTimeMill.
#include "vektime.h"

/// A named account of time. It reports when it is destroyed.
/// One thread at a time, with its points.
class QUILLON_API ProfileEntry {
 public:
  explicit ProfileEntry(char const* name);  ///< Copies name; null: the line has no name.
  /// Writes the report line to standard output. With no point ended the
  /// average is 0 / 0, which the stream prints as a value that is not a
  /// number.
  ~ProfileEntry();
  ///@{
  /// Not copyable: points charge one account.
  ProfileEntry(ProfileEntry const&) = delete;
  ProfileEntry& operator=(ProfileEntry const&) = delete;
  ///@}

 private:
  friend class ProfilePoint;

  dsString name;
  std::uint32_t count;  // points of this entry that have ended
  double total;         // seconds charged
};

/// A guard that charges its entry while it lives. Points live on the stack
/// and nest strictly.
/// Unguarded: the innermost point is process-wide, so points are made and ended
/// on one thread at a time.
class QUILLON_API ProfilePoint {
 public:
  /// Starts charging entry, which is not owned and must outlive the point,
  /// and stops the clock of the point it interrupts.
  explicit ProfilePoint(ProfileEntry* entry);
  /// Charges the entry and counts one more point; the interrupted point's
  /// clock runs again.
  ~ProfilePoint();
  ///@{
  /// Not copyable: a point is one stretch of time.
  ProfilePoint(ProfilePoint const&) = delete;
  ProfilePoint& operator=(ProfilePoint const&) = delete;
  ///@}

 private:
  static ProfilePoint* current;  // the innermost live point

  ProfilePoint* previous;  // the point that was innermost when this one began
  ProfileEntry* entry;     // not owned
  double start;            // where this point's running time counts from; 0 while an inner point runs
};

#endif
