// tarnlet, inside: the platform's table of its own error codes.
#ifndef TARNLET_SYSTEMERROR_H
#define TARNLET_SYSTEMERROR_H

#include "vekstatus.h"

// The status of the system band for a code of the platform's own domain
// (errno on POSIX; GetLastError and WSAGetLastError values on Windows).
// Never 0 and never one of the library's own codes, which errMapError
// answers itself. Each platform folder defines it, and errSysOther serves
// every code without a name of its own.
errstatus vekStatusOfSystemCode(int code);

// The platform's own code for a name or path longer than the buffer or the
// system takes.
extern int const vekNameTooLongCode;

#endif
