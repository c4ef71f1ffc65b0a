// Command lines split by the Windows rules, the same on every host.
#include "vekproc.h"

namespace {

bool isBlank(char c) { return c == ' ' || c == '\t'; }

}  // namespace

std::vector<std::string> vekSplitCommandLine(char const* command) {
  std::vector<std::string> args;
  if (command == nullptr) return args;
  char const* p = command;
  while (isBlank(*p)) ++p;
  if (*p == 0) return args;

  // The program: quotes group, backslashes are part of the name.
  std::string program;
  bool quoted = false;
  for (; *p != 0 && (quoted || !isBlank(*p)); ++p) {
    if (*p == '"') {
      quoted = !quoted;
    } else {
      program += *p;
    }
  }
  args.push_back(program);

  for (;;) {
    while (isBlank(*p)) ++p;
    if (*p == 0) break;
    std::string arg;
    quoted = false;
    while (*p != 0 && (quoted || !isBlank(*p))) {
      if (*p == '\\') {
        std::size_t slashes = 0;
        while (*p == '\\') {
          ++slashes;
          ++p;
        }
        if (*p == '"') {
          arg.append(slashes / 2, '\\');
          if (slashes % 2 == 1) {
            arg += '"';
            ++p;
          }
        } else {
          arg.append(slashes, '\\');
        }
      } else if (*p == '"') {
        if (quoted && p[1] == '"') {
          arg += '"';
          p += 2;
        } else {
          quoted = !quoted;
          ++p;
        }
      } else {
        arg += *p++;
      }
    }
    args.push_back(arg);
  }
  return args;
}
