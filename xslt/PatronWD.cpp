#include "xslt/PatronWD.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvex::xslt {
namespace {

// The alphabets that translate() folds for the case-insensitive operators:
// A-Z and the Latin-1 capitals À-Þ (without ×), and their small letters.
// Sheets reach the translator as UTF-8.
constexpr std::string_view kMayusculas =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZÀÁÂÃÄÅÆÇÈÉÊËÌÍÎÏÐÑÒÓÔÕÖØÙÚÛÜÝÞ";
constexpr std::string_view kMinusculas =
    "abcdefghijklmnopqrstuvwxyzàáâãäåæçèéêëìíîïðñòóôõöøùúûüýþ";

// Deeper nesting of parentheses, filters and $not$ is refused, so that no
// pattern can exhaust the stack.
constexpr int kAnidamientoMaximo = 200;

// Why a pattern has no translation, and the byte of the pattern where that
// was found. Thrown inside this file only; TraducePatron turns it into text.
struct Falla {
  enum class Tipo { Lectura, Traduccion, Plantilla };
  Tipo tipo;
  std::string razon;
  size_t pos;
};

[[noreturn]] void Lanza(Falla::Tipo tipo, std::string razon, size_t pos) {
  throw Falla{tipo, std::move(razon), pos};
}
[[noreturn]] void NoSeLee(std::string razon, size_t pos) {
  Lanza(Falla::Tipo::Lectura, std::move(razon), pos);
}
[[noreturn]] void NoSeTraduce(std::string razon, size_t pos) {
  Lanza(Falla::Tipo::Traduccion, std::move(razon), pos);
}
[[noreturn]] void NoEsPlantilla(std::string razon, size_t pos) {
  Lanza(Falla::Tipo::Plantilla, std::move(razon), pos);
}

// 1-based position of character `byte` counted in UTF-8 characters.
size_t Posicion(std::string_view texto, size_t byte) {
  size_t n = 1;
  for (size_t i = 0; i < byte && i < texto.size(); ++i) {
    if ((static_cast<unsigned char>(texto[i]) & 0xC0) != 0x80) ++n;
  }
  return n;
}

// ASCII and Latin-1 capitals to small letters, as the kMayusculas/kMinusculas
// pair of translate() does it.
std::string Minusculas(std::string_view texto) {
  std::string s(texto);
  for (size_t i = 0; i < s.size(); ++i) {
    const unsigned char c = static_cast<unsigned char>(s[i]);
    if (c >= 'A' && c <= 'Z') {
      s[i] = static_cast<char>(c + 32);
    } else if (c == 0xC3 && i + 1 < s.size()) {
      const unsigned char d = static_cast<unsigned char>(s[i + 1]);
      if (d >= 0x80 && d <= 0x9E && d != 0x97) s[i + 1] = static_cast<char>(d + 0x20);
      ++i;
    }
  }
  return s;
}

// ---------------------------------------------------------------------------
// Tokens

enum class Ficha {
  Fin, Literal, Numero, Nombre, NombreTodos /* prefix:* */, Palabra /* $word$ */,
  Barra, BarraDoble, Punto, PuntoPunto, Arroba, Asterisco, AbreParen, CierraParen,
  AbreCorchete, CierraCorchete, Coma, Union, Admiracion, Igual, Distinto, Menor,
  MenorIgual, Mayor, MayorIgual, Y, O,
};

struct Token {
  Ficha tipo = Ficha::Fin;
  std::string texto;  // literal without quotes, word in small letters without $
  size_t pos = 0;
  bool espacio_antes = false;
};

constexpr std::string_view kPalabras[] = {
    "and", "or",  "not", "eq",  "ne",  "lt",  "le",  "gt",  "ge",    "ieq",
    "ine", "ilt", "ile", "igt", "ige", "all", "any", "union", "intersect",
};

bool EsPalabra(std::string_view w) {
  return std::find(std::begin(kPalabras), std::end(kPalabras), w) != std::end(kPalabras);
}

bool EsDigito(unsigned char c) { return c >= '0' && c <= '9'; }
// Bytes of non-ASCII characters count as letters: XML names allow most of
// them, and the parser of the sheet has already refused the rest.
bool EsInicioNombre(unsigned char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c >= 0x80;
}
bool EsDeNombre(unsigned char c) {
  return EsInicioNombre(c) || EsDigito(c) || c == '-' || c == '.';
}

std::vector<Token> Divide(std::string_view p) {
  std::vector<Token> fichas;
  size_t i = 0;
  bool espacio = false;
  auto byte = [&](size_t k) -> unsigned char {
    return k < p.size() ? static_cast<unsigned char>(p[k]) : 0;
  };
  for (;;) {
    while (i < p.size() && (p[i] == ' ' || p[i] == '\t' || p[i] == '\r' || p[i] == '\n')) {
      ++i;
      espacio = true;
    }
    Token t;
    t.pos = i;
    t.espacio_antes = espacio;
    espacio = false;
    if (i >= p.size()) {
      fichas.push_back(std::move(t));
      return fichas;
    }
    const unsigned char c = byte(i);
    // A minus sign starts a number where an operand is due: after ( , [
    // and after the comparison operators (there is no subtraction).
    const Ficha anterior = fichas.empty() ? Ficha::Fin : fichas.back().tipo;
    const bool negativo = c == '-' && (EsDigito(byte(i + 1)) ||
                                       (byte(i + 1) == '.' && EsDigito(byte(i + 2)))) &&
                          (anterior == Ficha::AbreParen || anterior == Ficha::Coma ||
                           anterior == Ficha::AbreCorchete || anterior == Ficha::Igual ||
                           anterior == Ficha::Distinto || anterior == Ficha::Menor ||
                           anterior == Ficha::MenorIgual || anterior == Ficha::Mayor ||
                           anterior == Ficha::MayorIgual || anterior == Ficha::Palabra);
    auto simbolo = [&](Ficha f, size_t n) {
      t.tipo = f;
      t.texto = std::string(p.substr(i, n));
      i += n;
    };
    if (c == '\'' || c == '"') {
      const size_t fin = p.find(static_cast<char>(c), i + 1);
      if (fin == std::string_view::npos) NoSeLee("falta la comilla que cierra el literal", i);
      t.tipo = Ficha::Literal;
      t.texto = std::string(p.substr(i + 1, fin - i - 1));
      i = fin + 1;
    } else if (EsDigito(c) || (c == '.' && EsDigito(byte(i + 1))) || negativo) {
      size_t j = i + (c == '-' ? 1 : 0);
      while (EsDigito(byte(j))) ++j;
      if (byte(j) == '.' && EsDigito(byte(j + 1))) {
        ++j;
        while (EsDigito(byte(j))) ++j;
      }
      simbolo(Ficha::Numero, j - i);
    } else if (EsInicioNombre(c)) {
      size_t j = i;
      while (EsDeNombre(byte(j))) ++j;
      Ficha tipo = Ficha::Nombre;
      if (byte(j) == ':' && EsInicioNombre(byte(j + 1))) {
        ++j;
        while (EsDeNombre(byte(j))) ++j;
      } else if (byte(j) == ':' && byte(j + 1) == '*') {
        j += 2;
        tipo = Ficha::NombreTodos;
      }
      simbolo(tipo, j - i);
    } else if (c == '$') {
      size_t j = i + 1;
      while (EsInicioNombre(byte(j)) && byte(j) < 0x80) ++j;
      const std::string palabra = Minusculas(p.substr(i + 1, j - i - 1));
      if (byte(j) != '$' || !EsPalabra(palabra)) {
        NoSeLee("operador desconocido \"" + std::string(p.substr(i, j - i + (byte(j) == '$'))) +
                    "\"",
                i);
      }
      t.tipo = Ficha::Palabra;
      t.texto = palabra;
      i = j + 1;
    } else {
      const unsigned char d = byte(i + 1);
      switch (c) {
        case '/': simbolo(d == '/' ? Ficha::BarraDoble : Ficha::Barra, d == '/' ? 2 : 1); break;
        case '.': simbolo(d == '.' ? Ficha::PuntoPunto : Ficha::Punto, d == '.' ? 2 : 1); break;
        case '|': simbolo(d == '|' ? Ficha::O : Ficha::Union, d == '|' ? 2 : 1); break;
        case '!': simbolo(d == '=' ? Ficha::Distinto : Ficha::Admiracion, d == '=' ? 2 : 1); break;
        case '<': simbolo(d == '=' ? Ficha::MenorIgual : Ficha::Menor, d == '=' ? 2 : 1); break;
        case '>': simbolo(d == '=' ? Ficha::MayorIgual : Ficha::Mayor, d == '=' ? 2 : 1); break;
        case '@': simbolo(Ficha::Arroba, 1); break;
        case '*': simbolo(Ficha::Asterisco, 1); break;
        case '(': simbolo(Ficha::AbreParen, 1); break;
        case ')': simbolo(Ficha::CierraParen, 1); break;
        case '[': simbolo(Ficha::AbreCorchete, 1); break;
        case ']': simbolo(Ficha::CierraCorchete, 1); break;
        case ',': simbolo(Ficha::Coma, 1); break;
        case '=': simbolo(Ficha::Igual, 1); break;
        case '&':
          if (d != '&') NoSeLee("\"&\" suelto (el operador es \"&&\")", i);
          simbolo(Ficha::Y, 2);
          break;
        default:
          NoSeLee("carácter no válido \"" + std::string(1, static_cast<char>(c)) + "\"", i);
      }
    }
    fichas.push_back(std::move(t));
  }
}

// ---------------------------------------------------------------------------
// Syntax tree

struct Expr;
using PExpr = std::unique_ptr<Expr>;

// "*" and "pre:*" are Nombre steps; "@*" an Atributo one.
enum class TipoPaso { Punto, PuntoPunto, Nombre, Atributo, Llamada, Grupo, Literal, Numero };

struct Paso {
  TipoPaso tipo = TipoPaso::Nombre;
  std::string texto;                // name, function name, literal or number
  std::vector<PExpr> argumentos;    // of a call; the expression of a group
  std::vector<PExpr> filtros;
  size_t pos = 0;
};

struct Metodo {
  std::string nombre;
  size_t pos = 0;
};

enum class Inicio { Relativa, Raiz, Descendientes };

struct Ruta {
  Inicio inicio = Inicio::Relativa;
  std::vector<Paso> pasos;      // empty for the path "/" alone
  std::vector<bool> doble;      // doble[i]: "//" before pasos[i] (i >= 1)
  std::vector<Metodo> metodos;  // X!m1()!m2()
};

enum class Clase { O, Y, No, Compara, Conjunto, Ruta };
enum class Cuantificador { Alguno, Todos };

struct Expr {
  Clase clase = Clase::Ruta;
  size_t pos = 0;
  std::vector<PExpr> hijos;
  std::vector<bool> interseccion;  // Conjunto: $intersect$ (not |) before hijos[i]
  std::vector<size_t> pos_operador;  // Conjunto: where the operator before hijos[i] is
  // Compara: the XPath symbol (=, !=, <, <=, >, >=), whether the operator
  // was a case-insensitive one, and $all$/$any$.
  std::string simbolo;
  bool insensible = false;
  Cuantificador cuantificador = Cuantificador::Alguno;
  Ruta ruta;
};

PExpr Nueva(Clase clase, size_t pos) {
  auto e = std::make_unique<Expr>();
  e->clase = clase;
  e->pos = pos;
  return e;
}

// The bare step of a one-step relative path without filters or methods
// (a literal, number, name or call standing alone), or nullptr.
const Paso* PasoSolo(const Expr& e) {
  if (e.clase != Clase::Ruta) return nullptr;
  const Ruta& r = e.ruta;
  if (r.inicio != Inicio::Relativa || r.pasos.size() != 1 || !r.metodos.empty()) return nullptr;
  if (!r.pasos[0].filtros.empty()) return nullptr;
  return &r.pasos[0];
}

const Paso* Solo(const Expr& e, TipoPaso tipo) {
  const Paso* p = PasoSolo(e);
  return p != nullptr && p->tipo == tipo ? p : nullptr;
}

// ---------------------------------------------------------------------------
// Parser: recursive descent over the grammar
//   Expr := And (OR And)*        And := Not (AND Not)*      Not := NOT Not | Cmp
//   Cmp  := [ANY|ALL] Set [CMPOP Set]
//   Set  := Path (('|' | UNION | INTERSECT) Path)*
//   Path := ['/' | '//'] Step (('/' | '//') Step)* ('!' Method)*  |  '/'
//   Step := ('.' | '..' | '*' | Name | '@' Name | '@*' | Call | '(' Expr ')'
//            | Literal | Number) ('[' Expr ']')*
// The operator words may be written bare after an operand when they are not
// glued to a following "(" or "/" (then they are a function or a step).

class Lector {
 public:
  explicit Lector(std::vector<Token> fichas) : t_(std::move(fichas)) {}

