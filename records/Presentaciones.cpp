#include "records/Presentaciones.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/CodePage.h"
#include "base/Html.h"
#include "base/Runtime.h"

namespace orvex::records {
namespace {

constexpr std::string_view kSeparadorAreas = " -- ";
constexpr std::string_view kFinLinea = "\r\n";

struct Campo {
  std::string_view etiqueta;
  std::string_view contenido;
};

// The fields of the tag string in record order (see the header).
std::vector<Campo> Campos(std::string_view marc) {
  static constexpr char kDelimitadores[] = {kSeparadorCampo, kFinEtiquetas};
  const std::string_view delimitadores(kDelimitadores, 2);
  std::vector<Campo> campos;
  for (std::size_t p = marc.find_first_of(delimitadores);
       p != std::string_view::npos && marc[p] == kSeparadorCampo;) {
    const std::size_t siguiente = marc.find_first_of(delimitadores, p + 1);
    const std::size_t fin = siguiente == std::string_view::npos ? marc.size() : siguiente;
    if (fin >= p + 4) campos.push_back({marc.substr(p + 1, 3), marc.substr(p + 4, fin - p - 4)});
    p = siguiente;
  }
  return campos;
}

// The occurrences of one content: the pieces between "\" separators,
// trimmed, blank ones dropped.
std::vector<std::string> Ocurrencias(std::string_view contenido) {
  std::vector<std::string> ocurrencias;
  for (;;) {
    const std::size_t barra = contenido.find('\\');
    std::string pieza = TrimBlanks(contenido.substr(0, barra));
    if (!pieza.empty()) ocurrencias.push_back(std::move(pieza));
    if (barra == std::string_view::npos) break;
    contenido.remove_prefix(barra + 1);
  }
  return ocurrencias;
}

// The occurrences of every field of the listed tags: all those of the first
// tag (in record order), then those of the second, and so on.
std::vector<std::string> OcurrenciasDe(const std::vector<Campo>& campos,
                                       std::initializer_list<std::string_view> etiquetas) {
  std::vector<std::string> todas;
  for (std::string_view etiqueta : etiquetas) {
    for (const Campo& campo : campos) {
      if (campo.etiqueta != etiqueta) continue;
      for (std::string& o : Ocurrencias(campo.contenido)) todas.push_back(std::move(o));
    }
  }
  return todas;
}

// The first occurrence of the first listed tag that has one.
std::string Primera(const std::vector<Campo>& campos,
                    std::initializer_list<std::string_view> etiquetas) {
  for (std::string_view etiqueta : etiquetas) {
    std::vector<std::string> ocurrencias = OcurrenciasDe(campos, {etiqueta});
    if (!ocurrencias.empty()) return std::move(ocurrencias.front());
  }
  return {};
}

// The ISBD joining of areas: non-empty pieces joined by ". -- ", a piece that
// already ends with a full stop followed by " -- " alone. With `punto_final`
// a non-empty result ends with a full stop, added the same way.
std::string UneAreas(const std::vector<std::string>& piezas, bool punto_final) {
  std::string unido;
  for (const std::string& pieza : piezas) {
    if (pieza.empty()) continue;
    if (!unido.empty()) {
      if (unido.back() != '.') unido += '.';
      unido += kSeparadorAreas;
    }
    unido += pieza;
  }
  if (punto_final && !unido.empty() && unido.back() != '.') unido += '.';
  return unido;
}

// Letters and digits of Windows-1252: what a whole word may not touch.
bool EsLetra(char c) {
  const auto u = static_cast<unsigned char>(c);
  if ((u >= '0' && u <= '9') || (u >= 'A' && u <= 'Z') || (u >= 'a' && u <= 'z')) return true;
  switch (u) {
    case 0x8A: case 0x8C: case 0x8E: case 0x9A: case 0x9C: case 0x9E: case 0x9F:
    case 0xAA: case 0xB5: case 0xBA:
      return true;
    default:
      return u >= 0xC0 && u != 0xD7 && u != 0xF7;
  }
}

// The physical description with the spelled-out units abbreviated.
std::string AbreviaUnidades(std::string_view texto) {
  struct Abreviatura {
    std::string palabra;  // lower case; its first letter matches in either case
    std::string_view forma;
  };
  static const std::vector<Abreviatura> kAbreviaturas = {
      {Latin1("páginas"), "p."},        {"paginas", "p."},
      {"ilustraciones", "il."},         {Latin1("centímetros"), "cm."},
      {"centimetros", "cm."},
  };
  std::string salida;
  std::size_t i = 0;
  while (i < texto.size()) {
    const Abreviatura* hallada = nullptr;
    if (i == 0 || !EsLetra(texto[i - 1])) {
      for (const Abreviatura& a : kAbreviaturas) {
        const std::size_t n = a.palabra.size();
        if (texto.size() - i < n) continue;
        if ((texto[i] | 0x20) != a.palabra[0]) continue;
        if (texto.substr(i + 1, n - 1) != std::string_view(a.palabra).substr(1)) continue;
        if (i + n < texto.size() && EsLetra(texto[i + n])) continue;
        hallada = &a;
        break;
      }
    }
    if (hallada == nullptr) {
      salida += texto[i++];
      continue;
    }
    salida += hallada->forma;
    i += hallada->palabra.size();
    if (i < texto.size() && texto[i] == '.') ++i;
  }
  return salida;
}

std::string Romano(std::size_t n) {
  static constexpr std::pair<std::size_t, std::string_view> kValores[] = {
      {1000, "M"}, {900, "CM"}, {500, "D"}, {400, "CD"}, {100, "C"}, {90, "XC"}, {50, "L"},
      {40, "XL"},  {10, "X"},   {9, "IX"},  {5, "V"},    {4, "IV"},  {1, "I"}};
  std::string romano;
  for (const auto& [valor, cifras] : kValores) {
    for (; n >= valor; n -= valor) romano += cifras;
  }
  return romano;
}

std::string UneConBarras(const std::vector<std::string>& ocurrencias) {
  std::string unido;
  for (const std::string& o : ocurrencias) {
    if (!unido.empty()) unido += '\\';
    unido += o;
  }
  return unido;
}

// The Spanish label of a tag shown in the field table.
std::string Rotulo(std::string_view etiqueta) {
  static const std::vector<std::pair<std::string_view, std::string>> kRotulos = {
      {"020", "ISBN"},
      {"022", "ISSN"},
      {"041", "Idioma"},
      {"050", Latin1("Clasificación LC")},
      {"082", Latin1("Clasificación Dewey")},
      {"090", Latin1("Clasificación local")},
      {"100", "Autor personal"},
      {"110", "Autor corporativo"},
      {"111", "Congreso"},
      {"130", Latin1("Título uniforme")},
      {"240", Latin1("Título uniforme")},
      {"245", Latin1("Título")},
      {"246", Latin1("Variante del título")},
      {"250", Latin1("Edición")},
      {"260", Latin1("Publicación")},
      {"300", Latin1("Descripción física")},
      {"440", "Serie"},
      {"490", "Serie"},
      {"500", "Nota general"},
      {"501", Latin1("Nota de publicación conjunta")},
      {"502", "Nota de tesis"},
      {"503", Latin1("Nota de historia bibliográfica")},
      {"504", Latin1("Bibliografía")},
      {"505", "Contenido"},
      {"520", "Resumen"},
      {"600", "Tema"},
      {"610", "Tema"},
      {"611", "Tema"},
      {"630", "Tema"},
      {"650", "Tema"},
      {"651", "Tema"},
      {"700", "Autor secundario"},
      {"710", "Autor secundario"},
      {"711", "Autor secundario"},
      {"730", Latin1("Título relacionado")},
      {"740", Latin1("Título relacionado")},
      {"856", Latin1("Recurso electrónico")},
  };
  for (const auto& [clave, rotulo] : kRotulos) {
    if (clave == etiqueta) return rotulo;
  }
  return "Etiqueta " + std::string(etiqueta);
}

// Length of the character reference ("&amp;", "&#39;", "&#x27;") at the
// start of `texto`; 0 when it starts with none.
std::size_t LongitudReferencia(std::string_view texto) {
  if (texto.size() < 3 || texto[0] != '&') return 0;
  std::size_t i = 1;
  auto es_digito = [](char c) { return c >= '0' && c <= '9'; };
  auto es_hex = [&](char c) { return es_digito(c) || ((c | 0x20) >= 'a' && (c | 0x20) <= 'f'); };
  auto es_ascii = [&](char c) { return es_digito(c) || ((c | 0x20) >= 'a' && (c | 0x20) <= 'z'); };
  std::size_t desde;
  if (texto[i] == '#') {
    ++i;
    const bool hex = i < texto.size() && (texto[i] | 0x20) == 'x';
    if (hex) ++i;
    desde = i;
    while (i < texto.size() && (hex ? es_hex(texto[i]) : es_digito(texto[i]))) ++i;
  } else {
    desde = i;
    while (i < texto.size() && es_ascii(texto[i])) ++i;
  }
  if (i == desde || i >= texto.size() || texto[i] != ';') return 0;
  return i + 1;
}

// An address made safe for a double-quoted attribute; already escaped text
// passes unchanged.
std::string DireccionSegura(std::string_view direccion) {
  std::string salida;
  for (std::size_t i = 0; i < direccion.size(); ++i) {
    const char c = direccion[i];
    switch (c) {
      case '"': salida += "&quot;"; break;
      case '<': salida += "&lt;"; break;
      case '>': salida += "&gt;"; break;
      case '&':
        if (const std::size_t n = LongitudReferencia(direccion.substr(i)); n > 0) {
          salida.append(direccion.substr(i, n));
          i += n - 1;
        } else {
          salida += "&amp;";
        }
        break;
      default: salida += c;
    }
  }
  return salida;
}

// The named character references that give characters a scheme is made of
// or ended by (letters, "+", ".", ":", "/", "?", "#", blanks), with the ones
// an address usually holds. Names are case-sensitive.
constexpr std::pair<std::string_view, std::string_view> kReferenciasConNombre[] = {
    {"amp", "&"},    {"AMP", "&"},      {"lt", "<"},     {"LT", "<"},       {"gt", ">"},
    {"GT", ">"},     {"quot", "\""},    {"QUOT", "\""},  {"apos", "'"},     {"colon", ":"},
    {"Tab", "\t"},   {"NewLine", "\n"}, {"sol", "/"},    {"quest", "?"},    {"num", "#"},
    {"period", "."}, {"plus", "+"},     {"fjlig", "fj"}, {"semi", ";"},     {"equals", "="},
};

// Stands for a character outside ASCII, which no scheme holds.
constexpr char kNoAscii = '\x80';

// The character reference at the start of `texto` ("&#58;", "&#x3A",
// "&colon;") as a browser reads it in an attribute: its characters (one
// outside ASCII as kNoAscii) in `caracteres`, and its length; 0 when a
// browser would read a plain "&". Decimal and hexadecimal references need
// no ";"; an unknown name is no reference.
std::size_t LeeReferencia(std::string_view texto, std::string& caracteres) {
  if (texto.size() < 2 || texto[0] != '&') return 0;
  if (texto[1] == '#') {
    std::size_t i = 2;
    const bool hex = i < texto.size() && (texto[i] | 0x20) == 'x';
    if (hex) ++i;
    const std::size_t desde = i;
    std::uint32_t valor = 0;
    for (; i < texto.size(); ++i) {
      const char c = texto[i];
      int cifra = -1;
      if (c >= '0' && c <= '9') {
        cifra = c - '0';
      } else if (hex && (c | 0x20) >= 'a' && (c | 0x20) <= 'f') {
        cifra = (c | 0x20) - 'a' + 10;
      }
      if (cifra < 0) break;
      valor = std::min<std::uint32_t>(valor * (hex ? 16 : 10) + static_cast<std::uint32_t>(cifra),
                                      0x110000);
    }
    if (i == desde) return 0;
    if (i < texto.size() && texto[i] == ';') ++i;
    caracteres.assign(1, valor > 0 && valor < 0x80 ? static_cast<char>(valor) : kNoAscii);
    return i;
  }
  for (const auto& [nombre, valor] : kReferenciasConNombre) {
    if (texto.size() >= nombre.size() + 2 && texto.substr(1, nombre.size()) == nombre &&
        texto[nombre.size() + 1] == ';') {
      caracteres.assign(valor);
      return nombre.size() + 2;
    }
  }
  return 0;
}

// `texto` with its character references decoded once, as a browser decodes
// an attribute.
std::string DecodificaReferencias(std::string_view texto) {
  std::string leida;
  for (std::size_t i = 0; i < texto.size();) {
    std::string caracteres;
    const std::size_t n = LeeReferencia(texto.substr(i), caracteres);
    if (n == 0) {
      leida += texto[i++];
    } else {
      leida += caracteres;
      i += n;
    }
  }
  return leida;
}

// True when an address already decoded reaches an allowed scheme: blanks and
// control characters at its start skipped, tabs, line ends and any other
// control character left out, the scheme being whatever comes before a ":"
// that no "/", "?" or "#" precedes.
bool EsquemaPermitido(std::string_view leida) {
  std::string limpia;
  for (const char c : leida) {
    const auto u = static_cast<unsigned char>(c);
    if (u < 0x20 || u == 0x7F || (u == ' ' && limpia.empty())) continue;
    limpia += c;
  }
  const std::size_t fin = limpia.find_first_of(":/?#");
  if (fin == std::string::npos || limpia[fin] != ':') return true;
  std::string esquema = limpia.substr(0, fin);
  for (char& c : esquema) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c | 0x20);
  }
  return esquema == "http" || esquema == "https" || esquema == "mailto";
}

