// The exported instantiations of the collection templates.
#include "dsdatcol.h"

QUILLON_ARRAY_INSTANCES(, char)
QUILLON_ARRAY_INSTANCES(, char*)
QUILLON_ARRAY_INSTANCES(, char const*)
template class QUILLON_INSTANCE_API dsDataCollection<int>;
template class QUILLON_INSTANCE_API dsBaseIter<int>;
