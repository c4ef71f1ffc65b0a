// tarnlet: files, directories and the process's place in the file system,
// in native text.
//
// Contract:
// - uGetCurrentDirectory(size, buffer): writes the current directory with its
//   terminator into buffer, at most size bytes. Returns the length written
//   (without the terminator); 0 on failure, with buffer left alone and the
//   system error kept (a directory that does not fit fails as name-too-long).
// - uGetEnvironmentVariable(name, buffer, size): writes the value with its
//   terminator when it fits, and returns its length; returns 0 for a variable
//   that is not set (buffer untouched), and the size needed with the
//   terminator, which is at least size, when it does not fit (buffer
//   untouched).
#ifndef VEKFILE_H
#define VEKFILE_H

#include "vekplatform.h"

TARNLET_API unsigned uGetCurrentDirectory(unsigned size, char* buffer);
TARNLET_API unsigned uGetEnvironmentVariable(char const* name, char* buffer, unsigned size);

#endif
