#include "testsupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "ombcrt.h"
#include "vekpipe.h"
#include "vekproc.h"

namespace qtest {

namespace {

// Children find the run's directory here.
char const kRunDirectoryVariable[] = "QTEST_RUN_DIRECTORY";

// The directory that holds every TempDir of one run of a test program. The
// program makes it at its start and hands it to its children (helper modes,
// death tests) through the environment; the program that made it removes it
// with everything in it when it ends. So a child that ends without its
// destructors (abort, kill, _exit) still leaves nothing behind.
struct RunDirectory {
  std::string path;
  std::uint32_t owner = 0;  // the process that made it, and removes it
};

RunDirectory& Run() {
  static RunDirectory run;
  return run;
}

// Removes a directory and everything in it, read-only entries included;
// follows no link.
void RemoveTree(std::string const& path) {
  namespace fs = std::filesystem;
  std::error_code ignored;
  // Make everything removable first: a test may leave read-only entries.
  for (auto it = fs::recursive_directory_iterator(fs::u8path(path), ignored); it != fs::recursive_directory_iterator();
       it.increment(ignored)) {
    if (!it->is_symlink(ignored)) {
      fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ignored);
    }
  }
  fs::remove_all(fs::u8path(path), ignored);
}

// Makes a new directory parent + separator + prefix + a unique suffix, which
// only the current user may enter; its path, or "" on failure.
std::string MakeUniqueDirectory(std::string const& parent, std::string const& prefix) {
  namespace fs = std::filesystem;
  static char const letters[] = "abcdefghijklmnopqrstuvwxyz0123456789";
  std::mt19937 pick(std::random_device{}() ^ host::ProcessId());
  for (int attempt = 0; attempt < 100; ++attempt) {
    std::string path = parent + host::kSeparator + prefix;
    for (int i = 0; i < 6; ++i) path += letters[pick() % (sizeof letters - 1)];
    std::error_code failed;
    if (fs::create_directory(fs::u8path(path), failed)) {
      fs::permissions(fs::u8path(path), fs::perms::owner_all, fs::perm_options::replace, failed);
      return path;
    }
    if (failed) break;  // anything but a name that is taken
  }
  return std::string();
}

void RemoveRunDirectory() {
  RunDirectory& run = Run();
  // A forked child that calls exit() must not take its parent's directory.
  if (run.owner != host::ProcessId() || run.path.empty()) return;
  RemoveTree(run.path);
  run.path.clear();
}

}  // namespace

void PrepareRunDirectory() {
  std::error_code failed;
  char const* inherited = vek_getenv(kRunDirectoryVariable);
  if (inherited != nullptr && std::filesystem::is_directory(std::filesystem::u8path(inherited), failed)) {
    Run().path = inherited;
    return;
  }
  std::filesystem::path const temp = std::filesystem::temp_directory_path(failed);
  // Without its trailing separator, which Windows' temporary folder has.
  Run().path = failed ? "" : MakeUniqueDirectory((temp.has_filename() ? temp : temp.parent_path()).u8string(),
                                                  "quillon-test-");
  if (Run().path.empty()) return;  // every TempDir will fail
  Run().owner = host::ProcessId();
  host::SetEnv(kRunDirectoryVariable, Run().path.c_str());
  std::atexit(RemoveRunDirectory);
}

TempDir::TempDir(std::string const& base)
    : path(base.empty() ? MakeUniqueDirectory(Run().path, "dir-") : MakeUniqueDirectory(base, "quillon-test-")) {
  if (path.empty()) throw std::runtime_error("cannot make a temporary directory");
}

TempDir::~TempDir() { RemoveTree(path); }