  PExpr Todo() {
    PExpr e = Expresion();
    if (Operador(nullptr, nullptr)) {
      NoSeLee("las comparaciones no se pueden encadenar", Actual().pos);
    }
    if (Actual().tipo != Ficha::Fin) {
      NoSeLee("se esperaba un operador o el final del patrón", Actual().pos);
    }
    return e;
  }

 private:
  class Nivel {
   public:
    Nivel(Lector& l, size_t pos) : l_(l) {
      if (++l_.nivel_ > kAnidamientoMaximo) {
        NoSeLee("anida más de " + std::to_string(kAnidamientoMaximo) + " niveles", pos);
      }
    }
    ~Nivel() { --l_.nivel_; }
    Nivel(const Nivel&) = delete;
    Nivel& operator=(const Nivel&) = delete;

   private:
    Lector& l_;
  };

  const Token& Actual() const { return t_[i_]; }
  const Token& Siguiente() const { return t_[std::min(i_ + 1, t_.size() - 1)]; }
  void Avanza() {
    if (i_ + 1 < t_.size()) ++i_;
  }
  void Espera(Ficha tipo, const char* que) {
    if (Actual().tipo != tipo) NoSeLee(std::string("se esperaba ") + que, Actual().pos);
    Avanza();
  }

  // The operator word the current token stands for in operator position.
  std::string PalabraOperador() const {
    const Token& t = Actual();
    if (t.tipo == Ficha::Palabra) return t.texto;
    if (t.tipo != Ficha::Nombre) return {};
    const std::string w = Minusculas(t.texto);
    if (!EsPalabra(w)) return {};
    const Token& s = Siguiente();
    if (!s.espacio_antes &&
        (s.tipo == Ficha::AbreParen || s.tipo == Ficha::Barra || s.tipo == Ficha::BarraDoble)) {
      return {};
    }
    return w;
  }

