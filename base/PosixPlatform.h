#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/Platform.h"

// The real platform services on Linux.
namespace orvex {

class PosixEnvironment : public Environment {
 public:
  std::optional<std::string> Get(const std::string& name) override;
};

// Standard input, file descriptor 0.
class StdInput : public Input {
 public:
  // Waits at most 100 ms for data: 0 when none came, or at end of input.
  std::size_t Read(char* buffer, std::size_t size) override;
  void Pause() override;

 private:
  bool fin_ = false;  // the last read met the end of input
};

// Standard output, file descriptor 1: one write(2) per call, nothing buffered.
// The page on standard output, gathered and written in large pieces: a page
// comes in many short lines, and a write per line cost the web server and
// the gateway a wake-up each. Everything gathered is written before the
// output is truncated or rewound, when 64 KB have gathered, and at the end.
class StdOutput : public Output {
 public:
  ~StdOutput() override { Flush(); }
  void Write(std::string_view bytes) override;
  void TruncateHere() override;
  void Rewind() override;
  void Flush();

 private:
  std::string pendiente_;
};

class PosixFileSystem : public FileSystem {
 public:
  std::string ProgramDirectory() override;
  bool Exists(const std::string& path) override;
  std::string ReadAll(const std::string& path) override;
  void WriteAll(const std::string& path, std::string_view content) override;
  bool Remove(const std::string& path) override;
  std::vector<std::string> List(const std::string& directory) override;
  std::optional<std::string> RealPath(const std::string& path) override;
  std::optional<std::string> ReadRegularFile(const std::string& path, std::size_t limit) override;
  std::optional<DateTime> ModificationTime(const std::string& path) override;

 private:
  std::string program_directory_;
};

// Where Orvex looks for one of its modules (`archivo`, "orvex-xsl.so"...):
// beside the program, then in `compilado`, the directory it was built in,
// when that is not empty.
std::vector<std::string> RutasModulo(const std::string& directorio_programa,
                                     std::string_view archivo, std::string_view compilado);
// The first of `rutas` that names a readable file, or "".
std::string PrimeraLegible(const std::vector<std::string>& rutas);

}  // namespace orvex
