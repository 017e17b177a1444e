// Sends the log's datagrams. It is used in place of the C library's syslog(3), whose settings belong to the program
// that loads this one, and of the journal's client library, which answers "sent" where no journal is and waits without
// end for one that has stopped reading.

#include "host/logging/datagram_sink.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace Velmar::Host {
namespace {

/// A message of `bytes`, and of a descriptor unless it is negative.
class Message {
 public:
  Message(std::string_view bytes, int passed) : part_{const_cast<char*>(bytes.data()), bytes.size()} {
    header_.msg_iov = &part_;
    header_.msg_iovlen = bytes.empty() ? 0 : 1;
    if (passed < 0) return;
    header_.msg_control = control_.data();
    header_.msg_controllen = control_.size();
    cmsghdr* rights = CMSG_FIRSTHDR(&header_);
    rights->cmsg_level = SOL_SOCKET;
    rights->cmsg_type = SCM_RIGHTS;
    rights->cmsg_len = CMSG_LEN(sizeof passed);
    std::memcpy(CMSG_DATA(rights), &passed, sizeof passed);
  }
  Message(const Message&) = delete;
  Message& operator=(const Message&) = delete;

  /// Returns 0 or an errno. Never waits, never raises SIGPIPE.
  int send(int socket) const noexcept {
    while (::sendmsg(socket, &header_, MSG_NOSIGNAL | MSG_DONTWAIT) < 0) {
      if (errno != EINTR) return errno;
    }
    return 0;
  }

 private:
  iovec part_;
  alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control_{};
  msghdr header_{};
};

bool isFull(int error) { return error == EAGAIN || error == ENOBUFS; }

}  // namespace

DatagramSink::DatagramSink(std::string path, TooLarge tooLarge, std::chrono::milliseconds patience)
    : path_(std::move(path)), tooLarge_(tooLarge), patience_(patience) {}

int DatagramSink::send(std::string_view bytes) {
  const std::lock_guard lock(mutex_);
  const bool connected = socket_.isOpen();
  int error = connectAndSend(bytes);
  if (error != 0 && error != ETIMEDOUT && connected) {
    socket_ = Descriptor();  // a service that was started anew has a new socket
    error = connectAndSend(bytes);
  }
  patient_ = error != ETIMEDOUT;
  return error;
}

int DatagramSink::connectAndSend(std::string_view bytes) {
  if (!socket_) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path_.size() >= sizeof address.sun_path) return ENAMETOOLONG;
    path_.copy(address.sun_path, path_.size());
    Descriptor opened(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!opened || ::connect(opened.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) return errno;
    socket_ = std::move(opened);
  }
  const int error = sendConnected(bytes, -1);
  return error == EMSGSIZE && tooLarge_ == TooLarge::kPassedAsFile ? sendAsFile(bytes) : error;
}

int DatagramSink::sendConnected(std::string_view bytes, int passed) {
  const Message message(bytes, passed);
  int error = message.send(socket_.get());
  const auto end = std::chrono::steady_clock::now() + patience_;
  while (patient_ && isFull(error)) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    if (left.count() <= 0 || !waitWritable(socket_.get(), left)) break;
    error = message.send(socket_.get());
  }
  return isFull(error) ? ETIMEDOUT : error;
}

/// The bytes in a sealed file in memory, whose descriptor alone is sent.
int DatagramSink::sendAsFile(std::string_view bytes) {
  const Descriptor file(::memfd_create("spamreport-log", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  if (!file) return errno;
  std::size_t written = 0;
  if (const int error = writeFully(file.get(), bytes, written)) return error;
  if (::fcntl(file.get(), F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL) != 0) return errno;
  return sendConnected("", file.get());
}

}  // namespace Velmar::Host
