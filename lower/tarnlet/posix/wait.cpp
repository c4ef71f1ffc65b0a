// Waiting on events: poll() over the descriptors the events name. POSIX code
// only.
#include <poll.h>

#include <cerrno>
#include <chrono>
#include <vector>

#include "ombmem.h"
#include "pollwait.h"
#include "vekevent.h"

int vekWaitForAny(vekEvent** events, int count, int msec) {
  if (events == nullptr || count <= 0) return -1;
  std::vector<pollfd> fds(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) {
    vekBaseEvent* base = events[i] != nullptr ? events[i]->GetBaseEvent() : nullptr;
    vekWaitObject object = base != nullptr ? base->GetWaitObject() : vekWaitObject{-1, false};
    // poll skips negative fds, so an event with nothing to wait on never fires.
    fds[i].fd = static_cast<int>(object.handle);
    fds[i].events = object.forWrite ? POLLOUT : POLLIN;
    fds[i].revents = 0;
  }
  if (vekPollUntil(fds.data(), fds.size(), msec) <= 0) return -1;
  for (int i = 0; i < count; ++i) {
    if (fds[i].revents != 0) {
      events[i]->GetBaseEvent()->OnWaitSatisfied();
      return i;
    }
  }
  return -1;
}

int vekPollUntil(pollfd* fds, nfds_t count, int msec) {
  auto const deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(msec);
  for (;;) {
    int timeout = msec;
    if (msec > 0) {
      auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
          deadline - std::chrono::steady_clock::now());
      timeout = left.count() > 0 ? static_cast<int>(left.count()) : 0;
    }
    int ready = ::poll(fds, count, msec < 0 ? -1 : timeout);
    if (ready >= 0) return ready;
    if (errno != EINTR) {
      vekKeepSystemError();
      return -1;
    }
  }
}
