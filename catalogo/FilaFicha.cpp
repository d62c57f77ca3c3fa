#include "catalogo/FilaFicha.h"

#include <cstdio>

#include "catalogo/Ejemplares.h"
#include "catalogo/TextoMARC.h"

namespace orvex::catalogo {
namespace {

bool SonDigitos(std::string_view s) {
  if (s.empty()) return false;
  for (char c : s) {
    if (c < '0' || c > '9') return false;
  }
  return true;
}

int Entero(std::string_view s) {
  int n = 0;
  for (char c : s) n = n * 10 + (c - '0');
  return n;
}

std::optional<std::string> FechaDe008(std::string_view f008, const DateTime& ahora) {
  if (f008.size() < 6 || !SonDigitos(f008.substr(0, 6))) return std::nullopt;
  const int aa = Entero(f008.substr(0, 2));
  int anio = ahora.year / 100 * 100 + aa;
  if (anio > ahora.year) anio -= 100;
  char buf[16];
  std::snprintf(buf, sizeof buf, "%04d%s", anio, std::string(f008.substr(2, 4)).c_str());
  const std::string fecha = FechaDeTexto(buf);
  if (fecha.empty()) return std::nullopt;
  return fecha;
}

std::optional<std::string> FechaDe005(std::string_view f005) {
  if (f005.size() < 14 || !SonDigitos(f005.substr(0, 14))) return std::nullopt;
  const std::string dia = FechaDeTexto(f005.substr(0, 8));
  const int h = Entero(f005.substr(8, 2)), m = Entero(f005.substr(10, 2)),
            s = Entero(f005.substr(12, 2));
  if (dia.empty() || h > 23 || m > 59 || s > 59) return std::nullopt;
  return dia.substr(0, 11) + std::string(f005.substr(8, 2)) + ":" +
         std::string(f005.substr(10, 2)) + ":" + std::string(f005.substr(12, 2));
}

}  // namespace

std::string FechaISO(const DateTime& t) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%04d-%02d-%02d %02d:%02d:%02d", t.year, t.month, t.day, t.hour,
                t.minute, t.second);
  return buf;
}

FilaFicha FichaDeRegistro(const RegistroMARC& registro, const std::vector<Grupo>& grupos,
                          std::int32_t numero, const DateTime& ahora) {
  FilaFicha f;
  f.Ficha_No = numero;
  const std::string_view f008 = registro.Control("008");
  f.Fecha = FechaDe008(f008, ahora).value_or(FechaISO(ahora));
  f.FechaMod = FechaDe005(SinBlancos(registro.Control("005")));
  f.DatosFijos = std::string(CortaCaracteres(LimpiaContenido(f008), 255));
  const char tipo = registro.lider.size() > 6 ? registro.lider[6] : 'a';
  f.TipoMaterial = tipo == 'a' || tipo == 't' ? "1" : "2";
  f.EtiquetasMARC = EtiquetasMARC(grupos);
  return f;
}

}  // namespace orvex::catalogo
