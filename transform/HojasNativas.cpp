#include "transform/HojasNativas.h"

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

#include "base/Html.h"
#include "config/Instalacion.h"

namespace orvex::transform {
namespace {

// Well below the XML parser's own limits (nesting depth 256, names of 50000
// characters, texts of ten million), so that no document is vouched for that
// the parser would refuse for its size.
constexpr std::size_t kMaxDocumento = 1 << 20;
constexpr std::size_t kMaxNombre = 1000;
constexpr int kMaxProfundidad = 200;

// The C0 controls other than tab, line feed and carriage return are not XML
// characters. Every other Windows-1252 byte is one, the unassigned
// 0x81, 0x8D, 0x8F, 0x90 and 0x9D included (as the C1 controls of the same
// number), and comes back from the page writer as the same byte.
bool Prohibido(char c) {
  const auto b = static_cast<unsigned char>(c);
  return b < 0x20 && b != '\t' && b != '\n' && b != '\r';
}

bool EsBlanco(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

bool EsLetraDeNombre(char c, bool primera) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' ||
         (!primera && ((c >= '0' && c <= '9') || c == '-' || c == '.'));
}

// Reads a Windows-1252 document as the XML parser reads it: entities
// replaced, line ends as line feeds, attribute values normalized. Every
// reading step answers false at anything it does not accept.
class Lector {
 public:
  explicit Lector(std::string_view texto) : s_(texto) {}

  bool Fin() const { return i_ == s_.size(); }
  bool Mira(std::string_view literal) const { return s_.substr(i_).starts_with(literal); }
  bool Toma(std::string_view literal) {
    if (!Mira(literal)) return false;
    i_ += literal.size();
    return true;
  }
  // Skips blanks; true when there was at least one.
  bool Blancos() {
    const std::size_t inicio = i_;
    while (i_ < s_.size() && EsBlanco(s_[i_])) ++i_;
    return i_ > inicio;
  }

  // An ASCII name without a namespace prefix; empty when there is none.
  std::string_view Nombre() {
    const std::size_t inicio = i_;
    while (i_ < s_.size() && EsLetraDeNombre(s_[i_], i_ == inicio)) ++i_;
    if (i_ - inicio > kMaxNombre) return {};
    return s_.substr(inicio, i_ - inicio);
  }

  // The character data up to the next "<" or the end of the text, appended
  // to `texto`. A "]]>" in it is a fault.
  bool Texto(std::string& texto) {
    const std::size_t inicio = i_;
    while (i_ < s_.size() && s_[i_] != '<') {
      const char c = s_[i_];
      if (c == '&') {
        if (!Referencia(texto)) return false;
      } else if (Prohibido(c) ||
                 (c == '>' && i_ >= inicio + 2 && s_[i_ - 1] == ']' && s_[i_ - 2] == ']')) {
        return false;
      } else {
        texto += Avanza() ? '\n' : c;
      }
    }
    return true;
  }

  // A quoted attribute value into `valor`: tab, line feed and a line end
  // each become one blank.
  bool Valor(std::string& valor) {
    if (i_ == s_.size() || (s_[i_] != '\'' && s_[i_] != '"')) return false;
    const char comilla = s_[i_++];
    while (i_ < s_.size() && s_[i_] != comilla) {
      const char c = s_[i_];
      if (c == '&') {
        if (!Referencia(valor)) return false;
      } else if (c == '<' || Prohibido(c)) {
        return false;
      } else {
        Avanza();
        valor += EsBlanco(c) ? ' ' : c;
      }
    }
    return Toma(std::string_view(&comilla, 1));
  }

  // Up to and past `fin` (a comment's or CDATA section's end), over
  // characters only.
  bool Hasta(std::string_view fin) {
    const std::size_t p = s_.find(fin, i_);
    if (p == std::string_view::npos || std::any_of(s_.begin() + i_, s_.begin() + p, Prohibido)) {
      return false;
    }
    i_ = p + fin.size();
    return true;
  }

 private:
  // Past the character at the position; a carriage return takes the line
  // feed after it along. True when the character was a line end.
  bool Avanza() {
    const char c = s_[i_++];
    if (c == '\r' && i_ < s_.size() && s_[i_] == '\n') ++i_;
    return c == '\r' || c == '\n';
  }

  // One of the five predefined entities, at its "&".
  bool Referencia(std::string& texto) {
    static constexpr std::array<std::pair<std::string_view, char>, 5> kEntidades = {{
        {"&amp;", '&'}, {"&lt;", '<'}, {"&gt;", '>'}, {"&apos;", '\''}, {"&quot;", '"'}}};
    for (const auto& [entidad, caracter] : kEntidades) {
      if (Toma(entidad)) {
        texto += caracter;
        return true;
      }
    }
    return false;
  }

