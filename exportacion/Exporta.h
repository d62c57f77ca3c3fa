#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "db/Database.h"
#include "records/Ficha.h"

// The gateway's side of export: book records as RIS, BibTeX, MARCXML or
// MARC 21, and a record's citation text, written by the module orvex-marc.so
// (marc/ModuloMarc.h), which carries YAZ. orvex loads it the first time a
// request needs it and keeps it loaded; a request that never exports never
// loads YAZ. The records' source MARC records are read here, from the
// catalogue the request has open, and handed to the module with their tag
// strings; the module writes them by the rules of marc/Citas.h and
// marc/Registros.h.
namespace orvex::exportacion {

enum class Formato { Ris, BibTex, MarcXml, Marc21 };

// The format of a request's field value: "ris", "bibtex", "marcxml" or
// "marc", in any case; nullopt for anything else.
std::optional<Formato> FormatoDeNombre(std::string_view nombre);

struct Exportacion {
  bool correcta = false;
  // UTF-8 text (RIS with CR LF line ends, BibTeX, a MARCXML document with
  // its <collection>) or the ISO 2709 records one after another.
  std::string contenido;
  // "application/x-research-info-systems", "application/x-bibtex",
  // "application/marcxml+xml", "application/marc".
  std::string tipoContenido;
  // The file name's extension, without the dot: "ris", "bib", "xml", "mrc".
  std::string extension;
  // Why there is no content (Windows-1252, Spanish): the module is missing
  // or is not Orvex's, or it failed.
  std::string error;
};

// The loader of orvex-marc.so, loaded on first use from the first of `rutas`
// that exists. When that fails, every export says why and every citation is
// empty.
class ModuloMarc {
 public:
  explicit ModuloMarc(std::vector<std::string> rutas) : rutas_(std::move(rutas)) {}
  ModuloMarc(const ModuloMarc&) = delete;
  ModuloMarc& operator=(const ModuloMarc&) = delete;

  // The records of `fichas` in `formato`, in their order (a record with
  // Ficha_no 0, none, is left out), each from its source record in `biblio`
  // (the catalogue, KORVEL8.MDB) when it keeps one. The tipoContenido and
  // extension are set even when the export fails. The engine's failures
  // reading the source records raise their RuntimeError.
  Exportacion Exporta(Formato formato, const std::vector<records::RegFicha>& fichas,
                      db::Database& biblio);

  // The citation text of `ficha` (marc/Citas.h), from its source record in
  // `biblio` when it keeps one: Windows-1252 (a character it lacks becomes
  // "?"), not escaped; empty when the module cannot be loaded. The engine's
  // failures reading the source record raise their RuntimeError.
  std::string Cita(const records::RegFicha& ficha, db::Database& biblio);

  // The first of `rutas` that names a readable file, or empty.
  std::string Encuentra() const;

 private:
  bool Carga();
  // The module's text, or nullopt with `error_` set.
  std::optional<std::string> Escribe(int salida, const std::vector<records::RegFicha>& fichas,
                                     db::Database& biblio);

  std::vector<std::string> rutas_;
  bool intentado_ = false;
  std::string error_;
  void* exporta_ = nullptr;  // the module's OrvexExportaMarc
};

// Where orvex looks for the module: beside the program, then in the
// directory it was built for.
std::vector<std::string> RutasModuloMarc(const std::string& directorio_programa);

// The process's loader, over RutasModuloMarc of the running program's
// directory, and its Exporta and Cita.
ModuloMarc& ModuloDelPrograma();
Exportacion Exporta(Formato formato, const std::vector<records::RegFicha>& fichas,
                    db::Database& biblio);
std::string Cita(const records::RegFicha& ficha, db::Database& biblio);

}  // namespace orvex::exportacion
