#include "catalogo/Catalogo.h"

int main(int argc, char** argv) { return orvex::catalogo::Principal(argc, argv); }
