#include "exportacion/Exporta.h"

#include <dlfcn.h>

#include "base/CodePage.h"
#include "base/Platform.h"
#include "base/PosixPlatform.h"
#include "marc/ModuloMarc.h"
#include "marc/Origen.h"

#ifndef ORVEX_DIRECTORIO_MODULOS
#define ORVEX_DIRECTORIO_MODULOS ""
#endif

namespace orvex::exportacion {
namespace {

struct DatosFormato {
  marc::Salida salida;
  const char* tipo;
  const char* extension;
};

DatosFormato Datos(Formato formato) {
  switch (formato) {
    case Formato::Ris: return {marc::Salida::Ris, "application/x-research-info-systems", "ris"};
    case Formato::BibTex: return {marc::Salida::BibTex, "application/x-bibtex", "bib"};
    case Formato::MarcXml: return {marc::Salida::MarcXml, "application/marcxml+xml", "xml"};
    case Formato::Marc21: break;
  }
  return {marc::Salida::Marc21, "application/marc", "mrc"};
}

// Collects the module's text.
void Recibe(void* contexto, const char* texto, std::size_t largo) {
  static_cast<std::string*>(contexto)->assign(texto, largo);
}

}  // namespace

std::optional<Formato> FormatoDeNombre(std::string_view nombre) {
  static constexpr std::pair<std::string_view, Formato> kNombres[] = {
      {"ris", Formato::Ris},
      {"bibtex", Formato::BibTex},
      {"marcxml", Formato::MarcXml},
      {"marc", Formato::Marc21},
  };
  for (const auto& [n, f] : kNombres) {
    if (EqualsIgnoringCase(nombre, n)) return f;
  }
  return std::nullopt;
}

std::vector<std::string> RutasModuloMarc(const std::string& directorio_programa) {
  return RutasModulo(directorio_programa, marc::kArchivoModuloMarc, ORVEX_DIRECTORIO_MODULOS);
}

std::string ModuloMarc::Encuentra() const { return PrimeraLegible(rutas_); }

bool ModuloMarc::Carga() {
  if (intentado_) return exporta_ != nullptr;
  intentado_ = true;
  const std::string ruta = Encuentra();
  if (ruta.empty()) {
    error_ = Latin1("no se encontró ") + marc::kArchivoModuloMarc +
             Latin1(": la exportación de fichas no está instalada");
    return false;
  }
  // The module stays loaded until the process ends.
  void* modulo = ::dlopen(ruta.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (modulo == nullptr) {
    const char* razon = ::dlerror();
    error_ = Latin1("no se pudo cargar ") + (razon == nullptr ? ruta : std::string(razon));
    return false;
  }
  exporta_ = ::dlsym(modulo, marc::kFuncionExporta);
  if (exporta_ == nullptr) {
    error_ = ruta + Latin1(" no es el módulo de exportación de esta versión de Orvex");
    return false;
  }
  return true;
}

std::optional<std::string> ModuloMarc::Escribe(int salida,
                                               const std::vector<records::RegFicha>& fichas,
                                               db::Database& biblio) {
  if (!Carga()) return std::nullopt;
  // The source records are read first: the module's structures point into
  // them.
  std::vector<std::optional<marc::Origen>> origenes;
  std::vector<const records::RegFicha*> elegidas;
  for (const records::RegFicha& f : fichas) {
    if (f.Ficha_no == 0) continue;
    elegidas.push_back(&f);
    origenes.push_back(marc::LeeOrigen(biblio, f.Ficha_no));
  }
  std::vector<OrvexFichaMarc> entrada;
  entrada.reserve(elegidas.size());
  for (std::size_t i = 0; i < elegidas.size(); ++i) {
    const records::RegFicha& f = *elegidas[i];
    const std::optional<marc::Origen>& o = origenes[i];
    const marc::TipoOrigen tipo = !o ? marc::TipoOrigen::Ninguno
                                  : o->xml ? marc::TipoOrigen::MarcXml
                                           : marc::TipoOrigen::Iso2709;
    entrada.push_back({f.Ficha_no, f.TipoMaterial, f.EtiquetasMARC.data(), f.EtiquetasMARC.size(),
                       static_cast<int>(tipo), o ? o->bytes.data() : nullptr,
                       o ? o->bytes.size() : 0});
  }
  std::string texto;
  const auto exporta = reinterpret_cast<OrvexExportaMarc>(exporta_);
  if (exporta(salida, entrada.data(), entrada.size(), &Recibe, &texto) == 0) {
    error_ = Latin1("el módulo ") + marc::kArchivoModuloMarc +
             Latin1(" no pudo escribir las fichas");
    return std::nullopt;
  }
  return texto;
}

Exportacion ModuloMarc::Exporta(Formato formato, const std::vector<records::RegFicha>& fichas,
                                db::Database& biblio) {
  const DatosFormato datos = Datos(formato);
  Exportacion e;
  e.tipoContenido = datos.tipo;
  e.extension = datos.extension;
  std::optional<std::string> texto = Escribe(static_cast<int>(datos.salida), fichas, biblio);
  if (!texto) {
    e.error = error_;
    return e;
  }
  e.correcta = true;
  e.contenido = std::move(*texto);
  return e;
}

std::string ModuloMarc::Cita(const records::RegFicha& ficha, db::Database& biblio) {
  std::optional<std::string> texto =
      Escribe(static_cast<int>(marc::Salida::Cita), {ficha}, biblio);
  if (!texto) return "";
  // One record, one line.
  if (!texto->empty() && texto->back() == '\n') texto->pop_back();
  return *texto;
}

ModuloMarc& ModuloDelPrograma() {
  static ModuloMarc modulo(RutasModuloMarc(PosixFileSystem().ProgramDirectory()));
  return modulo;
}

Exportacion Exporta(Formato formato, const std::vector<records::RegFicha>& fichas,
                    db::Database& biblio) {
  return ModuloDelPrograma().Exporta(formato, fichas, biblio);
}

std::string Cita(const records::RegFicha& ficha, db::Database& biblio) {
  return ModuloDelPrograma().Cita(ficha, biblio);
}

}  // namespace orvex::exportacion
