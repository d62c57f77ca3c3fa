#include "catalogo/ConexionSqlite.h"

#include "catalogo/EscritorCatalogo.h"

namespace orvex::catalogo {

Conexion::Conexion(const std::string& ruta) : ruta_(ruta) {
  const int rc =
      sqlite3_open_v2(ruta.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
  if (rc != SQLITE_OK) Falla("no se pudo crear");
}

Conexion::~Conexion() {
  try {
    Cierra();
  } catch (const ErrorCatalogo&) {
    // A catalogue abandoned on an error: its files are removed anyway.
  }
}

void Conexion::Ejecuta(const std::string& sql) {
  char* error = nullptr;
  if (sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, &error) != SQLITE_OK) {
    const std::string mensaje = error != nullptr ? error : "";
    sqlite3_free(error);
    throw ErrorCatalogo(ruta_ + ": " + mensaje);
  }
}

sqlite3_stmt* Conexion::Prepara(const std::string& sql) {
  sqlite3_stmt* st = nullptr;
  if (sqlite3_prepare_v3(db_, sql.c_str(), -1, SQLITE_PREPARE_PERSISTENT, &st, nullptr) !=
      SQLITE_OK) {
    Falla("no se pudo preparar la escritura");
  }
  sentencias_.push_back(st);
  return st;
}

void Conexion::Paso(sqlite3_stmt* st) {
  if (sqlite3_step(st) != SQLITE_DONE) Falla("no se pudo escribir");
  sqlite3_reset(st);
}

void Conexion::Cierra() {
  for (sqlite3_stmt* st : sentencias_) sqlite3_finalize(st);
  sentencias_.clear();
  if (db_ != nullptr && sqlite3_close(db_) != SQLITE_OK) {
    db_ = nullptr;
    throw ErrorCatalogo(ruta_ + ": no se pudo cerrar");
  }
  db_ = nullptr;
}

void Conexion::Falla(const std::string& que) {
  throw ErrorCatalogo(ruta_ + ": " + que + " (" + (db_ != nullptr ? sqlite3_errmsg(db_) : "") +
                      ")");
}

}  // namespace orvex::catalogo
