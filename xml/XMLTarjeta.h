#pragma once

#include <string>

#include "records/Ficha.h"

// The catalogue card document of a book: the sections of the card
// (records::ArmaTarjeta) and the copies, in the form the built-in record style
// sheet selects. The whole document is two lines, the declaration ended by
// CR LF and then the FICHA element with no line breaks and nothing after it:
//
//   <?xml version='1.0'?>
//   <FICHA Numero='15'><SECCIONES><Sclas>..</Sclas><Sa>..</Sa><S1>..</S1>
//   <S2>..</S2><Sisbn>..</Sisbn><Snotas>..</Snotas>...<Sr1>..</Sr1><Sr2>..</Sr2>
//   </SECCIONES><EXISTENCIAS><EJEMPLAR NoAdq='..' Biblio='..' Vol='..'
//   Ejemplar='..' Tomo='..'/>...</EXISTENCIAS></FICHA>
//
// (shown wrapped here). Sclas, Sa, S1, S2, Sisbn, Sr1 and Sr2 are always
// written, an empty section as an empty element ("<Sisbn></Sisbn>"); Snotas
// is one element per note, none without notes. SECCIONES and EXISTENCIAS are
// always written, EXISTENCIAS empty for a record without copies. The text is
// Windows-1252, which is how the gateway's style sheet step reads a document
// without a byte order mark.
//
// Every element text and attribute value goes through EscapaEntidadesXML, so the
// document is well-formed whatever the catalogue holds.
namespace orvex::xml {

// The card document of `ficha`.
//
// Copies: one EJEMPLAR per non-empty line of `ficha.Ejemplares`, from the
// line's values NumAdqui -> NoAdq, Biblioteca -> Biblio, Volumen -> Vol,
// Ejemplar -> Ejemplar and Tomo -> Tomo (Accesible and FechaIngreso are not
// written). A line normally splits at its "," into seven values, taken by
// position; a shorter line leaves the missing values empty. A line with more
// than seven pieces had "," inside a value. The values that are never text
// (Ejemplar, Volumen, Tomo, Accesible, FechaIngreso) are then the last five
// pieces, and what stands before them holds NumAdqui and Biblioteca, divided
// at the last "," not followed by a blank: a ", " belongs to a library name
// ("000777,Central, Sala de Consulta"), a bare "," to an accession number
// ("1998,0042,Central"). Without such a "," it is divided at the first ",".
std::string XMLTarjeta(const records::RegFicha& ficha);

}  // namespace orvex::xml