void WriteFile(std::string const& path, std::string const& bytes) {
  std::ofstream out(std::filesystem::u8path(path), std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  if (!out) throw std::runtime_error("cannot write " + path);
}

std::string PathOfLength(TempDir const& dir, std::size_t length, char fill) {
  // Directories of 200-byte names, then one name of 56 to 256 bytes: no name
  // passes the system's limit of 255.
  std::string path = dir.Path();
  while (length - path.size() > 256) {
    path += "/" + std::string(200, 'p');
    std::error_code ignored;
    std::filesystem::create_directory(std::filesystem::u8path(path), ignored);
  }
  return path + "/" + std::string(length - path.size() - 1, fill);
}

std::string ReadFile(std::string const& path) {
  std::ifstream in(std::filesystem::u8path(path), std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

namespace {

// The sequence both patterns are made from: no short period.
std::size_t PatternStep(std::size_t i) { return i * 7 + i / 251; }

}  // namespace

std::string Pattern(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(PatternStep(i));
  return bytes;
}

std::string TextPattern(std::size_t size) {
  std::string text(size, '\0');
  for (std::size_t i = 0; i < size; ++i) text[i] = static_cast<char>('a' + PatternStep(i) % 26);
  return text;
}

std::string Neutral(std::string path) {
  std::replace(path.begin(), path.end(), host::kSeparator, '|');
  return path;
}

std::string Native(std::string path) {
  std::replace(path.begin(), path.end(), '/', host::kSeparator);
  return path;
}

EnvVar::EnvVar(char const* name, char const* value) : name(name) {
  if (char const* old = vek_getenv(name)) saved = old;
  Set(value);
}

EnvVar::~EnvVar() { Set(saved ? saved->c_str() : nullptr); }

Locale::Locale(char const* name)
    : saved(std::setlocale(LC_ALL, nullptr)), ok(std::setlocale(LC_ALL, name) != nullptr) {}

Locale::~Locale() { std::setlocale(LC_ALL, saved.c_str()); }

bool WaitUntil(std::function<bool()> const& condition, std::chrono::milliseconds limit) {
  auto const deadline = std::chrono::steady_clock::now() + limit;
  for (;;) {
    if (condition()) return true;
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
}

std::string SelfPath() { return host::ExecutablePath(); }

// The library's own join, which the command-line tests pin to its split.
std::string CommandLine(std::vector<std::string> const& argv) { return vekJoinCommandLine(argv); }

std::string HelperCommand(std::string const& mode, std::vector<std::string> const& args) {
  std::vector<std::string> argv{SelfPath(), "--helper", mode};
  argv.insert(argv.end(), args.begin(), args.end());
  return CommandLine(argv);
}

namespace {

// One standard stream of a child: a pipe of the library's, whose child end
// the launch hands over, or (both ends all ones) the parent's own stream.
struct ChildStream {
  void* child = VEK_INVALID_HANDLE;
  void* parent = VEK_INVALID_HANDLE;

  bool MakePipe(bool childReads) {
    vekOutputPipe write;
    vekInputPipe read;
    if (!vekAnonymousPipe::Create(write, read)) return false;
    child = childReads ? read.fd() : write.fd();
    parent = childReads ? write.fd() : read.fd();
    return true;
  }
  static void Close(void*& end) {
    if (end != VEK_INVALID_HANDLE) vekPipeClose(end);
    end = VEK_INVALID_HANDLE;
  }
};

void Collect(void* from, std::string* into) {
  char chunk[4096];
  unsigned got = 0;
  while (vekPipeRead(from, chunk, sizeof chunk, &got) && got > 0) into->append(chunk, got);
}

}  // namespace

int RunProgram(std::vector<std::string> const& argv, std::string* output, std::chrono::milliseconds limit,
               std::string const& input, std::string* errors) {
  ChildStream in, out, err;
  bool ready = in.MakePipe(true) && (output == nullptr || out.MakePipe(false)) &&
               (errors == nullptr || err.MakePipe(false));
  void* process = nullptr;
  std::uint32_t id = 0;
  ready = ready && Process_Launch(&process, &id, CommandLine(argv).c_str(), nullptr, in.child, out.child,
                                  err.child, 1);
  for (ChildStream* stream : {&in, &out, &err}) ChildStream::Close(stream->child);
  if (!ready) {
    for (ChildStream* stream : {&in, &out, &err}) ChildStream::Close(stream->parent);
    return -1;
  }
  // The pipes end with the child: a write blocked on a full pipe fails, the
  // readers see the end.
  std::thread writer([&] {
    unsigned written = 0;
    if (!input.empty()) vekPipeWrite(in.parent, input.data(), static_cast<unsigned>(input.size()), &written);
    ChildStream::Close(in.parent);  // the child's input ends
  });
  std::thread outReader([&] { if (output != nullptr) Collect(out.parent, output); });
  std::thread errReader([&] { if (errors != nullptr) Collect(err.parent, errors); });
  std::int32_t code = -1;
  bool const ended = WaitUntil([&] { return Process_Wait(process, &code, false, false); }, limit);
  if (!ended) {
    Process_Kill(process);
    Process_Wait(process, &code, true, false);
  }
  Process_Free(process);
  for (std::thread* thread : {&writer, &outReader, &errReader}) thread->join();
  ChildStream::Close(out.parent);
  ChildStream::Close(err.parent);
  return ended ? code : -1;
}

void EndStuckTest(char const* file, int line, char const* what) {
  ADD_FAILURE_AT(file, line) << what << " did not come back within " << kStuckAfter.count()
                             << " s; the test program ends here, since the stuck step still holds the test's objects";
  std::fflush(stdout);
  std::fflush(stderr);
  RemoveRunDirectory();
  std::_Exit(1);
}

}  // namespace qtest
