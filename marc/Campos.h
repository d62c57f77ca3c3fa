#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "marc/Origen.h"
#include "records/Ficha.h"

// marc/'s own view of a record, shared by its writers: the fields (from the
// source record when YAZ reads it, else from the tag string) and the
// bibliographic description read from them, which Dublin Core, RIS, BibTeX
// and the citation text all write.
namespace orvex::marc {

struct Subcampo {
  char codigo = 'a';
  std::string valor;  // UTF-8
};

struct Campo {
  std::string etiqueta;
  char ind2 = ' ';
  std::string datos;  // control fields
  std::vector<Subcampo> subcampos;

  bool EsControl() const {
    return etiqueta.size() == 3 && etiqueta[0] == '0' && etiqueta[1] == '0';
  }
};

struct Marc {
  std::string lider;
  std::vector<Campo> campos;
  bool de_etiquetas = false;  // built from the tag string: one $a per field
};

// The fields of `ficha`: its source record's when `origen` is usable (as
// Registro decides), else those built from the tag string.
Marc CamposDeFicha(const records::RegFicha& ficha, const std::optional<Origen>& origen);

// What the record says of itself, UTF-8, every text trimmed of its blanks and
// of the ISBD marks that lead to the next part (see Limpia). The rules are
// Dublin Core's (marc/Registros.h); the fields after `idioma` add what the
// citation formats need.
struct Descripcion {
  std::int32_t ficha = 0;
  std::vector<std::string> titulos;     // each 245
  std::vector<std::string> creadores;   // each 100 110 111 700 710 711, all its text
  std::vector<std::string> temas;       // each 600 610 611 630 650 651
  std::vector<std::string> notas;       // each 500 to 520
  std::vector<std::string> editoriales; // dc:publisher
  std::string fecha;                    // dc:date
  const char* tipo_dc = nullptr;        // dc:type
  std::vector<std::string> formatos;    // each 300
  // dc:identifier but the record number, in the fields' order: "ISBN ...",
  // "ISSN ..." and addresses.
  std::vector<std::string> identificadores;
  std::string idioma;                   // 008 positions 35-37

  // The first title without its statement of responsibility (a tag string's
  // 245 keeps it after " / ") and without a final full stop.
  std::string titulo;
  struct Autor {
    std::string nombre;     // "García Márquez, Gabriel": no dates, no relator
    bool personal = true;   // 100, 700; false for the bodies and meetings
  };
  std::vector<Autor> autores;
  std::string anio;                     // the first four digits in a row of `fecha`
  std::string lugar;                    // the first place of publication
  std::string editorial;                // the first publisher
  std::string edicion;                  // 250
  std::vector<std::string> series;      // each 490, 440
  std::vector<std::string> isbn, issn, direcciones;
  std::string paginas;                  // the number of pages of the first 300
  // Leader positions 6 and 7 of a source record; blank for the tag string.
  char tipo = ' ';
  char nivel = ' ';
  bool de_etiquetas = false;
  std::int16_t tipo_material = 0;
};

Descripcion Describe(const Marc& r, const records::RegFicha& ficha);

// `s` without the blanks around it and the ISBD marks that lead to the next
// part (" /", " :", " ;", " =", ",") at its end; with `punto`, without a
// final full stop too.
std::string Limpia(std::string_view s, bool punto = false);

std::string_view SinBlancos(std::string_view s);

}  // namespace orvex::marc
