// The exported instantiations of the sorted maps, defined without the export
// attribute that their declarations carry (dsortmap.h).
#include "dsortmap.h"

QUILLON_SORTED_MAP_INSTANCES(, , pmManageTask*, void*)
template class dsBaseScalarMap<dsXArray<dsSortedMapEntry<pmManageTask*, void*>>, pmManageTask*,
                               void*>;
template class dsScalarMap<pmManageTask*, void*>;

QUILLON_SORTED_MAP_INSTANCES(, , dsStringCell*, char const*)
template class dsSortedMap<dsStringCell*, char const*>;
template class dsNonOwnerStringMap<dsStringCell*>;
