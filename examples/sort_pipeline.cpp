// Text through a child process: a few lines go to `sort` through a pipe on
// its standard input, and the sorted lines come back through a pipe on its
// standard output. OpenPipeWithChildProc makes the three pipes and starts
// the child on them; the command runs without a shell, found on PATH.
// Exits with 1 if the lines come back wrong, and with 77 (a skip, to ctest)
// when `sort` cannot be started.
//
//   build/examples/sort_pipeline
#include <quillon.h>

#include <algorithm>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

int main() {
  std::vector<std::string> const fruit{"pear", "apple", "fig", "cherry", "banana"};

  ExecProcess sort("sort", 7);  // 7: standard input, output and error may be wired
  oPipeStream* toSort = nullptr;
  iPipeStream* fromSort = nullptr;
  iPipeStream* errors = nullptr;
  errstatus const started = OpenPipeWithChildProc(&toSort, &fromSort, &errors, &sort);
  if (started != errOK) {  // a status is not a bool: compare with errOK
    std::cout << "sort_pipeline: could not start `sort` (status " << started
              << "); this example needs the sort program on PATH\n";
    return 77;
  }

  for (std::string const& line : fruit) *toSort << line << '\n';
  DeletePipe(toSort);  // flushes and closes: sort sees the end of its input

  // So few lines wait in the pipe until they are read; a child that writes
  // more than a pipe holds must be read while it runs.
  std::unique_ptr<vekEvent> ended(sort.GetExitEvent());
  if (ended == nullptr || !ended->Wait(10000)) {
    std::cout << "sort_pipeline: sort did not end within 10 seconds\n";
    sort.Kill();
    sort.WaitForProcess();
    DeletePipe(fromSort);
    DeletePipe(errors);
    return 1;
  }
  int const code = sort.WaitForProcess();

  std::vector<std::string> sorted;
  for (std::string line; std::getline(*fromSort, line);) sorted.push_back(line);
  DeletePipe(fromSort);
  DeletePipe(errors);

  std::vector<std::string> expected = fruit;
  std::sort(expected.begin(), expected.end());
  std::cout << "sort exited with " << code << " and gave back:";
  for (std::string const& line : sorted) std::cout << ' ' << line;
  std::cout << '\n';
  return code == 0 && sorted == expected ? 0 : 1;
}
