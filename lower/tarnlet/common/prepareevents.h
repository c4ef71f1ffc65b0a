// tarnlet, inside: how every platform fills its wait set from the events of
// one wait.
#ifndef TARNLET_PREPAREEVENTS_H
#define TARNLET_PREPAREEVENTS_H

#include "vekevent.h"

// Lets the object of each event add itself to wait (a platform's
// vekWaitSet); a null event, or one without an object, adds nothing.
template <class WaitSet>
void vekPrepareEvents(WaitSet& wait, vekEvent** events, int count) {
  for (int i = 0; i < count; ++i) {
    vekBaseEvent const* object = events[i] != nullptr ? events[i]->GetBaseEvent() : nullptr;
    if (object != nullptr) wait.Prepare(i, *object);
  }
}

#endif
