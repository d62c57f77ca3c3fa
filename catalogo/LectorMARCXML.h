#pragma once

#include <string>
#include <string_view>

#include "catalogo/RegistroMARC.h"

struct _xmlNode;

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
//
// Original() is the record's <record> element as the file writes it, byte
// for byte from its "<" to the end of its end tag, when the document is in
// UTF-8 (or ASCII): the namespace declarations in scope from the elements
// around it that it does not make itself (the collection's
// xmlns="http://www.loc.gov/MARC21/slim", say) are added to its start tag,
// right after its name, so that the text stands alone as a document. A
// document in another encoding, or a record that uses an entity of the
// document's type declaration, gives libxml2's writing of the element in
// UTF-8 instead, with the namespaces it uses declared.
class LectorMARCXML : public LectorRegistros {
 public:
  // `datos` stays alive while the reader is used.
  LectorMARCXML(std::string_view datos, const std::string& nombre);
  ~LectorMARCXML() override;
  LectorMARCXML(const LectorMARCXML&) = delete;
  LectorMARCXML& operator=(const LectorMARCXML&) = delete;

  Lectura Siguiente(RegistroMARC& registro) override;
  FormatoOrigen Formato() const override { return FormatoOrigen::kMARCXML; }

  // The parser's last error (message and line), for its callback.
  void AnotaError(const std::string& mensaje, int linea);

 private:
  struct Estado;
  // Sets Original() to the text of the record element `nodo` just expanded.
  void TomaOriginal(_xmlNode* nodo);
  Estado* estado_;
};

}  // namespace orvex::catalogo
