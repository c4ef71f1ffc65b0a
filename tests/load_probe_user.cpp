// A module that the load probe opens beside the library: it makes and drops
// interned strings, so that the database holds a block when the library is
// unloaded.
#include "quillon.h"

extern "C" VEK_EXPORT int quillon_probe_use() {
  dsUniqueString first("first");
  dsUniqueString second("second");
  dsUniqueString copy(first);
  return copy == first && first != second ? 0 : 1;
}
