#include "marc/Citas.h"

#include <string_view>

#include "base/CodePage.h"
#include "marc/Campos.h"
#include "marc/Registros.h"

namespace orvex::marc {
namespace {

Descripcion DescripcionDe(const records::RegFicha& ficha, const std::optional<Origen>& origen) {
  return Describe(CamposDeFicha(ficha, origen), ficha);
}

// `texto` on one line: every control character (line breaks, tabs) a blank.
std::string UnaLinea(std::string_view texto) {
  std::string linea(SinBlancos(texto));
  for (char& c : linea) {
    if (static_cast<unsigned char>(c) < 0x20 || c == '\x7F') c = ' ';
  }
  return linea;
}

bool TerminaFrase(std::string_view s) {
  return !s.empty() && (s.back() == '.' || s.back() == '?' || s.back() == '!');
}

// `s` with a final full stop, unless it already ends a sentence.
std::string ConPunto(std::string s) {
  if (!s.empty() && !TerminaFrase(s)) s += '.';
  return s;
}

// --- RIS -------------------------------------------------------------------------

const char* TipoRis(const Descripcion& d) {
  if (d.de_etiquetas) return d.tipo_material == 1 ? "BOOK" : "GEN";
  switch (d.tipo) {
    case 'a':
      switch (d.nivel) {
        case 'a': return "CHAP";
        case 'b': return "JOUR";
        case 's': return "JFULL";
        default: return "BOOK";
      }
    case 't': return "MANSCPT";
    case 'c': case 'd': case 'j': return "MUSIC";
    case 'e': case 'f': return "MAP";
    case 'g': return "VIDEO";
    case 'i': return "SOUND";
    case 'k': return "ART";
    case 'm': return "COMP";
    default: return "GEN";
  }
}

// --- BibTeX ------------------------------------------------------------------------

const char* TipoBibTex(const Descripcion& d) {
  if (d.de_etiquetas) return d.tipo_material == 1 ? "book" : "misc";
  if (d.tipo != 'a' && d.tipo != 't') return "misc";
  switch (d.nivel) {
    case 'a': return "inbook";
    case 'b': return "article";
    case 's': return "misc";
    default: return d.tipo == 'a' ? "book" : "misc";
  }
}

// `texto` for a BibTeX field: its special characters escaped, on one line.
std::string EscapaBibTex(std::string_view texto) {
  std::string r;
  for (char c : UnaLinea(texto)) {
    switch (c) {
      case '{': r += "\\{"; break;
      case '}': r += "\\}"; break;
      case '%': r += "\\%"; break;
      case '&': r += "\\&"; break;
      case '$': r += "\\$"; break;
      case '#': r += "\\#"; break;
      case '_': r += "\\_"; break;
      case '\\': r += "\\textbackslash{}"; break;
      case '~': r += "\\textasciitilde{}"; break;
      case '^': r += "\\textasciicircum{}"; break;
      default: r += c;
    }
  }
  return r;
}

// An address for BibTeX's url field, read as it stands: the characters that
// would break the entry (blanks and controls, braces, backslash)
// percent-encoded.
std::string DireccionBibTex(std::string_view direccion) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string r;
  for (char c : direccion) {
    const auto b = static_cast<unsigned char>(c);
    if (b <= 0x20 || b == 0x7F || c == '{' || c == '}' || c == '\\') {
      r += '%';
      r += kHex[b >> 4];
      r += kHex[b & 0xF];
    } else {
      r += c;
    }
  }
  return r;
}

std::string Une(const std::vector<std::string>& textos, std::string_view separador) {
  std::string r;
  for (const std::string& t : textos) {
    if (!r.empty()) r += separador;
    r += t;
  }
  return r;
}

// --- the citation --------------------------------------------------------------------

// The length of the UTF-8 character that starts `s`.
std::size_t LargoCaracter(std::string_view s) {
  const auto c = static_cast<unsigned char>(s[0]);
  const std::size_t n = c >= 0xF0 ? 4 : c >= 0xE0 ? 3 : c >= 0xC0 ? 2 : 1;
  return n <= s.size() ? n : s.size();
}

// "García Márquez, Gabriel José" as "García Márquez, G. J."; "Jean-Paul"
// gives "J.-P."; a name without a comma stays as it is.
std::string ConIniciales(std::string_view nombre) {
  const std::size_t coma = nombre.find(", ");
  if (coma == std::string_view::npos) return std::string(nombre);
  std::string r(nombre.substr(0, coma + 1));
  std::string_view nombres = nombre.substr(coma + 2);
  while (!nombres.empty()) {
    const std::size_t fin = nombres.find(' ');
    std::string_view palabra = nombres.substr(0, fin);
    nombres.remove_prefix(fin == std::string_view::npos ? nombres.size() : fin + 1);
    if (palabra.empty()) continue;
    r += ' ';
    // Each part of a hyphenated name gives its initial.
    for (bool inicio = true; !palabra.empty(); inicio = false) {
      const std::size_t guion = palabra.find('-');
      const std::string_view parte = palabra.substr(0, guion);
      if (!inicio) r += '-';
      if (!parte.empty()) r.append(parte.substr(0, LargoCaracter(parte))).append(".");
      palabra.remove_prefix(guion == std::string_view::npos ? palabra.size() : guion + 1);
    }
  }
  return r;
}

// The authors as a citation gives them: up to 20, the last after "&"; more
// than 20 give the first 19, ". . ." and the last.
std::string Autores(const std::vector<Descripcion::Autor>& autores) {
  std::vector<std::string> nombres;
  for (const Descripcion::Autor& a : autores) {
    nombres.push_back(a.personal ? ConIniciales(a.nombre) : a.nombre);
  }
  if (nombres.size() == 1) return nombres[0];
  std::string r;
  if (nombres.size() > 20) {
    for (std::size_t i = 0; i < 19; ++i) r += nombres[i] + ", ";
    return r + ". . . " + nombres.back();
  }
  for (std::size_t i = 0; i + 1 < nombres.size(); ++i) r += nombres[i] + ", ";
  return r + "& " + nombres.back();
}

// "Título : subtítulo" as "Título: subtítulo".
std::string TituloDeCita(std::string titulo) {
  for (std::size_t p = titulo.find(" : "); p != std::string::npos; p = titulo.find(" : ", p)) {
    titulo.erase(p, 1);
  }
  return titulo;
}

}  // namespace

