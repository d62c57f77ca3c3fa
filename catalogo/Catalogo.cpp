#include "catalogo/Catalogo.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <memory>

#include "catalogo/Acervos.h"
#include "catalogo/DatosLector.h"
#include "catalogo/Directorio.h"
#include "catalogo/Ejemplares.h"
#include "catalogo/EscritorCatalogo.h"
#include "catalogo/EtiquetasMARC.h"
#include "catalogo/FilaFicha.h"
#include "catalogo/PalabrasIndice.h"
#include "catalogo/RegistroMARC.h"
#include "catalogo/TextoMARC.h"
#include "search/MapaFichas.h"

namespace orvex::catalogo {

const char* const kUso =
    "uso: orvex-catalogo [--biblioteca NOMBRE] [--institucion TEXTO] [--departamento TEXTO] "
    "[--silencioso] DIRECTORIO ARCHIVO...\n"
    "       orvex-catalogo --lector DIRECTORIO";

namespace {

constexpr const char* kPrograma = "orvex-catalogo: ";
constexpr int kCadaCuantas = 10000;

// A whole input file, mapped into memory read-only.
class ArchivoMapeado {
 public:
  explicit ArchivoMapeado(const std::string& ruta) {
    const int fd = open(ruta.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) Falla(ruta, errno);
    struct stat st;
    if (fstat(fd, &st) != 0) {
      const int numero = errno;
      close(fd);
      Falla(ruta, numero);
    }
    if (!S_ISREG(st.st_mode)) {
      close(fd);
      throw ErrorCatalogo("no se puede leer " + ruta + ": no es un archivo");
    }
    largo_ = static_cast<std::size_t>(st.st_size);
    if (largo_ > 0) {
      void* p = mmap(nullptr, largo_, PROT_READ, MAP_PRIVATE, fd, 0);
      if (p == MAP_FAILED) {
        const int numero = errno;
        close(fd);
        Falla(ruta, numero);
      }
      madvise(p, largo_, MADV_SEQUENTIAL);
      datos_ = static_cast<const char*>(p);
    }
    close(fd);
  }
  ~ArchivoMapeado() {
    if (datos_ != nullptr) munmap(const_cast<char*>(datos_), largo_);
  }
  ArchivoMapeado(const ArchivoMapeado&) = delete;
  ArchivoMapeado& operator=(const ArchivoMapeado&) = delete;

  std::string_view Datos() const { return {datos_ != nullptr ? datos_ : "", largo_}; }

 private:
  [[noreturn]] static void Falla(const std::string& ruta, int numero) {
    throw ErrorCatalogo("no se puede leer " + ruta + ": " + std::strerror(numero));
  }

  const char* datos_ = nullptr;
  std::size_t largo_ = 0;
};

// "archivo: registro 17 (001 abc)".
std::string NombraRegistro(const std::string& archivo, const LectorRegistros& lector) {
  std::string s = archivo + ": registro " + std::to_string(lector.Posicion());
  if (!lector.Identificador().empty()) {
    s += " (001 " + LimpiaContenido(lector.Identificador()) + ")";
  }
  return s;
}

std::string Segundos(double s) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.1f", s);
  std::string t = buf;
  for (char& c : t) {
    if (c == '.') c = ',';
  }
  return t;
}

struct Cuentas {
  std::int32_t libros = 0, revistas = 0, articulos = 0;
  std::int64_t rechazados = 0;
  std::int64_t palabras = 0;

