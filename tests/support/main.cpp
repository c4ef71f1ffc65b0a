// The test programs' main: runs a helper mode when asked, the suite otherwise.
#include <gtest/gtest.h>

#include "platform.h"

namespace qtest {
void PrepareRunDirectory();
int RunHelperIfAsked(std::vector<std::string> const& args, bool* asked);
}

// Under AddressSanitizer, let an impossible allocation fail the way the
// system's allocator does, so the library's own reaction to it is tested.
extern "C" __attribute__((visibility("default"), used)) char const* __asan_default_options() { return "allocator_may_return_null=1"; }

int main(int argc, char** argv) {
  qtest::PrepareRunDirectory();
  bool asked = false;
  int helperStatus = qtest::RunHelperIfAsked(qtest::host::ProgramArguments(argc, argv), &asked);
  if (asked) return helperStatus;
  // Death tests re-run the binary instead of forking a threaded process.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
