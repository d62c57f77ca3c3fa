#pragma once

#include <exception>
#include <string>

namespace orvex {

// A run-time error as the gateway has always reported it: the classic error
// number and its Spanish description (in the installation's code page).
// Database engines raise it with their own numbers and texts.
class RuntimeError : public std::exception {
 public:
  RuntimeError(int number, std::string description);

  // The error with the runtime's standard description for `number`
  // ("Error definido por la aplicación o por el objeto" when unknown).
  static RuntimeError Standard(int number);

  int number() const { return number_; }
  const std::string& description() const { return description_; }
  const char* what() const noexcept override { return description_.c_str(); }

 private:
  int number_;
  std::string description_;
};

// Error numbers that Orvex raises itself.
inline constexpr int kErrArgumentoNoValido = 5;
inline constexpr int kErrDesbordamiento = 6;
inline constexpr int kErrMemoriaInsuficiente = 7;
inline constexpr int kErrSubindice = 9;
inline constexpr int kErrTiposNoCoinciden = 13;
inline constexpr int kErrEspacioCadenas = 14;
inline constexpr int kErrInterno = 51;
inline constexpr int kErrNombreArchivo = 52;
inline constexpr int kErrArchivoNoEncontrado = 53;
inline constexpr int kErrPermisoDenegado = 70;
inline constexpr int kErrAccesoRuta = 75;

[[noreturn]] void Raise(int number);

// Thrown when a procedure ends the process on purpose (the error page, a
// fatal open failure). Deliberately not a std::exception: no handler that
// catches ordinary errors may swallow it. The entry procedure catches it and
// exits with status 0 without deleting the request log.
struct ProcessEnd {};

}  // namespace orvex
