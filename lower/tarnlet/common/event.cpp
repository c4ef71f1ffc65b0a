#include "vekevent.h"

#include <atomic>

vekBaseEvent::~vekBaseEvent() = default;

void vekBaseEvent::OnWaitSatisfied() const {}

vekEvent::vekEvent(vekBaseEvent* baseEvent) : baseEvent(baseEvent) {}

vekEvent::~vekEvent() { delete baseEvent; }

bool vekEvent::OnEventSignaled() { return true; }

void vekEvent::OnReset() {}

int vekEvent::GetKind() { return 0; }

void* vekEvent::GetInfo() { return nullptr; }

int vekEvent::AllocEventKind() {
  static std::atomic<int> lastKind{0};
  return lastKind.fetch_add(1, std::memory_order_relaxed) + 1;
}

bool vekEvent::Wait(int msec) {
  vekEvent* self = this;
  return vekWaitForAny(&self, 1, msec) == 0;
}
