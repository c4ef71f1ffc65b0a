// Helpers shared by the test suites. Nothing here depends on the host: what
// does lives behind platform.h.
#ifndef QUILLON_TESTSUPPORT_H
#define QUILLON_TESTSUPPORT_H

#include <chrono>
#include <functional>
#include <future>
#include <optional>
#include <string>
#include <vector>

#include "platform.h"

namespace qtest {

// A fresh directory for one test, removed with everything in it at the end.
// It lies inside the directory of the program's run (testsupport.cpp), so a
// child that dies with its directory leaves nothing behind. With a base it
// lies below base instead (another file system), and only its destructor
// removes it.
class TempDir {
 public:
  explicit TempDir(std::string const& base = "");
  ~TempDir();
  TempDir(TempDir const&) = delete;
  TempDir& operator=(TempDir const&) = delete;

  std::string const& Path() const { return path; }
  // Path of a name inside the directory.
  std::string operator/(std::string const& name) const { return path + host::kSeparator + name; }

 private:
  std::string path;
};

void WriteFile(std::string const& path, std::string const& bytes);
// A path of exactly length bytes below dir, ending in a name of fill
// characters; the directories above that name are made, the name is not.
std::string PathOfLength(TempDir const& dir, std::size_t length, char fill);
std::string ReadFile(std::string const& path);
// Test data that repeats with no short period, so that a piece read twice,
// skipped or moved shows: Pattern takes every byte value, NUL included;
// TextPattern only lower-case letters, for text.
std::string Pattern(std::size_t size);
std::string TextPattern(std::size_t size);

// The neutral form of a native path: each native separator becomes '|'.
std::string Neutral(std::string path);
// A native path written with '/' in a test: each '/' becomes the host's separator.
std::string Native(std::string path);

// Sets (or, with null, removes) an environment variable and puts the old value back.
struct EnvVar {
  EnvVar(char const* name, char const* value);
  ~EnvVar();
  EnvVar(EnvVar const&) = delete;
  EnvVar& operator=(EnvVar const&) = delete;
  void Set(char const* value) { host::SetEnv(name, value); }
  char const* name;
  std::optional<std::string> saved;
};

// Switches the process's C locale while it lives and puts the old one back.
struct Locale {
  explicit Locale(char const* name);
  ~Locale();
  Locale(Locale const&) = delete;
  Locale& operator=(Locale const&) = delete;
  std::string saved;
  bool ok;
};

// Polls condition every few milliseconds until it holds or the time is up.
bool WaitUntil(std::function<bool()> const& condition,
               std::chrono::milliseconds limit = std::chrono::seconds(10));

// The running test program, for re-running it as a child in a helper mode.
std::string SelfPath();

// A helper mode: the test binary run as "<binary> --helper <name> args...".
// Every suite has these: print-error (each argument on a line of standard
// error), copy-input (standard input to standard output, to its end),
// sleep <milliseconds>, exit <code>.
using HelperMain = int (*)(std::vector<std::string> const& args);
bool RegisterHelper(char const* name, HelperMain body);

// A command line, each argument quoted by the Windows rules for command lines,
// which the library reads on every host (the program always in quotes).
std::string CommandLine(std::vector<std::string> const& argv);
// The command line that re-runs this program in a helper mode, for
// Process_Launch and ExecProcess.
std::string HelperCommand(std::string const& mode, std::vector<std::string> const& args = {});

// Runs a program (argv[0] found on PATH) with input on its standard input,
// which then ends. Its exit status, or -1 when it could not start or did not
// end within limit (it is killed then). Standard output and error are
// collected where output and errors are not null, inherited otherwise.
int RunProgram(std::vector<std::string> const& argv, std::string* output = nullptr,
               std::chrono::milliseconds limit = std::chrono::seconds(30), std::string const& input = {},
               std::string* errors = nullptr);

// How long a step that takes milliseconds when all is well may block before
// the test calls it stuck.
constexpr std::chrono::seconds kStuckAfter{5};

// Fails the running test at file:line because what is stuck, and ends the
// program: the stuck step still uses the test's objects, and a hang would
// only end at the runner's far longer limit.
[[noreturn]] void EndStuckTest(char const* file, int line, char const* what);

template <class Step>
auto Bounded(char const* file, int line, char const* what, Step step) -> decltype(step()) {
  auto result = std::async(std::launch::async, std::move(step));
  if (result.wait_for(kStuckAfter) != std::future_status::ready) EndStuckTest(file, line, what);
  return result.get();
}

// Forked children, POSIX by nature (support/posix/children.cpp): elsewhere
// nothing runs and the outcome says so; tests that use them are marked
// QTEST_POSIX_ONLY.

// How a body run in a forked child ended.
struct ChildOutcome {
  bool ran = false;           // the body ran, and value is what it returned
  int value = 0;
  bool unprivileged = false;  // the child could not set itself up for want of privilege
  std::string why;            // when the body did not run or did not end in time
};

// Runs body in a forked child and gives back what it returned; the child is
// killed when it runs past limit. body must not use the test framework.
ChildOutcome RunInChild(std::function<int()> const& body,
                        std::chrono::milliseconds limit = std::chrono::seconds(30));

// Runs body in a forked child whose root (chroot) and current directory are
// dir, once dir/marker shows there as /marker: nothing body does can reach a
// file outside dir, whatever the code under test gets wrong.
ChildOutcome RunConfined(std::string const& dir, std::string const& marker,
                         std::function<int()> const& body,
                         std::chrono::milliseconds limit = std::chrono::seconds(30));

// Runs body in a forked child that permissions bind: as user and group 65534
// (nobody) when the tests run as root, as it is otherwise.
ChildOutcome RunUnprivileged(std::function<int()> const& body,
                             std::chrono::milliseconds limit = std::chrono::seconds(30));

}  // namespace qtest

