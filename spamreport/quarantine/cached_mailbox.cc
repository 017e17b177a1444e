// Searches a quarantine mailbox over a window of time and keeps what a report shows, newest first.

#include <ctime>
#include <limits>

#include "velmar/spamreport.h"

namespace Velmar {
namespace {

constexpr int kNoLimit = std::numeric_limits<int>::max();
constexpr std::size_t kShortestId = 3;  // shorter ids, such as "<>", name no message

/// The window's two ends in 32 bits. Both arguments are cut first and the difference wraps: kept so, without widening.
VXMScopeRef windowScope(std::int64_t period, std::int64_t until) {
  const auto end = static_cast<std::uint32_t>(until);
  const std::uint32_t start = end - static_cast<std::uint32_t>(period);
  return VXMScopeRef(VXMScopeRef::TIME_RANGE, static_cast<std::int32_t>(start), static_cast<std::int32_t>(end),
                     kNoLimit);
}

bool carries(std::uint64_t flags, std::uint64_t mark) {
  VXMessageFlags wanted;
  wanted.mask = mark;
  wanted.used = 1;
  wanted.init();
  return (flags & wanted.mask) == wanted.mask;
}

/// Released and deleted messages are never reported.
bool excluded(std::uint64_t flags) {
  return carries(flags, VXMessageFlags::RELEASED) || carries(flags, VXMessageFlags::DELETED);
}

}  // namespace

CachedMailbox::CachedMailbox(const std::string& mailboxName) : name(mailboxName) {}
CachedMailbox::~CachedMailbox() = default;

const std::list<CachedMessage>& CachedMailbox::getMessages() const noexcept { return messages; }

void CachedMailbox::search(std::int64_t period, std::int64_t until) {
  messages.clear();
  const Ref<VXMailboxBase> mailbox = VXMailBoxRef::create(name, MAILBOX_OPEN_READ, VXMailBoxRef::MAILBOX_OP_NONE);
  if (!mailbox || !mailbox->isOpen()) return;

  if (until < 1) until = std::time(nullptr);
  const VXMScopeRef scope = windowScope(period, until);  // outlives the iteration that it governs
  mailbox->setScope(scope);
  for (VXMessageRef message = mailbox->next(); message; message = mailbox->next()) {
    if (excluded(message->flags())) continue;
    CachedMessage record(message);
    if (record.messageId.size() >= kShortestId) messages.push_back(std::move(record));
  }
  // list::sort is a stable merge sort: equal dates keep the mailbox's order.
  messages.sort([](const CachedMessage& a, const CachedMessage& b) { return a.date > b.date; });
}

}  // namespace Velmar
