#pragma once

#include <string>
#include <string_view>

#include "catalogo/RegistroMARC.h"

namespace orvex::catalogo {

// Records in MARCXML: a <collection> of <record> elements, or one <record>,
// in the namespace http://www.loc.gov/MARC21/slim or in none (elements of
// other namespaces are passed over). A record holds <leader>,
// <controlfield tag=""> and <datafield tag="" ind1="" ind2=""> with
// <subfield code="">; texts come out in UTF-8 whatever the document's
// encoding. The document is read as a stream, one record in memory at a
// time, with no network access and no external DTD or entity.
//
// A record whose field has no three-character tag is refused and reading
// goes on. A document that stops being well-formed cannot be read past that
// point: the record being read when the parser stopped is refused with the
// parser's message and line, and the file ends there.
class LectorMARCXML : public LectorRegistros {
 public:
  // `datos` stays alive while the reader is used.
  LectorMARCXML(std::string_view datos, const std::string& nombre);
  ~LectorMARCXML() override;
  LectorMARCXML(const LectorMARCXML&) = delete;
  LectorMARCXML& operator=(const LectorMARCXML&) = delete;

  Lectura Siguiente(RegistroMARC& registro) override;

  // The parser's last error (message and line), for its callback.
  void AnotaError(const std::string& mensaje, int linea);

 private:
  struct Estado;
  Estado* estado_;
};

}  // namespace orvex::catalogo
