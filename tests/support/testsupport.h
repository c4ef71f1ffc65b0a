// Helpers shared by the test suites.
#ifndef QUILLON_TESTSUPPORT_H
#define QUILLON_TESTSUPPORT_H

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace qtest {

// A fresh directory for one test, removed with everything in it at the end.
class TempDir {
 public:
  TempDir();
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

// The number of descriptors this process has open (Linux: /proc/self/fd),
// or -1 where that cannot be read.
int OpenDescriptors();

}  // namespace qtest

// Defines a helper mode for the test binary of this file.
#define QTEST_HELPER(name)                                                      \
  static int qtestHelper_##name(std::vector<std::string> const& args);          \
  static bool const qtestHelperRegistered_##name =                              \
      qtest::RegisterHelper(#name, &qtestHelper_##name);                        \
  static int qtestHelper_##name(std::vector<std::string> const& args)

#endif
