#include "catalogo/Ejemplares.h"

#include <gtest/gtest.h>

namespace orvex::catalogo {
namespace {

constexpr const char* kHoy = "2008-12-15 00:00:00";

Campo Tenencia(const std::string& etiqueta, std::vector<Subcampo> subcampos) {
  Campo c;
  c.etiqueta = etiqueta;
  c.subcampos = std::move(subcampos);
  return c;
}

std::vector<Ejemplar> De(std::vector<Campo> campos, const std::string& biblioteca,
                         std::vector<std::string>* avisos = nullptr) {
  RegistroMARC r;
  r.campos = std::move(campos);
  std::vector<std::string> propios;
  return EjemplaresDeRegistro(r, 17, {biblioteca, kHoy}, avisos != nullptr ? *avisos : propios);
}

void Espera(const Ejemplar& e, const std::vector<std::string>& valores) {
  EXPECT_EQ((std::vector<std::string>{e.NumAdqui, e.Biblioteca, e.Ejemplar, e.Volumen, e.Tomo,
                                      e.Accesible, e.FechaIngreso}),
            valores);
}

TEST(Ejemplares, HoldingsFieldsGiveOneCopyEachInRecordOrder) {
  const std::vector<Ejemplar> e = De(
      {
          Tenencia("852", {{'a', "Biblioteca Central"}, {'b', "Humanidades"}, {'h', "863 G216c"},
                           {'p', " 000123 "}, {'j', "no"}, {'t', "2"}, {'3', "v. 3"}}),
          Tenencia("245", {{'a', "Título"}}),
          Tenencia("949", {{'a', "Medicina"}, {'p', "L'0815"}, {'c', "4"}, {'v', "v. 1"},
                           {'t', "t. 2"}, {'d', "20020829"}}),
          Tenencia("852", {{'a', "Central, Sala de Consulta"}, {'j', "1998,0042"}}),
          Tenencia("949", {{'i', "c-0042"}, {'d', "2002-02-30"}}),
          Tenencia("949", {{'l', "sin número"}}),
      },
      "Ingeniería");
  ASSERT_EQ(e.size(), 5u);
  Espera(e[0], {"000123", "Humanidades", "2", "v. 3", "", "S", kHoy});
  Espera(e[1], {"L'0815", "Medicina", "4", "v. 1", "t. 2", "S", "2002-08-29 00:00:00"});
  Espera(e[2], {"1998,0042", "Central, Sala de Consulta", "3", "", "", "S", kHoy});
  Espera(e[3], {"c-0042", "Ingeniería", "4", "", "", "S", kHoy});
  Espera(e[4], {"000017-5", "Ingeniería", "5", "", "", "S", kHoy});
}

TEST(Ejemplares, RecordWithoutHoldingsGetsTheRunsLibraryOrNothing) {
  const std::vector<Ejemplar> e = De({Tenencia("245", {{'a', "T"}})}, "Central");
  ASSERT_EQ(e.size(), 1u);
  Espera(e[0], {"000017", "Central", "1", "", "", "S", kHoy});
  EXPECT_TRUE(De({Tenencia("245", {{'a', "T"}})}, "").empty());
  // Holdings without a library and no library for the run: the column stays empty.
  const std::vector<Ejemplar> sin = De({Tenencia("852", {{'p', "A1"}})}, "");
  ASSERT_EQ(sin.size(), 1u);
  Espera(sin[0], {"A1", "", "1", "", "", "S", kHoy});
}

TEST(Ejemplares, ValuesAreCutToTheColumnsAndACutNumberIsReported) {
  std::vector<std::string> avisos;
  const std::vector<Ejemplar> e =
      De({Tenencia("949", {{'p', "MX-0000000000012345"},
                           {'a', std::string(60, 'b')},
                           {'c', "ejemplar número once"},
                           {'v', "volumen ñññññ"}})},
         "", &avisos);
  ASSERT_EQ(e.size(), 1u);
  Espera(e[0], {"MX-000000000001", std::string(50, 'b'), "ejemplar n", "volumen ññ", "", "S",
                kHoy});
  ASSERT_EQ(avisos.size(), 1u);
  EXPECT_EQ(avisos[0], "número de adquisición \"MX-0000000000012345\" cortado a 15 caracteres");
}

TEST(FechaDeTexto, AcceptsTwoFormsOfValidDates) {
  struct {
    const char* texto;
    const char* fecha;
  } casos[] = {
      {"20020829", "2002-08-29 00:00:00"}, {" 2000-02-29 ", "2000-02-29 00:00:00"},
      {"19000229", ""}, {"2002-8-29", ""}, {"2002o829", ""},
  };
  for (const auto& c : casos) EXPECT_EQ(FechaDeTexto(c.texto), c.fecha) << c.texto;
}

}  // namespace
}  // namespace orvex::catalogo