// How many times an address's references are decoded at most: text that
// still changes after that many readings is no address.
constexpr int kLecturasEnlace = 8;

}  // namespace

bool EnlaceSeguro(std::string_view direccion) {
  std::string texto(direccion);
  for (int lectura = 0; lectura < kLecturasEnlace; ++lectura) {
    std::string leida = DecodificaReferencias(texto);
    if (!EsquemaPermitido(leida)) return false;
    if (leida == texto) return true;
    texto = std::move(leida);
  }
  return false;
}

Tarjeta ArmaTarjeta(const RegFicha& ficha) {
  const std::vector<Campo> campos = Campos(ficha.EtiquetasMARC);
  Tarjeta t;
  t.Sclas = Primera(campos, {"050", "082", "090"});
  t.Sa = Primera(campos, {"100", "110", "111", "130"});
  t.S1 = UneAreas({Primera(campos, {"245"}), Primera(campos, {"250"}), Primera(campos, {"260"})},
                  true);

  std::vector<std::string> series = OcurrenciasDe(campos, {"440"});
  if (series.empty()) series = OcurrenciasDe(campos, {"490"});
  std::string serie;
  for (const std::string& s : series) {
    if (!serie.empty()) serie += ' ';
    serie += '(' + s + ')';
  }
  t.S2 = UneAreas({AbreviaUnidades(Primera(campos, {"300"})), serie}, false);

  std::vector<std::string> isbn = OcurrenciasDe(campos, {"020"});
  for (std::string& i : isbn) i.insert(0, "ISBN ");
  t.Sisbn = UneAreas(isbn, false);

  t.Snotas = OcurrenciasDe(campos, {"500", "501", "502", "503", "504", "505", "520"});
  t.Sr1 = ListaNumerada(
      UneConBarras(OcurrenciasDe(campos, {"600", "610", "611", "630", "650", "651"})),
      Numeracion::Arabiga);
  t.Sr2 = ListaNumerada(UneConBarras(OcurrenciasDe(campos, {"700", "710", "711", "730", "740"})),
                        Numeracion::Romana);
  return t;
}

