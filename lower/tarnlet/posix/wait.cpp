// Waiting on events: poll() over the descriptors the events name. POSIX code
// only.
#include <poll.h>

#include <cerrno>
#include <chrono>

#include "ombmem.h"
#include "prepareevents.h"
#include "vekevent.h"
#include "waitset.h"

int vekWaitForAny(vekEvent** events, int count, int msec) {
  if (events == nullptr || count <= 0) return -1;
  vekWaitSet wait(count);
  vekPrepareEvents(wait, events, count);
  if (vekPollUntil(wait.Entries(), wait.Count(), msec) <= 0) return -1;
  for (int i = 0; i < count; ++i) {
    if (wait.Signalled(i)) {
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
