#pragma once

// A service that listens on a local socket of datagrams, as the journal and syslog do, and the journal's protocol.

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "host/common/descriptor.h"

namespace Velmar::Testing {

struct Datagram {
  std::string bytes;
  bool asFile = false;
  int seals = 0;  ///< of the file
};

class FakeService {
 public:
  explicit FakeService(const std::string& path) : path_(path) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    if (::bind(socket_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
      throw std::runtime_error("cannot listen on " + path);
    }
  }
  ~FakeService() { ::unlink(path_.c_str()); }

  /// The next datagram that waits, or the file that was passed in its place; empty when none waits.
  Datagram receive() {
    std::string buffer(1U << 18, '\0');
    iovec part{buffer.data(), buffer.size()};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))];
    msghdr header{};
    header.msg_iov = &part;
    header.msg_iovlen = 1;
    header.msg_control = control;
    header.msg_controllen = sizeof control;
    const ssize_t size = ::recvmsg(socket_.get(), &header, MSG_DONTWAIT);
    if (size < 0) return {};
    buffer.resize(static_cast<std::size_t>(size));
    const cmsghdr* rights = CMSG_FIRSTHDR(&header);
    if (!rights) return {buffer};
    int passed = -1;
    std::memcpy(&passed, CMSG_DATA(rights), sizeof passed);
    return readFile(Host::Descriptor(passed));
  }

 private:
  static Datagram readFile(const Host::Descriptor& file) {
    Datagram datagram{"", true, ::fcntl(file.get(), F_GET_SEALS)};
    datagram.bytes.resize(static_cast<std::size_t>(::lseek(file.get(), 0, SEEK_END)));
    if (::pread(file.get(), datagram.bytes.data(), datagram.bytes.size(), 0) < 0) throw std::runtime_error("pread");
    return datagram;
  }

  const std::string path_;
  Host::Descriptor socket_{::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
};

using Field = std::pair<std::string, std::string>;

/// The fields of a datagram of the journal's native protocol. Throws when it is none.
inline std::vector<Field> journalFields(std::string bytes) {
  std::vector<Field> fields;
  while (!bytes.empty()) {
    const std::size_t end = bytes.find('\n');
    if (end == std::string::npos) throw std::runtime_error("no line: " + bytes);
    const std::string line = bytes.substr(0, end);
    bytes.erase(0, end + 1);
    if (const std::size_t equals = line.find('='); equals != std::string::npos) {
      fields.emplace_back(line.substr(0, equals), line.substr(equals + 1));
      continue;
    }
    std::size_t length = 0;
    for (std::size_t i = 8; i-- > 0;) length = length << 8 | static_cast<unsigned char>(bytes.at(i));
    if (bytes.at(8 + length) != '\n') throw std::runtime_error("no end of " + line);
    fields.emplace_back(line, bytes.substr(8, length));
    bytes.erase(0, 8 + length + 1);
  }
  return fields;
}

}  // namespace Velmar::Testing
