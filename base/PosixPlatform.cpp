#include "base/PosixPlatform.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <ctime>

#include "base/RuntimeError.h"

namespace orvex {
namespace {

int ErrorNumberFor(int err) {
  switch (err) {
    case ENOENT: return kErrArchivoNoEncontrado;
    case EACCES:
    case EPERM:
    case EROFS: return kErrPermisoDenegado;
    default: return kErrAccesoRuta;
  }
}

// A name with a NUL byte would reach the system cut short and name another
// file: such a name names no file at all.
bool HasNul(const std::string& path) { return path.find('\0') != std::string::npos; }

}  // namespace

std::optional<std::string> PosixEnvironment::Get(const std::string& name) {
  const char* value = std::getenv(name.c_str());
  if (value == nullptr) return std::nullopt;
  return std::string(value);
}

std::size_t StdInput::Read(char* buffer, std::size_t size) {
  // At most a tenth of a second without data, so that the reader can look
  // at the request's deadline between reads.
  pollfd p{STDIN_FILENO, POLLIN, 0};
  const int listo = ::poll(&p, 1, 100);
  if (listo == 0 || (listo < 0 && errno == EINTR)) {
    fin_ = false;
    return 0;
  }
  for (;;) {
    const ssize_t n = ::read(STDIN_FILENO, buffer, size);
    if (n > 0) {
      fin_ = false;
      return static_cast<std::size_t>(n);
    }
    if (n < 0 && errno == EINTR) continue;
    fin_ = true;  // end of input, or an error that reading again repeats
    return 0;
  }
}

void StdInput::Pause() {
  // The body is short of CONTENT_LENGTH: the gateway waits for the rest
  // until the web server or the request's deadline ends it, without
  // spinning on a closed input. A read that found nothing has waited already.
  if (!fin_) return;
  const timespec pause{0, 100 * 1000 * 1000};
  nanosleep(&pause, nullptr);
}

void StdOutput::Write(std::string_view bytes) {
  if (pendiente_.capacity() < 65536) pendiente_.reserve(65536);
  pendiente_.append(bytes);
  if (pendiente_.size() >= 65536) Flush();
}

void StdOutput::Flush() {
  std::string_view resto = pendiente_;
  while (!resto.empty()) {
    const ssize_t n = ::write(STDOUT_FILENO, resto.data(), resto.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;  // failed writes are ignored, as they always were
    resto.remove_prefix(static_cast<size_t>(n));
  }
  pendiente_.clear();
}

void StdOutput::TruncateHere() {
  Flush();
  const off_t here = ::lseek(STDOUT_FILENO, 0, SEEK_CUR);
  if (here >= 0) {
    const int rc = ::ftruncate(STDOUT_FILENO, here);
    (void)rc;
  }
}

void StdOutput::Rewind() {
  Flush();
  ::lseek(STDOUT_FILENO, 0, SEEK_SET);
}

std::string PosixFileSystem::ProgramDirectory() {
  if (program_directory_.empty()) {
    char buffer[4096];
    const ssize_t n = ::readlink("/proc/self/exe", buffer, sizeof buffer - 1);
    const std::string_view path(buffer, n > 0 ? static_cast<size_t>(n) : 0);
    const size_t slash = path.rfind('/');
    if (slash == std::string_view::npos) {
      program_directory_.push_back('.');
    } else {
      program_directory_.assign(path.substr(0, slash == 0 ? 1 : slash));
    }
  }
  return program_directory_;
}

bool PosixFileSystem::Exists(const std::string& path) {
  if (HasNul(path)) return false;
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0 && !S_ISDIR(st.st_mode);
}

std::string PosixFileSystem::ReadAll(const std::string& path) {
  if (HasNul(path)) Raise(kErrNombreArchivo);
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) Raise(ErrorNumberFor(errno));
  std::string content;
  struct stat st {};
  if (::fstat(fd, &st) == 0 && S_ISDIR(st.st_mode)) {
    ::close(fd);
    Raise(kErrAccesoRuta);
  }
  if (st.st_size > 0) content.reserve(static_cast<size_t>(st.st_size));
  char buffer[65536];
  for (;;) {
    const ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n == 0) break;
    if (n < 0) {
      if (errno == EINTR) continue;
      const int err = errno;
      ::close(fd);
      Raise(ErrorNumberFor(err) == kErrArchivoNoEncontrado ? kErrAccesoRuta : ErrorNumberFor(err));
    }
    content.append(buffer, static_cast<size_t>(n));
  }
  ::close(fd);
  return content;
}

