#include "base/Platform.h"

#include "base/CodePage.h"

namespace orvex {

bool HasSeparator(std::string_view name) {
  return name.find_first_of("\\/") != std::string_view::npos;
}

std::string JoinPath(std::string_view directory, std::string_view name) {
  std::string path(directory);
  if (path.empty() || (path.back() != '/' && path.back() != '\\')) path += '/';
  path += name;
  return path;
}

std::string NativePath(std::string_view path) {
  std::string out(path);
  for (char& c : out) {
    if (c == '\\') c = '/';
  }
  return out;
}

std::optional<std::string> FindFile(FileSystem& files, std::string_view path) {
  const std::string native = NativePath(path);
  if (native.empty()) return std::nullopt;
  if (files.Exists(native)) return native;
  const size_t slash = native.rfind('/');
  const std::string directory = slash == std::string::npos ? "." : native.substr(0, slash + 1);
  const std::string name = slash == std::string::npos ? native : native.substr(slash + 1);
  std::optional<std::string> found;
  for (const std::string& entry : files.List(directory)) {
    if (!EqualsIgnoringCase(entry, name)) continue;
    if (found) return std::nullopt;
    found = slash == std::string::npos ? entry : directory + entry;
  }
  if (found && !files.Exists(*found)) return std::nullopt;
  return found;
}

}  // namespace orvex
