// Helper modes: the test binary re-run as a child, and the standard modes that
// every suite has, so that no test needs a shell or the host's tools.
#include <chrono>
#include <iostream>
#include <map>
#include <stdexcept>
#include <thread>

#include "testsupport.h"

namespace qtest {

namespace {

std::map<std::string, HelperMain>& helpers() {
  static std::map<std::string, HelperMain> table;
  return table;
}

// The number an argument gives, or the fallback when it gives none.
int Number(std::vector<std::string> const& args, int fallback) {
  try {
    return args.empty() ? fallback : std::stoi(args[0]);
  } catch (std::exception const&) {
    return fallback;
  }
}

bool const standardModes =
    RegisterHelper("print-error",
                   [](std::vector<std::string> const& args) {
                     for (auto const& arg : args) std::cerr << arg << '\n';
                     return std::cerr.flush() ? 0 : 1;
                   }) &&
    RegisterHelper("copy-input",
                   [](std::vector<std::string> const&) {
                     if (std::cin.peek() != std::char_traits<char>::eof()) std::cout << std::cin.rdbuf();
                     return std::cout.flush() ? 0 : 1;
                   }) &&
    RegisterHelper("sleep",
                   [](std::vector<std::string> const& args) {
                     std::this_thread::sleep_for(std::chrono::milliseconds(Number(args, 0)));
                     return 0;
                   }) &&
    RegisterHelper("exit", [](std::vector<std::string> const& args) { return Number(args, 98); });

}  // namespace

bool RegisterHelper(char const* name, HelperMain body) {
  helpers()[name] = body;
  return true;
}

int RunHelperIfAsked(std::vector<std::string> const& args, bool* asked) {
  *asked = args.size() >= 3 && args[1] == "--helper";
  if (!*asked) return 0;
  auto found = helpers().find(args[2]);
  if (found == helpers().end()) return 99;
  host::UseBinaryStandardStreams();
  return found->second(std::vector<std::string>(args.begin() + 3, args.end()));
}

}  // namespace qtest
