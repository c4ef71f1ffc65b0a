#include "testsupport.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <thread>

extern char** environ;

namespace qtest {

TempDir::TempDir() {
  char const* base = std::getenv("TMPDIR");
  std::string pattern = std::string(base != nullptr && *base != 0 ? base : "/tmp") +
                        "/quillon-test-XXXXXX";
  std::vector<char> buffer(pattern.begin(), pattern.end());
  buffer.push_back(0);
  if (mkdtemp(buffer.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  path = buffer.data();
}

TempDir::~TempDir() {
  std::error_code ignored;
  // Make everything removable first: a test may leave read-only entries.
  for (auto it = std::filesystem::recursive_directory_iterator(path, ignored);
       it != std::filesystem::recursive_directory_iterator(); it.increment(ignored)) {
    if (it->is_directory(ignored) && !it->is_symlink(ignored)) {
      std::filesystem::permissions(it->path(), std::filesystem::perms::owner_all,
                                   std::filesystem::perm_options::add, ignored);
    }
  }
  std::filesystem::remove_all(path, ignored);
}

void WriteFile(std::string const& path, std::string const& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  if (!out) throw std::runtime_error("cannot write " + path);
}

std::string ReadFile(std::string const& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

bool WaitUntil(std::function<bool()> const& condition, std::chrono::milliseconds limit) {
  auto const deadline = std::chrono::steady_clock::now() + limit;
  for (;;) {
    if (condition()) return true;
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
}

std::string SelfPath() {
  std::error_code ignored;
  return std::filesystem::read_symlink("/proc/self/exe", ignored).string();
}

namespace {

std::map<std::string, HelperMain>& helpers() {
  static std::map<std::string, HelperMain> table;
  return table;
}

}  // namespace

bool RegisterHelper(char const* name, HelperMain body) {
  helpers()[name] = body;
  return true;
}

int RunHelperIfAsked(int argc, char** argv, bool* asked) {
  *asked = argc >= 3 && std::string(argv[1]) == "--helper";
  if (!*asked) return 0;
  auto found = helpers().find(argv[2]);
  if (found == helpers().end()) return 99;
  return found->second(std::vector<std::string>(argv + 3, argv + argc));
}

int RunProgram(std::vector<std::string> const& argv, std::string* output,
               std::chrono::milliseconds limit) {
  int pipeEnds[2] = {-1, -1};
  if (output != nullptr && pipe2(pipeEnds, O_CLOEXEC) != 0) return -1;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (output != nullptr) posix_spawn_file_actions_adddup2(&actions, pipeEnds[1], 1);
  std::vector<char*> args;
  for (auto const& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  pid_t pid = 0;
  int rc = posix_spawnp(&pid, args[0], &actions, nullptr, args.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (output != nullptr) close(pipeEnds[1]);
  if (rc != 0) {
    if (output != nullptr) close(pipeEnds[0]);
    return -1;
  }
  if (output != nullptr) fcntl(pipeEnds[0], F_SETFL, O_NONBLOCK);
  auto drain = [&] {
    if (output == nullptr) return;
    char chunk[4096];
    ssize_t n;
    while ((n = read(pipeEnds[0], chunk, sizeof chunk)) > 0) output->append(chunk, n);
  };
  int status = 0;
  bool const ended = WaitUntil(
      [&] {
        drain();
        return waitpid(pid, &status, WNOHANG) == pid;
      },
      limit);
  if (!ended) {
    kill(pid, SIGKILL);
    waitpid(pid, &status, 0);
  }
  drain();
  if (output != nullptr) close(pipeEnds[0]);
  if (!ended) return -1;
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  return 128 + WTERMSIG(status);
}

int OpenDescriptors() {
  std::error_code error;
  auto listing = std::filesystem::directory_iterator("/proc/self/fd", error);
  return error ? -1 : static_cast<int>(std::distance(listing, {})) - 1;  // less the listing's own
}

}  // namespace qtest
