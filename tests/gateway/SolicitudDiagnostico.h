#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "base/CodePage.h"
#include "base/PosixPlatform.h"
#include "cgi/Solicitud.h"
#include "db/Database.h"
#include "tests/support/Fakes.h"

// The request that the tests of the diagnostic commands and of the
// installation checklist send: from the administrator's address, on a
// writable copy of the fixture catalogue, through the real file system with
// a program directory of the test's own.
namespace orvex::gateway {

inline const std::filesystem::path kCatalogos = std::filesystem::path(ORVEX_FIXTURES) / "catalogo";
inline const std::vector<std::string> kArchivosDelCatalogo = {"KORVEL8.MDB", "INDIZADO.MDB", "indizaPP.MDB",
                                                              "estadisticas.mdb"};

// The administrator's address in every configuration of these tests.
inline const std::string kDiagnostico = "\r\nDIAGNOSTICO:{127.0.0.1}";
// How every page ends.
inline const std::string kFin = "</BODY></HTML>\r\n";

inline bool Contiene(const std::string& pagina, const std::string& texto) {
  return pagina.find(texto) != std::string::npos;
}

// The real file system, but for the program's directory, which is one the
// test makes and may fill, and for the paths in `ocultos`: files and
// directories that are on disk and that this file system does not show.
class ArchivosDePrueba : public PosixFileSystem {
 public:
  explicit ArchivosDePrueba(std::string programa) : programa_(std::move(programa)) {}
  std::string ProgramDirectory() override { return programa_; }
  bool Exists(const std::string& path) override { return !Oculto(path) && PosixFileSystem::Exists(path); }
  std::vector<std::string> List(const std::string& directory) override {
    if (Oculto(directory)) return {};
    std::vector<std::string> nombres = PosixFileSystem::List(directory);
    std::erase_if(nombres, [&](const std::string& n) { return Oculto(JoinPath(directory, n)); });
    return nombres;
  }

  std::set<std::string> ocultos;

 private:
  bool Oculto(std::string path) const {
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    return ocultos.contains(path);
  }
  std::string programa_;
};

class SolicitudDiagnostico : public ::testing::Test {
 protected:
  SolicitudDiagnostico()
      : archivos_(programa_.ruta().string()),
        sys_{p_.entorno, p_.entrada, p_.salida, p_.reloj, archivos_, p_.motores},
        s_(sys_, p_.bases) {
    for (const std::string& archivo : kArchivosDelCatalogo) {
      dir_.Copia(kCatalogos / "sqlite" / archivo, archivo);
    }
    s_.VersionPrograma = "Orvex 4.0 prueba";
    s_.cfg.ArchivoCFG = JoinPath(archivos_.ProgramDirectory(), "libros.cfg");
    Configura("BASE:{" + dir_.ruta().string() +
              "}ENCABEZADO:{<h1>}FORMATO:{<!FICHA!>}SEPARADOR:{<hr>}NOENCONTRADO:{nada}FINAL:{fin}");
    Desde("127.0.0.1");
  }
  // The configuration `texto`, which lists the loopback as the
  // administrator's address.
  void Configura(const std::string& texto) { s_.cfg.TextoCFG = texto + kDiagnostico; }
  void Desde(const std::string& ip) {
    p_.entorno.vars["REMOTE_ADDR"] = ip;
    cgi::LeeVariablesCGI(s_.cgi, p_.entorno);
  }
  std::string Pagina(void (*comando)(cgi::Solicitud&, const std::string&), const std::string& expresion) {
    p_.salida.contents.clear();
    p_.salida.position = 0;
    comando(s_, expresion);
    return p_.salida.contents;
  }
  static std::int64_t FilasDeConsultas(const std::filesystem::path& dir) {
    auto db = db::OpenDatabase((dir / "estadisticas.mdb").string(), CodePage::Windows1252(),
                               {.read_only = true});
    auto rs = db->OpenRecordset("SELECT COUNT(*) AS n FROM Consultas", db::RecordsetType::Snapshot);
    return rs->Field("n").integer;
  }
  std::int64_t FilasDeConsultas() { return FilasDeConsultas(dir_.ruta()); }

  testing::FakePlatform p_;
  testing::DirectorioTemporal programa_;
  ArchivosDePrueba archivos_;
  Servicios sys_;
  cgi::Solicitud s_;
  testing::DirectorioTemporal dir_;
};

}  // namespace orvex::gateway
