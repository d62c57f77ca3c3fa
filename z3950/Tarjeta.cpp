#include "z3950/Tarjeta.h"

#include <vector>

#include "base/CodePage.h"
#include "records/Presentaciones.h"

namespace orvex::z3950 {

std::string Tarjeta(const records::RegFicha& ficha) {
  const records::Tarjeta t = records::ArmaTarjeta(ficha);
  std::vector<const std::string*> secciones = {&t.Sclas, &t.Sa, &t.S1, &t.S2, &t.Sisbn};
  for (const std::string& nota : t.Snotas) secciones.push_back(&nota);
  secciones.push_back(&t.Sr1);
  secciones.push_back(&t.Sr2);
  std::string texto;
  for (const std::string* s : secciones) {
    if (s->empty()) continue;
    texto += CodePage::Windows1252().ToUtf8(*s);
    texto += '\n';
  }
  return texto;
}

}  // namespace orvex::z3950
