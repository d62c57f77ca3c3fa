#include "db/jet/Jet4.h"
