#include "z3950/Acervo.h"

#include <yaz/diagbib1.h>

#include <algorithm>

#include "base/CodePage.h"
#include "base/Runtime.h"
#include "base/RuntimeError.h"
#include "config/ArchivoCFG.h"
#include "records/CargaFicha.h"
#include "search/Expresion.h"
#include "search/Indice.h"
#include "search/Normalizacion.h"

namespace orvex::z3950 {
namespace {

constexpr db::OpenOptions kSoloLectura{.read_only = true};

// The search writes a syntax error to the page; the terms given to it are
// built from word characters only, so nothing reaches here, and nothing
// would be shown anyway.
class SinSalida : public Output {
 public:
  void Write(std::string_view) override {}
  void TruncateHere() override {}
  void Rewind() override {}
};

std::unique_ptr<db::Database> Abre(const std::string& ruta, FileSystem& archivos, db::Opener& bases) {
  return bases.Open(FindFile(archivos, ruta).value_or(ruta), kSoloLectura);
}

bool EsCaracterPalabra(char c) {
  return c != '$' && search::CaracteresPalabra.find(c) != std::string::npos;
}

}  // namespace

Acervo::Acervo(const std::string& directorio, FileSystem& archivos, db::Opener& bases)
    : biblio_(Abre(JoinPath(directorio, "KORVEL8.MDB"), archivos, bases)),
      indice_(Abre(JoinPath(directorio, "INDIZADO.MDB"), archivos, bases)) {}

std::vector<std::int32_t> Acervo::Busca(const Nodo& consulta, Diagnostico& d) {
  std::vector<std::int32_t> fichas;
  try {
    search::MapaFichas mapa;
    Evalua(consulta, mapa);
    fichas = mapa.Lista();
  } catch (const RuntimeError& error) {
    d.codigo = YAZ_BIB1_TEMPORARY_SYSTEM_ERROR;
    d.detalle = CodePage::Windows1252().ToUtf8(error.description());
    fichas.clear();
  }
  return fichas;
}

void Acervo::Evalua(const Nodo& n, search::MapaFichas& mapa) {
  if (n.tipo == Nodo::Tipo::Termino) {
    BuscaTermino(n, mapa);
    return;
  }
  Evalua(*n.izquierdo, mapa);
  search::MapaFichas otro;
  Evalua(*n.derecho, otro);
  switch (n.tipo) {
    case Nodo::Tipo::Y:
      mapa.Interseca(otro);
      break;
    case Nodo::Tipo::O:
      mapa.Une(otro);
      break;
    case Nodo::Tipo::YNo:
      mapa.Excluye(otro);
      break;
    case Nodo::Tipo::Termino:
      break;
  }
}

void Acervo::BuscaTermino(const Nodo& n, search::MapaFichas& mapa) {
  mapa.Limpia();
  const std::string texto = CodePage::Windows1252().FromUtf8(n.texto);
  if (n.indice == Indice::NumeroLocal) {
    const std::string_view numero = TrimBlanksView(texto);
    if (numero.empty() || numero.size() > 9 ||
        numero.find_first_not_of("0123456789") != std::string_view::npos) {
      return;
    }
    const auto ficha = static_cast<std::int32_t>(std::stol(std::string(numero)));
    records::RegFicha r;
    if (ficha >= 1 && ficha <= search::MapaFichas::kMaximaFicha && Carga(ficha, r)) mapa.Pon(ficha);
    return;
  }
  const int campo = CampoDe(n.indice);
  if (n.indice == Indice::Isbn || n.indice == Indice::Issn || n.indice == Indice::Clasificacion) {
    // One word in the index: the gateway's form of a code typed in a box.
    std::string clave;
    for (const char c : search::LimpiaClave(texto)) {
      if (EsCaracterPalabra(c)) clave += c;
    }
    if (clave.empty()) return;
    BuscaExpresion(clave + (n.truncado ? "$" : ""), campo, mapa);
    return;
  }
  const std::vector<std::string> palabras = PalabrasDelIndice(n.texto);
  if (palabras.empty()) return;
  if (n.frase && palabras.size() > 1) {
    std::string frase = "\"";
    for (std::size_t i = 0; i < palabras.size(); ++i) frase += (i == 0 ? "" : " ") + palabras[i];
    BuscaExpresion(frase + (n.truncado ? "$" : "") + "\"", campo, mapa);
    return;
  }
  // The words one by one, AND-ed as the gateway AND-s the words of a box;
  // looked up apart, so that a word such as "or" stays a word.
  search::MapaFichas palabra;
  for (std::size_t i = 0; i < palabras.size(); ++i) {
    const bool ultima = i + 1 == palabras.size();
    BuscaExpresion(palabras[i] + (n.truncado && ultima ? "$" : ""), campo, i == 0 ? mapa : palabra);
    if (i > 0) mapa.Interseca(palabra);
  }
}

void Acervo::BuscaExpresion(const std::string& expresion, int campo, search::MapaFichas& mapa) {
  SinSalida salida;
  const search::Entorno en{*estado_, indice_.get(), salida};
  search::BuscaPalabras(en, {expresion, "", "", ""}, {static_cast<std::int16_t>(campo), 0, 0}, true);
  mapa = estado_->MapaResultado;
}

std::int32_t Acervo::Cuenta(Indice indice, const std::string& palabra) {
  search::MapaFichas mapa;
  BuscaExpresion(palabra, CampoDe(indice), mapa);
  return search::CuentaFichas(mapa);
}

std::vector<Acervo::Entrada> Acervo::Explora(Indice indice, const std::string& termino, int& antes,
                                             int cuantas, bool& completa) {
  completa = true;
  std::vector<Entrada> entradas;
  if (indice == Indice::NumeroLocal || cuantas <= 0) {
    antes = 0;
    return entradas;
  }
  const CodePage& pagina = CodePage::Windows1252();
  std::string inicio;
  for (const std::string& p : PalabrasDelIndice(termino)) inicio += p;
  inicio = search::NormalizaVocales(inicio);
  antes = std::clamp(antes, 0, cuantas);
  int leidas = 0;
  // The word of the first entry qualifying `op` against `w` in the index
  // FRASE (word, record, position); empty at either end.
  auto palabra_desde = [&](std::string_view op, const std::string& w) {
    auto rs = indice_->OpenRecordset("TABLA", db::RecordsetType::Table);
    rs->SetFields({"palabra"});
    rs->SetIndex("FRASE");
    rs->Seek(op, {db::Value::Of(w)});
    ++leidas;
    return rs->NoMatch() || rs->Eof() ? std::string() : rs->Field("palabra").AsText();
  };
  // Backwards from the start term: the words before it that the index
  // finds something for.
  std::vector<Entrada> previas;
  for (std::string w = inicio; static_cast<int>(previas.size()) < antes;) {
    if (leidas >= kMaximoPalabrasExploradas) {
      completa = false;
      break;
    }
    w = palabra_desde("<", w);
    if (w.empty()) break;
    if (const std::int32_t n = Cuenta(indice, w); n > 0) previas.push_back({pagina.ToUtf8(w), n});
  }
  entradas.assign(previas.rbegin(), previas.rend());
  antes = static_cast<int>(previas.size());
  for (std::string w = palabra_desde(">=", inicio); static_cast<int>(entradas.size()) < cuantas;
       w = palabra_desde(">", w)) {
    if (w.empty()) break;
    if (leidas >= kMaximoPalabrasExploradas) {
      completa = false;
      break;
    }
    if (const std::int32_t n = Cuenta(indice, w); n > 0) entradas.push_back({pagina.ToUtf8(w), n});
  }
  return entradas;
}

bool Acervo::GuardaOrigenes() {
  for (const std::string& tabla : biblio_->TableNames()) {
    if (EqualsIgnoringCase(tabla, "ORVEX_MARC")) return true;
  }
  return false;
}

bool Acervo::Carga(std::int32_t numero, records::RegFicha& ficha) {
  ficha = records::RegFicha();
  records::CargaFicha(*biblio_, numero, ficha);
  return ficha.Ficha_no != 0;
}

std::optional<std::string> DirectorioDeCFG(const std::string& ruta_cfg, FileSystem& archivos,
                                           Clock& reloj) {
  std::optional<std::string> texto;
  try {
    texto = config::LeeTextoCFG(archivos, ruta_cfg);
  } catch (const RuntimeError&) {
    return std::nullopt;
  }
  if (!texto) return std::nullopt;
  config::Configuracion cfg;
  cfg.RutaBase = TrimBlanks(config::SeccionCFG(*texto, "BASE:", reloj));
  if (cfg.RutaBase.empty()) return std::nullopt;
  if (cfg.RutaBase.find("##") == std::string::npos) return cfg.RutaBase;
  std::string base, ruta;
  std::uint8_t numero = 99;
  if (config::BuscaBase(cfg, base, ruta, numero) != 99 || cfg.TablaBases.empty()) return std::nullopt;
  return cfg.TablaBases.front().despues;
}

}  // namespace orvex::z3950
