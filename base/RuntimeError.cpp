#include "base/RuntimeError.h"

#include <utility>

#include "base/CodePage.h"

namespace orvex {

RuntimeError::RuntimeError(int number, std::string description)
    : number_(number), description_(std::move(description)) {}

RuntimeError RuntimeError::Standard(int number) {
  const char* text = nullptr;
  switch (number) {
    case 5: text = "Llamada a procedimiento o argumento no válidos"; break;
    case 6: text = "Desbordamiento"; break;
    case 7: text = "Memoria insuficiente"; break;
    case 9: text = "El subíndice está fuera del intervalo"; break;
    case 11: text = "División por cero"; break;
    case 13: text = "No coinciden los tipos"; break;
    case 14: text = "No hay suficiente espacio para cadenas"; break;
    case 51: text = "Error interno"; break;
    case 52: text = "Nombre o número de archivo incorrecto"; break;
    case 53: text = "No se encontró el archivo"; break;
    case 54: text = "Modo de archivo incorrecto"; break;
    case 55: text = "El archivo ya está abierto"; break;
    case 57: text = "Error de E/S en el dispositivo"; break;
    case 61: text = "Disco lleno"; break;
    case 62: text = "La entrada ha sobrepasado el final del archivo"; break;
    case 70: text = "Permiso denegado"; break;
    case 75: text = "Error de acceso a la ruta o el archivo"; break;
    case 76: text = "No se encontró la ruta de acceso"; break;
    case 94: text = "Uso no válido de Null"; break;
    default: text = "Error definido por la aplicación o por el objeto"; break;
  }
  return RuntimeError(number, Latin1(text));
}

void Raise(int number) { throw RuntimeError::Standard(number); }

}  // namespace orvex