  // $not$, $all$, $any$ before an operand; bare, they need a blank and an
  // operand after them, or they are the name of a step ("not/x") or a
  // function ("not(x)").
  bool Prefijo(std::string_view palabra) const {
    const Token& t = Actual();
    if (t.tipo == Ficha::Palabra) return t.texto == palabra;
    if (t.tipo != Ficha::Nombre || Minusculas(t.texto) != palabra) return false;
    const Token& s = Siguiente();
    if (!s.espacio_antes) return false;
    switch (s.tipo) {
      case Ficha::Palabra:
        return s.texto == "not" || s.texto == "all" || s.texto == "any";
      case Ficha::Literal: case Ficha::Numero: case Ficha::Nombre: case Ficha::NombreTodos:
      case Ficha::Arroba: case Ficha::Asterisco: case Ficha::Punto: case Ficha::PuntoPunto:
      case Ficha::Barra: case Ficha::BarraDoble: case Ficha::AbreParen:
        return true;
      default:
        return false;
    }
  }

  bool Operador(std::string* simbolo, bool* insensible) const {
    static constexpr std::pair<Ficha, std::string_view> kSimbolos[] = {
        {Ficha::Igual, "="},       {Ficha::Distinto, "!="}, {Ficha::Menor, "<"},
        {Ficha::MenorIgual, "<="}, {Ficha::Mayor, ">"},     {Ficha::MayorIgual, ">="},
    };
    static constexpr std::pair<std::string_view, std::string_view> kPalabrasComparacion[] = {
        {"eq", "="}, {"ne", "!="}, {"lt", "<"}, {"le", "<="}, {"gt", ">"}, {"ge", ">="},
    };
    std::string_view s;
    bool i = false;
    for (const auto& [f, sim] : kSimbolos) {
      if (Actual().tipo == f) s = sim;
    }
    const std::string palabra = s.empty() ? PalabraOperador() : std::string();
    if (s.empty()) {
      std::string_view w = palabra;
      if (w.size() == 3 && w[0] == 'i') {
        i = true;
        w.remove_prefix(1);
      }
      for (const auto& [pal, sim] : kPalabrasComparacion) {
        if (w == pal) s = sim;
      }
    }
    if (s.empty()) return false;
    if (simbolo != nullptr) *simbolo = std::string(s);
    if (insensible != nullptr) *insensible = i;
    return true;
  }

  PExpr Expresion() {
    Nivel nivel(*this, Actual().pos);
    const size_t pos = Actual().pos;
    PExpr e = Conjuncion();
    auto es_o = [&] { return Actual().tipo == Ficha::O || PalabraOperador() == "or"; };
    if (!es_o()) return e;
    PExpr o = Nueva(Clase::O, pos);
    o->hijos.push_back(std::move(e));
    while (es_o()) {
      Avanza();
      o->hijos.push_back(Conjuncion());
    }
    return o;
  }

  PExpr Conjuncion() {
    const size_t pos = Actual().pos;
    PExpr e = Negacion();
    auto es_y = [&] { return Actual().tipo == Ficha::Y || PalabraOperador() == "and"; };
    if (!es_y()) return e;
    PExpr y = Nueva(Clase::Y, pos);
    y->hijos.push_back(std::move(e));
    while (es_y()) {
      Avanza();
      y->hijos.push_back(Negacion());
    }
    return y;
  }

  PExpr Negacion() {
    if (!Prefijo("not")) return Comparacion();
    Nivel nivel(*this, Actual().pos);
    PExpr no = Nueva(Clase::No, Actual().pos);
    Avanza();
    no->hijos.push_back(Negacion());
    return no;
  }

  PExpr Comparacion() {
    const size_t pos = Actual().pos;
    Cuantificador q = Cuantificador::Alguno;
    if (Prefijo("all") || Prefijo("any")) {
      if (Prefijo("all")) q = Cuantificador::Todos;
      Avanza();
    }
    PExpr izquierdo = Conjunto();
    std::string simbolo;
    bool insensible = false;
    if (!Operador(&simbolo, &insensible)) return izquierdo;
    Avanza();
    PExpr c = Nueva(Clase::Compara, pos);
    c->simbolo = simbolo;
    c->insensible = insensible;
    c->cuantificador = q;
    c->hijos.push_back(std::move(izquierdo));
    c->hijos.push_back(Conjunto());
    return c;
  }

  PExpr Conjunto() {
    const size_t pos = Actual().pos;
    PExpr e = RutaExpr();
    auto operador = [&](bool* interseccion) {
      if (Actual().tipo == Ficha::Union) {
        *interseccion = false;
        return true;
      }
      const std::string w = PalabraOperador();
      *interseccion = w == "intersect";
      return w == "union" || w == "intersect";
    };
    bool interseccion = false;
    if (!operador(&interseccion)) return e;
    PExpr c = Nueva(Clase::Conjunto, pos);
    c->hijos.push_back(std::move(e));
    c->interseccion.push_back(false);
    c->pos_operador.push_back(pos);
    while (operador(&interseccion)) {
      c->interseccion.push_back(interseccion);
      c->pos_operador.push_back(Actual().pos);
      Avanza();
      c->hijos.push_back(RutaExpr());
    }
    return c;
  }

  static bool EmpiezaPaso(Ficha f) {
    switch (f) {
      case Ficha::Punto: case Ficha::PuntoPunto: case Ficha::Asterisco: case Ficha::Arroba:
      case Ficha::Nombre: case Ficha::NombreTodos: case Ficha::AbreParen: case Ficha::Literal:
      case Ficha::Numero:
        return true;
      default:
        return false;
    }
  }

