// A directory tree copied with a progress line.
//
// The program makes a small tree of folders and files in its own temporary
// directory, lists it with pfuDir, copies it folder by folder (pfuMakeDir)
// and file by file (pfuCopyFile) while one line shows how far it has come,
// compares every copy with its original by checksum, and removes the
// temporary directory. Exits with 1 on any failure.
//
//   build/examples/copy_tree
#include <quillon.h>

#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "scratch_dir.h"

namespace {

// One thing to copy: a folder or a file, by its path below the tree's root.
struct Item {
  std::string relative;
  bool folder;
  long long size;
};

// Lists the tree below root (folders before what they hold) into items.
errstatus List(pfuDirPath const& root, std::string const& relative, std::vector<Item>& items) {
  pfuDirPath here(root);
  if (!relative.empty()) here += pfuDirPath(relative.c_str());
  pfuDir* dir = pfuDir::OpenDir(here);
  if (dir == nullptr) return errMapError();
  errstatus status = errOK;
  pfuDirEntry entry;
  while (status == errOK && dir->Read(entry)) {
    std::string const name = relative.empty() ? std::string(entry) : relative + "|" + static_cast<char const*>(entry);
    pfuDirPath const path(here, entry);
    if (pfuFS::pfuIsDir(path)) {
      items.push_back({name, true, 0});
      status = List(root, name, items);
    } else {
      long long size = 0;
      status = pfuFS::pfuGetFileSize(path, size);
      items.push_back({name, false, size});
    }
  }
  delete dir;
  return status;
}

pfuDirPath Under(pfuDirPath const& root, std::string const& relative) {
  return pfuDirPath(root, pfuDirPath(relative.c_str()));
}

// Copies the listed items from one root to another, showing progress.
errstatus Copy(std::vector<Item> const& items, pfuDirPath const& from, pfuDirPath const& to) {
  int files = 0, filesDone = 0;
  long long bytes = 0, bytesDone = 0;
  for (Item const& item : items) {
    if (item.folder) continue;
    ++files;
    bytes += item.size;
  }
  errstatus status = pfuFS::pfuMakeDir(to);
  for (std::size_t i = 0; i < items.size() && status == errOK; ++i) {
    Item const& item = items[i];
    if (item.folder) {
      status = pfuFS::pfuMakeDir(Under(to, item.relative));
      continue;
    }
    status = pfuFS::pfuCopyFile(Under(from, item.relative), Under(to, item.relative));
    ++filesDone;
    bytesDone += item.size;
    std::cout << "\rcopied " << filesDone << " of " << files << " files, " << bytesDone / 1024
              << " of " << bytes / 1024 << " KiB" << std::flush;
  }
  std::cout << "\n";
  return status;
}

// Writes a file of size bytes that differ from file to file.
bool MakeFile(pfuDirPath const& path, int size, char seed) {
  std::ofstream out(pfuOSPath(path), std::ios::binary);
  for (int i = 0; i < size; ++i) out.put(static_cast<char>(seed + i % 251));
  return static_cast<bool>(out);
}

}  // namespace

int main() {
  ScratchDir scratch("quillon-copy-");
  if (!scratch.Made()) return 1;
  pfuDirPath const source(scratch.Path(), pfuDirPath("source"));
  pfuDirPath const target(scratch.Path(), pfuDirPath("copy"));

  // The tree to copy: three levels, a dozen files of a few sizes.
  bool made = pfuFS::pfuMakeDirRec(Under(source, "docs|drafts")) == errOK &&
              pfuFS::pfuMakeDirRec(Under(source, "data|2024|raw")) == errOK;
  char seed = 'a';
  for (char const* folder : {"", "docs", "docs|drafts", "data", "data|2024", "data|2024|raw"}) {
    for (int n = 0; n < 2 && made; ++n, ++seed) {
      std::string const name = std::string(folder) + (*folder ? "|" : "") + "file" + seed + ".bin";
      made = MakeFile(Under(source, name), 4096 * (seed - 'a' + 1) + 17, seed);
    }
  }
  if (!made) return 1;

  std::vector<Item> items;
  errstatus status = List(source, "", items);
  if (status == errOK) status = Copy(items, source, target);
  if (status != errOK) {  // a status is not a bool: compare with errOK
    std::cout << "copy failed: " << errText(status) << "\n";
    return 1;
  }

  int same = 0, files = 0;
  for (Item const& item : items) {
    if (item.folder) continue;
    ++files;
    unsigned original = 0, copy = 1;
    if (pfuFS::pfuCalcCheckSumByPath(Under(source, item.relative), original) == errOK &&
        pfuFS::pfuCalcCheckSumByPath(Under(target, item.relative), copy) == errOK &&
        original == copy) {
      ++same;
    }
  }
  std::cout << same << " of " << files << " copies have their original's checksum\n";
  errstatus const removed = scratch.Remove();
  std::cout << "temporary directory removed: " << errText(removed) << "\n";
  return same == files && files == 12 && removed == errOK ? 0 : 1;
}
