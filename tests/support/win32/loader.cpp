#include "loader.h"

#include <windows.h>

namespace qtest::loader {

void* Open(char const* path) { return LoadLibraryA(path); }

void* Find(void* library, char const* name) {
  return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(library), name));
}

void Close(void* library) { FreeLibrary(static_cast<HMODULE>(library)); }

std::string LastFailure() { return "system error " + std::to_string(GetLastError()); }

}  // namespace qtest::loader