  std::string_view s_;
  std::size_t i_ = 0;
};

// --- the record sheet on card documents --------------------------------------

// What the record sheet shows of a card document.
struct Tarjeta {
  std::string numero;
  std::array<std::string, 7> secciones;  // Sclas, Sa, S1, S2, Sisbn, Sr1, Sr2
  std::vector<std::string> notas;
  std::vector<std::array<std::string, 5>> ejemplares;  // NoAdq, Biblio, Vol, Ejemplar, Tomo
};

// One section element; a text of blanks only is dropped, as the sheet strips
// whitespace-only text from the document.
bool Seccion(Lector& l, std::string_view nombre, std::string& texto) {
  if (!(l.Toma("<") && l.Toma(nombre) && l.Toma(">") && l.Texto(texto) && l.Toma("</") &&
        l.Toma(nombre) && l.Toma(">"))) {
    return false;
  }
  if (std::all_of(texto.begin(), texto.end(), EsBlanco)) texto.clear();
  return true;
}

std::optional<Tarjeta> LeeTarjeta(std::string_view xml) {
  static constexpr std::string_view kAntes[] = {"Sclas", "Sa", "S1", "S2", "Sisbn"};
  static constexpr std::string_view kCopia[] = {" NoAdq=", " Biblio=", " Vol=", " Ejemplar=",
                                                " Tomo="};
  Lector l(xml);
  Tarjeta t;
  if (xml.size() > kMaxDocumento || !l.Toma("<?xml version='1.0'?>\r\n<FICHA Numero=") ||
      !l.Valor(t.numero) || !l.Toma("><SECCIONES>")) {
    return std::nullopt;
  }
  for (std::size_t k = 0; k < std::size(kAntes); ++k) {
    if (!Seccion(l, kAntes[k], t.secciones[k])) return std::nullopt;
  }
  while (l.Mira("<Snotas>")) {
    if (!Seccion(l, "Snotas", t.notas.emplace_back())) return std::nullopt;
  }
  if (!Seccion(l, "Sr1", t.secciones[5]) || !Seccion(l, "Sr2", t.secciones[6]) ||
      !l.Toma("</SECCIONES><EXISTENCIAS>")) {
    return std::nullopt;
  }
  while (l.Toma("<EJEMPLAR")) {
    auto& ejemplar = t.ejemplares.emplace_back();
    for (std::size_t k = 0; k < std::size(kCopia); ++k) {
      if (!l.Toma(kCopia[k]) || !l.Valor(ejemplar[k])) return std::nullopt;
    }
    if (!l.Toma("/>")) return std::nullopt;
  }
  if (!l.Toma("</EXISTENCIAS></FICHA>") || !l.Fin()) return std::nullopt;
  return t;
}

// The record sheet's page. The style block keeps the sheet's line breaks;
// every other line break of the sheet lies between tags and is dropped.
std::string PaginaFicha(const Tarjeta& t) {
  static constexpr std::string_view kDiv = "<div class=\"margen2\">";
  std::string p =
      "<html><head><style type=\"text/css\">\n"
      ".margen1 { font-family: Arial; color: black; text-indent: -10pt; margin-left: 30pt; "
      "text-align: justify }\n"
      ".margen2 { font-family: Arial; color: #000055; text-indent: 20pt; margin-left: 20pt; "
      "text-align: justify }\n"
      "table.numadq { empty-cells: show; font-size: 9pt; font-family: Arial; text-align: center "
      "}\n"
      "</style></head><body><table width=\"100%\" bgcolor=\"#ccffcc\"><tr>"
      "<td>Ficha No. <font color=\"red\"><b>";
  AgregaEscapaTexto(p, t.numero);
  p += "</b></font></td><td align=\"right\">";
  AgregaEscapaTexto(p, t.secciones[0]);
  p += "</td></tr></table><div class=\"margen1\">";
  AgregaEscapaTexto(p, t.secciones[1]);
  p += "</div>";
  const auto div = [&p](std::string_view texto) {
    p += kDiv;
    AgregaEscapaTexto(p, texto);
    p += "</div>";
  };
  for (int k : {2, 3, 4}) div(t.secciones[k]);
  for (const std::string& nota : t.notas) div(nota);
  for (int k : {5, 6}) div(t.secciones[k]);
  p += "<table class=\"numadq\" align=\"right\" bgcolor=\"#eeeeff\" border=\"1\">"
       "<tr><th>No. Adquisici\xF3n</th><th>Biblioteca</th><th>Volumen</th><th>Ejemplar</th>"
       "<th>Tomo</th></tr>";
  for (const auto& ejemplar : t.ejemplares) {
    p += "<tr>";
    for (const std::string& valor : ejemplar) {
      p += "<td>";
      AgregaEscapaTexto(p, valor);
      p += "</td>";
    }
    p += "</tr>";
  }
  p += "</table></body></html>";
  return p;
}

// --- the notice sheets on any well-formed document ---------------------------

// The name inside a notice sheet, when `hoja` is one whose name holds no
// "<", "&" (such a sheet does not load) or control character.
std::optional<std::string_view> NombreDeAviso(std::string_view hoja) {
  static const std::string vacio = config::HojaAviso("");
  static const std::size_t corte = vacio.find(" </b>");
  const std::string_view prefijo = std::string_view(vacio).substr(0, corte);
  const std::string_view sufijo = std::string_view(vacio).substr(corte);
  if (hoja.size() < vacio.size() || !hoja.starts_with(prefijo) || !hoja.ends_with(sufijo)) {
    return std::nullopt;
  }
  const std::string_view nombre =
      hoja.substr(prefijo.size(), hoja.size() - prefijo.size() - sufijo.size());
  if (std::any_of(nombre.begin(), nombre.end(), [](char c) {
        return c == '<' || c == '&' || static_cast<unsigned char>(c) < 0x20;
      })) {
    return std::nullopt;
  }
  return nombre;
}

// Blanks and comments, before or after the root element.
// Comments and processing instructions (a style-sheet link among them)
// before or after the root element.
bool Varios(Lector& l) {
  for (;;) {
    l.Blancos();
    if (l.Toma("<!--")) {
      if (!l.Hasta("--") || !l.Toma(">")) return false;
    } else if (l.Toma("<?")) {
      const std::string_view destino = l.Nombre();
      if (destino.empty() || (destino.size() == 3 && (destino[0] | 0x20) == 'x' &&
                              (destino[1] | 0x20) == 'm' && (destino[2] | 0x20) == 'l')) {
        return false;
      }
      if (!l.Toma("?>") && !(l.Blancos() && l.Hasta("?>"))) return false;
    } else {
      return true;
    }
  }
}

bool Elemento(Lector& l, int profundidad) {
  std::string descarte;
  if (profundidad > kMaxProfundidad || !l.Toma("<")) return false;
  const std::string_view nombre = l.Nombre();
  if (nombre.empty()) return false;
  std::vector<std::string_view> atributos;
  for (;;) {
    const bool blanco = l.Blancos();
    if (l.Toma("/>")) return true;
    if (l.Toma(">")) break;
    const std::string_view atributo = l.Nombre();
    if (!blanco || atributo.empty() || atributo == "xmlns" ||
        std::find(atributos.begin(), atributos.end(), atributo) != atributos.end()) {
      return false;
    }
    atributos.push_back(atributo);
    l.Blancos();
    if (!l.Toma("=")) return false;
    l.Blancos();
    if (!l.Valor(descarte)) return false;
  }
  for (;;) {
    if (!l.Texto(descarte) || l.Fin()) return false;
    descarte.clear();
    if (l.Toma("</")) {
      const bool mismo = l.Nombre() == nombre;
      l.Blancos();
      return mismo && l.Toma(">");
    }
    if (l.Toma("<!--")) {
      if (!l.Hasta("--") || !l.Toma(">")) return false;
    } else if (l.Toma("<![CDATA[")) {
      if (!l.Hasta("]]>")) return false;
    } else if (!Elemento(l, profundidad + 1)) {
      return false;
    }
  }
}

// True only when the XML parser certainly loads `xml`.
bool BienFormado(std::string_view xml) {
  if (xml.size() > kMaxDocumento) return false;
  Lector l(xml);
  if (l.Mira("<?")) {
    std::string version, codificacion;
    if (!l.Toma("<?xml version=") || !l.Valor(version) || version != "1.0") return false;
    if (l.Toma(" encoding=") &&
        (!l.Valor(codificacion) || (codificacion != "ISO-8859-1" && codificacion != "UTF-8"))) {
      return false;
    }
    if (!l.Toma("?>")) return false;
  }
  return Varios(l) && Elemento(l, 1) && Varios(l) && l.Fin();
}

std::string PaginaAviso(std::string_view nombre) {
  std::string p =
      "<html><body><center><font face=\"arial\" size=\"5\"><font color=\"red\">"
      "<b> No se encontr\xF3 la referencia ";
  AgregaEscapaTexto(p, nombre);
  p += " </b></font></font></center></body></html>";
  return p;
}

}  // namespace

std::optional<std::string> TransformacionNativa(std::string_view xml, std::string_view xsl) {
  if (xsl == config::HojaFichaIntegrada()) {
    if (const auto tarjeta = LeeTarjeta(xml)) return PaginaFicha(*tarjeta);
    return std::nullopt;
  }
  if (const auto nombre = NombreDeAviso(xsl); nombre && BienFormado(xml)) {
    return PaginaAviso(*nombre);
  }
  return std::nullopt;
}

}  // namespace orvex::transform
