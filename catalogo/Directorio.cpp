#include "catalogo/Directorio.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include <sqlite3.h>

#include "catalogo/EscritorCatalogo.h"

namespace orvex::catalogo {
namespace fs = std::filesystem;
namespace {

std::string Upper(std::string s) {
  for (char& c : s) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return s;
}

bool EsHoja(const std::string& nombre) { return Upper(nombre) == "FICHAWEB.XSL"; }

bool EsArchivoCatalogo(const std::string& nombre) {
  const std::string n = Upper(nombre);
  for (const char* base : {"KORVEL8", "INDIZADO", "INDIZAPP", "ESTADISTICAS"}) {
    const std::string b = base;
    if (n == b + ".LDB") return true;
    for (const char* sufijo : {"", "-JOURNAL", "-WAL", "-SHM"}) {
      if (n == b + ".MDB" + sufijo) return true;
    }
  }
  return false;
}

std::string Error(const std::string& que, const fs::path& ruta, int numero) {
  return que + " " + ruta.string() + ": " + std::strerror(numero);
}

}  // namespace

fs::path RutaDestino(const fs::path& ruta) {
  std::error_code ec;
  fs::path p = fs::absolute(ruta, ec);
  if (ec) p = ruta;
  p = p.lexically_normal();
  if (!p.has_filename() && p.has_parent_path() && p != p.root_path()) p = p.parent_path();
  if (fs::exists(p, ec)) {
    const fs::path real = fs::canonical(p, ec);
    if (!ec) p = real;
  }
  return p;
}

void CompruebaDestino(const fs::path& destino) {
  std::error_code ec;
  if (!destino.has_filename() || destino == destino.root_path()) {
    throw ErrorCatalogo("el directorio " + destino.string() + " no puede reemplazarse");
  }
  const fs::file_status estado = fs::status(destino, ec);
  if (!fs::exists(estado)) {
    if (!fs::is_directory(destino.parent_path(), ec)) {
      throw ErrorCatalogo("no existe el directorio " + destino.parent_path().string());
    }
    return;
  }
  if (!fs::is_directory(estado)) {
    throw ErrorCatalogo(destino.string() + " existe y no es un directorio");
  }
  fs::directory_iterator it(destino, ec);
  if (ec) throw ErrorCatalogo("no se puede leer el directorio " + destino.string());
  for (const fs::directory_entry& e : it) {
    const std::string nombre = e.path().filename().string();
    if (!e.is_regular_file(ec) || !(EsArchivoCatalogo(nombre) || EsHoja(nombre))) {
      throw ErrorCatalogo(destino.string() + " contiene \"" + nombre +
                          "\", que no es un archivo del catálogo: no se reemplaza");
    }
  }
}

void ConservaHoja(const fs::path& destino, const fs::path& nuevo) {
  std::error_code ec;
  if (!fs::is_directory(destino, ec)) return;
  for (const fs::directory_entry& e : fs::directory_iterator(destino, ec)) {
    const fs::path nombre = e.path().filename();
    if (!EsHoja(nombre.string())) continue;
    if (!fs::copy_file(e.path(), nuevo / nombre, ec)) {
      throw ErrorCatalogo("no se pudo conservar " + e.path().string() + ": " + ec.message());
    }
  }
}

void ConservaEstadisticas(const fs::path& destino, const fs::path& nuevo, std::string& aviso) {
  std::error_code ec;
  if (!fs::is_directory(destino, ec)) return;
  fs::path anterior;
  for (const fs::directory_entry& e : fs::directory_iterator(destino, ec)) {
    if (Upper(e.path().filename().string()) == "ESTADISTICAS.MDB") anterior = e.path();
  }
  if (anterior.empty()) return;
  const fs::path copia = nuevo / "estadisticas.mdb.anterior";
  sqlite3* db = nullptr;
  int rc = sqlite3_open_v2(anterior.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
  if (rc == SQLITE_OK) {
    sqlite3_busy_timeout(db, 5000);
    char* sql = sqlite3_mprintf("VACUUM INTO %Q", copia.c_str());
    rc = sqlite3_exec(db, sql, nullptr, nullptr, nullptr);
    sqlite3_free(sql);
  }
  if (rc != SQLITE_OK) {
    aviso = "no se conservaron las estadísticas de " + anterior.string() + " (" +
            (db != nullptr ? sqlite3_errmsg(db) : sqlite3_errstr(rc)) + ")";
    sqlite3_close(db);
    fs::remove(copia, ec);
    return;
  }
  sqlite3_close(db);
  fs::rename(copia, nuevo / "estadisticas.mdb");
}

fs::path CreaTemporal(const fs::path& destino) {
  std::string plantilla =
      (destino.parent_path() / ("." + destino.filename().string() + ".nuevo-XXXXXX")).string();
  if (mkdtemp(plantilla.data()) == nullptr) {
    throw ErrorCatalogo(Error("no se pudo crear un directorio junto a", destino, errno));
  }
  struct stat anterior;
  mode_t modo;
  if (stat(destino.c_str(), &anterior) == 0) {
    modo = anterior.st_mode & 07777;
  } else {
    const mode_t mascara = umask(0);
    umask(mascara);
    modo = 0777 & ~mascara;
  }
  chmod(plantilla.c_str(), modo);
  return plantilla;
}

void Reemplaza(const fs::path& nuevo, const fs::path& destino) {
  std::error_code ec;
  if (!fs::exists(fs::symlink_status(destino, ec))) {
    if (rename(nuevo.c_str(), destino.c_str()) != 0) {
      throw ErrorCatalogo(Error("no se pudo poner el catálogo en", destino, errno));
    }
    return;
  }
  // Exchanged in one step: `nuevo` then holds the old catalogue.
  if (renameat2(AT_FDCWD, nuevo.c_str(), AT_FDCWD, destino.c_str(), RENAME_EXCHANGE) == 0) {
    Elimina(nuevo);
    return;
  }
  std::string aparte =
      (destino.parent_path() / ("." + destino.filename().string() + ".anterior-XXXXXX")).string();
  if (mkdtemp(aparte.data()) == nullptr || rmdir(aparte.c_str()) != 0) {
    throw ErrorCatalogo(Error("no se pudo apartar", destino, errno));
  }
  if (rename(destino.c_str(), aparte.c_str()) != 0) {
    throw ErrorCatalogo(Error("no se pudo apartar", destino, errno));
  }
  if (rename(nuevo.c_str(), destino.c_str()) != 0) {
    const int numero = errno;
    rename(aparte.c_str(), destino.c_str());
    throw ErrorCatalogo(Error("no se pudo poner el catálogo en", destino, numero));
  }
  Elimina(aparte);
}

void Elimina(const fs::path& ruta) {
  std::error_code ec;
  fs::remove_all(ruta, ec);
}

}  // namespace orvex::catalogo
