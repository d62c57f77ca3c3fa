// orvex-xsl: checks an installation's style sheets before they are served.
//
//   orvex-xsl HOJA              prints the XSLT 1.0 that Orvex runs for HOJA
//   orvex-xsl --revisa HOJA...  one line of verdict per sheet, no XSLT
//   orvex-xsl --revisa --base KORVEL8.MDB [HOJA...]
//                               also the sheets stored in the database's
//                               "Configuracion" table (keys XSL...)
//
// Sheets are read as the gateway reads them: Windows-1252 text, or UTF-8
// when they start with a byte order mark. A working-draft sheet is
// translated; an XSLT 1.0 sheet is printed as it stands. Either way the
// result is compiled with libxslt. What the translation leaves out (scripts,
// elements the dialect does not have) goes to standard error, a line each.
//
// Exit status: 0 when every sheet will run, 1 when one will not, 2 when a
// file cannot be read or the arguments are wrong.

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "base/CodePage.h"
#include "base/RuntimeError.h"
#include "db/Database.h"
#include "xslt/MotorLibxslt.h"

namespace {

constexpr std::string_view kMarcaUtf8 = "\xEF\xBB\xBF";

// Console output is UTF-8; the messages are.
void Linea(FILE* salida, const std::string& texto) {
  std::fwrite(texto.data(), 1, texto.size(), salida);
  std::fputc('\n', salida);
}

void Uso() {
  std::fprintf(stderr,
               "uso: orvex-xsl HOJA              muestra la hoja XSLT 1.0 que Orvex ejecuta\n"
               "     orvex-xsl --revisa HOJA...  dice de cada hoja si Orvex puede usarla\n"
               "     orvex-xsl --revisa --base KORVEL8.MDB [HOJA...]\n"
               "                                 también las hojas de la tabla Configuracion\n");
}

// A sheet to check: where it comes from and its text as the gateway holds it.
struct Hoja {
  std::string nombre;
  std::string texto;  // Windows-1252, or UTF-8 after a byte order mark
};

// The style sheets that the table "Configuracion" of `base` stores: the rows
// whose key starts with "XSL" and whose value is not empty.
bool HojasDeLaBase(const std::string& base, std::vector<Hoja>& hojas) {
  try {
    auto bd = orvex::db::OpenDatabase(base, orvex::CodePage::Windows1252());
    auto tabla = bd->OpenRecordset("Configuracion", orvex::db::RecordsetType::Table);
    const std::string columna_clave = orvex::Latin1("Descripción");
    for (; !tabla->Eof(); tabla->MoveNext()) {
      const std::string clave = orvex::UpperLatin1(tabla->Field(columna_clave).AsText());
      std::string valor = tabla->Field("Valor").AsText();
      if (clave.starts_with("XSL") && !valor.empty()) {
        hojas.push_back({base + ": Configuracion " + clave, std::move(valor)});
      }
    }
    if (hojas.empty()) Linea(stdout, base + ": la tabla Configuracion no guarda hojas de estilo");
    return true;
  } catch (const orvex::RuntimeError& e) {
    Linea(stderr, base + ": " + orvex::CodePage::Windows1252().ToUtf8(e.what()));
    return false;
  }
}

const char* NombreDialecto(orvex::xslt::RevisionHoja::Dialecto d) {
  switch (d) {
    case orvex::xslt::RevisionHoja::Dialecto::XSLT:
      return "XSLT 1.0";
    case orvex::xslt::RevisionHoja::Dialecto::Borrador:
      return "dialecto de borrador (WD-xsl)";
    case orvex::xslt::RevisionHoja::Dialecto::Ninguno:
      break;
  }
  return "no es una hoja";
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> archivos;
  std::string base;
  bool revisa = false;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--revisa") {
      revisa = true;
    } else if (arg == "--base" && i + 1 < argc) {
      base = argv[++i];
    } else if (arg == "-h" || arg == "--help" || arg == "--ayuda") {
      Uso();
      return 0;
    } else if (arg.starts_with("-")) {
      Uso();
      return 2;
    } else {
      archivos.push_back(arg);
    }
  }
  if ((archivos.empty() && base.empty()) || (!revisa && (archivos.size() != 1 || !base.empty()))) {
    Uso();
    return 2;
  }

  int estado = 0;
  std::vector<Hoja> hojas;
  if (!base.empty() && !HojasDeLaBase(base, hojas)) estado = 2;
  for (const std::string& archivo : archivos) {
    std::ifstream entrada(archivo, std::ios::binary);
    if (!entrada) {
      Linea(stderr, archivo + ": no se puede leer");
      estado = 2;
      continue;
    }
    std::ostringstream bytes;
    bytes << entrada.rdbuf();
    hojas.push_back({archivo, bytes.str()});
  }
  for (const Hoja& hoja : hojas) {
    const std::string& archivo = hoja.nombre;
    const std::string texto = hoja.texto.starts_with(kMarcaUtf8)
                                  ? hoja.texto.substr(kMarcaUtf8.size())
                                  : orvex::CodePage::Windows1252().ToUtf8(hoja.texto);

    const orvex::xslt::RevisionHoja r = orvex::xslt::RevisaHoja(texto);
    for (const std::string& aviso : r.avisos) Linea(stderr, archivo + ": " + aviso);
    if (!r.compila) {
      Linea(stderr, archivo + ": " + NombreDialecto(r.dialecto) + "; Orvex no puede usarla: " +
                        r.error);
      if (estado == 0) estado = 1;
      continue;
    }
    if (revisa) {
      std::string veredicto = archivo + ": " + NombreDialecto(r.dialecto) + ", se puede usar";
      if (!r.avisos.empty()) {
        veredicto += " (" + std::to_string(r.avisos.size()) +
                     (r.avisos.size() == 1 ? " aviso)" : " avisos)");
      }
      Linea(stdout, veredicto);
    } else {
      const std::string& salida = r.dialecto == orvex::xslt::RevisionHoja::Dialecto::Borrador
                                      ? r.xslt
                                      : texto;
      std::fwrite(salida.data(), 1, salida.size(), stdout);
    }
  }
  return estado;
}
