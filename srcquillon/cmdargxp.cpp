// Argument files: "-argfile <file>" on the command line expands to the lines
// of the file.
#include "cmdargxp.h"

#include <cstring>
#include <fstream>
#include <iostream>
#include <string>

#include "dsdatcol.h"
#include "dsstring.h"
#include "vektext.h"

namespace {

char const kOption[] = "-argfile";
constexpr unsigned int kListGrain = 32;

// The argument that a line stands for: a line that begins with $NAME has the
// variable's value in place of $NAME when the variable is set. Only that one
// variable is replaced, and its value is not scanned again.
std::string MakeArgument(std::string const& line) {
  if (line.empty() || line[0] != '$') return line;
  std::string::size_type end = line.find_first_of("\\/| \t\n", 1);
  if (end == std::string::npos) end = line.size();
  dsString value;
  if (!Getenv(line.substr(1, end - 1).c_str(), value)) return line;
  return static_cast<char const*>(value) + line.substr(end);
}

[[noreturn]] void CannotOpen(char const* name) {
  std::cerr << "File " << name << " cannot be opened." << std::endl;
  vekAbort(nullptr, "srcquillon/cmdargxp", __LINE__);
}

// Adds the lines of one file to the list, or ends the process if the file
// cannot be opened or read to its end: a directory opens as a stream but
// fails its first read, and a read may fail midway. The file is read in
// binary, and a carriage return before the line feed is dropped, so that line
// ends read the same on every host. A line is taken whatever its length; a
// last line without a line end is not.
void ReadArgumentFile(char const* name, dsXArray<char*>& list) {
  std::ifstream file(name, std::ios::in | std::ios::binary);
  if (!file) CannotOpen(name);
  std::string line;
  while (std::getline(file, line) && !file.eof()) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    list += Strnew__(MakeArgument(line).c_str());
  }
  if (file.bad()) CannotOpen(name);
}

}  // namespace

void ExpandCommandArguments(int& argc, char**& argv, bool echo) {
  dsXACtrl control(kListGrain, false);
  dsXArray<char*> list(&control);
  bool fileRead = false;
  for (int i = 0; i < argc; ++i) {
    if (std::strcmp(argv[i], kOption) != 0) {
      list += Strnew__(argv[i]);
      continue;
    }
    if (i + 1 >= argc) {
      std::cerr << "Illegal usage of " << kOption << std::endl;
      vekAbort(nullptr, "srcquillon/cmdargxp", __LINE__);
    }
    ReadArgumentFile(argv[++i], list);
    fileRead = true;
  }

  argc = static_cast<int>(list.GetSize());
  argv = new char*[list.GetSize()];
  for (unsigned int i = 0; i < list.GetSize(); ++i) argv[i] = list[i];

  if (echo && fileRead) {
    for (int i = 0; i < argc; ++i) std::cout << (i == 0 ? "" : " ") << argv[i];
    std::cout << std::endl;
  }
}

void FreeCommandArguments(int argc, char**& argv) {
  for (int i = 0; i < argc; ++i) delete[] argv[i];
  delete[] argv;
  argv = nullptr;
}
