#include "records/Presentaciones.h"