  PExpr RutaExpr() {
    PExpr e = Nueva(Clase::Ruta, Actual().pos);
    Ruta& r = e->ruta;
    if (Actual().tipo == Ficha::Barra) {
      r.inicio = Inicio::Raiz;
      Avanza();
      if (!EmpiezaPaso(Actual().tipo)) return e;
    } else if (Actual().tipo == Ficha::BarraDoble) {
      r.inicio = Inicio::Descendientes;
      Avanza();
    }
    r.pasos.push_back(LeePaso());
    r.doble.push_back(false);
    while (Actual().tipo == Ficha::Barra || Actual().tipo == Ficha::BarraDoble) {
      r.doble.push_back(Actual().tipo == Ficha::BarraDoble);
      Avanza();
      r.pasos.push_back(LeePaso());
    }
    while (Actual().tipo == Ficha::Admiracion) {
      Avanza();
      Metodo m{Actual().texto, Actual().pos};
      Espera(Ficha::Nombre, "el nombre de un método después de \"!\"");
      Espera(Ficha::AbreParen, "\"(\" después del nombre del método");
      Espera(Ficha::CierraParen, "\")\": los métodos no llevan argumentos");
      r.metodos.push_back(std::move(m));
    }
    return e;
  }

  Paso LeePaso() {
    Paso p;
    p.pos = Actual().pos;
    const Token& t = Actual();
    switch (t.tipo) {
      case Ficha::Punto: p.tipo = TipoPaso::Punto; Avanza(); break;
      case Ficha::PuntoPunto: p.tipo = TipoPaso::PuntoPunto; Avanza(); break;
      case Ficha::Asterisco: p.tipo = TipoPaso::Nombre; p.texto = "*"; Avanza(); break;
      case Ficha::NombreTodos: p.tipo = TipoPaso::Nombre; p.texto = t.texto; Avanza(); break;
      case Ficha::Literal: p.tipo = TipoPaso::Literal; p.texto = t.texto; Avanza(); break;
      case Ficha::Numero: p.tipo = TipoPaso::Numero; p.texto = t.texto; Avanza(); break;
      case Ficha::Arroba:
        Avanza();
        p.tipo = TipoPaso::Atributo;
        if (Actual().tipo == Ficha::Nombre || Actual().tipo == Ficha::NombreTodos ||
            Actual().tipo == Ficha::Asterisco) {
          p.texto = Actual().texto;
          Avanza();
        } else {
          NoSeLee("se esperaba el nombre de un atributo después de \"@\"", Actual().pos);
        }
        break;
      case Ficha::Nombre:
        p.texto = t.texto;
        Avanza();
        if (Actual().tipo != Ficha::AbreParen) {
          p.tipo = TipoPaso::Nombre;
          break;
        }
        p.tipo = TipoPaso::Llamada;
        Avanza();
        if (Actual().tipo != Ficha::CierraParen) {
          p.argumentos.push_back(Expresion());
          while (Actual().tipo == Ficha::Coma) {
            Avanza();
            p.argumentos.push_back(Expresion());
          }
        }
        Espera(Ficha::CierraParen, "\",\" o \")\" en los argumentos");
        break;
      case Ficha::AbreParen:
        p.tipo = TipoPaso::Grupo;
        Avanza();
        p.argumentos.push_back(Expresion());
        Espera(Ficha::CierraParen, "\")\"");
        break;
      default:
        NoSeLee("se esperaba un nombre o una expresión", t.pos);
    }
    while (Actual().tipo == Ficha::AbreCorchete) {
      Avanza();
      p.filtros.push_back(Expresion());
      Espera(Ficha::CierraCorchete, "\"]\"");
    }
    return p;
  }

