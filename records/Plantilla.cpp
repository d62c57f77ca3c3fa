#include "records/Plantilla.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "base/Runtime.h"
#include "base/RuntimeError.h"
#include "config/Plantillas.h"
#include "records/Ficha.h"

namespace orvex::records {
namespace {

constexpr std::string_view kAbreEtiqueta = "<!#";
constexpr std::string_view kCierraEtiqueta = "!>";
constexpr std::string_view kAbreRotulo = ":\"";
constexpr std::string_view kCierraRotulo = "\":";
constexpr std::string_view kMarcaContenido = "<E>";

// The characters of `texto` from 1-based position `inicio`, `largo` of them,
// cut at the end of the text. A start below 1 or a negative length raises 5,
// as the old runtime's Mid does; the filling relies on that for malformed
// labels.
std::string Mid(std::string_view texto, std::int64_t inicio, std::int64_t largo) {
  if (inicio < 1 || largo < 0) Raise(kErrArgumentoNoValido);
  const auto desde = static_cast<std::size_t>(inicio - 1);
  if (desde >= texto.size()) return {};
  return std::string(texto.substr(desde, static_cast<std::size_t>(largo)));
}

// A template holds a few dozen tags; a filling that needs more passes than
// this is a record that names its own tag inside its content and would grow
// the page without end: it stops with the runtime's out-of-string-space
// error instead.
constexpr int kMaximoPasadas = 10000;

struct Rotulada {
  std::string rotulo;
  std::string lista;
};

// The label and the tag list of a labelled tag definition.
Rotulada PartesRotuladas(std::string_view definicion) {
  const std::string q = ExtraeEntre(definicion, kAbreRotulo, kCierraRotulo);
  Rotulada partes;
  // Without a complete pair the cut has a negative length and raises 5.
  partes.rotulo = Mid(q, 3, static_cast<std::int64_t>(q.size()) - 4);
  // Kept: the list is searched from (label length - 1), as if the label
  // opened the tag definition. A label shorter than two characters puts the
  // start below 1, which raises 5 like the runtime's InStr.
  const std::int64_t desde = static_cast<std::int64_t>(partes.rotulo.size()) - 1;
  if (desde < 1) Raise(kErrArgumentoNoValido);
  const std::size_t par = InStr(static_cast<std::size_t>(desde), definicion, kCierraRotulo);
  partes.lista = std::string(definicion.substr(std::min(par + 1, definicion.size())));
  return partes;
}

// The filling loop shared by both forms of the page. `es_rotulada` tells the
// labelled form; `contenido(lista, rotulada)` reads the value a tag names.
template <class EsRotulada, class Contenido>
std::string Llena(std::string plantilla, EsRotulada es_rotulada, Contenido contenido) {
  std::string etiqueta = ExtraeEntre(plantilla, kAbreEtiqueta, kCierraEtiqueta);
  int pasadas = 0;
  while (!etiqueta.empty()) {
    // A tag is never shorter than "<!#" plus "!>".
    const std::string definicion = Mid(etiqueta, 4, static_cast<std::int64_t>(etiqueta.size()) - 5);
    std::string valor;
    if (es_rotulada(definicion)) {
      Rotulada partes = PartesRotuladas(definicion);
      valor = contenido(partes.lista, true);
      if (!valor.empty()) {
        config::ReemplazaTexto(partes.rotulo, kMarcaContenido, valor);
        valor = std::move(partes.rotulo);
      }
    } else {
      valor = contenido(definicion, false);
    }
    // A content that is its own tag would be found again forever: the
    // filling ends there and the rest stays as written.
    if (valor == etiqueta) break;
    // Every copy of the same tag text goes at once: one lookup per tag.
    config::ReemplazaTexto(plantilla, etiqueta, valor);
    if (++pasadas > kMaximoPasadas) Raise(kErrEspacioCadenas);
    etiqueta = ExtraeEntre(plantilla, kAbreEtiqueta, kCierraEtiqueta);
  }
  return plantilla;
}

}  // namespace

std::string ExtraeEntre(std::string_view texto, std::string_view abre, std::string_view cierra) {
  const std::size_t p1 = InStr(1, texto, abre);
  if (p1 == 0) return {};
  const std::size_t p2 = InStr(p1 + 1, texto, cierra);
  if (p2 == 0) return {};
  // Kept: "+ 2" whatever the closing delimiter's length.
  return Mid(texto, static_cast<std::int64_t>(p1), static_cast<std::int64_t>(p2 - p1 + 2));
}

std::string LlenaEtiquetas(std::string plantilla, std::string_view etiquetas,
                           std::int32_t ficha_no, db::Recordset* imagenes) {
  return Llena(
      std::move(plantilla),
      [](std::string_view definicion) { return definicion.find(':') != std::string_view::npos; },
      [&](const std::string& lista, bool rotulada) -> std::string {
        if (rotulada && lista == "PPP") {
          if (imagenes == nullptr) return {};
          imagenes->Seek("=", {db::Value::Of(static_cast<std::int64_t>(ficha_no))});
          if (imagenes->NoMatch()) return {};
          return imagenes->Field("Imagen").AsText();
        }
        return ExtraeEtiqueta(lista, etiquetas);
      });
}

std::string LlenaColumnas(std::string plantilla, db::Recordset& fila) {
  return Llena(
      std::move(plantilla),
      [](std::string_view definicion) { return definicion.find(kCierraRotulo) != std::string_view::npos; },
      [&](const std::string& columna, bool) { return fila.Field(columna).AsText(); });
}

}  // namespace orvex::records
