#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Clock.h"
#include "base/MotorXSL.h"

// The operating system as the gateway sees it: one narrow interface per
// service. main() builds the real ones (PosixPlatform.h); tests build fakes.
namespace orvex {

// The process environment (CGI variables).
class Environment {
 public:
  virtual ~Environment() = default;
  // The variable's value; nullopt when it is not set.
  virtual std::optional<std::string> Get(const std::string& name) = 0;
};

// Standard input (the request body).
class Input {
 public:
  virtual ~Input() = default;
  // Reads at most `size` bytes; returns how many were read, 0 at end of input,
  // on an error, or when nothing came within a short wait (a tenth of a
  // second at most), so that a caller never blocks for long in one read.
  virtual std::size_t Read(char* buffer, std::size_t size) = 0;
  // Called when a read brought nothing: waits a moment before the next one.
  virtual void Pause() = 0;
};

// Standard output as the gateway has always used it.
class Output {
 public:
  virtual ~Output() = default;
  // One write of all the bytes; failures are ignored.
  virtual void Write(std::string_view bytes) = 0;
  // Truncates the output at its current position; no-op on a pipe.
  virtual void TruncateHere() = 0;
  // Moves the position back to the start; no-op on a pipe.
  virtual void Rewind() = 0;
};

// An output that drops what is written to it, for the steps that report into
// a page as they go when the caller wants only their outcome.
class Descarte : public Output {
 public:
  void Write(std::string_view) override {}
  void TruncateHere() override {}
  void Rewind() override {}
};

// Files. Paths use "/" as the separator.
class FileSystem {
 public:
  virtual ~FileSystem() = default;
  // The directory of the running program, without a final separator; when
  // absolute, with every symbolic link resolved (as the system names the
  // running program's file).
  virtual std::string ProgramDirectory() = 0;
  // True when `path` names an existing file (not a directory).
  virtual bool Exists(const std::string& path) = 0;
  // The whole file. Raises 53 when it does not exist, 70 when it cannot be
  // read, 75 on any other failure.
  virtual std::string ReadAll(const std::string& path) = 0;
  // Creates or empties the file and writes `content`. Raises 75 (70 when
  // access is denied) on failure.
  virtual void WriteAll(const std::string& path, std::string_view content) = 0;
  // Deletes the file; false when it could not.
  virtual bool Remove(const std::string& path) = 0;
  // The names in a directory (not "." and ".."); empty when it cannot be read.
  virtual std::vector<std::string> List(const std::string& directory) = 0;
  // The absolute path of an existing file or directory with every symbolic
  // link, "." and ".." resolved; nullopt when there is none.
  virtual std::optional<std::string> RealPath(const std::string& path) = 0;
  // The whole text of a regular file of at most `limit` bytes; nullopt when
  // there is no such file, or it is not a regular file (a directory, device,
  // pipe or socket is never waited on nor read), or it is larger. Raises 70
  // when it exists but cannot be read.
  virtual std::optional<std::string> ReadRegularFile(const std::string& path,
                                                     std::size_t limit) = 0;
  // The file's last modification in local time; nullopt when there is no
  // such file or its time cannot be read.
  virtual std::optional<DateTime> ModificationTime(const std::string& path) = 0;
};

// The two engines the gateway cannot work without.
class Engines {
 public:
  virtual ~Engines() = default;
  // The database engine can be initialised.
  virtual bool DatabaseEngineWorks() = 0;
  // The XML parser is installed.
  virtual bool XmlParserWorks() = 0;
  // The XSL processor, loaded when first used.
  virtual MotorXSL& Xsl() = 0;
};

// The bundle of platform services that one request uses.
struct Servicios {
  Environment& entorno;
  Input& entrada;
  Output& salida;
  Clock& reloj;
  FileSystem& archivos;
  Engines& motores;
};

// True when `name` holds a directory separator ("\" or "/", treated alike).
bool HasSeparator(std::string_view name);
// `directory` and `name` joined by exactly one "/"; a directory that already
// ends in a separator gets none added.
std::string JoinPath(std::string_view directory, std::string_view name);
// The path with every "\" turned into "/".
std::string NativePath(std::string_view path);
// Finds a file the way the old file system did, regardless of letter case:
// the exact name first, else the single entry of its directory whose name
// matches ignoring case. Returns the path to use, or nullopt when there is
// none (or more than one entry matches and none exactly).
std::optional<std::string> FindFile(FileSystem& files, std::string_view path);

}  // namespace orvex
