// Shared by the socket stream and the server: one wait on one socket.
#ifndef QUILLON_PSOCKSHARED_H
#define QUILLON_PSOCKSHARED_H

#include "psock.h"

// Empties each set that is not null and puts sock alone in it, then waits; a
// null tv waits without limit. Returns what fds_select returns.
int SelectOn(unsigned long long sock, fd_set* read, fd_set* write, fd_set* except, timeval* tv);

#endif