  std::vector<Token> t_;
  size_t i_ = 0;
  int nivel_ = 0;
};

// ---------------------------------------------------------------------------
// What the functions of a pattern give

enum class Valor { Nodos, Cadena, Numero, Fecha, Booleano };

struct Funcion {
  std::string_view nombre;
  Valor valor;
  bool propia;  // of the working-draft dialect (no notice when used)
};

constexpr Funcion kFunciones[] = {
    // The dialect's own.
    {"index", Valor::Numero, true}, {"end", Valor::Booleano, true},
    {"context", Valor::Nodos, true}, {"ancestor", Valor::Nodos, true},
    {"id", Valor::Nodos, true}, {"node", Valor::Nodos, true},
    {"comment", Valor::Nodos, true}, {"text", Valor::Nodos, true},
    {"textnode", Valor::Nodos, true}, {"cdata", Valor::Nodos, true},
    {"pi", Valor::Nodos, true}, {"element", Valor::Nodos, true},
    {"attribute", Valor::Nodos, true}, {"entityref", Valor::Nodos, true},
    {"nodeName", Valor::Cadena, true}, {"nodeType", Valor::Numero, true},
    {"nodeTypeString", Valor::Cadena, true}, {"value", Valor::Cadena, true},
    {"number", Valor::Numero, true}, {"date", Valor::Fecha, true},
    {"not", Valor::Booleano, true},
    // XPath 1.0 and XSLT 1.0: kept as they are, with a notice.
    {"last", Valor::Numero, false}, {"position", Valor::Numero, false},
    {"count", Valor::Numero, false}, {"local-name", Valor::Cadena, false},
    {"namespace-uri", Valor::Cadena, false}, {"name", Valor::Cadena, false},
    {"string", Valor::Cadena, false}, {"concat", Valor::Cadena, false},
    {"starts-with", Valor::Booleano, false}, {"contains", Valor::Booleano, false},
    {"substring-before", Valor::Cadena, false}, {"substring-after", Valor::Cadena, false},
    {"substring", Valor::Cadena, false}, {"string-length", Valor::Numero, false},
    {"normalize-space", Valor::Cadena, false}, {"translate", Valor::Cadena, false},
    {"boolean", Valor::Booleano, false}, {"true", Valor::Booleano, false},
    {"false", Valor::Booleano, false}, {"lang", Valor::Booleano, false},
    {"sum", Valor::Numero, false}, {"floor", Valor::Numero, false},
    {"ceiling", Valor::Numero, false}, {"round", Valor::Numero, false},
    {"current", Valor::Nodos, false}, {"key", Valor::Nodos, false},
    {"document", Valor::Nodos, false}, {"format-number", Valor::Cadena, false},
    {"generate-id", Valor::Cadena, false}, {"system-property", Valor::Cadena, false},
    {"element-available", Valor::Booleano, false},
    {"function-available", Valor::Booleano, false},
    {"unparsed-entity-uri", Valor::Cadena, false},
};

const Funcion* BuscaFuncion(std::string_view nombre) {
  for (const Funcion& f : kFunciones) {
    if (f.nombre == nombre) return &f;
  }
  return nullptr;
}

// Calls that name nodes from the node they are applied to: they may be any
// step of a path.
bool EsPruebaDeNodo(std::string_view n) {
  return n == "node" || n == "comment" || n == "text" || n == "textnode" || n == "cdata" ||
         n == "pi" || n == "element" || n == "attribute" || n == "ancestor";
}

// Calls that give nodes but only as the first step of a path.
bool AbreRuta(std::string_view n) {
  return n == "context" || n == "id" || n == "current" || n == "key" || n == "document" ||
         n.find(':') != std::string_view::npos;
}

Valor ValorDeMetodo(std::string_view m) {
  if (m == "nodeType" || m == "number") return Valor::Numero;
  if (m == "date") return Valor::Fecha;
  return Valor::Cadena;
}

Valor ValorDe(const Expr& e, bool con_metodos = true) {
  switch (e.clase) {
    case Clase::O: case Clase::Y: case Clase::No: case Clase::Compara:
      return Valor::Booleano;
    case Clase::Conjunto:
      return Valor::Nodos;
    case Clase::Ruta:
      break;
  }
  const Ruta& r = e.ruta;
  if (con_metodos && !r.metodos.empty()) return ValorDeMetodo(r.metodos.back().nombre);
  if (r.inicio != Inicio::Relativa || r.pasos.size() != 1 || !r.pasos[0].filtros.empty()) {
    return Valor::Nodos;
  }
  const Paso& p = r.pasos[0];
  switch (p.tipo) {
    case TipoPaso::Literal: return Valor::Cadena;
    case TipoPaso::Numero: return Valor::Numero;
    case TipoPaso::Grupo: return ValorDe(*p.argumentos[0]);
    case TipoPaso::Llamada: {
      const Funcion* f = BuscaFuncion(p.texto);
      return f == nullptr ? Valor::Nodos : f->valor;
    }
    default: return Valor::Nodos;
  }
}

bool EsNumerico(Valor v) { return v == Valor::Numero || v == Valor::Fecha; }

// Whether `e` gives the same value wherever it is evaluated: it may then be
// moved into a filter of another path.
bool Independiente(const Expr& e) {
  if (e.clase != Clase::Ruta) {
    return std::all_of(e.hijos.begin(), e.hijos.end(),
                       [](const PExpr& h) { return Independiente(*h); });
  }
  const Ruta& r = e.ruta;
  if (r.inicio != Inicio::Relativa || r.pasos.empty()) return true;
  const Paso& p = r.pasos[0];
  switch (p.tipo) {
    case TipoPaso::Literal: case TipoPaso::Numero:
      return true;
    case TipoPaso::Grupo:
      return Independiente(*p.argumentos[0]);
    case TipoPaso::Llamada:
      if (p.texto == "context" || p.texto == "current" || p.texto == "true" ||
          p.texto == "false") {
        return true;
      }
      // Without arguments the others read the context node.
      if (EsPruebaDeNodo(p.texto) || p.argumentos.empty()) return false;
      return std::all_of(p.argumentos.begin(), p.argumentos.end(),
                         [](const PExpr& a) { return Independiente(*a); });
    default:
      return false;
  }
}

// A filter that keeps one node of those it is given: [n] or [end()].
bool EsPosicional(const Expr& filtro) {
  if (Solo(filtro, TipoPaso::Numero) != nullptr) return true;
  const Paso* p = Solo(filtro, TipoPaso::Llamada);
  return p != nullptr && p->texto == "end";
}

// Whether a path can only give one node (each step goes to one node);
// `con_metodos` false looks at the path without its methods.
bool UnSoloNodo(const Expr& e, bool con_metodos = true) {
  if (e.clase == Clase::Conjunto) return false;
  if (e.clase != Clase::Ruta || (con_metodos && !e.ruta.metodos.empty())) return true;
  const Ruta& r = e.ruta;
  if (r.inicio == Inicio::Descendientes) return false;
  for (size_t i = 0; i < r.pasos.size(); ++i) {
    const Paso& p = r.pasos[i];
    if (i > 0 && r.doble[i]) return false;
    const bool posicional = !p.filtros.empty() && EsPosicional(*p.filtros.back());
    switch (p.tipo) {
      case TipoPaso::Punto: case TipoPaso::PuntoPunto: case TipoPaso::Literal:
      case TipoPaso::Numero:
        break;
      case TipoPaso::Atributo:
        if (p.texto == "*" && !posicional) return false;
        break;
      case TipoPaso::Llamada:
        if (p.texto != "context" && p.texto != "current" && p.texto != "ancestor" &&
            !posicional) {
          return false;
        }
        break;
      default:
        if (!posicional) return false;
    }
  }
  return true;
}

const Paso* BuscaLlamada(const Expr& e, std::string_view nombre);

const Paso* BuscaLlamadaEnPaso(const Paso& p, std::string_view nombre) {
  if (p.tipo == TipoPaso::Llamada && p.texto == nombre) return &p;
  for (const auto* lista : {&p.argumentos, &p.filtros}) {
    for (const PExpr& x : *lista) {
      if (const Paso* q = BuscaLlamada(*x, nombre)) return q;
    }
  }
  return nullptr;
}

const Paso* BuscaLlamada(const Expr& e, std::string_view nombre) {
  for (const PExpr& h : e.hijos) {
    if (const Paso* q = BuscaLlamada(*h, nombre)) return q;
  }
  for (const Paso& p : e.ruta.pasos) {
    if (const Paso* q = BuscaLlamadaEnPaso(p, nombre)) return q;
  }
  return nullptr;
}

// ---------------------------------------------------------------------------
// Match patterns: what XSLT 1.0 accepts as a template pattern.

void RevisaRutaPlantilla(const Expr& e) {
  if (e.clase != Clase::Ruta) {
    NoEsPlantilla("XSLT solo admite aquí rutas de nodos, solas o unidas con |", e.pos);
  }
  const Ruta& r = e.ruta;
  if (!r.metodos.empty()) {
    NoEsPlantilla("XSLT no admite métodos como !" + r.metodos[0].nombre + "() en un patrón",
                  r.metodos[0].pos);
  }
  for (size_t i = 0; i < r.pasos.size(); ++i) {
    const Paso& p = r.pasos[i];
    switch (p.tipo) {
      case TipoPaso::Punto:
        NoEsPlantilla("XSLT no admite un paso \".\" en un patrón", p.pos);
      case TipoPaso::PuntoPunto:
        NoEsPlantilla("XSLT no admite \"..\" en un patrón", p.pos);
      case TipoPaso::Grupo:
        NoEsPlantilla("XSLT no admite grupos entre paréntesis en un patrón", p.pos);
      case TipoPaso::Literal: case TipoPaso::Numero:
        NoEsPlantilla("un literal no es un patrón de nodos", p.pos);
      case TipoPaso::Llamada: {
        const bool prueba = EsPruebaDeNodo(p.texto) && p.texto != "ancestor";
        const bool inicio = i == 0 && r.inicio == Inicio::Relativa && p.texto == "id";
        if (!prueba && !inicio) {
          NoEsPlantilla("XSLT no admite " + p.texto + "() como paso de un patrón", p.pos);
        }
        break;
      }
      default:
        break;
    }
  }
}

void RevisaPlantilla(const Expr& e) {
  if (const Paso* c = BuscaLlamada(e, "context")) {
    NoEsPlantilla("XSLT no admite context() en un patrón", c->pos);
  }
  if (e.clase != Clase::Conjunto) {
    RevisaRutaPlantilla(e);
    return;
  }
  for (size_t i = 0; i < e.hijos.size(); ++i) {
    if (e.interseccion[i]) {
      NoEsPlantilla("XSLT no admite $intersect$ en un patrón", e.pos_operador[i]);
    }
    RevisaRutaPlantilla(*e.hijos[i]);
  }
}

// ---------------------------------------------------------------------------
// Emitter

class Traductor {
 public:
  Traductor(std::string_view patron, UsoPatron uso, int profundidad, PatronTraducido& r)
      : patron_(patron), uso_(uso), profundidad_(profundidad), r_(r) {}

