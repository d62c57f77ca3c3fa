#pragma once

#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

// The circulation server's state: the catalogue's copies (table Ejemplares of
// KORVEL8.MDB, opened read-only) and the server's own file of loans and
// reservations. Texts inside are UTF-8; the wire's Windows-1252 is handled by
// Atiende.
namespace orvex::circulation::servidor {

class Circulacion {
 public:
  // Opens `directorio_catalogo`/KORVEL8.MDB (any letter case) and the file
  // `archivo_prestamos`, creating it and its tables when missing. Throws
  // std::runtime_error with the reason when either cannot be opened.
  Circulacion(const std::string& directorio_catalogo, const std::string& archivo_prestamos);
  ~Circulacion();
  Circulacion(const Circulacion&) = delete;
  Circulacion& operator=(const Circulacion&) = delete;

  // Records a loan of copy `numadqui` to `cuenta` due `vence` (dd/mm/yyyy),
  // replacing a previous loan of the same copy.
  void Presta(const std::string& numadqui, const std::string& cuenta, const std::string& vence);

  // Answers one command as read from the wire (Windows-1252); the answer is
  // Windows-1252 too.
  std::string Atiende(std::string_view comando);

 private:
  std::string Reserva(const std::string& numadqui, const std::string& cuenta);
  std::string Disponibilidad(long long ficha);

  sqlite3* catalogo_ = nullptr;
  sqlite3* prestamos_ = nullptr;
};

}  // namespace orvex::circulation::servidor
