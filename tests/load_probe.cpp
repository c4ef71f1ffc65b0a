// Loads the library, unloads it, and reports through its exit status whether
// any allocator block is left. The check runs at exit, after every destructor
// of the library, whether dlclose unloaded it at once or not.
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

#include "ombmem.h"

namespace {

long long blocksBefore = 0;

void checkAtExit() {
  long long left = vekLiveBlocks() - blocksBefore;
  std::printf("blocks left after unload: %lld\n", left);
  std::fflush(stdout);
  std::_Exit(left == 0 ? 0 : 3);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s <library>\n", argv[0]);
    return 2;
  }
  blocksBefore = vekLiveBlocks();
  std::atexit(checkAtExit);
  void* library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    std::fprintf(stderr, "dlopen: %s\n", dlerror());
    return 2;
  }
  std::printf("blocks after load: %lld\n", vekLiveBlocks() - blocksBefore);
  dlclose(library);
  return 0;
}