  std::string Emite(const Expr& e) {
    switch (e.clase) {
      case Clase::O: {
        std::string s;
        for (const PExpr& h : e.hijos) {
          if (!s.empty()) s += " or ";
          s += h->clase == Clase::Y ? "(" + Emite(*h) + ")" : Emite(*h);
        }
        return s;
      }
      case Clase::Y: {
        std::string s;
        for (const PExpr& h : e.hijos) {
          if (!s.empty()) s += " and ";
          s += Emite(*h);
        }
        return s;
      }
      case Clase::No:
        return "not(" + Emite(*e.hijos[0]) + ")";
      case Clase::Compara:
        return EmiteComparacion(e);
      case Clase::Conjunto:
        return EmiteConjunto(e);
      case Clase::Ruta:
        return EmiteRuta(e.ruta);
    }
    return {};
  }

  void Revisa(const Expr& raiz) {
    if (uso_ == UsoPatron::Seleccion && ValorDe(raiz) != Valor::Nodos) {
      Aviso("no selecciona nodos, sino un valor");
    }
  }

 private:
  // Counts the filters the text being written lies in.
  class EnFiltro {
   public:
    explicit EnFiltro(Traductor& t) : t_(t) { ++t_.filtros_; }
    ~EnFiltro() { --t_.filtros_; }
    EnFiltro(const EnFiltro&) = delete;
    EnFiltro& operator=(const EnFiltro&) = delete;

   private:
    Traductor& t_;
  };

  void Aviso(const std::string& texto) {
    const std::string linea = "el patrón \"" + std::string(patron_) + "\" " + texto;
    if (std::find(r_.avisos.begin(), r_.avisos.end(), linea) == r_.avisos.end()) {
      r_.avisos.push_back(linea);
    }
  }

  std::string Wd(const char* funcion) {
    r_.usa_funciones_wd = true;
    return std::string("wd:") + funcion;
  }

  std::string EmiteRuta(const Ruta& r, bool desde_current = false) {
    std::string s = EmiteBase(r, nullptr, desde_current);
    for (const Metodo& m : r.metodos) s = AplicaMetodo(m, s);
    return s;
  }

  // The path without its methods, with `extra` as one more filter of its
  // last step. `desde_current` starts a relative path at current().
  std::string EmiteBase(const Ruta& r, const std::string* extra, bool desde_current = false) {
    if (r.pasos.empty()) return extra == nullptr ? "/" : "(/)[" + *extra + "]";
    std::string s;
    if (r.inicio == Inicio::Raiz) s = "/";
    if (r.inicio == Inicio::Descendientes) s = "//";
    if (r.inicio == Inicio::Relativa && desde_current) s = "current()/";
    for (size_t i = 0; i < r.pasos.size(); ++i) {
      if (i > 0) s += r.doble[i] ? "//" : "/";
      const bool primero = i == 0 && r.inicio == Inicio::Relativa && !desde_current;
      const bool solo = primero && r.pasos.size() == 1;
      s += EmitePaso(r.pasos[i], primero, solo, i + 1 == r.pasos.size() ? extra : nullptr);
    }
    return s;
  }

  std::string EmitePaso(const Paso& p, bool primero, bool solo, const std::string* extra) {
    std::string f;
    for (const PExpr& x : p.filtros) f += "[" + EmiteFiltro(*x) + "]";
    if (extra != nullptr) f += "[" + *extra + "]";
    switch (p.tipo) {
      case TipoPaso::Punto:
        return f.empty() ? "." : "self::node()" + f;
      case TipoPaso::PuntoPunto:
        return f.empty() ? ".." : "parent::node()" + f;
      case TipoPaso::Nombre:
        return p.texto + f;
      case TipoPaso::Atributo:
        return "@" + p.texto + f;
      case TipoPaso::Grupo:
        if (!primero) NoSeTraduce("un grupo entre paréntesis solo puede abrir una ruta", p.pos);
        return "(" + Emite(*p.argumentos[0]) + ")" + f;
      case TipoPaso::Literal:
      case TipoPaso::Numero:
        if (!solo || !f.empty()) {
          NoSeTraduce("un literal no lleva filtros ni forma parte de una ruta", p.pos);
        }
        return p.tipo == TipoPaso::Literal ? LiteralXPath(p.texto) : p.texto;
      case TipoPaso::Llamada:
        return EmiteLlamada(p, primero, solo, f);
    }
    return {};
  }

  // [n] counts from 0 in the dialect and from 1 in XPath.
  std::string EmiteFiltro(const Expr& x) {
    EnFiltro en(*this);
    const Paso* n = Solo(x, TipoPaso::Numero);
    if (n == nullptr) return Emite(x);
    const double v = std::strtod(n->texto.c_str(), nullptr);
    if (v < 0) NoSeTraduce("el índice [" + n->texto + "] es negativo", n->pos);
    if (v != std::floor(v) || !std::isfinite(v)) {
      NoSeTraduce("el índice [" + n->texto + "] no es un número entero", n->pos);
    }
    char buffer[400];
    std::snprintf(buffer, sizeof buffer, "%.0f", v + 1);
    return buffer;
  }

  void Aridad(const Paso& p, size_t minimo, size_t maximo) {
    const size_t n = p.argumentos.size();
    if (n >= minimo && n <= maximo) return;
    std::string cuantos = std::to_string(minimo);
    if (maximo != minimo) cuantos += " o " + std::to_string(maximo);
    NoSeTraduce(p.texto + "() lleva " + cuantos +
                    (maximo == 1 ? " argumento" : " argumentos") + ", no " + std::to_string(n),
                p.pos);
  }

  // The text of a literal argument, or a failure.
  const std::string& ArgumentoLiteral(const Paso& p) {
    const Paso* l = Solo(*p.argumentos[0], TipoPaso::Literal);
    if (l == nullptr) NoSeTraduce(p.texto + "() espera un literal entre comillas", p.pos);
    return l->texto;
  }

