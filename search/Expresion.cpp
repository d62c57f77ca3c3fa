#include "search/Expresion.h"

#include <array>
#include <utility>

#include "base/CodePage.h"
#include "base/Runtime.h"
#include "base/RuntimeError.h"
#include "config/Plantillas.h"
#include "search/Indice.h"

namespace orvex::search {

const std::string CaracteresPalabra = Latin1(
    "ABCDEFGHIJKLMNÑOPQRSTUVWXYZabcdefghijklmnñopqrstuvwxyz1234567890"
    "áéíóúÁÉÍÓÚàèìòùÀÈÌÒÙäëïöüÄËÏÖÜÇç$");

namespace {

// The spelled operators and the blanks around the signs, in the order they
// are rewritten; a blank left between two words afterwards is the implicit AND.
constexpr std::array<std::pair<std::string_view, std::string_view>, 12> kOperadores = {{
    {" Y ", "*"},  {" AND ", "*"}, {" O ", "+"},  {" OR ", "+"},
    {" NO ", "-"}, {" NOT ", "-"}, {" *", "*"},   {"* ", "*"},
    {"+ ", "+"},   {" +", "+"},    {"- ", "-"},   {" -", "-"},
}};

bool EnConjunto(std::string_view conjunto, char c) {
  return conjunto.find(c) != std::string_view::npos;
}

// Single blanks, and every double quote standing apart from its neighbours.
std::string SeparaComillas(std::string_view texto) {
  std::string s(texto);
  config::ReemplazaTexto(s, "  ", " ");
  config::ReemplazaTexto(s, "\"", " \" ");
  return s;
}

// The term at `cuenta`; the table has 31 places and nothing is stored past it.
TerminoBusqueda& Termino(Estado& e, std::int16_t cuenta) {
  if (cuenta < 0 || cuenta >= kMaximoTerminos) Raise(kErrSubindice);
  return e.Terminos[static_cast<std::size_t>(cuenta)];
}

// Field selector 10 searches field 9 with a "C" in front, 11 searches field
// 5; the others are field codes already. Kept: in boxes 2 and 3 the "C" goes
// before the operator sign and so becomes a word of its own.
std::int16_t CampoDeSelector(std::int16_t selector, std::string& expresion) {
  if (selector == 11) return 5;
  if (selector == 10) {
    expresion.insert(0, "C");
    return 9;
  }
  return selector;
}

// Expression 2 or 3 of the advanced form: the box joined by its operator.
std::string ExpresionCaja(const std::string& caja, std::uint8_t booleano) {
  switch (booleano) {
    case 1:
      return "+" + TrimBlanks(caja);
    case 2:
      return "-" + TrimBlanks(caja);
    default:
      return "*" + caja;  // kept: the box goes in untrimmed here
  }
}

}  // namespace

std::string ReemplazaFueraComillas(std::string_view texto, std::string_view busca,
                                   std::string_view reemplazo) {
  const std::string buscado = UpperLatin1(busca);
  std::string resultado;
  resultado.reserve(texto.size());
  bool fuera = true;
  std::size_t i = 0;
  while (i < texto.size()) {
    if (texto[i] == '"') {
      fuera = !fuera;
      resultado += '"';
      ++i;
    } else if (fuera && !buscado.empty() &&
               UpperLatin1(texto.substr(i, buscado.size())) == buscado) {
      resultado += reemplazo;
      i += buscado.size();
    } else {
      resultado += texto[i];
      ++i;
    }
  }
  return resultado;
}

std::string SiguienteToken(Estado& e, std::string& texto, std::string_view conjunto) {
  if (texto.empty()) {
    e.FinExpresion = true;
    return std::string();
  }
  const char primero = texto.front();
  if (primero == '"') {
    // A phrase: everything up to the closing quote. A quote with nothing
    // after it is an empty phrase, not an unclosed one.
    std::string frase;
    std::size_t i = 1;
    while (i < texto.size()) {
      const char c = texto[i++];
      if (c == '"') break;
      frase += c;
      if (i == texto.size()) e.FinExpresion = true;
    }
    texto.erase(0, i);
    return "\"" + frase + "\"";
  }
  if (!EnConjunto(conjunto, primero)) {
    e.FinExpresion = true;
    return std::string();
  }
  std::size_t fin = 0;
  while (fin < texto.size() && texto[fin] != '"' && EnConjunto(conjunto, texto[fin])) ++fin;
  std::string token = texto.substr(0, fin);
  texto.erase(0, fin);
  return token;
}

std::int16_t AnalizaExpresion(Estado& e, Output& salida, const std::string& expresion,
                              std::int16_t campo, std::int16_t cuenta) {
  if (TrimBlanks(expresion).empty()) return cuenta;

  std::string s = SeparaComillas(expresion);
  for (const auto& [busca, reemplazo] : kOperadores) {
    s = ReemplazaFueraComillas(s, busca, reemplazo);
  }
  s = UpperLatin1(TrimBlanks(s));

  // The first term joins the count so far by OR when it is the first of the
  // search, by AND otherwise, unless the reader wrote an operator in front.
  {
    TerminoBusqueda& t = Termino(e, cuenta);
    std::string op;
    if (s.empty() || s.front() != '"') {
      op = SiguienteToken(e, s, CaracteresOperador);
      e.FinExpresion = false;  // a word with no operator in front raises it
    }
    if (op.empty()) op = cuenta == 0 ? "+" : "*";
    t.operador = std::move(op);
    t.palabra = TrimBlanks(SiguienteToken(e, s, CaracteresPalabra));
    t.campo = campo;
    ++cuenta;
  }

  // The rest: operator then word, as they come; a syntax error ends the
  // scan after the term it was met in.
  do {
    if (s.empty()) break;
    TerminoBusqueda& t = Termino(e, cuenta);
    t.operador = SiguienteToken(e, s, CaracteresOperador);
    t.palabra = TrimBlanks(SiguienteToken(e, s, CaracteresPalabra));
    t.campo = campo;
    ++cuenta;
  } while (!e.FinExpresion);

  if (e.FinExpresion) {
    e.ErrorSintaxis = true;
    config::MensajeH4(salida,
                      Latin1("Error de sintaxis en la expresión<br>Por favor verifique los "
                             "términos que introdujo como su expresión de búsqueda e intente "
                             "de nuevo"));
    return -1;
  }
  return cuenta;
}

std::string LimpiaClave(std::string_view texto) {
  if (texto.empty()) return std::string();
  std::string s = SeparaComillas(texto);
  s = ReemplazaFueraComillas(s, " ", "");
  s = ReemplazaFueraComillas(s, "-", "");
  s = ReemplazaFueraComillas(s, ".", "");
  return UpperLatin1(TrimBlanks(s));
}

void LeeCamposAvanzados(Estado& e, const std::function<std::string(std::string_view)>& campo) {
  e.txtEXPR1 = campo("txtEXPR1");
  e.txtEXPR2 = campo("txtEXPR2");
  e.txtEXPR3 = campo("txtEXPR3");
  e.opCAMPO1 = ToInt16(LeadingNumber(campo("opCAMPO1")));
  e.opCAMPO2 = ToInt16(LeadingNumber(campo("opCAMPO2")));
  e.opCAMPO3 = ToInt16(LeadingNumber(campo("opCAMPO3")));
  e.opBOOLEAN1 = ToByte(LeadingNumber(campo("opBOOLEAN1")));
  e.opBOOLEAN2 = ToByte(LeadingNumber(campo("opBOOLEAN2")));
}

std::string ArmaBusquedaAvanzada(const Entorno& en) {
  Estado& e = en.estado;
  // Apostrophes would end the word-table queries' quoted texts.
  for (std::string* caja : {&e.txtEXPR1, &e.txtEXPR2, &e.txtEXPR3}) {
    config::ReemplazaTexto(*caja, "'", " ");
  }

  // Kept: a third box without a second searches nothing.
  if (e.txtEXPR2.empty() && !e.txtEXPR3.empty()) return std::string();
  const int cajas = e.txtEXPR2.empty() ? 1 : (e.txtEXPR3.empty() ? 2 : 3);

  const std::array<const std::string*, 3> textos = {&e.txtEXPR1, &e.txtEXPR2, &e.txtEXPR3};
  const std::array<std::int16_t, 3> selectores = {e.opCAMPO1, e.opCAMPO2, e.opCAMPO3};
  std::array<std::string, 4> expr;
  std::array<std::int16_t, 3> campos = {0, 0, 0};
  expr[0] = e.txtEXPR1;
  if (cajas >= 2) expr[1] = ExpresionCaja(e.txtEXPR2, e.opBOOLEAN1);
  if (cajas >= 3) expr[2] = ExpresionCaja(e.txtEXPR3, e.opBOOLEAN2);

  std::string mostrada;
  for (int i = 0; i < cajas; ++i) {
    // Code-like fields are searched as one word, always joined by AND.
    if (selectores[i] == 4 || selectores[i] == 7) expr[i] = LimpiaClave(*textos[i]);
    campos[i] = CampoDeSelector(selectores[i], expr[i]);
    mostrada += expr[i];
  }

  BuscaPalabras(en, expr, campos, true);
  return mostrada;
}

}  // namespace orvex::search
