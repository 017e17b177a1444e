// Starts the desktop's opener as a program of its own: no shell reads the name of the file.

#include "tools/spamreport/open_page.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <string>
#include <system_error>

namespace Velmar::Tool {

void openPage(const std::filesystem::path& file) {
  std::string opener = "xdg-open";
  std::string page = std::filesystem::absolute(file).lexically_normal().string();
  const std::array<char*, 3> arguments{opener.data(), page.data(), nullptr};
  pid_t child = 0;
  const int error = ::posix_spawnp(&child, opener.c_str(), nullptr, nullptr, arguments.data(), environ);
  if (error != 0) {
    throw std::runtime_error("xdg-open, which opens pages, cannot be started: " +
                             std::generic_category().message(error));
  }
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) throw std::runtime_error("xdg-open could not open " + page);
}

}  // namespace Velmar::Tool