  std::string Argumentos(const Paso& p) {
    std::string s;
    for (const PExpr& a : p.argumentos) {
      if (!s.empty()) s += ", ";
      s += Emite(*a);
    }
    return s;
  }

  std::string EmiteLlamada(const Paso& p, bool primero, bool solo, const std::string& f) {
    const std::string& n = p.texto;
    const Funcion* funcion = BuscaFuncion(n);
    const bool prefijada = n.find(':') != std::string::npos;
    if (funcion == nullptr && !prefijada) NoSeTraduce("función desconocida " + n + "()", p.pos);
    if (AbreRuta(n) && !primero) NoSeTraduce(n + "() solo puede abrir una ruta", p.pos);
    const bool da_nodos = prefijada || funcion->valor == Valor::Nodos;
    if (!da_nodos && (!solo || !f.empty())) {
      NoSeTraduce(n + "() da un valor, no nodos: no lleva filtros ni sigue con \"/\"", p.pos);
    }
    if (prefijada || !funcion->propia) {
      Aviso("usa " + n + "(), que no es de los patrones XSL: se deja como en XPath");
      return n + "(" + Argumentos(p) + ")" + f;
    }
    if (n == "index") {
      Aridad(p, 0, 0);
      return "(position() - 1)";
    }
    if (n == "end") {
      Aridad(p, 0, 0);
      return "position() = last()";
    }
    if (n == "context") return EmiteContexto(p) + f;
    if (n == "ancestor") {
      Aridad(p, 1, 1);
      const Expr& a = *p.argumentos[0];
      const Paso* nombre = a.clase == Clase::Ruta && a.ruta.inicio == Inicio::Relativa &&
                                   a.ruta.pasos.size() == 1 && a.ruta.metodos.empty()
                               ? &a.ruta.pasos[0]
                               : nullptr;
      if (nombre == nullptr || nombre->tipo != TipoPaso::Nombre) {
        NoSeTraduce("ancestor() espera el nombre de un elemento", p.pos);
      }
      std::string filtros;
      for (const PExpr& x : nombre->filtros) filtros += "[" + EmiteFiltro(*x) + "]";
      return "ancestor::" + nombre->texto + filtros + "[1]" + f;
    }
    if (n == "id") {
      Aridad(p, 1, 1);
      return "id(" + Argumentos(p) + ")" + f;
    }
    if (n == "node" || n == "comment" || n == "text") {
      Aridad(p, 0, 0);
      return n + "()" + f;
    }
    if (n == "textnode" || n == "cdata") {
      Aridad(p, 0, 0);
      return "text()" + f;
    }
    if (n == "pi") {
      Aridad(p, 0, 1);
      if (p.argumentos.empty()) return "processing-instruction()" + f;
      return "processing-instruction(" + LiteralXPath(ArgumentoLiteral(p)) + ")" + f;
    }
    if (n == "element" || n == "attribute") {
      Aridad(p, 0, 1);
      std::string s = n == "element" ? "*" : "@*";
      if (!p.argumentos.empty()) s += "[name() = " + LiteralXPath(ArgumentoLiteral(p)) + "]";
      return s + f;
    }
    if (n == "entityref") {
      NoSeTraduce("entityref() no tiene equivalente en XPath 1.0", p.pos);
    }
    if (n == "nodeName" || n == "nodeType" || n == "nodeTypeString" || n == "value") {
      Aridad(p, 0, 0);
      return AplicaMetodo(Metodo{n, p.pos}, ".");
    }
    if (n == "number" || n == "date") {
      Aridad(p, 0, 1);
      return AplicaMetodo(Metodo{n, p.pos}, p.argumentos.empty() ? "." : Argumentos(p));
    }
    // not()
    Aridad(p, 1, 1);
    return "not(" + Argumentos(p) + ")";
  }

  // context() and context(-1) are the node the pattern is evaluated for;
  // context(-n) the one n - 1 levels of xsl:for-each further out, which the
  // sheet keeps in $wd-ctxK.
  std::string EmiteContexto(const Paso& p) {
    Aridad(p, 0, 1);
    long atras = 1;
    if (!p.argumentos.empty()) {
      const Paso* n = Solo(*p.argumentos[0], TipoPaso::Numero);
      const double v = n == nullptr ? 0 : std::strtod(n->texto.c_str(), nullptr);
      if (n == nullptr || v > -1 || v != std::floor(v)) {
        NoSeTraduce("context() espera un entero negativo: context(-1), context(-2)...", p.pos);
      }
      atras = v < -1e6 ? 1000000L : static_cast<long>(-v);
    }
    if (atras == 1) return "current()";
    const long k = static_cast<long>(profundidad_) - atras + 1;
    if (k < 1) {
      NoSeTraduce("context(-" + std::to_string(atras) +
                      ") sale de la plantilla: a la profundidad " +
                      std::to_string(profundidad_) + " no hay tantos contextos",
                  p.pos);
    }
    const int nivel = static_cast<int>(k);
    if (std::find(r_.contextos.begin(), r_.contextos.end(), nivel) == r_.contextos.end()) {
      r_.contextos.push_back(nivel);
    }
    return "$wd-ctx" + std::to_string(nivel);
  }

  // The information methods, applied to `x` ("." for the context node).
  std::string AplicaMetodo(const Metodo& m, const std::string& x) {
    const bool punto = x == ".";
    auto xpath = [&](const char* f) { return std::string(f) + "(" + (punto ? "" : x) + ")"; };
    if (m.nombre == "nodeName") return xpath("name");
    if (m.nombre == "value" || m.nombre == "text") return xpath("string");
    if (m.nombre == "number") return xpath("number");
    if (m.nombre == "date") return Wd("date") + "(" + x + ")";
    if (m.nombre == "nodeType") return Wd("nodeType") + "(" + x + ")";
    if (m.nombre == "nodeTypeString") return Wd("nodeTypeString") + "(" + x + ")";
    NoSeTraduce("método desconocido !" + m.nombre + "()", m.pos);
  }

  std::string EmiteConjunto(const Expr& e) {
    for (const PExpr& h : e.hijos) {
      if (ValorDe(*h) != Valor::Nodos) {
        NoSeTraduce("| y $intersect$ solo unen conjuntos de nodos", h->pos);
      }
    }
    std::string s = Emite(*e.hijos[0]);
    for (size_t i = 1; i < e.hijos.size(); ++i) {
      const Expr& b = *e.hijos[i];
      if (!e.interseccion[i]) {
        s += " | " + Emite(b);
        continue;
      }
      // The nodes of A that are also in B: adding one to B does not change
      // its count. B is read inside A's filter, so it must not depend on
      // the context node; at the top of a pattern current() is that node.
      std::string otro;
      if (Independiente(b)) {
        otro = Emite(b);
      } else if (filtros_ == 0 && b.clase == Clase::Ruta) {
        otro = EmiteRuta(b.ruta, true);
      } else {
        NoSeTraduce("$intersect$ dentro de un filtro necesita un lado derecho absoluto",
                    e.pos_operador[i]);
      }
      s = "(" + s + ")[count(. | " + otro + ") = count(" + otro + ")]";
    }
    return s;
  }

