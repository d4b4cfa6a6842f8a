#include "eventhandler.h"
