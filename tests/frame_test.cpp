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
  std::string const notFound = printed("Socket failed: ", qtest::host::kErrorNotFound);
  std::string const denied = printed("Socket failed: ", qtest::host::kErrorAccessDenied);
  EXPECT_EQ(vekGetLastError(), qtest::host::kErrorUnmapped);  // printing records nothing
  for (std::string const& line : {notFound, denied}) {
    ASSERT_GT(line.size(), std::string("Socket failed: : \n").size()) << line;
    EXPECT_EQ(line.rfind("Socket failed: : ", 0), 0u) << line;
    EXPECT_EQ(line.find('\n'), line.size() - 1) << line;  // one line
  }
  EXPECT_NE(notFound, denied);  // the text is that of the code given
  std::string const bare = printed(nullptr, qtest::host::kErrorNotFound);
  EXPECT_EQ(notFound, "Socket failed: : " + bare);
  vekSetLastError(0);
}

TEST(FrameStopDeathTest, WritesMessageFileAndLineThenAborts) {
  EXPECT_DEATH(vekAbort("something impossible", "inc/example", 42), "something impossible.*inc/example:42");
  EXPECT_DEATH(vekAbort(nullptr, "srcquillon/cmdargxp", 7), "srcquillon/cmdargxp:7");
  EXPECT_DEATH(vekAlloc(~std::size_t{0} / 2), "out of memory");
}

// Something a wait can block on: not signalled until Raise, signalled for
// good after (a semaphore of one unit, which a wait on its event never takes).
class Flag {
 public:
  Flag() : semaphore(uCreateSemaphore(nullptr, 0, 1, nullptr)) {}
  ~Flag() { vekCloseHandle(semaphore); }
  Flag(Flag const&) = delete;
  Flag& operator=(Flag const&) = delete;
  bool Raise() { return vekReleaseSemaphore(semaphore, 1, nullptr); }
  void* Handle() const { return semaphore; }

 private:
  void* semaphore;
};

// An event class written the way every event class of the library is.
template <int Tag>
struct TestEvent : vekEvent {
  explicit TestEvent(Flag const& flag) : vekEvent(new vekMOEvent(flag.Handle(), vekMOEvent::moSemaphore)) {}
  int GetKind() override { return kind; }
  static int const kind;
};
template <int Tag>
int const TestEvent<Tag>::kind = vekEvent::AllocEventKind();

TEST(FrameEvents, KindsAreDistinctAndWaitsBlockUntilSignalled) {
  Flag idle, busy;
  TestEvent<1> quiet(idle), ready(busy);
  TestEvent<2> other(idle);
  EXPECT_NE(quiet.GetKind(), other.GetKind());  // each class has a kind of its own
  EXPECT_NE(quiet.GetKind(), 0);

  EXPECT_FALSE(quiet.Wait(30));
  std::thread writer([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_TRUE(busy.Raise());
  });
  vekEvent* both[] = {&quiet, &ready};
  EXPECT_EQ(vekWaitForAny(both, 2, 5000), 1);
  writer.join();
  EXPECT_TRUE(ready.Wait(0));
  EXPECT_EQ(vekWaitForAny(both, 1, 10), -1);
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
