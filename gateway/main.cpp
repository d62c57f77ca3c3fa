// orvex: the catalogue gateway. Run as a CGI program it answers one request
// and exits; started by a FastCGI server it serves request after request.

#include "base/PosixPlatform.h"
#include "circulation/ChecaIP.h"
#include "db/BasesConservadas.h"
#include "db/Database.h"
#include "db/SqliteEngine.h"
#include "fastcgi/ServidorFastCGI.h"
#include "gateway/CGI_Main.h"
#include "transform/CargaModuloXSL.h"

namespace {

class RealEngines : public orvex::Engines {
 public:
  explicit RealEngines(const std::string& directorio_programa)
      : xsl_(orvex::transform::RutasModuloXSL(directorio_programa)) {}

  bool DatabaseEngineWorks() override { return orvex::db::SqliteEngineWorks(); }
  // The XML libraries are loaded only by the requests that transform a
  // document; every request checks that they are installed.
  bool XmlParserWorks() override { return !xsl_.Encuentra().empty(); }
  orvex::MotorXSL& Xsl() override { return xsl_; }

 private:
  orvex::transform::MotorModuloXSL xsl_;
};

}  // namespace

int main() {
  orvex::SystemClock reloj;
  orvex::PosixFileSystem archivos;
  RealEngines motores(archivos.ProgramDirectory());
  orvex::RedPosix red;
  // One request: its own services around what the process keeps (clock,
  // files, engines, the opener, the network). Nothing of the request
  // outlives the call.
  const auto atiende = [&](orvex::db::Opener& bases, orvex::Environment& entorno,
                           orvex::Input& entrada, orvex::Output& salida) {
    orvex::Servicios sys{entorno, entrada, salida, reloj, archivos, motores};
    return orvex::gateway::Principal(sys, bases, &red);
  };
  if (orvex::fastcgi::EsFastCGI()) {
    // A worker keeps the catalogue's databases open between requests, each
    // while its file is unchanged; the XSL module keeps its compiled sheets.
    orvex::db::BasesConservadas bases(orvex::CodePage::Windows1252());
    return orvex::fastcgi::Sirve([&](orvex::Environment& e, orvex::Input& i, orvex::Output& o) {
      atiende(bases, e, i, o);
    });
  }
  orvex::db::EngineOpener bases(orvex::CodePage::Windows1252());
  orvex::PosixEnvironment entorno;
  orvex::StdInput entrada;
  orvex::StdOutput salida;
  return atiende(bases, entorno, entrada, salida);
}
