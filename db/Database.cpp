#include "db/Database.h"

#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "base/RuntimeError.h"
#include "db/SqliteDatabase.h"

namespace orvex::db {

Value Value::Of(std::int64_t v) {
  Value value;
  value.type = Type::Integer;
  value.integer = v;
  return value;
}

Value Value::Of(double v) {
  Value value;
  value.type = Type::Real;
  value.real = v;
  return value;
}

Value Value::Of(std::string v) {
  Value value;
  value.type = Type::Text;
  value.text = std::move(v);
  return value;
}

Value Value::Of(const DateTime& v) {
  Value value;
  value.type = Type::Date;
  value.date = v;
  return value;
}

std::string Value::AsText() const {
  char buffer[80];
  switch (type) {
    case Type::Null: return std::string();
    case Type::Integer: return std::to_string(integer);
    case Type::Real:
      std::snprintf(buffer, sizeof buffer, "%.15g", real);
      return buffer;
    case Type::Text: return text;
    case Type::Date:
      std::snprintf(buffer, sizeof buffer, "%04d-%02d-%02d %02d:%02d:%02d", date.year, date.month,
                    date.day, date.hour, date.minute, date.second);
      return buffer;
  }
  return std::string();
}

std::unique_ptr<Database> OpenDatabase(const std::string& path, const CodePage& page,
                                       const OpenOptions& options) {
  char head[20] = {};
  {
    const int fd = path.find('\0') == std::string::npos ? ::open(path.c_str(), O_RDONLY | O_CLOEXEC) : -1;
    if (fd < 0) {
      throw RuntimeError(kErrArchivoBaseNoEncontrado,
                         Latin1("No se pudo encontrar el archivo '") + path + "'.");
    }
    const ssize_t n = ::read(fd, head, sizeof head);
    ::close(fd);
    (void)n;
  }
  if (std::memcmp(head, "SQLite format 3", 16) == 0) {
    return OpenSqliteDatabase(path, page, options);
  }
  if (std::memcmp(head + 4, "Standard Jet DB", 15) == 0) {
    throw RuntimeError(kErrFormatoNoReconocido,
                       Latin1("No se reconoce el formato de la base de datos '") + path +
                           Latin1("': esta versión de Orvex no lee archivos Jet."));
  }
  throw RuntimeError(kErrFormatoNoReconocido,
                     Latin1("No se reconoce el formato de la base de datos '") + path + "'.");
}

}  // namespace orvex::db
