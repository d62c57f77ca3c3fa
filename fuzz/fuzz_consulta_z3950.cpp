// The protocols' query mapping: any bytes as a CQL query and as a PQF query
// (yaz-client's notation, parsed by YAZ into a type-1 query) give a tree or
// a diagnostic, never both and never neither; a tree is then searched in
// the test catalogue, whose answer must come ascending and without a
// diagnostic.
#include <yaz/odr.h>
#include <yaz/pquery.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "base/CodePage.h"
#include "base/PosixPlatform.h"
#include "db/Database.h"
#include "z3950/Acervo.h"
#include "z3950/Consulta.h"

namespace {

orvex::z3950::Acervo& Catalogo() {
  static orvex::PosixFileSystem archivos;
  static orvex::db::EngineOpener bases(orvex::CodePage::Windows1252());
  static orvex::z3950::Acervo acervo(std::string(ORVEX_RAIZ) + "/tests/fixtures/catalogo/sqlite", archivos,
                                     bases);
  return acervo;
}

void Comprueba(std::unique_ptr<orvex::z3950::Nodo> arbol, orvex::z3950::Diagnostico& d) {
  if ((arbol != nullptr) == static_cast<bool>(d)) std::abort();
  if (!arbol) return;
  const std::vector<std::int32_t> fichas = Catalogo().Busca(*arbol, d);
  if (d || !std::is_sorted(fichas.begin(), fichas.end())) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* datos, std::size_t largo) {
  const std::string texto(reinterpret_cast<const char*>(datos), largo);
  if (texto.find('\0') != std::string::npos) return 0;
  orvex::z3950::Diagnostico d;
  Comprueba(orvex::z3950::DeCQL(texto, d), d);

  ODR odr = odr_createmem(ODR_ENCODE);
  YAZ_PQF_Parser p = yaz_pqf_create();
  if (Z_RPNQuery* rpn = yaz_pqf_parse(p, odr, texto.c_str())) {
    orvex::z3950::Diagnostico d2;
    Comprueba(orvex::z3950::DeRPN(*rpn, d2), d2);
  }
  yaz_pqf_destroy(p);
  odr_destroy(odr);
  return 0;
}
