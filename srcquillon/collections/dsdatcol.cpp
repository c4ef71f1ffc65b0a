// The exported instantiations of the collection templates.
#include "dsdatcol.h"

QUILLON_ARRAY_INSTANCES(, , char)
QUILLON_ARRAY_INSTANCES(, , char*)
QUILLON_ARRAY_INSTANCES(, , char const*)
template class dsDataCollection<int>;
template class dsBaseIter<int>;
