// Loads the library, unloads it, and reports through its exit status whether
// any allocator block is left. The check runs at exit, after every destructor
// of the library, whether dlclose unloaded it at once or not.
//
// With a module as second argument, the probe opens it after the library and
// calls its quillon_probe_use() before unloading both, so that the library's
// process-wide data is in use, not only built.
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
  if (argc != 2 && argc != 3) {
    std::fprintf(stderr, "usage: %s <library> [<module>]\n", argv[0]);
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
  if (argc == 3) {
    void* module = dlopen(argv[2], RTLD_NOW | RTLD_LOCAL);
    void* use = module != nullptr ? dlsym(module, "quillon_probe_use") : nullptr;
    if (use == nullptr) {
      std::fprintf(stderr, "module: %s\n", dlerror());
      return 2;
    }
    int const failed = reinterpret_cast<int (*)()>(use)();
    std::printf("use: %d, blocks after use: %lld\n", failed, vekLiveBlocks() - blocksBefore);
    dlclose(module);
  }
  dlclose(library);
  return 0;
}
