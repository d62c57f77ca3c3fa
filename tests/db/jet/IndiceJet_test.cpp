// The index B-tree walk and its keys, on the fixture's word index.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>

#include "db/jet/Jet4.h"

namespace orvex::db::jet {
namespace {

namespace fs = std::filesystem;

const fs::path kJet = fs::path(ORVEX_FIXTURES) / "catalogo" / "jet";

// Counts the pages asked of a file.
class Contador : public FuentePaginas {
 public:
  explicit Contador(const Archivo& a) : a_(a) {}
  std::uint32_t Paginas() const override { return a_.Paginas(); }
  const std::uint8_t* Pagina(std::uint32_t n) const override {
    ++pedidas;
    return a_.Pagina(n);
  }
  const std::string& Nombre() const override { return a_.Nombre(); }
  mutable int pedidas = 0;

 private:
  const Archivo& a_;
};

// The words of the description of INDIZADO.MDB's TABLA, with their rows.
std::map<std::string, int> Palabras() {
  std::ifstream in(fs::path(ORVEX_FIXTURES) / "catalogo" / "descripcion" / "INDIZADO.TABLA.tsv");
  std::map<std::string, int> r;
  for (std::string linea; std::getline(in, linea);) {
    if (!linea.empty() && linea[0] != '#') ++r[linea.substr(0, linea.find('\t'))];
  }
  return r;
}

TEST(IndiceJet, WalksEveryEntryInKeyOrder) {
  const auto a = Archivo::Abre((kJet / "INDIZADO.MDB").string());
  const Tabla& t = *a->BuscaTabla("TABLA");
  CursorIndice c(*a, t, t.indices.at(0));
  int entradas = 0;
  std::string anterior;
  for (bool hay = c.Primero(); hay; hay = c.Siguiente(), ++entradas) {
    EXPECT_LE(anterior, c.ClaveActual());
    anterior = std::string(c.ClaveActual());
  }
  EXPECT_EQ(entradas, 17038);
}

TEST(IndiceJet, EveryWordSeeksExactlyItsRows) {
  const auto a = Archivo::Abre((kJet / "INDIZADO.MDB").string());
  const Tabla& t = *a->BuscaTabla("TABLA");
  CursorIndice c(*a, t, t.indices.at(0));
  Filas filas(*a, t);
  int buscadas = 0;
  for (const auto& [palabra, cuantas] : Palabras()) {
    const auto clave = c.Clave({Valor::DeTexto(palabra)});
    if (!clave) continue;  // a character outside the key alphabet
    ++buscadas;
    int halladas = 0;
    for (bool hay = c.Busca(*clave); hay && c.ClaveActual().starts_with(*clave); hay = c.Siguiente()) {
      ASSERT_TRUE(filas.Ve(c.Fila()));
      EXPECT_EQ(filas.Lee(0).bytes, palabra);
      // The key gives back the word, the record and the position.
      EXPECT_EQ(c.ValorDeClave(0).value_or(Valor()).bytes, palabra);
      EXPECT_EQ(c.ValorDeClave(1).value_or(Valor()).entero, filas.Lee(2).entero);
      EXPECT_EQ(c.ValorDeClave(2).value_or(Valor()).entero, filas.Lee(3).entero);
      ++halladas;
    }
    EXPECT_EQ(halladas, cuantas) << palabra;
  }
  EXPECT_GT(buscadas, 2000);
}

TEST(IndiceJet, KeysOfNumbersAndOfSeveralColumnsSeekExactly) {
  const auto a = Archivo::Abre((kJet / "INDIZADO.MDB").string());
  const Tabla& t = *a->BuscaTabla("TABLA");
  CursorIndice c(*a, t, t.indices.at(0));
  Filas filas(*a, t);
  const auto clave = c.Clave({Valor::DeTexto("QUIJOTE"), Valor::DeEntero(3)});
  ASSERT_TRUE(clave);
  ASSERT_TRUE(c.Busca(*clave));
  ASSERT_TRUE(c.ClaveActual().starts_with(*clave));
  ASSERT_TRUE(filas.Ve(c.Fila()));
  EXPECT_EQ(filas.Lee(2).entero, 3);
  const auto exacta = c.Clave({Valor::DeTexto("quijote"), Valor::DeEntero(3), filas.Lee(3)});
  ASSERT_TRUE(exacta);
  ASSERT_TRUE(c.Busca(*exacta));
  EXPECT_EQ(c.ClaveActual(), *exacta);

  const auto k = Archivo::Abre((kJet / "KORVEL8.MDB").string());
  const Tabla& e = *k->BuscaTabla("Ejemplares");
  CursorIndice porFicha(*k, e, e.indices.at(1));
  Filas copias(*k, e);
  const auto quince = porFicha.Clave({Valor::DeEntero(15)});
  ASSERT_TRUE(quince);
  int n = 0;
  for (bool hay = porFicha.Busca(*quince); hay && porFicha.ClaveActual().starts_with(*quince);
       hay = porFicha.Siguiente(), ++n) {
    ASSERT_TRUE(copias.Ve(porFicha.Fila()));
    EXPECT_EQ(copias.Lee(7).entero, 15);
  }
  EXPECT_EQ(n, 2);
  // An apostrophe, a blank or a descending column has no key here.
  CursorIndice porNumero(*k, e, e.indices.at(0));
  EXPECT_FALSE(porNumero.Clave({Valor::DeTexto("L'0815")}));
  EXPECT_FALSE(porNumero.Clave({Valor::DeTexto("A B")}));
  EXPECT_TRUE(porNumero.Clave({Valor::DeTexto("000216")}));
}

TEST(IndiceJet, ARareWordReadsAHandfulOfPages) {
  const auto a = Archivo::Abre((kJet / "INDIZADO.MDB").string());
  const Tabla& t = *a->BuscaTabla("TABLA");
  Contador contador(*a);
  CursorIndice c(contador, t, t.indices.at(0));
  ASSERT_TRUE(c.Busca(*c.Clave({Valor::DeTexto("QUIJOTE")})));
  EXPECT_LE(contador.pedidas, 6);
}

TEST(IndiceJet, DamageEndsInAnError) {
  std::ifstream in(kJet / "INDIZADO.MDB", std::ios::binary);
  const std::string original((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  const auto sano = Archivo::DesdeMemoria(original, "INDIZADO.MDB");
  const std::uint32_t raiz = sano->BuscaTabla("TABLA")->indices.at(0).pagina_raiz;
  const auto escribe = [](std::string& b, std::size_t o, std::uint32_t v) {
    for (int i = 0; i < 4; ++i) b[o + i] = static_cast<char>(v >> (8 * i));
  };
  std::vector<std::string> danados;
  std::string raiz_cola = original;  // the root's tail is itself
  escribe(raiz_cola, raiz * kTamanoPagina + 20, raiz);
  danados.push_back(raiz_cola);
  std::string fuera = original;  // the tail beyond the file
  escribe(fuera, raiz * kTamanoPagina + 20, 0x00FFFFFF);
  danados.push_back(fuera);
  std::string mapa = original;  // an entry ending beyond the page
  mapa[raiz * kTamanoPagina + 24] = '\x7F';
  danados.push_back(mapa);
  for (std::string& b : danados) {
    const auto a = Archivo::DesdeMemoria(b, "INDIZADO.MDB");
    const Tabla& t = *a->BuscaTabla("TABLA");
    CursorIndice c(*a, t, t.indices.at(0));
    EXPECT_THROW(
        {
          c.Busca(*c.Clave({Valor::DeTexto("ZZZZ")}));
          for (int i = 0; i < 100000 && c.Siguiente(); ++i) {
          }
        },
        ErrorJet);
  }
}

}  // namespace
}  // namespace orvex::db::jet
