#include "commsinternal.h"
