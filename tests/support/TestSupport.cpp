// The helpers are defined inline in TestSupport.h; this unit gives the support library its
// object file and checks that the header stands on its own.
#include "TestSupport.h"