  std::int64_t Registros() const {
    return std::int64_t{libros} + revistas + articulos;
  }
  std::int32_t& De(Acervo acervo) {
    return acervo == Acervo::kRevistas ? revistas : acervo == Acervo::kArticulos ? articulos
                                                                                 : libros;
  }
};

// "9990 libros, 4 revistas y 6 artículos".
std::string PorAcervo(const Cuentas& c) {
  return std::to_string(c.libros) + " libros, " + std::to_string(c.revistas) + " revistas y " +
         std::to_string(c.articulos) + " artículos";
}

constexpr const char* kNombreAcervo[] = {"libros", "revistas", "artículos"};

// Reads every file into the new catalogue in `temporal`. Throws
// ErrorCatalogo when the catalogue cannot be written.
Cuentas Escribe(const Opciones& opciones, const std::vector<std::unique_ptr<ArchivoMapeado>>& archivos,
                const std::string& temporal, const DateTime& ahora, std::ostream& mensajes) {
  EscritorCatalogo escritor(temporal);
  AcumuladorLector lector_datos;
  if (opciones.institucion) escritor.AgregaConfiguracion("Institucion", *opciones.institucion);
  if (opciones.departamento) escritor.AgregaConfiguracion("Departamento", *opciones.departamento);
  OpcionesEjemplares opciones_ejemplares;
  opciones_ejemplares.biblioteca = opciones.biblioteca.value_or("");
  DateTime dia = ahora;
  dia.hour = dia.minute = dia.second = 0;
  opciones_ejemplares.fecha_ingreso = FechaISO(dia);

  Cuentas cuentas;
  RegistroMARC registro;
  std::vector<PalabraIndice> palabras;
  std::vector<std::string> avisos;
  for (std::size_t i = 0; i < archivos.size(); ++i) {
    const std::string& nombre = opciones.archivos[i];
    const std::unique_ptr<LectorRegistros> lector = LectorPara(archivos[i]->Datos(), nombre);
    for (;;) {
      const Lectura lectura = lector->Siguiente(registro);
      if (lectura == Lectura::kFin) break;
      if (lectura == Lectura::kRechazado) {
        ++cuentas.rechazados;
        mensajes << kPrograma << NombraRegistro(nombre, *lector) << ": " << lector->Motivo()
                 << '\n';
        continue;
      }
      // Each collection numbers its own records; a search returns at most
      // kMaximaFicha, whichever collection it searches.
      const Acervo acervo = AcervoDeRegistro(registro);
      std::int32_t& cuenta = cuentas.De(acervo);
      if (cuenta >= search::MapaFichas::kMaximaFicha) {
        ++cuentas.rechazados;
        mensajes << kPrograma << NombraRegistro(nombre, *lector)
                 << ": el catálogo no admite más de " << search::MapaFichas::kMaximaFicha << ' '
                 << kNombreAcervo[static_cast<int>(acervo)] << '\n';
        continue;
      }
      const std::int32_t numero = ++cuenta;
      const std::vector<Grupo> grupos = AgrupaCampos(registro);
      avisos.clear();
      switch (acervo) {
        case Acervo::kLibros:
          escritor.AgregaFicha(FichaDeRegistro(registro, grupos, numero, ahora));
          lector_datos.Agrega(numero, DatosDeRegistro(registro));
          escritor.AgregaOrigen(numero, lector->Formato(), lector->Original());
          for (const Ejemplar& e :
               EjemplaresDeRegistro(registro, numero, opciones_ejemplares, avisos)) {
            escritor.AgregaEjemplar(numero, e);
          }
          break;
        case Acervo::kRevistas:
          escritor.AgregaRevista(numero, EtiquetasMARC(grupos));
          break;
        case Acervo::kArticulos: {
          const std::string numadqui = NumAdquiDeArticulo(registro, avisos);
          escritor.AgregaAnalitica(numero, numadqui, EtiquetasMARC(grupos));
          break;
        }
      }
      for (const std::string& aviso : avisos) {
        mensajes << kPrograma << NombraRegistro(nombre, *lector) << ": " << aviso << '\n';
      }
      PalabrasDeFicha(grupos, palabras, acervo);
      escritor.AgregaPalabras(acervo, numero, palabras);
      if (!opciones.silencioso && cuentas.Registros() % kCadaCuantas == 0) {
        mensajes << kPrograma << cuentas.Registros() << " registros (" << PorAcervo(cuentas)
                 << ")..." << std::endl;
      }
    }
  }
  if (cuentas.Registros() == 0) throw ErrorCatalogo("ningún registro pudo leerse");
  escritor.Termina();
  lector_datos.Escribe(temporal + "/KORVEL8.MDB");
  cuentas.palabras = escritor.Palabras();
  return cuentas;
}

bool EsOpcionConValor(const std::string& a, const char* nombre, std::string& valor,
                      const std::vector<std::string>& args, std::size_t& i, bool& falta) {
  const std::string n = nombre;
  if (a == n) {
    if (i + 1 >= args.size()) {
      falta = true;
      return true;
    }
    valor = args[++i];
    return true;
  }
  if (a.rfind(n + "=", 0) == 0) {
    valor = a.substr(n.size() + 1);
    return true;
  }
  return false;
}

}  // namespace

