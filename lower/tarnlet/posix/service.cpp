// The stop event of a service: an eventfd that stays readable once
// signalled. POSIX code only.
#include "vekservice.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>

#include "handles.h"
#include "ombmem.h"

bool vekServiceBase::IsEventSignaled(void* handle) {
  // The event stays readable once signalled, since nothing ever reads it.
  pollfd entry{vekDescriptorOf(handle), POLLIN, 0};
  return ::poll(&entry, 1, 0) == 1 && (entry.revents & POLLIN) != 0;
}

vekService::vekService() {
  int fd = ::eventfd(0, EFD_CLOEXEC);
  if (fd < 0) vekAbort("vekService: no event for the stop signal", "lower/tarnlet/service", __LINE__);
  stopEvent = vekHandleOf(fd);
}

vekService::~vekService() { ::close(vekDescriptorOf(stopEvent)); }

void vekService::Stop() {
  std::uint64_t one = 1;
  // The counter cannot overflow from ones, so the write cannot fail here.
  (void)!::write(vekDescriptorOf(stopEvent), &one, sizeof one);
  std::lock_guard<std::mutex> guard(lock);
  stopped = true;
  resumed.notify_all();
}

void vekService::Pause() {
  std::lock_guard<std::mutex> guard(lock);
  paused = true;
}

void vekService::Continue() {
  std::lock_guard<std::mutex> guard(lock);
  paused = false;
  resumed.notify_all();
}

bool vekService::IsPaused() {
  std::lock_guard<std::mutex> guard(lock);
  return paused;
}

void vekService::DoPause() {
  std::unique_lock<std::mutex> guard(lock);
  resumed.wait(guard, [this] { return !paused || stopped; });
}
