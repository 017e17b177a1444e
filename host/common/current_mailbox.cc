// Keeps one address a thread. Set where the platform is asked about a recipient, read by the log.

#include "host/common/current_mailbox.h"

#include <array>

namespace Velmar::Host {
namespace {

constexpr std::string_view kHome = "/home/";

// Longer paths name no mailbox. No std::string: it would be gone when threads log while they end.
thread_local std::array<char, 256> address{};
thread_local std::size_t length = 0;

}  // namespace

void setCurrentMailbox(std::string_view directory) noexcept {
  length = 0;
  if (!directory.starts_with(kHome)) return;
  const std::size_t slash = directory.find('/', kHome.size());
  if (slash == std::string_view::npos) return;
  const std::string_view name = directory.substr(slash + 1);
  const std::size_t tilde = name.rfind('~');
  if (tilde == std::string_view::npos || name.size() > address.size()) return;
  length = name.copy(address.data(), address.size());
  address[tilde] = '@';
}

std::string currentMailbox() { return {address.data(), length}; }

}  // namespace Velmar::Host
