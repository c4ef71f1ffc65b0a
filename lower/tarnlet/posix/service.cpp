// The stop event of a service: an eventfd that stays readable once
// signalled. POSIX code only.
#include "vekservice.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>

#include "system.h"
#include "ombmem.h"

bool vekServiceBase::IsEventSignaled(void* handle) {
  // The event stays readable once signalled, since nothing ever reads it.
  pollfd entry{vekDescriptorOf(handle), POLLIN, 0};
  return ::poll(&entry, 1, 0) == 1 && (entry.revents & POLLIN) != 0;
}

void* vekService::MakeStopEvent() {
  int fd = ::eventfd(0, EFD_CLOEXEC);
  if (fd < 0) vekAbort("vekService: no event for the stop signal", "lower/tarnlet/service", __LINE__);
  return vekHandleOf(fd);
}

void vekService::SignalStopEvent(void* event) {
  std::uint64_t one = 1;
  // The counter cannot overflow from ones, so the write cannot fail here.
  (void)!::write(vekDescriptorOf(event), &one, sizeof one);
}

void vekService::FreeStopEvent(void* event) { ::close(vekDescriptorOf(event)); }
