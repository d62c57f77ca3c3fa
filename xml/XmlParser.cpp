#include "xml/XmlParser.h"

#include <libxml/parser.h>

namespace orvex::xml {

bool XmlParserWorks() {
  static const char kDocumento[] = "<?xml version='1.0'?>\r\n<algo> </algo>";
  xmlParserCtxtPtr ctxt = xmlNewParserCtxt();
  if (ctxt == nullptr) return false;
  xmlDocPtr doc = xmlCtxtReadMemory(ctxt, kDocumento, sizeof kDocumento - 1, "verifica.xml",
                                    nullptr, XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
  xmlFreeDoc(doc);
  xmlFreeParserCtxt(ctxt);
  return true;
}

}  // namespace orvex::xml
