#pragma once

#include <sqlite3.h>

#include <string>
#include <vector>

// The connection through which orvex-catalogo writes a SQLite file: its
// failures raise ErrorCatalogo with the file's path and SQLite's reason.
namespace orvex::catalogo {

class Conexion {
 public:
  // Opens `ruta` for writing, creating it when it is not there.
  explicit Conexion(const std::string& ruta);
  // Closes it; a failure to close is not reported (the file is abandoned).
  ~Conexion();
  Conexion(const Conexion&) = delete;
  Conexion& operator=(const Conexion&) = delete;

  void Ejecuta(const std::string& sql);
  // A statement kept until the connection closes.
  sqlite3_stmt* Prepara(const std::string& sql);
  // Runs a bound statement and resets it for the next row.
  void Paso(sqlite3_stmt* st);
  // Finalizes the statements and closes the file; a failure raises.
  void Cierra();
  [[noreturn]] void Falla(const std::string& que);

 private:
  std::string ruta_;
  sqlite3* db_ = nullptr;
  std::vector<sqlite3_stmt*> sentencias_;
};

}  // namespace orvex::catalogo
