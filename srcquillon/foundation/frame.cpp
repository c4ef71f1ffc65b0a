// The library's process-wide data, in load order.
//
// Everything that runs at load is defined in this one file, because only
// within one file does C++ fix the order of static initialisers. Unload runs
// the registered destructors in the reverse order. The exported values below
// are constants in the library's data and need no initialiser at all.
#include "quillonbase.h"

int const SystemAssigned = 0;
void* const badThreadHandle = nullptr;
int const badProcHandle = 0;
void* const badIOCtrlHandle = reinterpret_cast<void*>(~std::uintptr_t{0});
