// tarnlet, inside: the order of the results of vek_get_nodeaddrinfo.
#ifndef TARNLET_LOOKUP_H
#define TARNLET_LOOKUP_H

#include "vekplatform.h"

// Moves the first IPv6 entry of list to its head and gives the new head; a
// list without one comes back as it was. The platforms call it for a passive
// look-up of the wildcard of any family, where IPv6 can serve both families.
addrinfo* vekIPv6First(addrinfo* list);

// The results of a look-up in the library's order: for a passive look-up of
// the wildcard of any family on a host that can make IPv6 sockets
// (hostHasIPv6, asked only then), IPv6 first; otherwise as they came.
addrinfo* vekOrderLookUp(addrinfo* list, char const* node, addrinfo const* hints, bool (*hostHasIPv6)());

#endif
