#include "loader.h"

#include <dlfcn.h>

namespace qtest::loader {

void* Open(char const* path) { return dlopen(path, RTLD_NOW | RTLD_LOCAL); }

void* Find(void* library, char const* name) { return dlsym(library, name); }

void Close(void* library) { dlclose(library); }

std::string LastFailure() {
  char const* text = dlerror();
  return text != nullptr ? text : "no error";
}

}  // namespace qtest::loader
