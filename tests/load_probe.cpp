// Loads the library, unloads it, and reports through its exit status whether
// any allocator block is left. The check runs at exit, after every destructor
// of the library, whether dlclose unloaded it at once or not.
//
// With a module as second argument, the probe opens it after the library and
// calls its quillon_probe_use() before unloading both, so that the library's
// process-wide data is in use, not only built.
#include <cstdio>
#include <cstdlib>

#include "loader.h"
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
  void* library = qtest::loader::Open(argv[1]);
  if (library == nullptr) {
    std::fprintf(stderr, "library: %s\n", qtest::loader::LastFailure().c_str());
    return 2;
  }
  std::printf("blocks after load: %lld\n", vekLiveBlocks() - blocksBefore);
  if (argc == 3) {
    void* module = qtest::loader::Open(argv[2]);
    void* use = module != nullptr ? qtest::loader::Find(module, "quillon_probe_use") : nullptr;
    if (use == nullptr) {
      std::fprintf(stderr, "module: %s\n", qtest::loader::LastFailure().c_str());
      return 2;
    }
    int const failed = reinterpret_cast<int (*)()>(use)();
    std::printf("use: %d, blocks after use: %lld\n", failed, vekLiveBlocks() - blocksBefore);
    qtest::loader::Close(module);
  }
  qtest::loader::Close(library);
  return 0;
}
