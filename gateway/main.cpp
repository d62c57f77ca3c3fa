// orvex: the catalogue gateway, one process per CGI request.

#include "base/PosixPlatform.h"
#include "circulation/ChecaIP.h"
#include "db/Database.h"
#include "db/SqliteEngine.h"
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
  orvex::PosixEnvironment entorno;
  orvex::StdInput entrada;
  orvex::StdOutput salida;
  orvex::SystemClock reloj;
  orvex::PosixFileSystem archivos;
  RealEngines motores(archivos.ProgramDirectory());
  orvex::Servicios sys{entorno, entrada, salida, reloj, archivos, motores};
  orvex::db::EngineOpener bases(orvex::CodePage::Windows1252());
  orvex::RedPosix red;
  return orvex::gateway::Principal(sys, bases, &red);
}
