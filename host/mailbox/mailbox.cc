// The quarantine of one user as a mailbox: opens the Maildir, picks the messages of a scope from its listing and hands
// them out one by one with their headers. Called by the report's mailbox search. It changes nothing on disk and lets
// one bad message cost only itself: such messages are told to the log at the end of a scan.

#include "platform/mailbox.h"

#include <fcntl.h>

#include <cerrno>
#include <utility>
#include <vector>

#include "host/common/root.h"
#include "host/mailbox/maildir.h"
#include "host/mailbox/maildir_name.h"
#include "host/mailbox/message_file.h"
#include "host/mailbox/read_ahead.h"
#include "host/mailbox/shared_identifier.h"
#include "host/mailbox/unreadable.h"

namespace Velmar {
namespace {

using namespace Host;

constexpr char kQuarantine[] = "quarantine";
// How often a scan may look where its messages have gone: someone who renames without end must not hold it up.
constexpr int kMaxNewListings = 8;
// Longer field values are cut: a report holds many of them at once, and shows far less of each.
constexpr std::size_t kMaxValue = std::size_t{16} << 10;

// A value of bounded length, cut at white space where it can be, so that no encoded word is cut.
std::string bounded(std::string value) {
  if (value.size() <= kMaxValue) return value;
  const std::size_t blank = value.find_last_of(" \t", kMaxValue);
  value.resize(blank == std::string::npos || blank == 0 ? kMaxValue : blank);
  return value;
}

class MaildirHeaders final : public HeaderContainer {
 public:
  explicit MaildirHeaders(HeaderBlock block) : block_(std::move(block)) {}

  Header find(const std::string& name) const override {
    std::optional<std::string> value = block_.find(name);
    return value ? Header(bounded(std::move(*value))) : Header();
  }

 private:
  HeaderBlock block_;
};

class MaildirEnvelope final : public VXMessageEnv {
 public:
  MaildirEnvelope(std::string key, std::time_t time) : key_(std::move(key)), time_(time) {}

  std::string key() const override { return key_; }
  std::time_t time() const override { return time_; }

 private:
  std::string key_;
  std::time_t time_;
};

class MaildirMessage final : public VXMessageBase {
 public:
  MaildirMessage(std::string_view name, std::time_t time, HeaderBlock header)
      : headers_(std::move(header)),
        envelope_(new MaildirEnvelope(std::string(name), time)),
        flags_(messageMarks(name)) {}

  const HeaderContainer& headers() override { return headers_; }
  Ref<VXMessageEnv> envelope() override { return envelope_; }
  std::uint64_t flags() override { return flags_; }

 private:
  MaildirHeaders headers_;
  Ref<VXMessageEnv> envelope_;
  std::uint64_t flags_;
};

// A message that was opened, under the name it had then.
struct FoundMessage {
  Descriptor file;
  std::string_view name;
  MaildirFolder folder = MaildirFolder::New;
  int error = 0;  // of the system, when it refused the message
};

class MaildirMailbox final : public VXMailboxBase {
 public:
  MaildirMailbox(Maildir maildir, std::string path) : maildir_(std::move(maildir)), path_(std::move(path)) {}

  bool isOpen() const override { return true; }

  void setScope(const VXMScopeRef& scope) override {
    scan_ = Scan{};
    scan_.window = {scope.from(), scope.until()};
    scan_.left = scope.limit();
    scan_.messages = maildir_.list(scan_.window);
    scan_.messages.sortByDelivery();
    scan_.refused = scan_.messages.unexamined();
  }

  VXMessageRef next() override {
    while (scan_.left > 0 && scan_.position < scan_.messages.size()) {
      scan_.ahead.before(maildir_, scan_.messages, scan_.position, static_cast<std::size_t>(scan_.left));
      const ListedMessage& listed = scan_.messages[scan_.position++];
      VXMessageRef message = read(listed);
      if (!message) continue;
      --scan_.left;
      scan_.anyRead = true;
      scan_.namesRead.push_back(scan_.messages.name(listed));
      return message;
    }
    // Where every message was refused it is not the messages: "nothing held" would be a wrong answer.
    const Unreadable& refused = scan_.refused;
    if (!scan_.anyRead && refused.count() > 0) {
      throw systemError(__LINE__, "cannot read any message in", refused.firstFolder(), refused.firstError());
    }
    scan_.refused.tell(path_);
    tellSharedIdentifier(path_, std::exchange(scan_.namesRead, {}));
    return VXMessageRef();
  }

 private:
  struct Scan {
    TimeWindow window{0, 0};
    Listing messages;
    std::size_t position = 0;
    ReadAhead ahead;
    int left = 0;   // how many messages the scope still allows
    Listing fresh;  // where messages were when one of them was last missed
    int newListings = 0;
    bool anyRead = false;
    Unreadable refused;
    std::vector<std::string_view> namesRead;  // within `messages`
  };

  // An empty handle for a message that has gone or cannot be read: it is skipped.
  VXMessageRef read(const ListedMessage& listed) {
    const FoundMessage found = open(listed);
    if (!found.file) return skip(found, found.error);
    std::optional<HeaderBlock> header = readHeader(found.file);
    if (!header) return skip(found, errno == ESTALE ? 0 : errno);  // ESTALE: gone since it was opened
    return VXMessageRef(new MaildirMessage(found.name, listed.time, std::move(*header)));
  }