std::string ListaNumerada(std::string_view contenido, Numeracion numeracion) {
  std::string lista;
  std::size_t numero = 0;
  for (std::string& pieza : Ocurrencias(contenido)) {
    while (!pieza.empty() && (pieza.back() == '.' || pieza.back() == ' ')) pieza.pop_back();
    if (pieza.empty()) continue;
    ++numero;
    if (!lista.empty()) lista += ' ';
    lista += numeracion == Numeracion::Romana ? Romano(numero) : std::to_string(numero);
    lista.append(". ").append(pieza).append(".");
  }
  return lista;
}

std::string FichaBreve(const RegFicha& ficha) {
  const std::vector<Campo> campos = Campos(ficha.EtiquetasMARC);
  std::string nombre = Primera(campos, {"100", "110", "111"});
  if (nombre.empty()) nombre = Primera(campos, {"700", "710", "711"});
  std::string titulo = Primera(campos, {"130", "240"});
  if (titulo.empty()) {
    titulo = Primera(campos, {"245"});
    titulo = TrimBlanks(std::string_view(titulo).substr(0, titulo.find(" /")));
  }
  std::string breve;
  if (!nombre.empty()) breve.append("<b>").append(EscapaComillaDoble(nombre)).append("</b>");
  if (!nombre.empty() && !titulo.empty()) breve += ' ';
  breve += EscapaComillaDoble(titulo);
  return breve;
}

