// Opens the two book databases of a catalogue directory and loads one record
// with its copies, as a book request does. Without arguments it only does
// what every orvex request does at start (the database engine check), which
// is the baseline that bench/ficha subtracts.
//
//   abre_ficha [directory record-number]

#include <cstdio>
#include <cstdlib>
#include <string>

#include "db/Database.h"
#include "db/SqliteEngine.h"
#include "records/CargaFicha.h"

int main(int argc, char** argv) {
  if (!orvex::db::SqliteEngineWorks()) return 2;
  if (argc < 3) return 0;
  const orvex::CodePage& page = orvex::CodePage::Windows1252();
  const std::string dir = argv[1];
  auto indice = orvex::db::OpenDatabase(dir + "/INDIZADO.MDB", page, {.read_only = true});
  auto biblio = orvex::db::OpenDatabase(dir + "/KORVEL8.MDB", page, {.read_only = true});
  orvex::records::RegFicha ficha;
  orvex::records::CargaFicha(*biblio, std::atoi(argv[2]), ficha);
  std::printf("%d %zu %zu\n", ficha.Ficha_no, ficha.EtiquetasMARC.size(), ficha.Ejemplares.size());
  return ficha.Ficha_no == 0;
}
