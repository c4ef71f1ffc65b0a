// The exported instantiations of the collection templates, defined without
// the export attribute that their declarations carry (dsdatcol.h).
#include "dsdatcol.h"

QUILLON_ARRAY_INSTANCES(, , char)
QUILLON_ARRAY_INSTANCES(, , char*)
QUILLON_ARRAY_INSTANCES(, , char const*)
template class dsDataCollection<int>;
template class dsBaseIter<int>;
