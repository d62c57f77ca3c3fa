#pragma once

#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "catalogo/RegistroMARC.h"

// The reader data of the books: what the result page counts by (year,
// language, material type, authors, subjects) and sorts by (title, first
// author, year), derived once per record here and stored in the tables
// ORVEX_LECTOR and ORVEX_LECTOR_VALORES that search/Facetas.h lays out.
//
// orvex-catalogo writes them into the new KORVEL8.MDB from the MARC records
// it reads. For a catalogue it did not build, `orvex-catalogo --lector
// DIRECTORIO` reads DIRECTORIO's KORVEL8.MDB (Jet or SQLite, through
// db::OpenDatabase, only the rows of Fichas) and writes the tables into a
// new SQLite file LECTOR.MDB beside it, which names that KORVEL8.MDB by size
// and modification time (row "fuente"): the gateway ignores it once the
// catalogue changes, until the mode is run again. KORVEL8.MDB is never
// written in that mode.
//
// From a MARC record (indicators and subfields at hand):
//   year       008 positions 7-10 when they are four digits, else the last
//              run of exactly four digits in the $c of the first 260, else
//              of the first 264 of publication (second indicator 1), else
//              of any 264; 0000 and 9999 count as unknown
//   language   008 positions 35-37 when they are three letters, else the
//              first three characters of the first 041 $a when letters;
//              lower-cased
//   type       leader positions 6 and 7 (TipoDeLider); no leader: "libro"
//   authors    $a of each 100, 110, 111, 700, 710, 711
//   subjects   $a of each 600, 610, 611, 630, 650, 651
//   title key  245 $a without the nonfiling characters its second
//              indicator counts
// From the tag string, which keeps no indicators nor subfields:
//   year       DatosFijos (the 008) positions 7-10, else the last run of
//              four digits in the first 260, else 264
//   language   DatosFijos positions 35-37, else the start of the first 041
//   type       TipoMaterial 1 (language material) "libro", any other "otro"
//   authors    each occurrence of those tags, less a final ", dates"
//   subjects   each occurrence up to its first " -- " (the subdivisions)
//   title key  the first 245 up to " / " (the statement of responsibility)
// Authors and subjects are shown as the catalogue shows its texts
// (Windows-1252, accents composed), trimmed of blanks and of the final ISBD
// marks , ; : / = and a final full stop that does not close an initial
// ("Paz, Octavio," gives "Paz, Octavio"; "Smith, J." stays); cut to 250
// characters; a value repeated in one record counts once; at most 255 per
// record. Sort keys are ClaveOrden of the text; the first author's key is
// the author sort.
namespace orvex::catalogo {

// One book's reader data; texts in Windows-1252.
struct DatosFicha {
  std::uint16_t anio = 0;  // 0: unknown
  std::string idioma;      // three lower-case letters; empty: unknown
  std::string tipo;        // a code of TiposMaterial()
  std::string titulo;      // the title's sort key; empty: no title
  std::vector<std::string> autores, temas;
};

// The material types: the code a request names one by, and its display
// name (UTF-8), in leader order.
struct TipoMaterialLector {
  std::string_view clave;
  std::string_view nombre;
};
const std::vector<TipoMaterialLector>& TiposMaterial();

// The type code of leader position 6 (`tipo`) and 7 (`nivel`):
//   a: "revista" for a serial or integrating level (b, i, s), else "libro";
//   t "manuscrito", c d "partitura", e f "mapa", g "video", i j "sonido",
//   k "imagen", m "electronico", o "conjunto", p "mixto", r "objeto";
//   anything else "otro".
std::string_view TipoDeLider(char tipo, char nivel);

// The Spanish name of a language code for the facet ("spa" "Español"), the
// code itself for codes without one. Windows-1252.
std::string NombreIdioma(std::string_view codigo);

// The sort key of a Windows-1252 text: folded as the word index folds
// (search::NormalizaVocales: upper case, plain vowels), Ç as C and Ñ as
// "N~" (after every N, before O), every run of characters that are not
// word characters one blank, no blanks at either end.
std::string ClaveOrden(std::string_view texto);

// A heading without the final blanks and ISBD marks (see above).
std::string LimpiaEncabezado(std::string_view texto);

DatosFicha DatosDeRegistro(const RegistroMARC& registro);
// `etiquetas` the tag string, `datos_fijos` the 008, `tipo_material`
// Fichas.TipoMaterial as text; all Windows-1252.
DatosFicha DatosDeEtiquetas(std::string_view etiquetas, std::string_view datos_fijos,
                            std::string_view tipo_material);

// The reader data of a catalogue's books, record by record.
class AcumuladorLector {
 public:
  AcumuladorLector();
  ~AcumuladorLector();
  AcumuladorLector(const AcumuladorLector&) = delete;
  AcumuladorLector& operator=(const AcumuladorLector&) = delete;

  // Book `ficha` (1 to 800008; others are ignored). A record given twice
  // keeps the last.
  void Agrega(std::int32_t ficha, const DatosFicha& datos);

  // Writes ORVEX_LECTOR and ORVEX_LECTOR_VALORES into the SQLite file
  // `ruta`, created when missing, in place of any it has; with `fuente` not
  // empty, the row "fuente" too. Throws ErrorCatalogo (EscritorCatalogo.h).
  void Escribe(const std::string& ruta, const std::string& fuente = std::string()) const;

 private:
  struct Datos;
  std::unique_ptr<Datos> d_;
};

// The mode --lector: the reader data of the catalogue in `directorio` (or
// of the file `directorio` names) into LECTOR.MDB beside its KORVEL8.MDB
// (its name in any case), written as LECTOR.MDB.parcial and renamed when
// complete. Messages (Spanish, UTF-8) to `mensajes`; `silencioso` leaves
// out the summary. Returns the exit status of Catalogo.h.
int EscribeLectorLateral(const std::string& directorio, std::ostream& mensajes,
                         bool silencioso = false);

}  // namespace orvex::catalogo
