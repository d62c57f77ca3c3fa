#include "catalogo/Acervos.h"

#include "catalogo/Ejemplares.h"
#include "catalogo/TextoMARC.h"

namespace orvex::catalogo {

Acervo AcervoDeRegistro(const RegistroMARC& registro) {
  if (registro.lider.size() <= 7) return Acervo::kLibros;
  switch (registro.lider[7]) {
    case 's':
      return Acervo::kRevistas;
    case 'a':
    case 'b':
      return Acervo::kArticulos;
    default:
      return Acervo::kLibros;
  }
}

std::string NumAdquiDeArticulo(const RegistroMARC& registro, std::vector<std::string>& avisos) {
  std::string numero;
  for (const Campo& campo : registro.campos) {
    numero = NumeroAdquisicion(campo);
    if (!numero.empty()) break;
  }
  for (const Campo& campo : registro.campos) {
    if (!numero.empty()) break;
    if (campo.etiqueta == "773") {
      numero = SinBlancos(LimpiaContenido(ComponeAcentos(campo.Valor('o'))));
    }
  }
  std::string cortado(CortaCaracteres(numero, 15));
  if (cortado.size() < numero.size()) {
    avisos.push_back("número de adquisición del fascículo \"" + numero +
                     "\" cortado a 15 caracteres");
  }
  return cortado;
}

}  // namespace orvex::catalogo
