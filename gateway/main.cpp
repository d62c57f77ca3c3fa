// orvex: the catalogue gateway, one process per CGI request.

#include "base/PosixPlatform.h"
#include "db/Database.h"
#include "db/SqliteEngine.h"
#include "gateway/CGI_Main.h"
#include "xml/XmlParser.h"

namespace {

class RealEngines : public orvex::Engines {
 public:
  bool DatabaseEngineWorks() override { return orvex::db::SqliteEngineWorks(); }
  bool XmlParserWorks() override { return orvex::xml::XmlParserWorks(); }
};

}  // namespace

int main() {
  orvex::PosixEnvironment entorno;
  orvex::StdInput entrada;
  orvex::StdOutput salida;
  orvex::SystemClock reloj;
  orvex::PosixFileSystem archivos;
  RealEngines motores;
  orvex::Servicios sys{entorno, entrada, salida, reloj, archivos, motores};
  orvex::db::EngineOpener bases(orvex::CodePage::Windows1252());
  return orvex::gateway::Principal(sys, bases);
}
