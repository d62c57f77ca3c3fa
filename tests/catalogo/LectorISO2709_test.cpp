#include "catalogo/LectorISO2709.h"

#include <gtest/gtest.h>

#include <functional>

#include "catalogo/RegistroMARC.h"
#include "catalogo/TextoMARC.h"
#include "tests/support/MARCPrueba.h"

namespace orvex::catalogo {
namespace {

using prueba::RegistroISO;

const std::vector<prueba::CampoISO> kCampos = {
    {"001", "abc-17"},
    {"008", "020823s1987    sp                  spa d"},
    {"100", "1 $aGarcía Márquez, Gabriel,$d1927-2014."},
    {"245", "10$aCien años de soledad /$cGabriel García Márquez."},
};

std::string Bueno() { return RegistroISO(kCampos); }

// What one call of Siguiente gave.
struct Paso {
  Lectura lectura;
  std::size_t posicion;
  std::string identificador;
  std::string motivo;  // a part of the reason, for refusals
};

std::vector<Paso> LeeTodo(const std::string& datos) {
  LectorISO2709 lector(datos);
  std::vector<Paso> pasos;
  RegistroMARC r;
  for (int i = 0; i < 10; ++i) {
    const Lectura l = lector.Siguiente(r);
    if (l == Lectura::kFin) break;
    pasos.push_back({l, lector.Posicion(), lector.Identificador(), lector.Motivo()});
  }
  return pasos;
}

TEST(LectorISO2709, ReadsLeaderFieldsIndicatorsAndSubfields) {
  const std::string datos = Bueno();
  LectorISO2709 lector(datos);
  RegistroMARC r;
  ASSERT_EQ(lector.Siguiente(r), Lectura::kRegistro);
  EXPECT_EQ(r.lider, datos.substr(0, 24));
  ASSERT_EQ(r.campos.size(), 4u);
  EXPECT_EQ(r.Control("008"), "020823s1987    sp                  spa d");
  const Campo& t = r.campos[3];
  EXPECT_EQ(t.etiqueta + t.ind1 + t.ind2, "24510");
  ASSERT_EQ(t.subcampos.size(), 2u);
  EXPECT_EQ(t.subcampos[0].codigo, 'a');
  EXPECT_EQ(t.subcampos[0].valor, "Cien años de soledad /");
  EXPECT_EQ(t.Valor('c'), "Gabriel García Márquez.");
  EXPECT_EQ(lector.Siguiente(r), Lectura::kFin);
}

// Damages the good record's bytes.
using Dano = std::function<std::string(std::string)>;

struct Caso {
  const char* nombre;
  Dano dano;
  const char* motivo;          // empty: the record is read
  const char* identificador;   // the 001 the message names
};

std::string Reemplaza(std::string s, std::size_t pos, const std::string& por) {
  return s.replace(pos, por.size(), por);
}

// Position of `texto` inside the good record.
std::size_t En(const std::string& s, const std::string& texto) { return s.find(texto); }

const Caso kCasos[] = {
    {"bueno", [](std::string s) { return s; }, "", "abc-17"},
    {"longitud que no es número", [](std::string s) { return Reemplaza(s, 0, "0x2A1"); },
     "longitud del registro no válida en el líder", "abc-17"},
    {"longitud que no cuadra", [](std::string s) { return Reemplaza(s, 0, "00100"); },
     "el líder dice 100 bytes", "abc-17"},
    {"dirección base fuera del registro", [](std::string s) { return Reemplaza(s, 12, "99999"); },
     "dirección base", ""},
    {"directorio sin terminador",
     [](std::string s) {
       const std::size_t base = std::stoul(s.substr(12, 5));
       return Reemplaza(s, base - 1, "x");
     },
     "falta su terminador", "abc-17"},
    {"directorio que no es múltiplo de 12",
     [](std::string s) {
       // One byte more in the directory, the base address moved along.
       const std::size_t base = std::stoul(s.substr(12, 5));
       s.insert(base - 1, "0");
       char b[8];
       std::snprintf(b, sizeof b, "%05zu", base + 1);
       s = Reemplaza(s, 12, b);
       std::snprintf(b, sizeof b, "%05zu", s.size());
       return Reemplaza(s, 0, b);
     },
     "no es múltiplo de 12", "abc-17"},
    {"campo fuera del registro", [](std::string s) { return Reemplaza(s, 24 + 36 + 7, "90000"); },
     "el campo 245 cae fuera del registro", "abc-17"},
    {"campo sin terminador",
     [](std::string s) { return Reemplaza(s, En(s, "Márquez.") + 9, "x"); },
     "el campo 245 no termina", "abc-17"},
    {"UTF-8 no válido",
     [](std::string s) { return Reemplaza(s, En(s, "años"), "a\xF1o"); },
     "el campo 245 no es UTF-8 válido", "abc-17"},
    {"MARC-8 con diacríticos",
     [](std::string s) {
       s = Reemplaza(s, 9, " ");
       return Reemplaza(s, En(s, "años"), "a\xB4no");
     },
     "codificación MARC-8 no admitida", "abc-17"},
    {"MARC-8 con secuencia de escape",
     [](std::string s) {
       s = Reemplaza(s, 9, " ");
       return Reemplaza(s, En(s, "Cien"), "\x1B(B ");
     },
     "codificación MARC-8 no admitida", "abc-17"},
    {"posición 9 en blanco con texto UTF-8", [](std::string s) { return Reemplaza(s, 9, " "); },
     "", "abc-17"},
    {"codificación desconocida", [](std::string s) { return Reemplaza(s, 9, "b"); },
     "codificación de caracteres desconocida (posición 9 del líder: \"b\")", "abc-17"},
};

class Danado : public ::testing::TestWithParam<Caso> {};

TEST_P(Danado, IsRefusedWithItsReasonAndTheNextRecordIsRead) {
  const Caso& c = GetParam();
  const std::string datos = c.dano(Bueno()) + "\r\n" + Bueno();
  const std::vector<Paso> pasos = LeeTodo(datos);
  ASSERT_EQ(pasos.size(), 2u);
  const Paso& p = pasos[0];
  EXPECT_EQ(p.posicion, 1u);
  EXPECT_EQ(p.identificador, c.identificador);
  if (std::string(c.motivo).empty()) {
    EXPECT_EQ(p.lectura, Lectura::kRegistro) << p.motivo;
  } else {
    EXPECT_EQ(p.lectura, Lectura::kRechazado);
    EXPECT_NE(p.motivo.find(c.motivo), std::string::npos) << p.motivo;
  }
  EXPECT_EQ(pasos[1].lectura, Lectura::kRegistro) << pasos[1].motivo;
  EXPECT_EQ(pasos[1].posicion, 2u);
}

INSTANTIATE_TEST_SUITE_P(Registros, Danado, ::testing::ValuesIn(kCasos),
                         [](const ::testing::TestParamInfo<Caso>& i) {
                           return "Caso" + std::to_string(i.index);
                         });

TEST(LectorISO2709, TruncatedFileRefusesItsLastRecord) {
  const std::string bueno = Bueno();
  const std::vector<Paso> pasos = LeeTodo(bueno + bueno.substr(0, bueno.size() - 20));
  ASSERT_EQ(pasos.size(), 2u);
  EXPECT_EQ(pasos[0].lectura, Lectura::kRegistro);
  EXPECT_EQ(pasos[1].lectura, Lectura::kRechazado);
  EXPECT_EQ(pasos[1].posicion, 2u);
  EXPECT_EQ(pasos[1].identificador, "abc-17");
  EXPECT_NE(pasos[1].motivo.find("registro incompleto"), std::string::npos);
  EXPECT_EQ(LeeTodo("00012n").size(), 1u);
  EXPECT_TRUE(LeeTodo("\n\r\n  ").empty());
}

TEST(EsUtf8Valido, RejectsEveryMalformedSequence) {
  EXPECT_TRUE(EsUtf8Valido("año € 😀"));
  // Cut short, overlong (two forms), surrogate, above U+10FFFF, stray continuation.
  for (const char* malo :
       {"a\xE2\x82", "\xC0\x80", "\xE0\x80\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\x80"}) {
    EXPECT_FALSE(EsUtf8Valido(malo)) << malo;
  }
}

}  // namespace
}  // namespace orvex::catalogo