void PosixFileSystem::WriteAll(const std::string& path, std::string_view content) {
  if (HasNul(path)) Raise(kErrNombreArchivo);
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) Raise(errno == ENOENT ? kErrAccesoRuta : ErrorNumberFor(errno));
  size_t done = 0;
  while (done < content.size()) {
    const ssize_t n = ::write(fd, content.data() + done, content.size() - done);
    if (n < 0) {
      if (errno == EINTR) continue;
      ::close(fd);
      Raise(kErrAccesoRuta);
    }
    done += static_cast<size_t>(n);
  }
  if (::close(fd) != 0) Raise(kErrAccesoRuta);
}

bool PosixFileSystem::Remove(const std::string& path) {
  return !HasNul(path) && ::unlink(path.c_str()) == 0;
}

std::vector<std::string> PosixFileSystem::List(const std::string& directory) {
  std::vector<std::string> names;
  DIR* dir = ::opendir(directory.c_str());
  if (dir == nullptr) return names;
  while (const dirent* entry = ::readdir(dir)) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  ::closedir(dir);
  return names;
}

std::optional<std::string> PosixFileSystem::RealPath(const std::string& path) {
  if (HasNul(path)) return std::nullopt;
  char resuelta[PATH_MAX];
  if (::realpath(path.c_str(), resuelta) == nullptr) return std::nullopt;
  return std::string(resuelta);
}

std::optional<std::string> PosixFileSystem::ReadRegularFile(const std::string& path,
                                                            std::size_t limit) {
  if (HasNul(path)) return std::nullopt;
  // Non-blocking, so that opening a pipe whose writer never comes returns
  // at once; the kind of file is checked before a byte is read.
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (fd < 0) {
    if (errno == EACCES || errno == EPERM) Raise(kErrPermisoDenegado);
    return std::nullopt;
  }
  struct stat st {};
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || static_cast<std::size_t>(st.st_size) > limit) {
    ::close(fd);
    return std::nullopt;
  }
  // The file may grow while it is read: no more than the limit is taken.
  std::string content;
  content.reserve(static_cast<std::size_t>(st.st_size));
  char buffer[65536];
  while (content.size() <= limit) {
    const ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n == 0) break;
    if (n < 0) {
      if (errno == EINTR) continue;
      ::close(fd);
      Raise(kErrAccesoRuta);
    }
    content.append(buffer, static_cast<std::size_t>(n));
  }
  ::close(fd);
  if (content.size() > limit) return std::nullopt;
  return content;
}

std::optional<DateTime> PosixFileSystem::ModificationTime(const std::string& path) {
  struct stat datos {};
  if (HasNul(path) || ::stat(path.c_str(), &datos) != 0 || !S_ISREG(datos.st_mode)) {
    return std::nullopt;
  }
  return LocalDateTime(datos.st_mtime);
}

std::vector<std::string> RutasModulo(const std::string& directorio_programa,
                                     std::string_view archivo, std::string_view compilado) {
  std::vector<std::string> rutas = {JoinPath(directorio_programa, archivo)};
  if (!compilado.empty()) rutas.push_back(JoinPath(compilado, archivo));
  return rutas;
}

std::string PrimeraLegible(const std::vector<std::string>& rutas) {
  for (const std::string& ruta : rutas) {
    if (::access(ruta.c_str(), R_OK) == 0) return ruta;
  }
  return "";
}

}  // namespace orvex
