// Reads and writes whole files, with errors that name them.

#include "tools/spamreport/files.h"

#include <cerrno>
#include <fstream>
#include <sstream>
#include <system_error>

namespace Velmar::Tool {
namespace {

[[noreturn]] void fail(const std::filesystem::path& path, const char* what) {
  throw std::system_error(errno, std::generic_category(), path.string() + " cannot be " + what);
}

}  // namespace

std::string readFile(const std::filesystem::path& path) {
  errno = 0;
  std::ifstream in(path, std::ios::binary);
  if (!in) fail(path, "opened");
  std::ostringstream content;
  if (in.peek() != std::ifstream::traits_type::eof()) content << in.rdbuf();
  if (in.bad() || !content) fail(path, "read");
  return content.str();
}

void writeFile(const std::filesystem::path& path, const std::string& content) {
  errno = 0;
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  if (!out) fail(path, "opened");
  out << content;
  out.close();
  if (!out) fail(path, "written");
}

}  // namespace Velmar::Tool
