// The Jet 4 reader against the fixture catalogue's description, against
// Debian's mdb-export, and against damage.
#include "db/jet/Jet4.h"
#include "tests/support/Fakes.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

namespace orvex::db::jet {
namespace {

namespace fs = std::filesystem;

const fs::path kCatalogo = fs::path(ORVEX_FIXTURES) / "catalogo";

// A value as the description writes it: \N for null, dates as ISO text.
std::string ComoDescripcion(const Valor& v) {
  switch (v.tipo) {
    case Valor::Tipo::Nulo: return "\\N";
    case Valor::Tipo::Entero: return std::to_string(v.entero);
    case Valor::Tipo::Real: {
      std::ostringstream s;
      s << v.real;
      return s.str();
    }
    case Valor::Tipo::Fecha: return FechaISO(v.real);
    case Valor::Tipo::Texto:
    case Valor::Tipo::Binario: {
      std::string r;
      for (char c : v.bytes) {
        switch (c) {
          case '\\': r += "\\\\"; break;
          case '\t': r += "\\t"; break;
          case '\n': r += "\\n"; break;
          case '\r': r += "\\r"; break;
          default: r += c;
        }
      }
      return r;
    }
  }
  return "";
}

struct Descrita {
  std::string archivo, tabla;
  std::vector<std::string> columnas, indices, filas;
};

Descrita LeeDescripcion(const std::string& nombre) {
  std::ifstream in(kCatalogo / "descripcion" / nombre);
  Descrita d;
  for (std::string linea; std::getline(in, linea);) {
    if (linea.rfind("#table\t", 0) == 0) {
      const size_t t = linea.find('\t', 7);
      d.archivo = linea.substr(7, t - 7);
      d.tabla = linea.substr(t + 1);
    } else if (linea.rfind("#index\t", 0) == 0) {
      d.indices.push_back(linea.substr(7, linea.find('\t', 7) - 7));
    } else if (linea.rfind("#columns\t", 0) == 0) {
      std::istringstream s(linea.substr(9));
      for (std::string c; std::getline(s, c, '\t');) d.columnas.push_back(c.substr(0, c.find(':')));
    } else if (!linea.empty() && linea[0] != '#') {
      d.filas.push_back(linea);
    }
  }
  return d;
}

TEST(Jet4, EveryTableReadsAsItsDescription) {
  for (const char* nombre :
       {"KORVEL8.Fichas.tsv", "KORVEL8.Ejemplares.tsv", "KORVEL8.Configuracion.tsv",
        "KORVEL8.Fichas_Revistas.tsv", "KORVEL8.Analiticas.tsv", "INDIZADO.TABLA.tsv",
        "indizaPP.TABLA.tsv", "indizaPP.TABLAANA.tsv", "estadisticas.Consultas.tsv"}) {
    SCOPED_TRACE(nombre);
    const Descrita d = LeeDescripcion(nombre);
    const auto archivo = Archivo::Abre((kCatalogo / "jet" / d.archivo).string());
    const Tabla* tabla = archivo->BuscaTabla(d.tabla);
    ASSERT_NE(tabla, nullptr);
    std::vector<std::string> columnas, indices;
    for (const Columna& c : tabla->columnas) columnas.push_back(c.nombre);
    for (const Indice& i : tabla->indices) indices.push_back(i.nombre);
    EXPECT_EQ(columnas, d.columnas);
    EXPECT_EQ(indices, d.indices);
    EXPECT_EQ(tabla->filas, d.filas.size());
    std::vector<std::string> filas;
    Filas f(*archivo, *tabla);
    while (f.Siguiente()) {
      std::string fila;
      for (size_t i = 0; i < tabla->columnas.size(); ++i) fila += (i ? "\t" : "") + ComoDescripcion(f.Lee(i));
      filas.push_back(fila);
    }
    EXPECT_EQ(filas, d.filas);
  }
}

TEST(Jet4, FindsTablesIgnoringCaseAndListsOnlyUserTables) {
  const auto archivo = Archivo::Abre((kCatalogo / "jet" / "KORVEL8.MDB").string());
  EXPECT_EQ(archivo->NombresTablas(),
            (std::vector<std::string>{"Fichas", "Ejemplares", "Configuracion", "Fichas Revistas",
                                      "Analiticas"}));
  EXPECT_NE(archivo->BuscaTabla("fichas revistas"), nullptr);
  EXPECT_EQ(archivo->BuscaTabla("fichas revistas"), archivo->BuscaTabla("FICHAS REVISTAS"));
  EXPECT_EQ(archivo->BuscaTabla("MSysObjects"), nullptr);
  EXPECT_EQ(archivo->BuscaTabla("NoHay"), nullptr);
}

TEST(Jet4, DatesAsIsoText) {
  const struct {
    double dias;
    const char* iso;
  } casos[] = {
      {0, "1899-12-30 00:00:00"},      {1.5, "1899-12-31 12:00:00"},
      {-1.25, "1899-12-29 06:00:00"},  {36526, "2000-01-01 00:00:00"},
      {36586.5, "2000-03-01 12:00:00"}, {2958465.99999, "9999-12-31 23:59:59"},
      {0.999999999, "1899-12-31 00:00:00"}, {-657434, "0100-01-01 00:00:00"},
  };
  for (const auto& c : casos) EXPECT_EQ(FechaISO(c.dias), c.iso) << c.dias;
}

// mdb-export's CSV: fields separated by commas, texts between quotes with
// their quotes doubled, an empty field for null and for empty text.
std::vector<std::vector<std::string>> Csv(const std::string& texto) {
  std::vector<std::vector<std::string>> filas(1);
  std::string campo;
  bool entre = false;
  for (size_t i = 0; i < texto.size(); ++i) {
    const char c = texto[i];
    if (entre) {
      if (c == '"' && i + 1 < texto.size() && texto[i + 1] == '"') campo += '"', ++i;
      else if (c == '"') entre = false;
      else campo += c;
    } else if (c == '"') {
      entre = true;
    } else if (c == ',') {
      filas.back().push_back(campo), campo.clear();
    } else if (c == '\n') {
      filas.back().push_back(campo), campo.clear();
      filas.emplace_back();
    } else {
      campo += c;
    }
  }
  if (filas.back().empty()) filas.pop_back();
  return filas;
}

TEST(Jet4, AgreesWithMdbExport) {
  if (std::system("command -v mdb-export >/dev/null 2>&1") != 0) GTEST_SKIP() << "sin mdb-export";
  for (const auto& [archivo, nombre] : std::vector<std::pair<std::string, std::string>>{
           {"KORVEL8.MDB", "Ejemplares"}, {"KORVEL8.MDB", "Fichas"}, {"KORVEL8.MDB", "Analiticas"},
           {"KORVEL8.MDB", "Configuracion"}, {"KORVEL8.MDB", "Fichas Revistas"}, {"indizaPP.MDB", "TABLA"},
           {"indizaPP.MDB", "TABLAANA"}, {"INDIZADO.MDB", "TABLA"}, {"estadisticas.mdb", "Consultas"}}) {
    SCOPED_TRACE(nombre);
    const fs::path ruta = kCatalogo / "jet" / archivo;
    const std::string orden = "mdb-export -T '%Y-%m-%d %H:%M:%S' '" + ruta.string() + "' '" + nombre + "'";
    FILE* tubo = ::popen(orden.c_str(), "r");
    ASSERT_NE(tubo, nullptr);
    std::string salida;
    char b[65536];
    for (size_t n; (n = std::fread(b, 1, sizeof b, tubo)) > 0;) salida.append(b, n);
    ASSERT_EQ(::pclose(tubo), 0);
    const auto esperado = Csv(salida);
    const auto a = Archivo::Abre(ruta.string());
    const Tabla* tabla = a->BuscaTabla(nombre);
    ASSERT_NE(tabla, nullptr);
    std::vector<std::vector<std::string>> leido(1);
    for (const Columna& c : tabla->columnas) leido[0].push_back(c.nombre);
    Filas f(*a, *tabla);
    while (f.Siguiente()) {
      auto& fila = leido.emplace_back();
      for (size_t i = 0; i < tabla->columnas.size(); ++i) {
        const Valor v = f.Lee(i);
        fila.push_back(v.tipo == Valor::Tipo::Fecha   ? FechaISO(v.real)
                       : v.tipo == Valor::Tipo::Nulo  ? ""
                       : v.tipo == Valor::Tipo::Entero ? std::to_string(v.entero)
                                                       : v.bytes);
      }
    }
    EXPECT_EQ(leido, esperado);
  }
}

// Reads everything the file holds: the catalogue, each definition, each row
// and value. Damage must end in ErrorJet, never in a crash or a hang.
void LeeTodo(std::string bytes) {
  try {
    const auto a = Archivo::DesdeMemoria(std::move(bytes), "dañado.mdb");
    for (const std::string& nombre : a->NombresTablas()) {
      const Tabla* t = a->BuscaTabla(nombre);
      if (t == nullptr) continue;
      Filas f(*a, *t);
      while (f.Siguiente()) {
        for (size_t i = 0; i < t->columnas.size(); ++i) f.Lee(i);
      }
    }
  } catch (const ErrorJet& e) {
    EXPECT_NE(std::string(e.what()).find("mdb"), std::string::npos) << e.what();
  }
}

TEST(Jet4, DamageNeverCrashes) {
  const std::string original = testing::ReadFile(kCatalogo / "jet" / "KORVEL8.MDB");
  const size_t paginas = original.size() / kTamanoPagina;
  for (size_t largo : {size_t{0}, size_t{100}, size_t{4096 * 3}, size_t{4096 * 3 + 17}, original.size() / 2,
                       original.size() - 4096}) {
    LeeTodo(original.substr(0, largo));
  }
  for (size_t p = 0; p < paginas; ++p) {
    std::string ceros = original;
    std::fill(ceros.begin() + static_cast<long>(p * kTamanoPagina),
              ceros.begin() + static_cast<long>((p + 1) * kTamanoPagina), '\0');
    LeeTodo(ceros);
    std::string tipo = original;
    tipo[p * kTamanoPagina] = static_cast<char>(tipo[p * kTamanoPagina] ^ 0x03);
    LeeTodo(tipo);
  }
  // Pointers and counts changed at random in every page.
  std::mt19937 azar(1957);
  for (int vez = 0; vez < 300; ++vez) {
    std::string roto = original;
    for (int k = 0; k < 8; ++k) {
      const size_t p = azar() % paginas;
      const size_t o = p * kTamanoPagina + azar() % 96;
      roto[o] = static_cast<char>(azar());
    }
    LeeTodo(roto);
  }
}

TEST(Jet4, RefusesWhatIsNotAJet4File) {
  const std::string original = testing::ReadFile(kCatalogo / "jet" / "estadisticas.mdb");
  std::string jet3 = original;
  jet3[0x14] = 0;
  const struct {
    std::string bytes;
    const char* dice;
  } casos[] = {
      {std::string(4096 * 4, 'x'), "no es una base de datos Jet"},
      {jet3, "Jet 3"},
      {original.substr(0, 5000), "demasiado corto"},
  };
  for (const auto& c : casos) {
    try {
      Archivo::DesdeMemoria(c.bytes, "prueba.mdb");
      ADD_FAILURE() << c.dice;
    } catch (const ErrorJet& e) {
      EXPECT_NE(std::string(e.what()).find(c.dice), std::string::npos) << e.what();
      EXPECT_NE(std::string(e.what()).find("prueba.mdb"), std::string::npos) << e.what();
    }
  }
  EXPECT_THROW(Archivo::Abre("/no/existe.mdb"), ErrorJet);
}

}  // namespace
}  // namespace orvex::db::jet
