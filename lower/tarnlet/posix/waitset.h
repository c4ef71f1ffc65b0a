// tarnlet, inside: how a wait is prepared on POSIX, where every object behind
// an event is a descriptor. POSIX code only.
#ifndef TARNLET_WAITSET_H
#define TARNLET_WAITSET_H

#include <poll.h>

#include <vector>

#include "vekevent.h"

// The descriptors of one wait, one entry per event in the events' order; an
// entry that no object filled holds -1, which poll() passes over.
class vekWaitSet {
 public:
  explicit vekWaitSet(int count) : entries(static_cast<std::size_t>(count), pollfd{-1, 0, 0}) {}

  // The object of event `index` adds itself through Watch.
  void Prepare(int index, vekBaseEvent const& object) {
    current = static_cast<std::size_t>(index);
    object.PrepareWait(*this);
  }

  // The event being prepared is signalled when fd is readable (or ended), or
  // writable when forWrite.
  void Watch(int fd, bool forWrite) {
    entries[current] = pollfd{fd, static_cast<short>(forWrite ? POLLOUT : POLLIN), 0};
  }

  pollfd* Entries() { return entries.data(); }
  nfds_t Count() const { return entries.size(); }
  bool Signalled(int index) const { return entries[static_cast<std::size_t>(index)].revents != 0; }

 private:
  std::vector<pollfd> entries;
  std::size_t current = 0;
};

// poll() over fds until one is ready or msec milliseconds have passed in all
// (-1: no limit), going on after a signal with the time that is left.
// Returns what poll returned last: > 0 ready, 0 time passed, -1 failed with
// the error kept for errMapError. Every wait of the library runs it.
int vekPollUntil(pollfd* fds, nfds_t count, int msec);

#endif
