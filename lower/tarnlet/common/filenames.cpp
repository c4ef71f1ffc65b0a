// The file operations' text and arithmetic that every platform shares.
#include "filenames.h"

#include <cstring>

#include "ombmem.h"
#include "systemerror.h"

bool vekCopyFitting(char const* text, std::size_t length, char* buffer, std::size_t size) {
  if (length + 1 > size) {
    vekSetLastError(vekNameTooLongCode);
    return false;
  }
  std::memcpy(buffer, text, length + 1);
  return true;
}

int vekNameInto(char const* name, char* buffer, std::uint32_t* size, bool countTerminator) {
  std::size_t length = std::strlen(name);
  bool copied = vekCopyFitting(name, length, buffer, *size);
  *size = static_cast<std::uint32_t>(countTerminator || !copied ? length + 1 : length);
  return copied ? 1 : 0;
}

bool vekEndsInDots(char const* path, char const* separators) {
  auto separator = [separators](char c) { return std::strchr(separators, c) != nullptr; };
  std::size_t end = std::strlen(path);
  while (end > 1 && separator(path[end - 1])) --end;
  std::size_t begin = end;
  while (begin > 0 && !separator(path[begin - 1])) --begin;
  std::size_t const dots = end - begin;
  return (dots == 1 || dots == 2) && path[begin] == '.' && path[end - 1] == '.';
}

void vekSpaceInClusters(std::uint64_t unitBytes, std::uint64_t availableUnits,
                        std::uint64_t totalUnits, std::uint32_t* unitsPerCluster,
                        std::uint32_t* bytesPerUnit, std::uint32_t* freeClusters,
                        std::uint32_t* totalClusters) {
  std::uint64_t perCluster = 1;
  while (availableUnits > 0xFFFFFFFFu || totalUnits > 0xFFFFFFFFu) {
    perCluster *= 2;
    availableUnits /= 2;
    totalUnits /= 2;
  }
  *unitsPerCluster = static_cast<std::uint32_t>(perCluster);
  *bytesPerUnit = static_cast<std::uint32_t>(unitBytes);
  *freeClusters = static_cast<std::uint32_t>(availableUnits);
  *totalClusters = static_cast<std::uint32_t>(totalUnits);
}
