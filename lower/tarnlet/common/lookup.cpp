// The order of a look-up's results, the same on every host.
#include "lookup.h"

addrinfo* vekIPv6First(addrinfo* list) {
  addrinfo* before = nullptr;
  for (addrinfo* entry = list; entry != nullptr; before = entry, entry = entry->ai_next) {
    if (entry->ai_family == AF_INET6) {
      if (before == nullptr) return list;
      before->ai_next = entry->ai_next;
      entry->ai_next = list;
      return entry;
    }
  }
  return list;
}

addrinfo* vekOrderLookUp(addrinfo* list, char const* node, addrinfo const* hints, bool (*hostHasIPv6)()) {
  bool const wildcardOfAnyFamily = node == nullptr && hints != nullptr &&
                                   (hints->ai_flags & AI_PASSIVE) != 0 && hints->ai_family == AF_UNSPEC;
  return wildcardOfAnyFamily && hostHasIPv6() ? vekIPv6First(list) : list;
}
