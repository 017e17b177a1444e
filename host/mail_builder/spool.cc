// Writes, lists and reads the mail spool. The mail builder writes; the administrator's command and whatever hands mails
// on read.

#include "host/mail_builder/spool.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <iterator>
#include <optional>

#include "host/common/directories.h"
#include "host/common/root.h"
#include "host/mail_builder/durable_file.h"
#include "host/mail_builder/file_lock.h"
#include "host/mail_builder/spool_envelope.h"
#include "host/mail_builder/system_file.h"

namespace Velmar::Host {
namespace {

constexpr std::string_view kSpool = "/var/spool/velmar";
constexpr const char* kPlaces[] = {"tmp", "new", "failed"};

void makePlaces() {
  for (const char* place : kPlaces) {
    makeDirectories(std::string(kSpool) + "/" + place);
    giveToOwner(spoolPath(), place);
  }
}

bool placesStand() {
  return std::all_of(std::begin(kPlaces), std::end(kPlaces),
                     [](const char* place) { return ::access((spoolPath() + "/" + place).c_str(), F_OK) == 0; });
}

/// The front of a file up to the end of its envelope, or as much as an envelope may have.
std::string readEnvelope(const Descriptor& file, const std::string& path) {
  std::string text;
  std::size_t step = 4096;
  while (text.find("\n\n") == std::string::npos && text.size() < kMaxEnvelope) {
    const std::size_t before = text.size();
    text.resize(before + step);
    const ssize_t got = ::pread(file.get(), text.data() + before, step, static_cast<off_t>(before));
    if (got < 0 && errno != EINTR) throw spoolFault(path, errorText(errno));
    text.resize(before + static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    if (got == 0) break;
    step = std::max(step, text.size());
  }
  return text;
}

std::optional<SpoolEntry> readEntry(SpoolState state, const std::string& path) {
  const Descriptor file = openSpoolFile(path, O_RDONLY);
  if (!file.isOpen()) return {};
  SpoolEnvelope envelope = parseSpoolEnvelope(readEnvelope(file, path), path);
  envelope.entry.state = state;
  envelope.entry.size = static_cast<std::size_t>(statusOf(file, path).st_size) - envelope.mailStart;
  return envelope.entry;
}

/// A file that cannot be read is an entry that says so: it must not hide the others.
std::optional<SpoolEntry> entryOf(SpoolState state, const std::string& id) try {
  return readEntry(state, spoolPath(state, id));
} catch (const Exception& e) {
  SpoolEntry entry;
  entry.id = id;
  entry.state = SpoolState::kUnreadable;
  entry.lastReply = e.text();
  return entry;
}

void sortByAge(std::vector<SpoolEntry>& entries) {
  std::sort(entries.begin(), entries.end(), [](const SpoolEntry& a, const SpoolEntry& b) {
    return a.queuedAt != b.queuedAt ? a.queuedAt < b.queuedAt : madeBefore(a.id, b.id);
  });
}

}  // namespace

std::string spoolPath() { return underRoot(kSpool); }

std::string spoolPlace(SpoolState state) { return state == SpoolState::kFailed ? "failed" : "new"; }

std::string spoolPath(SpoolState state, const std::string& id) {
  return spoolPath().append("/").append(spoolPlace(state)).append("/").append(id);
}

void checkSpool() {
  makePlaces();
  for (const char* place : kPlaces) {
    const std::string path = spoolPath() + "/" + place;
    if (::faccessat(AT_FDCWD, path.c_str(), R_OK | W_OK | X_OK, AT_EACCESS) != 0) {
      throw spoolFault(path, errorText(errno));
    }
  }
}

void writeToSpool(const QueuedMail& mail, const SpoolFloor& floor) {
  const std::string path = spoolPath(SpoolState::kWaiting, mail.id);
  if (mail.content.size() > kMaxMail) {
    throw spoolFault(path, "the mail is larger than " + std::to_string(kMaxMail) + " bytes");
  }
  SpoolEntry entry;
  entry.id = mail.id;
  entry.sender = mail.sender;
  entry.recipients = mail.recipients;
  entry.suppressDsn = mail.suppressDsn;
  entry.queuedAt = std::time(nullptr);
  std::string text = spoolEnvelopeText(entry);
  if (text.size() > kMaxNewEnvelope) throw spoolFault(path, "too many recipients");
  text += mail.content;
  if (!placesStand()) makePlaces();
  const std::string fault = spoolSpaceFault(spoolPath(), text.size(), floor);
  if (!fault.empty()) throw spoolFault(path, fault);
  createDurably(spoolPath(), mail.id, text);
}

std::vector<SpoolEntry> listSpool(SpoolState state) {
  std::vector<SpoolEntry> entries;
  for (const std::string& id : namesIn(spoolPath() + "/" + spoolPlace(state))) {
    // One that is gone by now has been handed on.
    if (auto entry = entryOf(state, id)) entries.push_back(std::move(*entry));
  }
  sortByAge(entries);
  return entries;
}

std::vector<SpoolEntry> listSpool() {
  std::vector<SpoolEntry> entries = listSpool(SpoolState::kWaiting);
  for (SpoolEntry& entry : listSpool(SpoolState::kFailed)) entries.push_back(std::move(entry));
  sortByAge(entries);
  return entries;
}

Descriptor openSpoolFile(const std::string& path, int access) {
  Descriptor file(::open(path.c_str(), access | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW));
  if (!file.isOpen()) {
    if (errno == ENOENT) return file;
    throw spoolFault(path, errorText(errno));
  }
  if (!S_ISREG(statusOf(file, path).st_mode)) throw spoolFault(path, "is not a regular file");
  return file;
}

SpoolMail readSpoolFile(const Descriptor& file, SpoolState state, const std::string& path) {
  std::string text = readUpTo(file.get(), kMaxEnvelope + kMaxMail, path);
  SpoolEnvelope envelope = parseSpoolEnvelope(text, path);
  envelope.entry.state = state;
  text.erase(0, envelope.mailStart);
  envelope.entry.size = text.size();
  return {std::move(envelope.entry), std::move(text)};
}

QueuedMail queuedMail(SpoolMail mail) {
  QueuedMail queued;
  queued.id = std::move(mail.entry.id);
  queued.sender = std::move(mail.entry.sender);
  queued.recipients = std::move(mail.entry.recipients);
  queued.suppressDsn = mail.entry.suppressDsn;
  queued.content = std::move(mail.content);
  return queued;
}

QueuedMail readSpool(const std::string& id) {
  const std::string waiting = spoolPath(SpoolState::kWaiting, id);
  if (!isQueueId(id)) throw spoolFault(waiting, "is no queue id");
  // It may move while we look; back to waiting only when somebody retries it.
  for (const SpoolState state : {SpoolState::kWaiting, SpoolState::kFailed, SpoolState::kWaiting}) {
    const std::string path = spoolPath(state, id);
    const Descriptor file = openSpoolFile(path, O_RDONLY);
    if (file.isOpen()) return queuedMail(readSpoolFile(file, state, path));
  }
  throw spoolFault(waiting, errorText(ENOENT));
}

}  // namespace Velmar::Host
