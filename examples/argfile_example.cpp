// Takes part of its arguments from files: every "-argfile <file>" on the
// command line stands for the lines of that file, one argument a line.
//
//   printf 'first argument\n$HOME/bin\n' > args.txt
//   argfile_example -v -argfile args.txt last
//
// prints the expanded command line (the echo), then each argument with its
// number.
#include <quillon.h>

#include <iostream>

int main(int argc, char** argv) {
  // argv now points at a new array; the one the program was given is left
  // as it was.
  ExpandCommandArguments(argc, argv, true);
  for (int i = 0; i < argc; ++i) std::cout << i << ": [" << argv[i] << "]\n";
  FreeCommandArguments(argc, argv);
  return 0;
}
