// Command lines split by the Windows rules, the same on every host.
#include "vekproc.h"

#include "launch.h"

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

namespace {

// One argument as the rules above read it back.
void appendQuoted(std::string const& arg, std::string& line) {
  if (!arg.empty() && arg.find_first_of(" \t\"") == std::string::npos) {
    line += arg;
    return;
  }
  line += '"';
  std::size_t slashes = 0;
  for (char c : arg) {
    if (c == '\\') {
      ++slashes;
      continue;
    }
    // Backslashes before a quote, the argument's or the closing one, double.
    line.append(c == '"' ? 2 * slashes + 1 : slashes, '\\');
    slashes = 0;
    line += c;
  }
  line.append(2 * slashes, '\\');
  line += '"';
}

}  // namespace

std::string vekJoinCommandLine(std::vector<std::string> const& args) {
  if (args.empty() || args[0].find('"') != std::string::npos) return std::string();
  std::string line = '"' + args[0] + '"';
  for (std::size_t i = 1; i < args.size(); ++i) {
    line += ' ';
    appendQuoted(args[i], line);
  }
  return line;
}

bool vekLaunchArguments(void** process, std::uint32_t* processId, char const* command,
                        char const* second, unsigned int mode, std::vector<std::string>& args) {
  if (process == nullptr || processId == nullptr || second != nullptr || (mode != 1 && mode != 2)) return false;
  args = vekSplitCommandLine(command);
  return !args.empty() && !args[0].empty();
}
