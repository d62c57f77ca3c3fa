#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

// Small catalogues of one shape in three forms, and whole requests run
// through the entry procedure in this process against them: what the
// comparison of the word lists with the word table, and the request fuzzer,
// are built on.
namespace orvex::testing {

// `n` synthetic book records in ISO 2709 (UTF-8), the same bytes for the same
// `n` and `semilla`. Their titles, authors, subjects, publishers, notes,
// ISBNs and call numbers mix glue words, a Zipf-like tail, accented and
// upper-case spellings of one word (México, MEXICO, mexico), the words that
// never pivot a phrase (MEXICO, MEDICINA), prefixes of one another (ARTE,
// ARTES, COMPUT...), digits and apostrophes, and words repeated inside a
// field, so that phrases, truncations and field filters meet the cases where
// a lookup can go wrong; the glue word DE fills more than one chunk of the
// word lists.
std::string RegistrosSinteticos(int n, std::uint64_t semilla);

// The three forms of the catalogue, under one directory:
//   listas/  orvex-catalogo's files from the repository's sample records
//            (demo/registros) and RegistrosSinteticos(n, semilla), the book
//            word table with its word lists;
//   tabla/   the same files with the word lists voided, so that every book
//            lookup reads the word table;
//   jet/     the Jet test catalogue (tests/fixtures/catalogo/jet).
enum class Forma { Listas, Tabla, Jet };

class CatalogosPrueba {
 public:
  // `raiz` is the repository's top directory. Throws std::runtime_error when
  // a catalogue cannot be made.
  CatalogosPrueba(const std::filesystem::path& dir, const std::filesystem::path& raiz, int n = 1200,
                  std::uint64_t semilla = 1957);
  std::filesystem::path Bases(Forma forma) const;

 private:
  std::filesystem::path dir_;
};

// One installation for requests in this process: a program directory with
// the demo's configuration files (demo.cfg, revistas.cfg, articulos.cfg,
// listado.cfg), the end-to-end tests' ones (named e2e_<name>.cfg), and the
// demo's style sheets, each configuration's BASE: naming `bases`; requests
// go through the entry procedure with the real databases, the real file
// system, the libxslt processor, no circulation server and the clock at
// Monday 15 December 2008, 09:30:11.
class Instalacion {
 public:
  Instalacion(const std::filesystem::path& programa, const std::filesystem::path& bases,
              const std::filesystem::path& raiz);
  ~Instalacion();
  Instalacion(const Instalacion&) = delete;
  Instalacion& operator=(const Instalacion&) = delete;

  // The whole output of one request: GET with `query` when `cuerpo` is
  // empty, else POST of `cuerpo` (form-encoded) with `query` as the query
  // string. The catalogue directory reads "@BASES@" and the program
  // directory "@DIR@" in it, so that installations over two forms of the
  // catalogue give comparable pages. `estado` receives the entry
  // procedure's return value.
  std::string Pagina(std::string_view query, std::string_view cuerpo = {}, int* estado = nullptr);

  // The configuration files installed, by name.
  const std::vector<std::string>& Configuraciones() const { return configuraciones_; }

 private:
  struct Servicios;
  std::filesystem::path programa_, bases_;
  std::vector<std::string> configuraciones_;
  std::unique_ptr<Servicios> servicios_;
};

// `pagina` without its "did you mean" paragraph (<p class="sugerencias">
// ... </p>). The corrections come from the vocabulary that orvex-catalogo
// keeps beside the word lists; when the lists are voided the vocabulary is
// too, and a word table as big as these catalogues' is not read for
// corrections: the two forms then differ there, and only there.
std::string SinSugerencias(std::string pagina);

}  // namespace orvex::testing
