// tarnlet, inside: the one poll loop that every wait of the library runs.
// POSIX code only.
#ifndef TARNLET_POLLWAIT_H
#define TARNLET_POLLWAIT_H

#include <poll.h>

// poll() over fds until one is ready or msec milliseconds have passed in all
// (-1: no limit), going on after a signal with the time that is left.
// Returns what poll returned last: > 0 ready, 0 time passed, -1 failed with
// the error kept for errMapError.
int vekPollUntil(pollfd* fds, nfds_t count, int msec);

#endif
