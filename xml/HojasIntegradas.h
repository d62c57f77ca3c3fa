#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace orvex::xml {

// The installation settings' built-in sheets (the record sheet and the
// notice sheets that stand in for a missing one) are written in the
// working-draft XSL dialect. When `hoja` (Windows-1252) is one of them, this
// returns its XSLT 1.0 equivalent (UTF-8), which gives the same page;
// otherwise nothing.
std::optional<std::string> EquivalenteXSLT(std::string_view hoja);

}  // namespace orvex::xml
