#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

// A MARC 21 bibliographic record as the catalogue builder reads it, and the
// readers that take records out of a file one at a time.
namespace orvex::catalogo {

struct Subcampo {
  char codigo = ' ';
  std::string valor;  // UTF-8
};

struct Campo {
  std::string etiqueta;  // three characters
  // Control fields (tags 00X): their data. Data fields: empty.
  std::string datos;
  char ind1 = ' ', ind2 = ' ';
  std::vector<Subcampo> subcampos;

  bool EsControl() const { return etiqueta.size() == 3 && etiqueta[0] == '0' && etiqueta[1] == '0'; }
  // The value of the first subfield `codigo`, empty when there is none.
  std::string_view Valor(char codigo) const;
};

struct RegistroMARC {
  std::string lider;  // 24 characters; empty when the record had none
  std::vector<Campo> campos;

  // The data of the first control field `etiqueta`, empty when there is none.
  std::string_view Control(std::string_view etiqueta) const;
};

// What a reader's Siguiente found.
enum class Lectura {
  kRegistro,   // a record, in the argument
  kRechazado,  // a record that cannot be read: Motivo() says why
  kFin,        // no more records
};

// How a file holds its records.
enum class FormatoOrigen { kISO2709, kMARCXML };

// Reads the records of one file in order.
class LectorRegistros {
 public:
  virtual ~LectorRegistros() = default;

  virtual Lectura Siguiente(RegistroMARC& registro) = 0;
  virtual FormatoOrigen Formato() const = 0;
  // The record last returned (kRegistro) as the file holds it, valid until
  // the next Siguiente or the end of the reader; empty after a refused
  // record and at the end. ISO 2709: its bytes from the leader to the record
  // terminator. MARCXML: the text of its <record> element (LectorMARCXML
  // says how it is made to stand alone).
  std::string_view Original() const { return original_; }
  // The position in the file (1, 2, ...) of the record last returned or
  // refused.
  std::size_t Posicion() const { return posicion_; }
  // Its 001 when it could be read (else empty), for the messages.
  const std::string& Identificador() const { return identificador_; }
  // Why it was refused (Spanish).
  const std::string& Motivo() const { return motivo_; }

 protected:
  std::size_t posicion_ = 0;
  std::string identificador_;
  std::string motivo_;
  std::string_view original_;
};

// The reader that suits `datos`, the whole content of a file (kept alive by
// the caller while the reader is used): MARCXML when the first character
// after an optional byte order mark and blanks is "<", otherwise ISO 2709.
// `nombre` names the file in libxml2's messages.
std::unique_ptr<LectorRegistros> LectorPara(std::string_view datos, const std::string& nombre);

// True when `datos` looks like MARCXML by the rule above.
bool EsMARCXML(std::string_view datos);

}  // namespace orvex::catalogo
