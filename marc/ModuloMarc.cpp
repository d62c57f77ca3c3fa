// The entry point of the loadable module orvex-marc.so.

#include "marc/ModuloMarc.h"

#include <string>
#include <vector>

#include "marc/Citas.h"

extern "C" __attribute__((visibility("default"))) int orvex_marc_exporta_1(
    int salida, const OrvexFichaMarc* fichas, std::size_t n, OrvexRecibeMarc recibe,
    void* contexto) {
  using orvex::marc::Salida;
  using orvex::marc::TipoOrigen;
  if (salida < static_cast<int>(Salida::Ris) || salida > static_cast<int>(Salida::Cita)) return 0;
  try {
    std::vector<orvex::marc::FichaConOrigen> entrada(n);
    for (std::size_t i = 0; i < n; ++i) {
      const OrvexFichaMarc& f = fichas[i];
      orvex::marc::FichaConOrigen& e = entrada[i];
      e.ficha.Ficha_no = f.ficha;
      e.ficha.TipoMaterial = f.tipo_material;
      e.ficha.EtiquetasMARC.assign(f.etiquetas, f.largo_etiquetas);
      if (f.origen == static_cast<int>(TipoOrigen::Iso2709) ||
          f.origen == static_cast<int>(TipoOrigen::MarcXml)) {
        e.origen.emplace();
        e.origen->xml = f.origen == static_cast<int>(TipoOrigen::MarcXml);
        e.origen->bytes.assign(f.bytes_origen, f.largo_origen);
      }
    }
    const std::string texto = orvex::marc::Exporta(static_cast<Salida>(salida), entrada);
    recibe(contexto, texto.data(), texto.size());
    return 1;
  } catch (...) {
    return 0;
  }
}
