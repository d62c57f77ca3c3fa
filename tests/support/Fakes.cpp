#include "tests/support/Fakes.h"

#include <stdlib.h>
#include <sys/stat.h>
#include <fcntl.h>

#include <algorithm>
#include <ctime>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "base/RuntimeError.h"

namespace orvex::testing {

std::optional<std::string> FakeEnvironment::Get(const std::string& name) {
  const auto it = vars.find(name);
  if (it == vars.end()) return std::nullopt;
  return it->second;
}

std::size_t ScriptedInput::Read(char* buffer, std::size_t size) {
  requested.push_back(size);
  if (chunks.empty()) return 0;
  std::string& chunk = chunks.front();
  const std::size_t n = std::min(size, chunk.size());
  std::copy_n(chunk.data(), n, buffer);
  chunk.erase(0, n);
  if (chunk.empty()) chunks.erase(chunks.begin());
  return n;
}

void ScriptedInput::Pause() {
  if (++pauses >= max_pauses) throw InputStillWaiting{};
}

void MemoryOutput::Write(std::string_view bytes) {
  writes.emplace_back(bytes);
  if (position > contents.size()) contents.resize(position);
  contents.replace(position, std::min(bytes.size(), contents.size() - position), bytes);
  position += bytes.size();
}

void MemoryOutput::TruncateHere() {
  if (!is_pipe) contents.resize(std::min(position, contents.size()));
}

void MemoryOutput::Rewind() {
  if (!is_pipe) position = 0;
}

std::string MemoryFileSystem::ReadAll(const std::string& path) {
  if (unreadable.count(path)) Raise(kErrPermisoDenegado);
  const auto it = files.find(path);
  if (it == files.end()) Raise(kErrArchivoNoEncontrado);
  return it->second;
}

void MemoryFileSystem::WriteAll(const std::string& path, std::string_view content) {
  if (read_only) Raise(kErrAccesoRuta);
  files[path] = std::string(content);
}

std::vector<std::string> MemoryFileSystem::List(const std::string& directory) {
  std::string prefix = directory;
  if (prefix.empty() || prefix.back() != '/') prefix += '/';
  std::vector<std::string> names;
  for (const auto& [path, content] : files) {
    if (path.compare(0, prefix.size(), prefix) != 0) continue;
    const std::string rest = path.substr(prefix.size());
    if (rest.find('/') == std::string::npos) names.push_back(rest);
  }
  return names;
}

std::optional<std::string> MemoryFileSystem::RealPath(const std::string& path) {
  const auto link = links.find(path);
  const std::string target = link == links.end() ? path : link->second;
  if (files.count(target) > 0) return target;
  const std::string prefix = target.empty() || target.back() == '/' ? target : target + "/";
  for (const auto& [file, content] : files) {
    if (file.compare(0, prefix.size(), prefix) == 0) return target;
  }
  return std::nullopt;
}

std::optional<std::string> MemoryFileSystem::ReadRegularFile(const std::string& path,
                                                             std::size_t limit) {
  if (unreadable.count(path)) Raise(kErrPermisoDenegado);
  const auto it = files.find(path);
  if (it == files.end() || special.count(path) > 0 || it->second.size() > limit) return std::nullopt;
  return it->second;
}

std::unique_ptr<db::Database> FaultyOpener::Open(const std::string& path,
                                                 const db::OpenOptions& options) {
  opened.push_back(path);
  const auto failure = failures.find(path);
  if (failure != failures.end()) throw failure->second;
  return db::OpenDatabase(path, CodePage::Windows1252(), Vigiladas(options));
}

FakePlatform::FakePlatform()
    : sys{entorno, entrada, salida, reloj, archivos, motores} {
  reloj.now = SampleDate();
}

DirectorioTemporal::DirectorioTemporal() {
  std::string plantilla = (std::filesystem::temp_directory_path() / "orvex-prueba-XXXXXX").string();
  if (mkdtemp(plantilla.data()) == nullptr) throw std::runtime_error("mkdtemp");
  ruta_ = plantilla;
}

DirectorioTemporal::~DirectorioTemporal() {
  std::error_code ec;
  std::filesystem::remove_all(ruta_, ec);
}

std::filesystem::path DirectorioTemporal::Copia(const std::filesystem::path& origen,
                                                const std::string& nombre) const {
  const std::filesystem::path destino = ruta_ / nombre;
  std::filesystem::copy_file(origen, destino, std::filesystem::copy_options::overwrite_existing);
  std::filesystem::permissions(destino, std::filesystem::perms::owner_read |
                                            std::filesystem::perms::owner_write);
  return destino;
}

int ErrorNumberOf(const std::function<void()>& f) {
  try {
    f();
  } catch (const RuntimeError& e) {
    return e.number();
  }
  return 0;
}

DateTime SampleDate() {
  DateTime t;
  t.year = 2008;
  t.month = 12;
  t.day = 15;
  t.hour = 9;
  t.minute = 30;
  t.second = 11;
  t.weekday = 1;
  return t;
}

std::string ReadFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

std::string LiteralBlob(std::string_view bytes) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string s = "X'";
  for (const char ch : bytes) {
    const auto c = static_cast<unsigned char>(ch);
    s += kHex[c >> 4];
    s += kHex[c & 15];
  }
  return s + "'";
}

void WriteFile(const std::filesystem::path& path, const std::string& content) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << content;
}

void PonFechaArchivo(const std::filesystem::path& path, const DateTime& t) {
  std::tm tm{};
  tm.tm_year = t.year - 1900;
  tm.tm_mon = t.month - 1;
  tm.tm_mday = t.day;
  tm.tm_hour = t.hour;
  tm.tm_min = t.minute;
  tm.tm_sec = t.second;
  tm.tm_isdst = -1;
  const timespec veces[2] = {{std::mktime(&tm), 0}, {std::mktime(&tm), 0}};
  if (::utimensat(AT_FDCWD, path.c_str(), veces, 0) != 0) {
    throw std::runtime_error("no se pudo fechar " + path.string());
  }
}

}  // namespace orvex::testing
