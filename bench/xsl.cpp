// Times the record presentation's XSL work in one process, the way a results
// page does it: the built-in record sheet transforms 10 catalogue cards, one
// after the other, through the loadable XSL module as orvex uses it.
//
//   xsl MODULO [rondas]
//
// Prints, in this order: the cost of the first transformation (module
// loading, library start and a trivial sheet), the first card (the record
// sheet compiled), and the median per card over `rondas` rounds of 10 cards,
// with the median of the same cards through a sheet that does nothing as the
// baseline of parsing and calling.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "base/CodePage.h"
#include "base/PosixPlatform.h"
#include "config/Instalacion.h"
#include "transform/CargaModuloXSL.h"
#include "transform/TransformaXML.h"

namespace {

using Reloj = std::chrono::steady_clock;

double Microsegundos(Reloj::duration d) {
  return std::chrono::duration<double, std::micro>(d).count();
}

double Mediana(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v[v.size() / 2];
}

// A card of the size a real record gives: ten sections, notes, copies.
std::string Tarjeta(int n) {
  const std::string numero = std::to_string(1000 + n);
  std::string doc = "<?xml version='1.0'?>\r\n<FICHA Numero='" + numero + "'><SECCIONES>";
  doc += "<Sclas>863 G216c " + numero + "</Sclas>";
  doc += orvex::Latin1("<Sa>García Márquez, Gabriel, 1927-2014.</Sa>");
  doc += orvex::Latin1("<S1>Cien años de soledad / Gabriel García Márquez. -- Ed. conmemorativa "
                       "/ Real Academia Española. -- Madrid : Alfaguara, 2007. -- xcii, 759 p. : "
                       "il. ; 24 cm.</S1>");
  doc += orvex::Latin1("<S2>(Colección Biblioteca de autores hispánicos ; ") + numero + ")</S2>";
  doc += "<Sisbn>ISBN 978-84-204-7183-2</Sisbn>";
  for (int i = 0; i < 1 + n % 3; ++i) {
    doc += orvex::Latin1("<Snotas>Incluye bibliografía e índice; nota ") + std::to_string(i) +
           ".</Snotas>";
  }
  doc += orvex::Latin1("<Sr1>1. Novela colombiana -- Siglo XX. 2. Macondo (Lugar imaginario) -- "
                       "Novela.</Sr1><Sr2>I. Real Academia Española. II. t.</Sr2>");
  doc += "</SECCIONES><EXISTENCIAS>";
  for (int i = 0; i < 2 + n % 4; ++i) {
    doc += "<EJEMPLAR NoAdq='" + numero + "-" + std::to_string(i) +
           "' Biblio='Central' Vol='" + std::to_string(i + 1) +
           "' Ejemplar='1' Tomo='' Acceso='S' Fecha='05/mar/2008' />";
  }
  return doc + "</EXISTENCIAS></FICHA>";
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "uso: xsl MODULO [rondas]\n");
    return 2;
  }
  const int rondas = argc > 2 ? std::max(1, std::atoi(argv[2])) : 200;
  orvex::transform::MotorModuloXSL motor({argv[1]});
  orvex::StdOutput salida;
  orvex::transform::TransformadorXSL transformador(motor, salida);

  const std::string nada =
      "<xsl:stylesheet version='1.0' xmlns:xsl='http://www.w3.org/1999/XSL/Transform'>"
      "<xsl:template match='/'/></xsl:stylesheet>";
  const std::string& ficha = orvex::config::HojaFichaIntegrada();
  std::vector<std::string> tarjetas;
  for (int n = 0; n < 10; ++n) tarjetas.push_back(Tarjeta(n));

  auto t0 = Reloj::now();
  transformador.TransformaXML("<a/>", nada);
  const double carga = Microsegundos(Reloj::now() - t0);
  t0 = Reloj::now();
  const std::string primera = transformador.TransformaXML(tarjetas[0], ficha);
  const double primera_ficha = Microsegundos(Reloj::now() - t0);
  if (primera.find("Ficha No.") == std::string::npos) {
    std::fprintf(stderr, "xsl: la hoja de la ficha no dio la ficha\n");
    return 1;
  }

  std::vector<double> por_ficha, base;
  size_t bytes = 0;
  for (int r = 0; r < rondas; ++r) {
    for (const std::string& tarjeta : tarjetas) {
      t0 = Reloj::now();
      bytes += transformador.TransformaXML(tarjeta, ficha).size();
      por_ficha.push_back(Microsegundos(Reloj::now() - t0));
      t0 = Reloj::now();
      bytes += transformador.TransformaXML(tarjeta, nada).size();
      base.push_back(Microsegundos(Reloj::now() - t0));
    }
  }
  const double mediana = Mediana(por_ficha);
  const double mediana_base = Mediana(base);
  std::printf(
      "primera transformación (carga del módulo): %.0f us\n"
      "primera ficha (compila la hoja): %.0f us\n"
      "mediana por ficha: %.1f us; hoja vacía: %.1f us; ficha / vacía = %.2f "
      "(%d rondas de 10 fichas, %zu bytes)\n",
      carga, primera_ficha, mediana, mediana_base, mediana / mediana_base, rondas, bytes);
  return 0;
}
