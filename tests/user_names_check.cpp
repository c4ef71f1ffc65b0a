// A program of a user, compiled (never run) with every header the library
// installs, -Wall -Wextra -Wshadow and warnings as errors: the headers warn
// about nothing and leave the program the names that Windows' own headers
// take (file constants, MAX_PATH, WIN32_FIND_DATAA), whether the program
// makes them macros before the headers or declares them after.
#define OPEN_EXISTING "the program's own"
#define GENERIC_READ 0.5

#include "quillon_public_headers.h"

enum ProgramDisposition { CREATE_NEW = 10, CREATE_ALWAYS, OPEN_ALWAYS, TRUNCATE_EXISTING };
unsigned const GENERIC_WRITE = 2;
unsigned const FILE_SHARE_READ = 4;
unsigned const FILE_SHARE_WRITE = 8;
constexpr int MAX_PATH = 4096;
struct WIN32_FIND_DATAA {
  char cFileName[MAX_PATH];
};

int main() {
  WIN32_FIND_DATAA data{};
  double const read = GENERIC_READ;
  return data.cFileName[0] + CREATE_NEW + static_cast<int>(GENERIC_WRITE + FILE_SHARE_READ +
                                                          FILE_SHARE_WRITE + read) +
         (OPEN_EXISTING[0] == 't' ? 0 : 1);
}