std::string Ris(const records::RegFicha& ficha, const std::optional<Origen>& origen) {
  const Descripcion d = DescripcionDe(ficha, origen);
  std::string r;
  const auto linea = [&r](const char* etiqueta, std::string_view valor) {
    const std::string texto = UnaLinea(valor);
    if (texto.empty()) return;
    r.append(etiqueta).append("  - ").append(texto).append("\r\n");
  };
  const auto cada = [&linea](const char* etiqueta, const std::vector<std::string>& valores) {
    for (const std::string& v : valores) linea(etiqueta, v);
  };
  linea("TY", TipoRis(d));
  for (const Descripcion::Autor& a : d.autores) linea("AU", a.nombre);
  linea("TI", d.titulo);
  linea("PY", d.anio);
  linea("ET", d.edicion);
  linea("CY", d.lugar);
  linea("PB", d.editorial);
  linea("SP", d.paginas);
  cada("T3", d.series);
  cada("SN", d.isbn);
  cada("SN", d.issn);
  cada("N1", d.notas);
  cada("KW", d.temas);
  linea("LA", d.idioma);
  cada("UR", d.direcciones);
  linea("ID", std::to_string(d.ficha));
  r += "ER  - \r\n";
  return r;
}

std::string BibTex(const records::RegFicha& ficha, const std::optional<Origen>& origen) {
  const Descripcion d = DescripcionDe(ficha, origen);
  std::string r = std::string("@") + TipoBibTex(d) + "{orvex" + std::to_string(d.ficha) + ",\n";
  // `valor` is already escaped.
  const auto campo = [&r](const char* nombre, const std::string& valor) {
    if (!valor.empty()) r.append("  ").append(nombre).append(" = {").append(valor).append("},\n");
  };
  const auto escapados = [](const std::vector<std::string>& textos, std::string_view separador) {
    std::vector<std::string> e;
    for (const std::string& t : textos) e.push_back(EscapaBibTex(t));
    return Une(e, separador);
  };
  std::vector<std::string> autores;
  for (const Descripcion::Autor& a : d.autores) {
    const std::string nombre = EscapaBibTex(a.nombre);
    autores.push_back(a.personal ? nombre : "{" + nombre + "}");
  }
  campo("author", Une(autores, " and "));
  campo("title", EscapaBibTex(d.titulo));
  campo("edition", EscapaBibTex(d.edicion));
  campo("address", EscapaBibTex(d.lugar));
  campo("publisher", EscapaBibTex(d.editorial));
  campo("year", EscapaBibTex(d.anio));
  campo("series", escapados(d.series, "; "));
  campo("pagetotal", d.paginas);
  campo("isbn", escapados(d.isbn, ", "));
  campo("issn", escapados(d.issn, ", "));
  campo("note", escapados(d.notas, " "));
  campo("keywords", escapados(d.temas, "; "));
  campo("language", EscapaBibTex(d.idioma));
  if (!d.direcciones.empty()) campo("url", DireccionBibTex(d.direcciones.front()));
  r += "}\n";
  return r;
}

