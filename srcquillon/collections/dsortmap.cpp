// The exported instantiations of the sorted maps.
#include "dsortmap.h"

QUILLON_SORTED_MAP_INSTANCES(, pmManageTask*, void*)
template class QUILLON_INSTANCE_API
    dsBaseScalarMap<dsXArray<dsSortedMapEntry<pmManageTask*, void*>>, pmManageTask*, void*>;
template class QUILLON_INSTANCE_API dsScalarMap<pmManageTask*, void*>;

QUILLON_SORTED_MAP_INSTANCES(, dsStringCell*, char const*)
template class QUILLON_INSTANCE_API dsSortedMap<dsStringCell*, char const*>;
template class QUILLON_INSTANCE_API dsNonOwnerStringMap<dsStringCell*>;
