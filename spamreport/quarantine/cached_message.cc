// Copies the facts that a report shows out of a held message, so that the mailbox need not stay open.

#include "velmar/spamreport.h"

namespace Velmar {
namespace {

std::string valueOrEmpty(const Header& header) { return header.isNull() ? "" : header.value(); }

Header identifier(const HeaderContainer& headers) {
  Header own = headers.find("X-VX-MESSAGE-ID");
  return own.isNull() ? headers.find("Message-Id") : own;
}

}  // namespace

// Members are filled in the order date, key, From, identifier, Subject.
CachedMessage::CachedMessage(const VXMessageRef& msg) : date(msg->envelope()->time()) {
  mailboxKey = msg->envelope()->key();
  const HeaderContainer& headers = msg->headers();
  from = valueOrEmpty(headers.find("From"));
  messageId = valueOrEmpty(identifier(headers));
  subject = valueOrEmpty(headers.find("Subject"));
}

}  // namespace Velmar
