// The stop event of a service: a manual-reset event, which stays signalled
// once set. Windows code only.
#include "vekservice.h"

#include <windows.h>

#include "ombmem.h"

bool vekServiceBase::IsEventSignaled(void* handle) {
  return WaitForSingleObject(static_cast<HANDLE>(handle), 0) == WAIT_OBJECT_0;
}

void* vekService::MakeStopEvent() {
  HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  if (event == nullptr) vekAbort("vekService: no event for the stop signal", "lower/tarnlet/service", __LINE__);
  return event;
}

void vekService::SignalStopEvent(void* event) { SetEvent(static_cast<HANDLE>(event)); }

void vekService::FreeStopEvent(void* event) { CloseHandle(static_cast<HANDLE>(event)); }