// Skips the test when a child could not set itself up for want of privilege;
// fails it when the body did not run for any other reason.
#define QTEST_REQUIRE_RAN(outcome)                       \
  do {                                                   \
    if ((outcome).unprivileged) GTEST_SKIP() << (outcome).why; \
    ASSERT_TRUE((outcome).ran) << (outcome).why;         \
  } while (0)

// Defines a helper mode for the test binary of this file.
#define QTEST_HELPER(name)                                                      \
  static int qtestHelper_##name(std::vector<std::string> const& args);          \
  static bool const qtestHelperRegistered_##name =                              \
      qtest::RegisterHelper(#name, &qtestHelper_##name);                        \
  static int qtestHelper_##name(std::vector<std::string> const& args)

// Evaluates an expression that may block (a read, a join, a wait without its
// own limit) on a thread of its own and gives its value; if it has not come
// back within qtest::kStuckAfter, the test fails naming what is stuck.
#define QTEST_BOUNDED(what, ...) qtest::Bounded(__FILE__, __LINE__, what, [&] { return __VA_ARGS__; })

// Skips a test that counts or refuses the library's allocations through the
// program's own operator new[] (see QTEST_ALLOCATOR_REPLACEABLE).
#define QTEST_NEEDS_REPLACED_ALLOCATOR()                                         \
  if (!QTEST_ALLOCATOR_REPLACEABLE) {                                            \
    GTEST_SKIP() << "a program's own operator new[] does not reach a DLL's calls"; \
  }

// Skips the rest of a test that is POSIX by nature on other hosts.
#define QTEST_POSIX_ONLY(reason)                                   \
  if (!qtest::host::kIsPosix) {                                    \
    GTEST_SKIP() << "POSIX by nature: " << (reason);               \
  }

// Skips the rest of a test whose next step meets a known gap of Wine, when
// the program runs there.
#define QTEST_WINE_GAP(reason)                                     \
  if (qtest::host::UnderWine()) {                                  \
    GTEST_SKIP() << "a known gap of Wine: " << (reason);           \
  }

// Switches to the host's UTF-8 locale for the rest of the scope; a host whose
// C library has none skips the rest of the test.
#define QTEST_UTF8_LOCALE(guard)                                                           \
  if (qtest::host::kUtf8Locale == nullptr) {                                               \
    GTEST_SKIP() << "the C library of this host has no UTF-8 locale";                      \
  }                                                                                        \
  qtest::Locale guard(qtest::host::kUtf8Locale);                                           \
  ASSERT_TRUE(guard.ok) << "the " << qtest::host::kUtf8Locale << " locale is missing"

#endif
