// The stop event of vekService on Windows: a manual-reset event, which stays
// signalled once set.
#include "vekservice.h"

#include <windows.h>

#include "../common/stopevent.h"
#include "ombmem.h"

bool vekServiceBase::IsEventSignaled(void* handle) {
  return WaitForSingleObject(static_cast<HANDLE>(handle), 0) == WAIT_OBJECT_0;
}

void* vekMakeStopEvent() {
  HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  if (event == nullptr) vekAbort("vekService: no event for the stop signal", "lower/tarnlet/service", __LINE__);
  return event;
}

void vekSignalStopEvent(void* event) { SetEvent(static_cast<HANDLE>(event)); }

void vekFreeStopEvent(void* event) { CloseHandle(static_cast<HANDLE>(event)); }
