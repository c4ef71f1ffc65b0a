// Loading a library at run time, for the load probe (load_probe.cpp), which
// links nothing but ombrel and so stays outside the rest of the support.
// dlopen on POSIX, LoadLibrary on Windows: support/<platform>/loader.cpp.
#ifndef QUILLON_TEST_LOADER_H
#define QUILLON_TEST_LOADER_H

#include <string>

namespace qtest::loader {

// The library at path, loaded with every symbol bound now; null on failure.
void* Open(char const* path);
// The address of an exported function; null when there is none.
void* Find(void* library, char const* name);
void Close(void* library);
// Why the last call above failed.
std::string LastFailure();

}  // namespace qtest::loader

#endif
