#include "catalogo/EtiquetasMARC.h"

#include "catalogo/TextoMARC.h"

namespace orvex::catalogo {
namespace {

// A subfield value ready for the tag string, trimmed.
std::string Prepara(std::string_view valor) {
  return std::string(SinBlancos(LimpiaContenido(ComponeAcentos(valor))));
}

bool EsSubdivision(char codigo) {
  return codigo == 'v' || codigo == 'x' || codigo == 'y' || codigo == 'z';
}

std::string LeeEnlace(const Campo& campo) {
  const std::string direccion = Prepara(campo.Valor('u'));
  if (direccion.empty()) return std::string();
  std::string texto = Prepara(campo.Valor('y'));
  if (texto.empty()) texto = Prepara(campo.Valor('3'));
  return texto.empty() ? direccion : direccion + ";" + texto;
}

std::string LeeCampoDatos(const Campo& campo) {
  if (campo.etiqueta == "856") return LeeEnlace(campo);
  const bool tema = campo.etiqueta[0] == '6';
  std::string texto;
  for (const Subcampo& s : campo.subcampos) {
    if (s.codigo >= '0' && s.codigo <= '9' && s.codigo != '3') continue;
    const std::string valor = Prepara(s.valor);
    if (valor.empty()) continue;
    if (!texto.empty()) texto += tema && EsSubdivision(s.codigo) ? " -- " : " ";
    texto += valor;
  }
  return texto;
}

}  // namespace

std::vector<Grupo> AgrupaCampos(const RegistroMARC& registro) {
  std::vector<Grupo> grupos;
  for (const Campo& campo : registro.campos) {
    std::string texto = campo.EsControl() ? LimpiaContenido(ComponeAcentos(campo.datos))
                                          : LeeCampoDatos(campo);
    if (SinBlancos(texto).empty()) continue;
    Grupo* grupo = nullptr;
    for (Grupo& g : grupos) {
      if (g.etiqueta == campo.etiqueta) {
        grupo = &g;
        break;
      }
    }
    if (grupo == nullptr) {
      grupo = &grupos.emplace_back();
      grupo->etiqueta = campo.etiqueta;
    }
    grupo->ocurrencias.push_back(std::move(texto));
  }
  return grupos;
}

std::string EtiquetasMARC(const std::vector<Grupo>& grupos) {
  std::string s;
  for (const Grupo& g : grupos) {
    s += "\xC2\xA6";  // "¦"
    s += g.etiqueta;
    for (std::size_t i = 0; i < g.ocurrencias.size(); ++i) {
      if (i > 0) s += " \\ ";
      s += g.ocurrencias[i];
    }
  }
  s += "\xC3\x8C";  // "Ì"
  return s;
}

}  // namespace orvex::catalogo
