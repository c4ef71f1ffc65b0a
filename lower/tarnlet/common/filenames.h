// tarnlet, inside: the parts of the file operations that call no system and
// read the same on every platform (each platform's files.cpp uses them).
#ifndef TARNLET_FILENAMES_H
#define TARNLET_FILENAMES_H

#include <cstddef>
#include <cstdint>

// Copies text with its terminator into buffer if it fits in size bytes; else
// fails as name-too-long (vekNameTooLongCode) and leaves buffer alone.
bool vekCopyFitting(char const* text, std::size_t length, char* buffer, std::size_t size);

// A host or user name into a caller's buffer of *size bytes. *size becomes
// the length (with the terminator when countTerminator says so), or the size
// needed when the name does not fit. 1 on success, 0 when it did not fit.
int vekNameInto(char const* name, char* buffer, std::uint32_t* size, bool countTerminator);

// Whether the last name of path is "." or "..": a path that names no
// directory of its own. separators holds the characters that end a name.
bool vekEndsInDots(char const* path, char const* separators);

// A file system's space as the cluster counts of uGetDiskFreeSpace: units of
// unitBytes, grouped in clusters of more units until both counts fit in 32
// bits.
void vekSpaceInClusters(std::uint64_t unitBytes, std::uint64_t availableUnits,
                        std::uint64_t totalUnits, std::uint32_t* unitsPerCluster,
                        std::uint32_t* bytesPerUnit, std::uint32_t* freeClusters,
                        std::uint32_t* totalClusters);

#endif
