// The stop event of vekService on POSIX: an eventfd, readable once signalled.
#include "vekservice.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>

#include "ombmem.h"

namespace {

int Fd(void* handle) { return static_cast<int>(reinterpret_cast<std::intptr_t>(handle)); }

}  // namespace

bool vekServiceBase::IsEventSignaled(void* handle) {
  // The event stays readable once signalled, since nothing ever reads it.
  pollfd entry{Fd(handle), POLLIN, 0};
  return ::poll(&entry, 1, 0) == 1 && (entry.revents & POLLIN) != 0;
}

void* vekService::MakeStopEvent() {
  int fd = ::eventfd(0, EFD_CLOEXEC);
  if (fd < 0) vekAbort("vekService: no event for the stop signal", "lower/tarnlet/service", __LINE__);
  return reinterpret_cast<void*>(static_cast<std::intptr_t>(fd));
}

void vekService::SignalStopEvent(void* event) {
  std::uint64_t one = 1;
  // The counter cannot overflow from ones, so the write cannot fail here.
  (void)!::write(Fd(event), &one, sizeof one);
}

void vekService::FreeStopEvent(void* event) { ::close(Fd(event)); }
