// Writes, lists and reads the mail spool. The mail builder writes; the administrator's command and whatever hands mails
// on read.

#include "host/mail_builder/spool.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <ctime>
#include <memory>
#include <optional>

#include "host/common/directories.h"
#include "host/common/root.h"
#include "host/mail_builder/durable_file.h"
#include "host/mail_builder/system_file.h"
#include "platform/types.h"

namespace Velmar::Host {
namespace {

constexpr std::size_t kMaxMail = std::size_t{64} << 20;
constexpr std::size_t kMaxEnvelope = std::size_t{4} << 20;
constexpr std::string_view kVersion = "1";

constexpr std::string_view kSpool = "/var/spool/velmar";

std::string spoolDirectory() { return underRoot(kSpool); }

Exception fault(const std::string& path, const std::string& reason) {
  return Exception("SpoolException", 4, "Spool", __LINE__, "spool file " + path + ": " + reason);
}

std::string envelopeText(const QueuedMail& mail, std::time_t queuedAt) {
  std::string text = "Velmar-Spool: " + std::string(kVersion) + "\nId: " + mail.id + "\nSender: " + mail.sender + "\n";
  for (const std::string& recipient : mail.recipients) text += "Recipient: " + recipient + "\n";
  text += mail.suppressDsn ? "Notify: never\n" : "Notify: default\n";
  return text + "Queued: " + std::to_string(queuedAt) + "\n\n";
}

bool isBareAddress(const std::string& text) {
  const EmailAddress address = EmailAddress::rfc5322Parse(text, true);
  return !address.isEmptyAddress() && address.address() == text;
}

/// Takes "NAME: VALUE" lines off the front of an envelope.
class EnvelopeReader {
 public:
  EnvelopeReader(std::string_view text, const std::string& path) : text_(text), path_(path) {}

  /// The value of the next line when it has this name.
  std::optional<std::string> next(std::string_view name) {
    const std::size_t end = text_.substr(0, kMaxEnvelope).find('\n', at_);
    if (end == std::string_view::npos) throw fault(path_, "the envelope has no end");
    const std::string_view line = text_.substr(at_, end - at_);
    if (line.substr(0, name.size()) != name || line.substr(name.size(), 2) != ": ") return {};
    at_ = end + 1;
    return std::string(line.substr(name.size() + 2));
  }

  std::string required(std::string_view name) {
    auto value = next(name);
    if (!value) throw fault(path_, "no line " + std::string(name) + " where it belongs");
    return *value;
  }

  std::string address(std::string value) const {
    if (!isBareAddress(value)) throw fault(path_, "no mail address: \"" + value + "\"");
    return value;
  }

  /// Behind the empty line.
  std::size_t end() const {
    if (at_ >= text_.size() || text_[at_] != '\n') throw fault(path_, "no empty line behind the envelope");
    return at_ + 1;
  }

 private:
  std::string_view text_;
  const std::string& path_;
  std::size_t at_ = 0;
};

long long parseSeconds(const std::string& digits, const std::string& path) {
  long long seconds = -1;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), seconds);
  if (error != std::errc() || end != digits.data() + digits.size() || seconds < 0) {
    throw fault(path, "no time: \"" + digits + "\"");
  }
  return seconds;
}

struct SpoolFile {
  Descriptor descriptor{-1};
  std::size_t size = 0;
};

/// The opened file; not open when there is none.
SpoolFile openSpoolFile(const std::string& path) {
  SpoolFile file;
  file.descriptor = Descriptor(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW));
  if (!file.descriptor.isOpen()) {
    if (errno == ENOENT) return file;
    throw fault(path, errorText(errno));
  }
  struct stat status {};
  if (::fstat(file.descriptor.get(), &status) != 0) throw fault(path, errorText(errno));
  if (!S_ISREG(status.st_mode)) throw fault(path, "is not a regular file");
  file.size = static_cast<std::size_t>(status.st_size);
  return file;
}

