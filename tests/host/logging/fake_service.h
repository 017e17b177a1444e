#pragma once

// A service that listens on a local socket of datagrams, as the journal and syslog do.

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>

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

}  // namespace Velmar::Testing