int LeeOpciones(const std::vector<std::string>& args, Opciones& o, std::string& error) {
  std::size_t i = 0;
  for (; i < args.size(); ++i) {
    const std::string& a = args[i];
    if (a == "--") {
      ++i;
      break;
    }
    if (a.size() < 2 || a[0] != '-') break;
    if (a == "--silencioso") {
      o.silencioso = true;
      continue;
    }
    std::string valor;
    bool falta = false;
    std::optional<std::string>* destino = nullptr;
    const char* nombre = nullptr;
    for (auto [n, d] : {std::pair{"--biblioteca", &o.biblioteca},
                        std::pair{"--institucion", &o.institucion},
                        std::pair{"--departamento", &o.departamento}}) {
      if (EsOpcionConValor(a, n, valor, args, i, falta)) {
        destino = d;
        nombre = n;
        break;
      }
    }
    if (destino == nullptr) {
      error = "opción desconocida: " + a;
      return kSalidaUso;
    }
    if (falta) {
      error = std::string("falta el valor de ") + nombre;
      return kSalidaUso;
    }
    if (!EsUtf8Valido(valor)) {
      error = std::string("el valor de ") + nombre + " no es UTF-8 válido";
      return kSalidaUso;
    }
    *destino = std::string(SinBlancos(valor));
  }
  if (o.biblioteca && CortaCaracteres(*o.biblioteca, 50).size() < o.biblioteca->size()) {
    error = "--biblioteca admite a lo sumo 50 caracteres";
    return kSalidaUso;
  }
  if (i >= args.size()) {
    error = "falta el DIRECTORIO del catálogo";
    return kSalidaUso;
  }
  o.directorio = args[i++];
  if (o.directorio.empty()) {
    error = "el DIRECTORIO del catálogo está vacío";
    return kSalidaUso;
  }
  o.archivos.assign(args.begin() + static_cast<std::ptrdiff_t>(i), args.end());
  if (o.archivos.empty()) {
    error = "falta al menos un ARCHIVO de registros MARC";
    return kSalidaUso;
  }
  return kSalidaExito;
}

int ConstruyeCatalogo(const Opciones& opciones, const DateTime& ahora, std::ostream& mensajes) {
  const auto inicio = std::chrono::steady_clock::now();
  const std::filesystem::path destino = RutaDestino(opciones.directorio);
  auto no_modificado = [&](const std::string& causa) {
    mensajes << kPrograma << causa << "; el catálogo de " << opciones.directorio
             << " no se modificó\n";
    return kSalidaFallo;
  };
  std::vector<std::unique_ptr<ArchivoMapeado>> archivos;
  try {
    CompruebaDestino(destino);
    for (const std::string& a : opciones.archivos) {
      archivos.push_back(std::make_unique<ArchivoMapeado>(a));
    }
  } catch (const std::exception& e) {
    return no_modificado(e.what());
  }

  std::filesystem::path temporal;
  Cuentas cuentas;
  try {
    temporal = CreaTemporal(destino);
    cuentas = Escribe(opciones, archivos, temporal.string(), ahora, mensajes);
    ConservaHoja(destino, temporal);
    std::string aviso;
    ConservaEstadisticas(destino, temporal, aviso);
    if (!aviso.empty()) mensajes << kPrograma << aviso << '\n';
    Reemplaza(temporal, destino);
  } catch (const ErrorCatalogo& e) {
    if (!temporal.empty()) Elimina(temporal);
    return no_modificado(e.what());
  } catch (const std::bad_alloc&) {
    if (!temporal.empty()) Elimina(temporal);
    return no_modificado("memoria insuficiente");
  } catch (const std::exception& e) {
    // The file system's own errors (std::filesystem) and any other.
    if (!temporal.empty()) Elimina(temporal);
    return no_modificado(e.what());
  }

  if (!opciones.silencioso) {
    const std::chrono::duration<double> s = std::chrono::steady_clock::now() - inicio;
    mensajes << kPrograma << PorAcervo(cuentas) << " escritos en " << opciones.directorio
             << ", " << cuentas.rechazados << " registros rechazados, " << cuentas.palabras
             << " palabras, " << Segundos(s.count()) << " s" << std::endl;
  }
  return kSalidaExito;
}

int Principal(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  if (args.size() == 1 && (args[0] == "--ayuda" || args[0] == "-h" || args[0] == "--help")) {
    std::cout << kUso << '\n';
    return kSalidaExito;
  }
  if (args.size() == 2 && args[0] == "--lector") return EscribeLectorLateral(args[1], std::cerr);
  Opciones opciones;
  std::string error;
  if (LeeOpciones(args, opciones, error) != kSalidaExito) {
    std::cerr << kPrograma << error << '\n' << kUso << '\n';
    return kSalidaUso;
  }
  SystemClock reloj;
  return ConstruyeCatalogo(opciones, reloj.Now(), std::cerr);
}

}  // namespace orvex::catalogo
