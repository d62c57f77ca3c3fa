#include "db/Database.h"

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

#include "base/RuntimeError.h"
#include "db/JetDatabase.h"
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

bool ParseIsoDate(std::string_view s, DateTime& t) {
  int y, mo, d, h = 0, mi = 0, se = 0;
  const std::string text(s);
  const int n = std::sscanf(text.c_str(), "%4d-%2d-%2d %2d:%2d:%2d", &y, &mo, &d, &h, &mi, &se);
  if (n != 3 && n != 6) return false;
  if (mo < 1 || mo > 12 || d < 1 || d > 31) return false;
  t.year = y, t.month = mo, t.day = d, t.hour = h, t.minute = mi, t.second = se;
  // Day of the week (Sakamoto's method), for the weekday formats.
  static const int offsets[] = {0, 3, 2, 5, 0, 3, 5, 1, 4, 6, 2, 4};
  const int yy = mo < 3 ? y - 1 : y;
  t.weekday = (yy + yy / 4 - yy / 100 + yy / 400 + offsets[mo - 1] + d) % 7;
  return true;
}

Motor MotorDeArchivo(const std::string& path) {
  if (path.find('\0') != std::string::npos) return Motor::Ilegible;
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return Motor::Ilegible;
  char header[20];
  const ssize_t n = ::read(fd, header, sizeof header);
  ::close(fd);
  const std::string_view start(header, n > 0 ? static_cast<std::size_t>(n) : 0);
  if (start.starts_with(std::string_view("SQLite format 3\0", 16))) return Motor::Sqlite;
  if (start.size() >= 19 && start.substr(4, 15) == "Standard Jet DB") return Motor::Jet;
  return Motor::Desconocido;
}

std::unique_ptr<Database> OpenDatabase(const std::string& path, const CodePage& page,
                                       const OpenOptions& options) {
  switch (MotorDeArchivo(path)) {
    case Motor::Ilegible:
      throw RuntimeError(kErrArchivoBaseNoEncontrado,
                         Latin1("No se pudo encontrar el archivo '") + path + "'.");
    case Motor::Sqlite: return OpenSqliteDatabase(path, page, options);
    case Motor::Jet: return OpenJetDatabase(path, page, options);
    case Motor::Desconocido: break;
  }
  throw RuntimeError(kErrFormatoNoReconocido,
                     Latin1("No se reconoce el formato de la base de datos '") + path + "'.");
}

}  // namespace orvex::db
