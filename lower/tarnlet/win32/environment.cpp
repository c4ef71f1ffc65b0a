// The home directory, which Windows keeps nowhere but the environment.
// Windows code only.
#include "vektext.h"

// Windows programs find the home directory through HOMEDRIVE and HOMEPATH,
// which the caller reads first; there is no other place to look.
unsigned uGetHomeDirectory(unsigned, char*) { return 0; }