  VXMessageRef skip(const FoundMessage& message, int error) {
    if (error != 0) scan_.refused.add(maildir_.path(message.folder), message.name, error);
    return VXMessageRef();
  }

  FoundMessage open(const ListedMessage& listed) {
    OpenedMessage opened = openAs(listed, scan_.messages);
    if (opened.gone) return openWhereItIsNow(listed.time, scan_.messages.unique(listed));
    return {std::move(opened.file), scan_.messages.name(listed), listed.folder, opened.error};
  }

  // Finds a message that was renamed since the listing: flagged, or moved from new/ to cur/.
  FoundMessage openWhereItIsNow(std::int64_t time, std::string_view unique) {
    for (;;) {
      if (const ListedMessage* now = scan_.fresh.find(time, unique)) {
        OpenedMessage opened = openAs(*now, scan_.fresh);
        if (!opened.gone) return {std::move(opened.file), scan_.fresh.name(*now), now->folder, opened.error};
      }
      if (scan_.newListings == kMaxNewListings) return {};
      ++scan_.newListings;
      scan_.fresh = maildir_.list(scan_.window);
      if (!scan_.fresh.find(time, unique)) return {};
    }
  }

  OpenedMessage openAs(const ListedMessage& listed, const Listing& listing) {
    return opener_.open(maildir_.descriptor(listed.folder), listing.name(listed).data(), listed.regular,
                        maildir_.path(listed.folder));
  }

  Maildir maildir_;
  const std::string path_;
  MessageOpener opener_;
  Scan scan_;
};

// The parts of "/home/DOMAIN/DIRECTORY/quarantine".
struct QuarantineName {
  std::string domain;
  std::string directory;
};

Exception notAMailboxName(int line, const std::string& name) {
  return Exception("MailboxException", 4, "Maildir", line,
                   "\"" + name + "\" is not the name of a mailbox (/home/DOMAIN/USER~DOMAIN/quarantine)");
}

QuarantineName parseName(const std::string& name) {
  static const std::string prefix = "/home/";
  static const std::string suffix = std::string("/") + kQuarantine;
  if (!name.starts_with(prefix) || !name.ends_with(suffix) || name.size() < prefix.size() + suffix.size()) {
    throw notAMailboxName(__LINE__, name);
  }
  const std::string middle = name.substr(prefix.size(), name.size() - prefix.size() - suffix.size());
  const std::size_t slash = middle.find('/');
  if (slash == std::string::npos) throw notAMailboxName(__LINE__, name);
  QuarantineName parts{middle.substr(0, slash), middle.substr(slash + 1)};
  const std::string ending = "~" + parts.domain;
  if (!isPathComponent(parts.domain) || !isPathComponent(parts.directory) || !parts.directory.ends_with(ending) ||
      parts.directory.size() == ending.size()) {
    throw notAMailboxName(__LINE__, name);
  }
  return parts;
}

// Steps down from the domain's directory; empty when any step is surely missing.
Descriptor openQuarantine(const QuarantineName& name) {
  std::string path = underRoot("/home/" + name.domain);
  const Descriptor domain = openDirectory(path, O_PATH);
  if (!domain) return Descriptor();
  path += "/" + name.directory;
  const Descriptor mailbox = openSubdirectory(domain, name.directory.c_str(), path, O_PATH);
  if (!mailbox) return Descriptor();
  return openSubdirectory(mailbox, kQuarantine, path + "/" + kQuarantine, O_PATH);
}

Exception unknownValue(int line, const char* what, int value) {
  return Exception("MailboxException", 1, "Maildir", line, std::string(what) + " " + std::to_string(value));
}

}  // namespace

HeaderContainer::HeaderContainer() = default;
HeaderContainer::~HeaderContainer() = default;
VXMessageEnv::~VXMessageEnv() = default;
VXMessageBase::~VXMessageBase() = default;
VXMailboxBase::~VXMailboxBase() = default;

// The marks of this store are the bits themselves: there is nothing to translate.
void VXMessageFlags::init() {}

VXMScopeRef::VXMScopeRef(const ScopeType& type, int a, int b, int c) : a_(a), b_(b), c_(c) {
  if (type != TIME_RANGE) throw unknownValue(__LINE__, "unknown type of mailbox scope:", type);
}

Ref<VXMailboxBase> VXMailBoxRef::create(const std::string& name, MailboxOpenMethod method, MailBoxOp op) {
  if (method != MAILBOX_OPEN_READ) throw unknownValue(__LINE__, "unknown method of opening a mailbox:", method);
  if (op != MAILBOX_OP_NONE) throw unknownValue(__LINE__, "unknown mailbox operation:", op);
  Descriptor directory = openQuarantine(parseName(name));
  if (!directory) return Ref<VXMailboxBase>();
  const std::string path = underRoot(name);
  return Ref<VXMailboxBase>(new MaildirMailbox(Maildir(std::move(directory), path), path));
}

}  // namespace Velmar
