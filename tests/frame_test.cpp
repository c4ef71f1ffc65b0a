// The library frame: status mapping, the stop, event kinds
// and waits, and loading and unloading the library.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "ombcrt.h"
#include "quillon.h"
#include "testsupport.h"

namespace {

TEST(FrameStatus, FailuresMapIntoTheNamedBandAndHaveTexts) {
  qtest::host::FailWithBadHandle();  // a real failure, kept as every lower operation keeps it
  vekKeepSystemError();
  EXPECT_EQ(errMapError(), errSysBadHandle);
  for (auto [code, status] : std::vector<std::pair<int, errstatus>>{
           {0, errOK}, {qtest::host::kErrorNotFound, errSysNotFound}, {vekErrPeerClosed, errSysPeerClosed},
           {vekErrSharingViolation, errSysSharingViolation}, {vekErrPathTooLong, errSysNameTooLong},
           {vekErrRuntimeOther, errSysOther}, {qtest::host::kErrorUnmapped, errSysOther}}) {
    vekSetLastError(code);
    EXPECT_EQ(errMapError(), status) << code;
  }
  vekSetLastError(qtest::host::kErrorNotFound);  // the last error belongs to the thread
  int seenByOther = -1;
  std::thread([&] { seenByOther = vekGetLastError(); }).join();
  EXPECT_EQ(seenByOther, 0);
  EXPECT_EQ(vekGetLastError(), qtest::host::kErrorNotFound);
  vekSetLastError(0);

  // Every value has a text of its own.
  std::set<std::string> texts{errText(errOK), errText(errNothingYet), "unknown status"};
  for (int value = errSysOther; value <= errSysTooManyFiles; ++value)
    texts.insert(errText(static_cast<errstatus>(value)));
  EXPECT_EQ(texts.size(), static_cast<std::size_t>(errSysTooManyFiles - errSysOther + 4));
}

TEST(FrameStatus, SystemErrorsPrintThePlatformsTextForTheirCode) {
  auto printed = [](char const* prefix, int code) {
    testing::internal::CaptureStderr();
    vekPrintSystemError(prefix, code);
    return testing::internal::GetCapturedStderr();
  };
  vekSetLastError(qtest::host::kErrorUnmapped);
  std::string const bare = printed(nullptr, qtest::host::kErrorNotFound);
  EXPECT_EQ(vekGetLastError(), qtest::host::kErrorUnmapped);  // printing records nothing
  ASSERT_GT(bare.size(), 1u);
  EXPECT_EQ(bare.find('\n'), bare.size() - 1) << bare;  // one line
  EXPECT_EQ(printed("Socket failed: ", qtest::host::kErrorNotFound), "Socket failed: : " + bare);
  EXPECT_NE(printed(nullptr, qtest::host::kErrorAccessDenied), bare);  // the text is that of the code given
  vekSetLastError(0);
}

TEST(FrameStopDeathTest, WritesMessageFileAndLineThenAborts) {
  EXPECT_DEATH(vekAbort("something impossible", "inc/example", 42), "something impossible.*inc/example:42");
  EXPECT_DEATH(vekAbort(nullptr, "srcquillon/cmdargxp", 7), "srcquillon/cmdargxp:7");
  EXPECT_DEATH(vekAlloc(~std::size_t{0} / 2), "out of memory");
}

// An event class written the way every event class of the library is. Waits
// themselves are the tasks' tests (tasks_test.cpp).
template <int Tag>
struct TestEvent : vekEvent {
  explicit TestEvent(void* semaphore) : vekEvent(new vekMOEvent(semaphore, vekMOEvent::moSemaphore)) {}
  int GetKind() override { return kind; }
  static int const kind;
};
template <int Tag>
int const TestEvent<Tag>::kind = vekEvent::AllocEventKind();

TEST(FrameEvents, EachClassHasAKindOfItsOwnAndAWaitGivesTheFirstSignalled) {
  void* semaphore = uCreateSemaphore(nullptr, 1, 1, nullptr);
  ASSERT_NE(semaphore, nullptr);
  {
    TestEvent<1> first(semaphore);
    TestEvent<2> second(semaphore);
    EXPECT_NE(first.GetKind(), second.GetKind());
    EXPECT_NE(first.GetKind(), 0);
    vekEvent* both[] = {&first, &second};
    EXPECT_EQ(vekWaitForAny(both, 2, 5000), 0);
  }
  vekCloseHandle(semaphore);
}

// The probe's exit status says whether any block is left after unload.
TEST(FrameLoad, LoadAndUnloadLeaveNoBlockBehind) {
  std::string output;
  int status = qtest::RunProgram({QUILLON_LOAD_PROBE, QUILLON_LIBRARY_FILE, QUILLON_PROBE_USER}, &output);
  EXPECT_EQ(status, 0) << output;
  EXPECT_NE(output.find("blocks after load: 0"), std::string::npos) << output;
  // Interned strings and a managed task were made and dropped; the string
  // database and the task registry keep their blocks until unload.
  EXPECT_NE(output.find("use: 0, blocks after use: 2"), std::string::npos) << output;
}

}  // namespace
