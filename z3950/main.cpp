#include "z3950/Servidor.h"

int main(int argc, char** argv) { return orvex::z3950::Principal(argc, argv); }
