// Arbitrary bytes as a style sheet: read, told apart by dialect, translated
// when it is a working-draft sheet, and compiled with libxslt, as the
// checking tool does. Every sheet must give a verdict, never a crash, a hang
// or memory touched out of bounds; a translated sheet must be a document
// libxslt can take.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include <libxml/xmlerror.h>
#include <libxslt/xsltutils.h>

#include "xslt/MotorLibxslt.h"
#include "xslt/PatronWD.h"

namespace {

void Silencio(void*, const char*, ...) {}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* datos, std::size_t largo) {
  static const bool callado = [] {
    xsltSetGenericErrorFunc(nullptr, Silencio);
    return true;
  }();
  (void)callado;
  const std::string_view texto(reinterpret_cast<const char*>(datos), largo);
  (void)orvex::xslt::RevisaHoja(texto);
  // The same bytes as a pattern, in each of its uses.
  if (largo < 512) {
    for (auto uso : {orvex::xslt::UsoPatron::Seleccion, orvex::xslt::UsoPatron::Valor,
                     orvex::xslt::UsoPatron::Prueba, orvex::xslt::UsoPatron::Coincidencia}) {
      (void)orvex::xslt::TraducePatron(texto, uso, 3);
    }
  }
  return 0;
}
