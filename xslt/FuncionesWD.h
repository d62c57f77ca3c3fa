#pragma once

struct _xmlXPathContext;

namespace orvex::xslt {

// The helper functions of translated working-draft sheets, in the namespace
// kEspacioFuncionesWD:
//   wd:strcmp(a, b)         -1, 0 or 1: the order of two strings (letters
//                           before their accented forms, case only breaking ties)
//   wd:date(x)              an ISO 8601 date (yyyy-mm-dd, optionally with a time) as a
//                           day number counted from 1899-12-30, NaN for any other text
//   wd:nodeType(ns)         the first node's DOM node type (1 element, 2 attribute,
//                           3 text, 4 CDATA, 7 processing instruction, 8 comment,
//                           9 document), NaN for an empty set
//   wd:nodeTypeString(ns)   its name: "element", "attribute", "text", ...
// Registers them with libxslt for every transformation; safe to call again.
void RegistraFuncionesWD();

// Registers them on one XPath context, for code that evaluates translated
// patterns without libxslt.
void RegistraFuncionesWD(_xmlXPathContext* contexto);

}  // namespace orvex::xslt