/// The front of a file up to the end of its envelope, or as much as an envelope may have.
std::string readEnvelope(const SpoolFile& file, const std::string& path) {
  std::string text;
  std::size_t step = 4096;
  while (text.find("\n\n") == std::string::npos && text.size() < kMaxEnvelope) {
    const std::size_t before = text.size();
    text.resize(before + step);
    const ssize_t got = ::pread(file.descriptor.get(), text.data() + before, step, static_cast<off_t>(before));
    if (got < 0 && errno != EINTR) throw fault(path, errorText(errno));
    text.resize(before + static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    if (got == 0) break;
    step = std::max(step, text.size());
  }
  return text;
}

std::optional<SpoolEntry> readEntry(const std::string& path) {
  const SpoolFile file = openSpoolFile(path);
  if (!file.descriptor.isOpen()) return {};
  SpoolEnvelope envelope = parseSpoolEnvelope(readEnvelope(file, path), path);
  envelope.entry.size = file.size - envelope.mailStart;
  return envelope.entry;
}

struct CloseDirectory {
  void operator()(DIR* directory) const noexcept { ::closedir(directory); }
};

/// The names in new/; a missing directory has none.
std::vector<std::string> spoolNames(const std::string& path) {
  std::vector<std::string> names;
  const std::unique_ptr<DIR, CloseDirectory> directory(::opendir(path.c_str()));
  if (!directory) {
    if (errno == ENOENT) return names;
    throw fault(path, errorText(errno));
  }
  for (;;) {
    errno = 0;
    const struct dirent* entry = ::readdir(directory.get());
    if (!entry && errno != 0) throw fault(path, errorText(errno));
    if (!entry) return names;
    if (entry->d_name[0] != '.') names.emplace_back(entry->d_name);
  }
}

bool isQueueId(const std::string& id) {
  return isPathComponent(id) && std::all_of(id.begin(), id.end(), [](char c) {
           return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-';
         });
}

}  // namespace

void checkSpool() {
  for (const char* part : {"/tmp", "/new"}) {
    makeDirectories(std::string(kSpool) + part);
    const std::string path = spoolDirectory() + part;
    if (::faccessat(AT_FDCWD, path.c_str(), R_OK | W_OK | X_OK, AT_EACCESS) != 0) throw fault(path, errorText(errno));
  }
}

void writeToSpool(const QueuedMail& mail) {
  const std::string directory = spoolDirectory();
  if (mail.content.size() > kMaxMail) {
    throw fault(directory + "/new/" + mail.id, "the mail is larger than " + std::to_string(kMaxMail) + " bytes");
  }
  std::string text = envelopeText(mail, std::time(nullptr));
  if (text.size() > kMaxEnvelope) throw fault(directory + "/new/" + mail.id, "too many recipients");
  for (const char* part : {"/tmp", "/new"}) makeDirectories(std::string(kSpool) + part);
  createDurably(directory, mail.id, text.append(mail.content));
}

SpoolEnvelope parseSpoolEnvelope(std::string_view text, const std::string& path) {
  EnvelopeReader in(text, path);
  SpoolEnvelope envelope;
  SpoolEntry& entry = envelope.entry;
  if (in.required("Velmar-Spool") != kVersion) throw fault(path, "unknown version");
  entry.id = in.required("Id");
  if (!isQueueId(entry.id) || path.substr(path.rfind('/') + 1) != entry.id) {
    throw fault(path, "has the id \"" + entry.id + "\"");
  }
  entry.sender = in.required("Sender");
  if (!entry.sender.empty()) in.address(entry.sender);
  entry.recipients.push_back(in.address(in.required("Recipient")));
  while (auto recipient = in.next("Recipient")) entry.recipients.push_back(in.address(*recipient));
  const std::string notify = in.required("Notify");
  if (notify != "never" && notify != "default") throw fault(path, "unknown Notify: \"" + notify + "\"");
  entry.suppressDsn = notify == "never";
  entry.queuedAt = parseSeconds(in.required("Queued"), path);
  envelope.mailStart = in.end();
  return envelope;
}

std::vector<SpoolEntry> listSpool() {
  const std::string directory = spoolDirectory() + "/new";
  std::vector<SpoolEntry> entries;
  for (const std::string& name : spoolNames(directory)) {
    // One that is gone by now has been handed on.
    if (auto entry = readEntry(std::string(directory).append("/").append(name))) entries.push_back(std::move(*entry));
  }
  std::sort(entries.begin(), entries.end(), [](const SpoolEntry& a, const SpoolEntry& b) {
    return a.queuedAt != b.queuedAt ? a.queuedAt < b.queuedAt : a.id < b.id;
  });
  return entries;
}

QueuedMail readSpool(const std::string& id) {
  const std::string path = spoolDirectory() + "/new/" + id;
  if (!isQueueId(id)) throw fault(path, "is no queue id");
  const SpoolFile file = openSpoolFile(path);
  if (!file.descriptor.isOpen()) throw fault(path, errorText(ENOENT));
  std::string text = readUpTo(file.descriptor.get(), kMaxEnvelope + kMaxMail, path);
  SpoolEnvelope envelope = parseSpoolEnvelope(text, path);
  QueuedMail mail;
  mail.id = std::move(envelope.entry.id);
  mail.sender = std::move(envelope.entry.sender);
  mail.recipients = std::move(envelope.entry.recipients);
  mail.suppressDsn = envelope.entry.suppressDsn;
  mail.content = text.erase(0, envelope.mailStart);
  return mail;
}

}  // namespace Velmar::Host
