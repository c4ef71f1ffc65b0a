// What quillon's own sources share across families: the status of a lower
// operation's outcome, and the kind members of its event classes.
#ifndef QUILLON_SHARED_H
#define QUILLON_SHARED_H

#include "quillonbase.h"

// 1 when the lower operation succeeded, else its mapped last error.
inline errstatus StatusOf(bool succeeded) { return succeeded ? errOK : errMapError(); }

// The members by which an event class of the library is told from others,
// in place of run-time type information: GetKind() answers the class's own
// kind (its static `kind`, taken at load), GetInfo() the event itself, and
// cast() gives the event as that class when the kinds agree, else null.
#define QUILLON_EVENT_KIND_MEMBERS(Event)                                             \
  Event* Event::cast(vekEvent* event) {                                              \
    return event->GetKind() == kind ? static_cast<Event*>(event->GetInfo()) : nullptr; \
  }                                                                                   \
  int Event::GetKind() { return kind; }                                               \
  void* Event::GetInfo() { return this; }

#endif
