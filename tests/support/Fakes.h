#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "base/Platform.h"
#include "base/Red.h"
#include "base/RuntimeError.h"
#include "db/Database.h"

// In-memory stand-ins for the platform services.
namespace orvex::testing {

class FakeEnvironment : public Environment {
 public:
  std::optional<std::string> Get(const std::string& name) override;
  std::map<std::string, std::string> vars;
};

// Hands out `chunks` one per read, then end of input. Pause() counts the
// waits and, after `max_pauses` of them, throws InputStillWaiting so that a
// test can see the reader would have gone on waiting.
class ScriptedInput : public Input {
 public:
  struct InputStillWaiting {};
  std::size_t Read(char* buffer, std::size_t size) override;
  void Pause() override;

  std::vector<std::string> chunks;
  std::vector<std::size_t> requested;  // the size asked for by each read
  int pauses = 0;
  int max_pauses = 3;
};

// An output that behaves like a file (writes overwrite at the position,
// truncation and rewinding work) or, with `is_pipe`, like a pipe.
class MemoryOutput : public Output {
 public:
  void Write(std::string_view bytes) override;
  void TruncateHere() override;
  void Rewind() override;

  bool is_pipe = false;
  std::string contents;
  std::size_t position = 0;
  std::vector<std::string> writes;  // one entry per Write call
};

class FixedClock : public Clock {
 public:
  DateTime Now() override { return now; }
  std::int64_t Milliseconds() override { return millis; }

  DateTime now;
  std::int64_t millis = 1000;
};

class MemoryFileSystem : public FileSystem {
 public:
  std::string ProgramDirectory() override { return program_directory; }
  bool Exists(const std::string& path) override { return files.count(path) > 0; }
  std::string ReadAll(const std::string& path) override;
  void WriteAll(const std::string& path, std::string_view content) override;
  bool Remove(const std::string& path) override { return files.erase(path) > 0; }
  std::vector<std::string> List(const std::string& directory) override;
  // A path in `links` resolves to its target; a file or a directory that
  // holds files resolves to itself; anything else to nothing.
  std::optional<std::string> RealPath(const std::string& path) override;
  std::optional<std::string> ReadRegularFile(const std::string& path, std::size_t limit) override;
  // The time in `times`, for a file that is there.
  std::optional<DateTime> ModificationTime(const std::string& path) override {
    const auto t = times.find(path);
    if (t == times.end() || files.count(path) == 0) return std::nullopt;
    return t->second;
  }

  std::string program_directory = "/prog";
  std::map<std::string, std::string> files;
  std::map<std::string, DateTime> times;  // modification times, by path
  std::set<std::string> unreadable;  // ReadAll and ReadRegularFile raise 70 for these
  std::set<std::string> special;     // files that are not regular (devices, pipes)
  std::map<std::string, std::string> links;  // symbolic links: path => resolved target
  bool read_only = false;            // WriteAll raises 75
};

class FakeEngines : public Engines {
 public:
  bool DatabaseEngineWorks() override { return database; }
  bool XmlParserWorks() override { return xml; }
  MotorXSL& Xsl() override { return xsl != nullptr ? *xsl : ausente_; }
  bool database = true;
  bool xml = true;
  MotorXSL* xsl = nullptr;  // a test's processor; none by default

 private:
  MotorXSLAusente ausente_{"sin procesador XSL en esta prueba"};
};

// Opens real databases (in the test's own directories) unless told to fail:
// a path listed in `failures` raises the error given for it.
class FaultyOpener : public db::Opener {
 public:
  std::unique_ptr<db::Database> Open(const std::string& path,
                                     const db::OpenOptions& options) override;
  std::map<std::string, RuntimeError> failures;
  std::vector<std::string> opened;  // every path asked for, in order
};

// All of the above, bundled as one request's services.
struct FakePlatform {
  FakePlatform();
  FaultyOpener bases;
  FakeEnvironment entorno;
  ScriptedInput entrada;
  MemoryOutput salida;
  FixedClock reloj;
  MemoryFileSystem archivos;
  FakeEngines motores;
  Servicios sys;
};

// The number of the RuntimeError that `f` raises; 0 when it raises none.
int ErrorNumberOf(const std::function<void()>& f);

// A directory of the test's own, removed with the object. Tests that write
// a database work on copies here, never on the fixtures.
class DirectorioTemporal {
 public:
  DirectorioTemporal();
  ~DirectorioTemporal();
  DirectorioTemporal(const DirectorioTemporal&) = delete;
  DirectorioTemporal& operator=(const DirectorioTemporal&) = delete;

  const std::filesystem::path& ruta() const { return ruta_; }
  // A writable copy of `origen`, named `nombre` in the directory.
  std::filesystem::path Copia(const std::filesystem::path& origen, const std::string& nombre) const;

 private:
  std::filesystem::path ruta_;
};

// The whole file, byte for byte ("" when it cannot be read).
std::string ReadFile(const std::filesystem::path& path);
// Creates or empties the file and writes `content`.
void WriteFile(const std::filesystem::path& path, const std::string& content);
// `bytes` as an SQL blob literal: X'0A1B...'.
std::string LiteralBlob(std::string_view bytes);
// Sets the file's modification time to `t`, local time.
void PonFechaArchivo(const std::filesystem::path& path, const DateTime& t);

// A circulation server that always answers at once, counting the echoes.
class RedQueResponde : public Red {
 public:
  std::optional<std::string> Resuelve(const std::string&, int&) override { return "10.1.2.3"; }
  std::optional<std::string> NombreLocal(int&) override { return "local"; }
  int Eco(std::uint32_t, const std::string& payload, int, int& rtt_ms, std::string& reply,
          std::string& metodo) override {
    ++ecos;
    rtt_ms = 1;
    reply = payload;
    metodo = "prueba";
    return kIpSuccess;
  }
  int ecos = 0;
};

// A date for tests: Monday 15 December 2008, 09:30:11.
DateTime SampleDate();

}  // namespace orvex::testing