  // `e` with `condicion` as a filter on its nodes.
  std::string ConFiltro(const Expr& e, const std::string& condicion) {
    if (e.clase == Clase::Ruta) return EmiteBase(e.ruta, &condicion);
    return "(" + Emite(e) + ")[" + condicion + "]";
  }

  std::string EmiteComparacion(const Expr& e) {
    const Expr* izq = e.hijos[0].get();
    const Expr* der = e.hijos[1].get();
    std::string simbolo = e.simbolo;
    const bool insensible = e.insensible;
    const bool orden = simbolo != "=" && simbolo != "!=";
    Valor vi = ValorDe(*izq);
    Valor vd = ValorDe(*der);
    // The literal decides: with a number (or a date) ordering is numeric,
    // otherwise it compares strings, which XPath's < cannot do.
    const bool como_cadena = insensible || (orden && !EsNumerico(vi) && !EsNumerico(vd));
    auto nodos = [](const Expr& x) { return ValorDe(x, false) == Valor::Nodos; };
    // '3' $lt$ a: turned around, so that the comparison still holds for any
    // node of a.
    if (como_cadena && !nodos(*izq) && ValorDe(*der) == Valor::Nodos) {
      std::swap(izq, der);
      std::swap(vi, vd);
      if (orden) simbolo = simbolo[0] == '<' ? ">" + simbolo.substr(1) : "<" + simbolo.substr(1);
    }

    const Paso* literal = Solo(*der, TipoPaso::Literal);
    std::string derecho;
    if (literal != nullptr && insensible) {
      derecho = LiteralXPath(Minusculas(literal->texto));
    } else if (literal != nullptr && vi == Valor::Fecha) {
      derecho = Wd("date") + "(" + LiteralXPath(literal->texto) + ")";
    } else {
      derecho = Emite(*der);
      if (insensible) derecho = "translate(" + derecho + ", " + Alfabetos() + ")";
    }
    if (vd == Valor::Nodos && !UnSoloNodo(*der)) {
      Aviso("compara con un lado derecho que puede tener varios nodos: vale si cualquiera cumple, "
            "no solo el primero");
    }

    auto condicion = [&](const std::string& item) {
      if (insensible && !orden) {
        return "translate(" + item + ", " + Alfabetos() + ") " + simbolo + " " + derecho;
      }
      if (insensible) {
        return Wd("strcmp") + "(translate(" + item + ", " + Alfabetos() + "), " + derecho + ") " +
               simbolo + " 0";
      }
      if (como_cadena) return Wd("strcmp") + "(" + item + ", " + derecho + ") " + simbolo + " 0";
      return item + " " + simbolo + " " + derecho;
    };

    const bool todos = e.cuantificador == Cuantificador::Todos;
    const bool con_metodos = izq->clase == Clase::Ruta && !izq->ruta.metodos.empty();
    if (!nodos(*izq) || !(como_cadena || con_metodos || todos)) {
      std::string item = Emite(*izq);
      const Paso* fin = Solo(*izq, TipoPaso::Llamada);
      if (fin != nullptr && fin->texto == "end") item = "(" + item + ")";
      const Paso* fecha = Solo(*izq, TipoPaso::Literal);
      if (fecha != nullptr && vd == Valor::Fecha) {
        item = Wd("date") + "(" + LiteralXPath(fecha->texto) + ")";
      }
      return condicion(item);
    }
    if (!Independiente(*der)) {
      // The right side cannot move into a filter on the left one.
      if (todos) Aviso("no puede aplicar $all$ con ese lado derecho: se evalúa como $any$");
      if ((como_cadena || con_metodos) && !UnSoloNodo(*izq, false)) {
        Aviso("compara solo el primer nodo del lado izquierdo");
      }
      return condicion(Emite(*izq));
    }
    std::string item = ".";
    if (con_metodos) {
      for (const Metodo& m : izq->ruta.metodos) item = AplicaMetodo(m, item);
    }
    if (todos) return "not(" + ConFiltro(*izq, "not(" + condicion(item) + ")") + ")";
    return ConFiltro(*izq, condicion(item));
  }

  static std::string Alfabetos() {
    return "'" + std::string(kMayusculas) + "', '" + std::string(kMinusculas) + "'";
  }

  std::string_view patron_;
  UsoPatron uso_;
  int profundidad_;
  PatronTraducido& r_;
  int filtros_ = 0;
};

std::string Mensaje(std::string_view patron, const Falla& f) {
  std::string m = "el patrón \"" + std::string(patron) + "\" ";
  switch (f.tipo) {
    case Falla::Tipo::Lectura: m += "no se puede leer: "; break;
    case Falla::Tipo::Traduccion: m += "no se puede traducir: "; break;
    case Falla::Tipo::Plantilla: m += "no sirve como patrón de plantilla: "; break;
  }
  return m + f.razon + " en la posición " + std::to_string(Posicion(patron, f.pos));
}

}  // namespace

std::string LiteralXPath(std::string_view texto) {
  if (texto.find('\'') == std::string_view::npos) return "'" + std::string(texto) + "'";
  if (texto.find('"') == std::string_view::npos) return "\"" + std::string(texto) + "\"";
  // Both quotes: the apostrophes go apart, in double quotes.
  std::string s = "concat(";
  bool primero = true;
  auto agrega = [&](const std::string& pieza) {
    if (!primero) s += ", ";
    s += pieza;
    primero = false;
  };
  size_t inicio = 0;
  for (;;) {
    const size_t comilla = texto.find('\'', inicio);
    const std::string_view trozo = texto.substr(inicio, comilla - inicio);
    if (!trozo.empty()) agrega("'" + std::string(trozo) + "'");
    if (comilla == std::string_view::npos) break;
    agrega("\"'\"");
    inicio = comilla + 1;
  }
  return s + ")";
}

PatronTraducido TraducePatron(std::string_view patron, UsoPatron uso, int profundidad) {
  PatronTraducido r;
  try {
    Lector lector(Divide(patron));
    const PExpr arbol = lector.Todo();
    if (uso == UsoPatron::Coincidencia) RevisaPlantilla(*arbol);
    Traductor traductor(patron, uso, profundidad, r);
    r.xpath = traductor.Emite(*arbol);
    traductor.Revisa(*arbol);
    r.ok = true;
  } catch (const Falla& f) {
    r = PatronTraducido{};
    r.error = Mensaje(patron, f);
  } catch (const std::exception& e) {
    r = PatronTraducido{};
    r.error = "el patrón \"" + std::string(patron) + "\" no se puede traducir: " + e.what();
  }
  return r;
}

}  // namespace orvex::xslt
