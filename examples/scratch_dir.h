// A fresh directory under the system's temporary folder for one run of an
// example, removed with everything in it when the object goes. The examples
// touch nothing outside it.
#ifndef QUILLON_EXAMPLES_SCRATCH_DIR_H
#define QUILLON_EXAMPLES_SCRATCH_DIR_H

#include <quillon.h>

#include <filesystem>
#include <random>
#include <string>

class ScratchDir {
 public:
  // prefix begins the directory's name, followed by a random number.
  explicit ScratchDir(char const* prefix) {
    std::random_device seed;
    std::filesystem::path const temp = std::filesystem::temp_directory_path();
    // A name that exists already is refused by pfuMakeDir; try another.
    for (int attempt = 0; attempt < 16 && !made; ++attempt) {
      native = (temp / (prefix + std::to_string(seed()))).string();
      made = pfuFS::pfuMakeDir(native.c_str()) == errOK;
    }
  }
  ~ScratchDir() { Remove(); }
  ScratchDir(ScratchDir const&) = delete;
  ScratchDir& operator=(ScratchDir const&) = delete;

  bool Made() const { return made; }
  // The directory as a path object, and as the system writes it.
  pfuDirPath Path() const { return pfuDirPath(native.c_str()); }
  std::string const& Native() const { return native; }

  // Removes the directory and all it holds now; errOK also when it is gone.
  errstatus Remove() {
    if (!made) return errOK;
    errstatus status = pfuFS::pfuRemoveDirRec(Path());
    if (status == errOK) made = false;
    return status;
  }

 private:
  std::string native;
  bool made = false;
};

#endif
