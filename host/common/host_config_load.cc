// Loads the process's configuration: reads the file, bounded, and keeps what parseHostConfig made of it.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <mutex>
#include <string>
#include <system_error>

#include "host/common/descriptor.h"
#include "host/common/host_config.h"
#include "host/host.h"

namespace Velmar::Host {
namespace {

[[noreturn]] void failed(const std::string& path, const std::string& reason) {
  throw Exception("ConfigException", 4, "HostConfig", __LINE__, path + ": " + reason);
}

[[noreturn]] void failed(const std::string& path, const char* what, int error) {
  failed(path, std::string(what) + ": " + std::generic_category().message(error));
}

void checkFile(int fd, const std::string& path) {
  struct stat status {};
  if (::fstat(fd, &status) != 0) failed(path, "cannot be examined", errno);
  if (!S_ISREG(status.st_mode)) failed(path, "is no regular file");
  if (status.st_size > static_cast<off_t>(kMaxHostConfig))
    failed(path,
           "has " + std::to_string(status.st_size) + " bytes, at most " + std::to_string(kMaxHostConfig) + " fit");
}

// The file's bytes. One that grows while it is read ends soon after the limit, for the parser to refuse.
std::string readFile(const std::string& path) {
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
  if (file.get() < 0) failed(path, "cannot be opened", errno);
  checkFile(file.get(), path);
  std::string text;
  std::array<char, 65536> part;
  while (text.size() <= kMaxHostConfig) {
    const ssize_t count = ::read(file.get(), part.data(), part.size());
    if (count == 0) break;
    if (count > 0) {
      text.append(part.data(), static_cast<std::size_t>(count));
    } else if (errno != EINTR) {
      failed(path, "cannot be read", errno);
    }
  }
  return text;
}

HostConfig load() {
  // Whatever the platform opens comes after this.
  if (!occupyStandardStreams()) failed("/dev/null", "cannot stand in for a closed standard stream", errno);
  const std::string path = hostConfigPath();
  return parseHostConfig(readFile(path), path);
}

}  // namespace

const HostConfig& hostConfig() {
  // Not a static with an initialiser: under ThreadSanitizer the waiters of one that throws can hang for ever.
  // Never deleted: other statics may still use it while the process ends.
  static std::atomic<const HostConfig*> loaded{nullptr};
  static std::mutex loading;
  if (const HostConfig* config = loaded.load(std::memory_order_acquire)) return *config;
  const std::lock_guard<std::mutex> lock(loading);
  if (!loaded.load(std::memory_order_relaxed)) loaded.store(new HostConfig(load()), std::memory_order_release);
  return *loaded.load(std::memory_order_relaxed);
}

}  // namespace Velmar::Host
