// The bibliographic description of a record, read from its fields: what
// Dublin Core, RIS, BibTeX and the citation text write.

#include <algorithm>
#include <cstring>
#include <initializer_list>

#include "marc/Campos.h"

namespace orvex::marc {
namespace {

bool EsLetra(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool EsDigito(char c) { return c >= '0' && c <= '9'; }

// The subfields of `c` whose codes are in `codigos` (nullptr: every letter),
// trimmed and joined by one blank.
std::string Une(const Campo& c, const char* codigos = nullptr) {
  std::string texto;
  for (const Subcampo& s : c.subcampos) {
    const bool elegido = codigos == nullptr ? EsLetra(s.codigo)
                                            : std::strchr(codigos, s.codigo) != nullptr;
    const std::string_view valor = SinBlancos(s.valor);
    if (!elegido || valor.empty()) continue;
    if (!texto.empty()) texto += ' ';
    texto += valor;
  }
  return texto;
}

// A subject heading: its lettered subfields, the subdivisions ($v $x $y $z)
// after " -- ".
std::string Tema(const Campo& c) {
  std::string texto;
  for (const Subcampo& s : c.subcampos) {
    const std::string_view valor = SinBlancos(s.valor);
    if (!EsLetra(s.codigo) || valor.empty()) continue;
    if (!texto.empty()) texto += std::strchr("vxyz", s.codigo) != nullptr ? " -- " : " ";
    texto += valor;
  }
  return texto;
}

int NumeroEtiqueta(const std::string& etiqueta) {
  if (etiqueta.size() != 3) return -1;
  int n = 0;
  for (char c : etiqueta) {
    if (!EsDigito(c)) return -1;
    n = n * 10 + (c - '0');
  }
  return n;
}

// The DCMI type of leader position 6.
const char* TipoDeLider(char tipo) {
  switch (tipo) {
    case 'a': case 'c': case 'd': case 't': return "Text";
    case 'e': case 'f': case 'k': return "Image";
    case 'g': return "MovingImage";
    case 'i': case 'j': return "Sound";
    case 'm': return "Software";
    case 'o': case 'p': return "Collection";
    case 'r': return "PhysicalObject";
    default: return nullptr;
  }
}

bool SonDigitos(std::string_view s) {
  return !s.empty() && std::all_of(s.begin(), s.end(), EsDigito);
}

// The runs of exactly four digits in `s`: the first (`ultimo` false) or the
// last.
std::string Anio(std::string_view s, bool ultimo) {
  std::string anio;
  for (std::size_t i = 0; i < s.size();) {
    std::size_t j = i;
    while (j < s.size() && EsDigito(s[j])) ++j;
    if (j - i == 4) {
      anio = std::string(s.substr(i, 4));
      if (!ultimo) break;
    }
    i = j == i ? i + 1 : j;
  }
  return anio;
}

// A name without its final full stop, unless the stop ends an initial
// ("Pérez, J.").
std::string SinPuntoFinal(std::string nombre) {
  if (nombre.size() < 2 || nombre.back() != '.') return nombre;
  const std::size_t palabra = nombre.find_last_of(" ,-", nombre.size() - 2);
  const std::size_t largo = nombre.size() - (palabra == std::string::npos ? 0 : palabra + 1);
  if (largo > 2) nombre.pop_back();
  return nombre;
}

// A heading of the tag string as a name: the text before its dates (the
// first ", " followed by a digit), trimmed.
std::string NombreDeEtiqueta(std::string_view texto) {
  for (std::size_t p = texto.find(", "); p != std::string_view::npos; p = texto.find(", ", p + 1)) {
    if (p + 2 < texto.size() && EsDigito(texto[p + 2])) {
      texto = texto.substr(0, p);
      break;
    }
  }
  return SinPuntoFinal(Limpia(texto));
}

// The place and the publisher of a publication statement kept whole in the
// tag string, "Madrid : Cátedra, 1987.": the place before the first ":",
// the publisher after it, up to another place (";") and without the date
// (from the last "," that a digit follows).
void LeeDeclaracion(std::string_view texto, std::string& lugar, std::string& editorial) {
  const std::size_t dos_puntos = texto.find(':');
  std::string_view resto = texto;
  if (dos_puntos != std::string_view::npos) {
    lugar = Limpia(texto.substr(0, dos_puntos));
    resto = texto.substr(dos_puntos + 1);
  }
  resto = resto.substr(0, resto.find(';'));
  for (std::size_t coma = resto.rfind(','); coma != std::string_view::npos;
       coma = coma == 0 ? std::string_view::npos : resto.rfind(',', coma - 1)) {
    const std::string_view tras = resto.substr(coma + 1);
    if (std::any_of(tras.begin(), tras.end(), EsDigito)) {
      resto = resto.substr(0, coma);
    } else {
      break;
    }
  }
  editorial = Limpia(resto);
  // A statement that is only a date names no publisher.
  if (!std::any_of(editorial.begin(), editorial.end(), EsLetra)) editorial.clear();
}

// The number of pages of a physical description: the first number followed
// by "p" or "h" (pages, leaves), "xii, 550 p." giving "550".
std::string Paginas(std::string_view texto) {
  for (std::size_t i = 0; i < texto.size();) {
    if (!EsDigito(texto[i])) {
      ++i;
      continue;
    }
    std::size_t j = i;
    while (j < texto.size() && EsDigito(texto[j])) ++j;
    std::size_t k = j;
    while (k < texto.size() && texto[k] == ' ') ++k;
    if (k < texto.size() && (texto[k] == 'p' || texto[k] == 'h') &&
        (k + 1 == texto.size() || !EsLetra(texto[k + 1]) ||
         texto.substr(k).starts_with("pp") || texto.substr(k).starts_with("pág") ||
         texto.substr(k).starts_with("pag") || texto.substr(k).starts_with("hoj"))) {
      return std::string(texto.substr(i, j - i));
    }
    i = j;
  }
  return "";
}

}  // namespace

Descripcion Describe(const Marc& r, const records::RegFicha& ficha) {
  Descripcion d;
  d.ficha = ficha.Ficha_no;
  d.de_etiquetas = r.de_etiquetas;
  d.tipo_material = ficha.TipoMaterial;
  const auto agrega = [](std::vector<std::string>& lista, std::string texto) {
    if (!texto.empty()) lista.push_back(std::move(texto));
  };
  std::string_view f008;
  for (const Campo& c : r.campos) {
    if (c.etiqueta == "008") {
      f008 = c.datos;
      break;
    }
  }

  // A publication statement: any 260, a 264 of publication; the tag string
  // keeps no indicators, and its first 260, else 264, is the statement.
  const Campo* declaracion = nullptr;
  if (r.de_etiquetas) {
    for (int etiqueta : {260, 264}) {
      for (const Campo& c : r.campos) {
        if (declaracion == nullptr && NumeroEtiqueta(c.etiqueta) == etiqueta) declaracion = &c;
      }
    }
  }

  for (const Campo& c : r.campos) {
    if (c.EsControl()) continue;
    const int n = NumeroEtiqueta(c.etiqueta);
    if (n == 245) {
      agrega(d.titulos, Limpia(Une(c, "abfgknps")));
      if (d.titulo.empty() && !d.titulos.empty()) {
        // The tag string keeps the statement of responsibility after " / ".
        const std::string& t = d.titulos.back();
        d.titulo = r.de_etiquetas ? Limpia(std::string_view(t).substr(0, t.find(" / "))) : t;
        // The full stop that closes the title area, not an ellipsis.
        if (d.titulo.ends_with('.') && !d.titulo.ends_with("..")) d.titulo.pop_back();
      }
    } else if (n == 100 || n == 110 || n == 111 || n == 700 || n == 710 || n == 711) {
      agrega(d.creadores, Limpia(Une(c)));
      // Dates belong in $d, but records that keep them in $a ("Castellanos,
      // Rosario, 1925-1974.") are common: they are cut off either way.
      std::string nombre = NombreDeEtiqueta(r.de_etiquetas ? Une(c) : Une(c, n % 100 == 11 ? "a" : "ab"));
      if (!nombre.empty()) d.autores.push_back({std::move(nombre), n % 100 == 0});
    } else if (n == 600 || n == 610 || n == 611 || n == 630 || n == 650 || n == 651) {
      agrega(d.temas, Limpia(Tema(c)));
    } else if (n >= 500 && n <= 520) {
      agrega(d.notas, Limpia(Une(c)));
    } else if (n == 300) {
      agrega(d.formatos, Limpia(Une(c)));
      if (d.paginas.empty()) d.paginas = Paginas(Une(c));
    } else if (n == 250) {
      if (d.edicion.empty()) d.edicion = Limpia(Une(c, r.de_etiquetas ? nullptr : "ab"));
    } else if (n == 440 || n == 490) {
      agrega(d.series, Limpia(Une(c, r.de_etiquetas ? nullptr : "anpv")));
    }
  }

  if (r.de_etiquetas) {
    // The tag string keeps no subfields: the whole statement is the
    // publisher, and the year is looked for in it.
    if (declaracion != nullptr) {
      agrega(d.editoriales, Limpia(Une(*declaracion)));
      LeeDeclaracion(Une(*declaracion), d.lugar, d.editorial);
    }
    if (f008.size() >= 11 && SonDigitos(f008.substr(7, 4))) {
      d.fecha = std::string(f008.substr(7, 4));
    } else if (declaracion != nullptr) {
      d.fecha = Anio(Une(*declaracion), true);
    }
  } else {
    for (const Campo& c : r.campos) {
      const int n = NumeroEtiqueta(c.etiqueta);
      if (n != 260 && !(n == 264 && c.ind2 == '1')) continue;
      for (const Subcampo& s : c.subcampos) {
        if (s.codigo == 'a' && d.lugar.empty()) d.lugar = Limpia(s.valor);
        if (s.codigo == 'b') {
          agrega(d.editoriales, Limpia(s.valor));
          if (d.editorial.empty()) d.editorial = Limpia(s.valor);
        }
        if (s.codigo == 'c' && d.fecha.empty()) d.fecha = Limpia(s.valor, true);
      }
    }
    if (d.fecha.empty() && f008.size() >= 11 && SonDigitos(f008.substr(7, 4))) {
      d.fecha = std::string(f008.substr(7, 4));
    }
  }
  d.anio = Anio(d.fecha, false);

  if (r.de_etiquetas) {
    if (ficha.TipoMaterial == 1) d.tipo_dc = "Text";
  } else if (r.lider.size() > 7) {
    d.tipo_dc = TipoDeLider(r.lider[6]);
    d.tipo = r.lider[6];
    d.nivel = r.lider[7];
  } else if (r.lider.size() > 6) {
    d.tipo_dc = TipoDeLider(r.lider[6]);
    d.tipo = r.lider[6];
  }

  for (const Campo& c : r.campos) {
    const int n = NumeroEtiqueta(c.etiqueta);
    for (const Subcampo& s : c.subcampos) {
      if ((n == 20 || n == 22) && s.codigo == 'a') {
        std::string numero = Limpia(s.valor);
        if (numero.empty()) continue;
        d.identificadores.push_back((n == 20 ? "ISBN " : "ISSN ") + numero);
        (n == 20 ? d.isbn : d.issn).push_back(std::move(numero));
      }
      if (n == 856 && s.codigo == (r.de_etiquetas ? 'a' : 'u')) {
        // The tag string holds "address;link text".
        const std::string_view valor = s.valor;
        std::string direccion(
            SinBlancos(r.de_etiquetas ? valor.substr(0, valor.find(';')) : valor));
        if (direccion.empty()) continue;
        d.identificadores.push_back(direccion);
        d.direcciones.push_back(std::move(direccion));
      }
    }
  }

  if (f008.size() >= 38 && std::all_of(f008.begin() + 35, f008.begin() + 38, EsLetra)) {
    d.idioma = std::string(f008.substr(35, 3));
  }
  return d;
}

}  // namespace orvex::marc