std::string TablaCampos(const RegFicha& ficha) {
  std::string tabla = "<table class=\"campos\">";
  tabla += kFinLinea;
  for (const Campo& campo : Campos(ficha.EtiquetasMARC)) {
    if (campo.etiqueta.substr(0, 2) == "00") continue;
    const std::vector<std::string> ocurrencias = Ocurrencias(campo.contenido);
    if (ocurrencias.empty()) continue;
    tabla.append("<tr><td class=\"etiqueta\">").append(EscapaComillaDoble(Rotulo(campo.etiqueta)));
    tabla.append("</td><td class=\"contenido\">");
    for (std::size_t i = 0; i < ocurrencias.size(); ++i) {
      if (i > 0) tabla += "<br>";
      tabla += EnlacesMedios(EscapaComillaDoble(ocurrencias[i]));
    }
    tabla.append("</td></tr>").append(kFinLinea);
  }
  tabla.append("</table>").append(kFinLinea);
  return tabla;
}

std::string EnlacesMedios(std::string_view texto) {
  static constexpr std::string_view kMarcas[] = {"[IMG{", "[DOC{", "[URL{"};
  static constexpr std::string_view kCierre = "}]";
  std::string salida;
  for (;;) {
    // The leftmost marker still in the text.
    std::size_t inicio = std::string_view::npos;
    std::string_view marca;
    for (std::string_view m : kMarcas) {
      const std::size_t p = texto.find(m);
      if (p < inicio) {
        inicio = p;
        marca = m;
      }
    }
    const std::size_t cierre = inicio == std::string_view::npos
                                   ? std::string_view::npos
                                   : texto.find(kCierre, inicio + marca.size());
    // Without a closing "}]" no later marker can close either.
    if (cierre == std::string_view::npos) break;
    const std::size_t desde = inicio + marca.size();
    salida.append(texto.substr(0, desde));
    if (cierre == desde) {  // empty address: the marker stays as text
      texto.remove_prefix(desde);
      continue;
    }
    salida.resize(salida.size() - marca.size());
    const std::string direccion = DireccionSegura(texto.substr(desde, cierre - desde));
    if (!EnlaceSeguro(direccion)) {
      salida.append(direccion);
    } else if (marca == kMarcas[0]) {
      salida.append("<img src=\"").append(direccion).append("\">");
    } else if (marca == kMarcas[1]) {
      salida.append("<a href=\"").append(direccion).append("\" target=\"_blank\">Documento</a>");
    } else {
      salida.append("<a href=\"").append(direccion).append("\" target=\"_blank\">");
      salida.append(direccion).append("</a>");
    }
    texto.remove_prefix(cierre + kCierre.size());
  }
  salida.append(texto);
  return salida;
}

}  // namespace orvex::records
