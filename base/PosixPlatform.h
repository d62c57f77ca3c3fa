#pragma once

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
  std::size_t Read(char* buffer, std::size_t size) override;
  void Pause() override;
};

// Standard output, file descriptor 1: one write(2) per call, nothing buffered.
class StdOutput : public Output {
 public:
  void Write(std::string_view bytes) override;
  void TruncateHere() override;
  void Rewind() override;
};

class PosixFileSystem : public FileSystem {
 public:
  std::string ProgramDirectory() override;
  bool Exists(const std::string& path) override;
  std::string ReadAll(const std::string& path) override;
  void WriteAll(const std::string& path, std::string_view content) override;
  bool Remove(const std::string& path) override;
  std::vector<std::string> List(const std::string& directory) override;

 private:
  std::string program_directory_;
};

}  // namespace orvex
