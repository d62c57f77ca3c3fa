#include "xml/XMLTarjeta.h"
