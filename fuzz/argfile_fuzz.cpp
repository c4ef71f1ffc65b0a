// Argument files: a command line and an argument file, both from the input,
// the file written into a private directory. The expansion must give what a
// plain reading of the lines gives, in new storage, and leave the old pair
// alone.
//
// The two documented stops ("-argfile" with nothing behind it, a file that
// cannot be opened) come from the command line, never from a file's content:
// the command line is built so that every "-argfile" is followed by the
// name of the written file, and so no input reaches a stop. Those stops are
// covered by the death tests of the argument-file suite.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "fuzzsupport.h"
#include "quillon.h"

namespace {

char const kOption[] = "-argfile";

// Variables that lines of the file may name, besides the process's own.
void SetVariables() {
  static bool const done = [] {
    ::setenv("QF", "value", 1);
    ::setenv("QF_EMPTY", "", 1);
    ::setenv("QF_SEPARATORS", "a|b\\c/d e\tf", 1);
    return true;
  }();
  (void)done;
}

// The argument a line stands for.
std::string Argument(std::string const& line) {
  if (line.empty() || line[0] != '$') return line;
  std::size_t end = line.find_first_of("\\/| \t\n", 1);
  if (end == std::string::npos) end = line.size();
  char const* value = std::getenv(line.substr(1, end - 1).c_str());
  return value == nullptr ? line : value + line.substr(end);
}

// The arguments of a file: every line that ends in a line feed, one carriage
// return before it dropped; an argument is a C string, so it ends at a byte 0.
std::vector<std::string> Lines(std::string const& content) {
  std::vector<std::string> arguments;
  for (std::size_t begin = 0;;) {
    std::size_t const end = content.find('\n', begin);
    if (end == std::string::npos) return arguments;
    std::string line = content.substr(begin, end - begin);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    arguments.push_back(Argument(line).c_str());
    begin = end + 1;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  SetVariables();
  FuzzedDataProvider input(data, size);
  std::string const file = fuzz::PrivateDir() + "/arguments";

  // The command line: words from the input; each "-argfile" gets the file.
  std::vector<std::string> words;
  std::size_t const count = input.ConsumeIntegralInRange<std::size_t>(0, 6);
  for (std::size_t i = 0; i < count; ++i) {
    std::string word = input.ConsumeBool() ? kOption : input.ConsumeRandomLengthString(16);
    word = word.substr(0, word.find('\0'));
    words.push_back(word);
    if (word == kOption) words.push_back(file);
  }
  std::string const content = input.ConsumeRemainingBytesAsString();
  {
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out.write(content.data(), static_cast<std::streamsize>(content.size()));
    FUZZ_CHECK(out.good());
  }

  std::vector<std::string> expected;
  for (std::size_t i = 0; i < words.size(); ++i) {
    if (words[i] != kOption) {
      expected.push_back(words[i]);
      continue;
    }
    std::vector<std::string> const lines = Lines(content);
    expected.insert(expected.end(), lines.begin(), lines.end());
    ++i;
  }

  std::vector<char*> original;
  for (std::string& word : words) original.push_back(word.data());
  int argc = static_cast<int>(original.size());
  char** argv = original.data();
  ExpandCommandArguments(argc, argv, false);
  FUZZ_CHECK(argc == static_cast<int>(expected.size()));
  FUZZ_CHECK(argv != original.data());
  for (int i = 0; i < argc; ++i) {
    FUZZ_CHECK(expected[static_cast<std::size_t>(i)] == argv[i]);
    for (char* old : original) FUZZ_CHECK(argv[i] != old);  // new storage throughout
  }
  for (std::size_t i = 0; i < words.size(); ++i) FUZZ_CHECK(original[i] == words[i].data());
  FreeCommandArguments(argc, argv);
  FUZZ_CHECK(argv == nullptr);
  return 0;
}