std::string Cita(const records::RegFicha& ficha, const std::optional<Origen>& origen) {
  const Descripcion d = DescripcionDe(ficha, origen);
  std::string titulo = TituloDeCita(UnaLinea(d.titulo));
  if (!d.edicion.empty()) {
    // "Título (2a ed.)": the title's full stop goes after the edition.
    if (!titulo.empty() && titulo.back() == '.') titulo.pop_back();
    titulo += (titulo.empty() ? "(" : " (") + UnaLinea(d.edicion) + ")";
  }
  const std::string anio = "(" + (d.anio.empty() ? std::string("s. f.") : d.anio) + ").";
  std::vector<std::string> partes;
  if (!d.autores.empty()) {
    partes.push_back(ConPunto(UnaLinea(Autores(d.autores))));
    partes.push_back(anio);
    if (!titulo.empty()) partes.push_back(ConPunto(titulo));
  } else {
    if (!titulo.empty()) partes.push_back(ConPunto(titulo));
    partes.push_back(anio);
  }
  if (!d.editorial.empty()) partes.push_back(ConPunto(UnaLinea(d.editorial)));
  return Une(partes, " ");
}

std::string Exporta(Salida salida, const std::vector<FichaConOrigen>& fichas) {
  std::string r;
  if (salida == Salida::MarcXml) {
    r = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<collection xmlns=\"http://www.loc.gov/MARC21/slim\">\n";
  }
  for (std::size_t i = 0; i < fichas.size(); ++i) {
    const FichaConOrigen& f = fichas[i];
    switch (salida) {
      case Salida::Ris:
        if (i > 0) r += "\r\n";
        r += Ris(f.ficha, f.origen);
        break;
      case Salida::BibTex:
        if (i > 0) r += "\n";
        r += BibTex(f.ficha, f.origen);
        break;
      case Salida::MarcXml:
        r += Registro(f.ficha, f.origen, Formato::MarcXml);
        r += "\n";
        break;
      case Salida::Marc21:
        r += Registro(f.ficha, f.origen, Formato::Marc21);
        break;
      case Salida::Cita:
        r += CodePage::Windows1252().FromUtf8(Cita(f.ficha, f.origen));
        r += "\n";
        break;
    }
  }
  if (salida == Salida::MarcXml) r += "</collection>\n";
  return r;
}

}  // namespace orvex::marc
