#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace orvex::transform {

// The installation settings' built-in sheets (the record sheet and the
// notice sheets that stand in for a missing one) are written in the
// working-draft XSL dialect and run through the translator. Their XSLT 1.0
// equivalents, written by hand, are the reference the translation is held
// to: when `hoja` (Windows-1252) is one of them, this returns its equivalent
// (UTF-8); otherwise nothing.
std::optional<std::string> EquivalenteXSLT(std::string_view hoja);

}  // namespace orvex::transform
