// Helpers shared by the test suites.
#ifndef QUILLON_TESTSUPPORT_H
#define QUILLON_TESTSUPPORT_H

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace qtest {

// A fresh directory for one test, removed with everything in it at the end;
// below TMPDIR (or /tmp), or below base when one is given.
class TempDir {
 public:
  explicit TempDir(std::string const& base = "");
  ~TempDir();
  TempDir(TempDir const&) = delete;
  TempDir& operator=(TempDir const&) = delete;

  std::string const& Path() const { return path; }
  // Path of a name inside the directory.
  std::string operator/(std::string const& name) const { return path + "/" + name; }

 private:
  std::string path;
};

void WriteFile(std::string const& path, std::string const& bytes);
// A path of exactly length bytes below dir, ending in a name of fill
// characters; the directories above that name are made, the name is not.
std::string PathOfLength(TempDir const& dir, std::size_t length, char fill);
std::string ReadFile(std::string const& path);

// Polls condition every few milliseconds until it holds or the time is up.
bool WaitUntil(std::function<bool()> const& condition,
               std::chrono::milliseconds limit = std::chrono::seconds(10));

// The running test program, for re-running it as a child in a helper mode.
std::string SelfPath();

// A helper mode: the test binary run as "<binary> --helper <name> args...".
using HelperMain = int (*)(std::vector<std::string> const& args);
bool RegisterHelper(char const* name, HelperMain body);

// Runs a program (argv[0] found on PATH) to its end, with a time limit.
// Returns its exit status, or -1 if it did not end in time (it is killed then)
// or could not start. Standard output is collected when output is not null.
int RunProgram(std::vector<std::string> const& argv, std::string* output = nullptr,
               std::chrono::milliseconds limit = std::chrono::seconds(30));

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

// Runs body in a forked child confined to dir: dir becomes the child's root
// (chroot) and its current directory, and the file dir/marker must then be
// visible as /marker before body runs. So nothing body does can reach a file
// outside dir, whatever the code under test gets wrong.
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

#endif
