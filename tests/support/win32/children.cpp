// Forked children exist on POSIX only; here nothing runs (testsupport.h).
#include "testsupport.h"

namespace qtest {

namespace {

ChildOutcome NotOnThisHost() {
  ChildOutcome outcome;
  outcome.why = "forked children are POSIX only";
  return outcome;
}

}  // namespace

ChildOutcome RunInChild(std::function<int()> const&, std::chrono::milliseconds) { return NotOnThisHost(); }

ChildOutcome RunConfined(std::string const&, std::string const&, std::function<int()> const&,
                         std::chrono::milliseconds) {
  return NotOnThisHost();
}

ChildOutcome RunUnprivileged(std::function<int()> const&, std::chrono::milliseconds) { return NotOnThisHost(); }

}  // namespace qtest
