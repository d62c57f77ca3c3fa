#include "catalogo/Ejemplares.h"

#include <cstdio>

#include "catalogo/TextoMARC.h"

namespace orvex::catalogo {
namespace {

std::string Valor(const Campo& campo, char codigo, std::size_t ancho) {
  const std::string limpio = LimpiaContenido(ComponeAcentos(campo.Valor(codigo)));
  return std::string(CortaCaracteres(SinBlancos(limpio), ancho));
}

// The first non-empty value among `codigos`.
std::string Primero(const Campo& campo, const char* codigos, std::size_t ancho) {
  for (const char* c = codigos; *c != '\0'; ++c) {
    std::string v = Valor(campo, *c, ancho);
    if (!v.empty()) return v;
  }
  return std::string();
}

std::string SeisDigitos(std::int32_t ficha) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "%06d", static_cast<int>(ficha));
  return buf;
}

bool Bisiesto(int a) { return (a % 4 == 0 && a % 100 != 0) || a % 400 == 0; }

}  // namespace

std::string NumeroAdquisicion(const Campo& campo) {
  if (campo.etiqueta == "852") return Primero(campo, "pj", std::string::npos);
  if (campo.etiqueta == "949") return Primero(campo, "pi", std::string::npos);
  return std::string();
}

std::string FechaDeTexto(std::string_view texto) {
  texto = SinBlancos(texto);
  std::string digitos;
  if (texto.size() == 8) {
    digitos = texto;
  } else if (texto.size() == 10 && texto[4] == '-' && texto[7] == '-') {
    digitos = std::string(texto.substr(0, 4)) + std::string(texto.substr(5, 2)) +
              std::string(texto.substr(8, 2));
  } else {
    return std::string();
  }
  for (char c : digitos) {
    if (c < '0' || c > '9') return std::string();
  }
  const int a = std::stoi(digitos.substr(0, 4));
  const int m = std::stoi(digitos.substr(4, 2));
  const int d = std::stoi(digitos.substr(6, 2));
  static constexpr int kDias[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (a < 1000 || m < 1 || m > 12 || d < 1) return std::string();
  if (d > kDias[m - 1] + (m == 2 && Bisiesto(a) ? 1 : 0)) return std::string();
  return digitos.substr(0, 4) + "-" + digitos.substr(4, 2) + "-" + digitos.substr(6, 2) +
         " 00:00:00";
}

std::vector<Ejemplar> EjemplaresDeRegistro(const RegistroMARC& registro, std::int32_t ficha,
                                           const OpcionesEjemplares& opciones,
                                           std::vector<std::string>& avisos) {
  std::vector<Ejemplar> ejemplares;
  for (const Campo& campo : registro.campos) {
    const bool es852 = campo.etiqueta == "852";
    if (!es852 && campo.etiqueta != "949") continue;
    const std::string orden = std::to_string(ejemplares.size() + 1);
    Ejemplar e;
    const std::string numero = NumeroAdquisicion(campo);
    e.NumAdqui = std::string(CortaCaracteres(numero, 15));
    if (e.NumAdqui.size() < numero.size()) {
      avisos.push_back("número de adquisición \"" + numero + "\" cortado a 15 caracteres");
    }
    e.Biblioteca = Primero(campo, es852 ? "ba" : "a", 50);
    e.Ejemplar = Valor(campo, es852 ? 't' : 'c', 10);
    e.Volumen = Valor(campo, es852 ? '3' : 'v', 10);
    if (!es852) {
      e.Tomo = Valor(campo, 't', 10);
      e.FechaIngreso = FechaDeTexto(campo.Valor('d'));
    }
    if (e.NumAdqui.empty()) e.NumAdqui = SeisDigitos(ficha) + (orden == "1" ? "" : "-" + orden);
    if (e.Biblioteca.empty()) {
      e.Biblioteca = std::string(CortaCaracteres(opciones.biblioteca, 50));
    }
    if (e.Ejemplar.empty()) e.Ejemplar = orden;
    if (e.FechaIngreso.empty()) e.FechaIngreso = opciones.fecha_ingreso;
    e.Accesible = "S";
    ejemplares.push_back(std::move(e));
  }
  if (ejemplares.empty() && !opciones.biblioteca.empty()) {
    ejemplares.push_back({SeisDigitos(ficha), std::string(CortaCaracteres(opciones.biblioteca, 50)),
                          "1", "", "", "S", opciones.fecha_ingreso});
  }
  return ejemplares;
}

}  // namespace orvex::catalogo
