// tarnlet, inside: the stop event of vekService, which each platform makes
// of what its waits can see (service.cpp of each platform folder).
#ifndef TARNLET_STOPEVENT_H
#define TARNLET_STOPEVENT_H

// A new event, not signalled; the process ends through vekAbort when the
// system cannot give one.
void* vekMakeStopEvent();
// Signals the event for good.
void vekSignalStopEvent(void* event);
void vekFreeStopEvent(void* event);

#endif
