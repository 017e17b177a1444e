// Takes the events of the library and hands each to the observer and to the configured sinks. It never throws and never
// lets the state of the log decide whether a report goes out: a sink that fails costs only its own entries, and one
// that nobody reads holds a run up once, for some seconds.

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <functional>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <vector>

#include "host/common/current_mailbox.h"
#include "host/common/host_config.h"
#include "host/common/preview.h"
#include "host/common/root.h"
#include "host/host.h"
#include "host/logging/datagram_sink.h"
#include "host/logging/event_table.h"
#include "host/logging/event_text.h"
#include "host/logging/field_format.h"
#include "host/logging/file_sink.h"
#include "host/logging/log_line.h"
#include "host/logging/log_record.h"
#include "host/logging/stderr_sink.h"
#include "platform/logging.h"

namespace Velmar::Host {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kPauseAfterFailedLoad{10};

constexpr char kJournalSocket[] = "/run/systemd/journal/socket";
constexpr char kSyslogSocket[] = "/dev/log";

/// One place to which entries go, beside stderr.
struct Destination {
  const char* kind;
  std::string path;
  bool intoJournal;  ///< entries end in the journal; those of syslog do wherever there is one
  std::function<int(const LogRecord&)> write{};  ///< returns 0 or an errno
  std::atomic<int> error{0};                     ///< of the last entry
};

/// Where the configuration wants the log.
struct Sinks {
  bool toStderr = true;
  std::vector<std::unique_ptr<Destination>> destinations;
};

std::unique_ptr<Destination> fileDestination(const std::string& path) {
  auto file = std::make_shared<FileSink>(path);
  auto write = [file](const LogRecord& record) { return file->write(logLine(record)); };
  return std::unique_ptr<Destination>(new Destination{"file", path, false, std::move(write)});
}

std::unique_ptr<Destination> journalDestination(const std::string& path) {
  auto socket = std::make_shared<DatagramSink>(path, DatagramSink::TooLarge::kPassedAsFile);
  auto write = [socket](const LogRecord& record) { return socket->send(journalDatagram(record)); };
  return std::unique_ptr<Destination>(new Destination{"journal", path, true, std::move(write)});
}

std::unique_ptr<Destination> syslogDestination(const std::string& path) {
  auto socket = std::make_shared<DatagramSink>(path, DatagramSink::TooLarge::kRefused);
  auto write = [socket](const LogRecord& record) { return socket->send(syslogDatagram(record, ::getpid())); };
  return std::unique_ptr<Destination>(new Destination{"syslog", path, true, std::move(write)});
}

Sinks sinksOf(const LogConfig& config) {
  Sinks sinks{config.toStderr, {}};
  if (!config.file.empty()) sinks.destinations.push_back(fileDestination(underRoot(config.file)));
  if (config.toJournal) sinks.destinations.push_back(journalDestination(underRoot(kJournalSocket)));
  if (config.toSyslog) sinks.destinations.push_back(syslogDestination(underRoot(kSyslogSocket)));
  return sinks;
}

std::timespec now() {
  std::timespec when{};
  ::clock_gettime(CLOCK_REALTIME, &when);
  return when;
}

/// Restores errno: a log line must not change what its caller looks at.
class ErrnoKept {
 public:
  ErrnoKept() = default;
  ErrnoKept(const ErrnoKept&) = delete;
  ErrnoKept& operator=(const ErrnoKept&) = delete;
  ~ErrnoKept() { errno = before_; }

 private:
  const int before_ = errno;
};

/// The sinks as configured, opened on first use. While the configuration cannot be loaded there are none; it is tried
/// again after a pause, because each try reads and checks the whole file.
class ConfiguredSinks {
 public:
  const Sinks* get() {
    if (const Sinks* ready = ready_.load(std::memory_order_acquire)) return ready;
    thread_local bool loading = false;
    if (loading) return nullptr;  // loading the configuration itself logs
    loading = true;
    const Sinks* loaded = loadOnce();
    loading = false;
    return loaded;
  }

 private:
  const Sinks* loadOnce() noexcept try {
    const std::lock_guard lock(mutex_);
    if (owned_ || Clock::now() < nextTry_) return owned_.get();
    nextTry_ = Clock::now() + kPauseAfterFailedLoad;
    owned_ = std::make_unique<Sinks>(sinksOf(hostConfig().log));
    ready_.store(owned_.get(), std::memory_order_release);
    return owned_.get();
  } catch (...) {
    return nullptr;  // whoever needs the configuration for its work reports why it does not load
  }

  std::atomic<const Sinks*> ready_{nullptr};
  std::mutex mutex_;
  std::unique_ptr<const Sinks> owned_;
  Clock::time_point nextTry_{};
};

/// The fields of an event, with the mailbox where the event has a place for it and comes without.
std::vector<std::string> completed(const EventInfo* event, std::vector<std::string> fields) {
  const bool missing = event && fields.size() < event->fields.size() && fieldPlace(*event, "mailbox") == fields.size();
  if (!missing) return fields;
  std::string mailbox = currentMailbox();
  if (!mailbox.empty()) fields.push_back(std::move(mailbox));
  return fields;
}

/// The log of the process.
class Log {
 public:
  static Log& instance() {
    static Log& log = *new Log;  // never destroyed: threads may log until the very end
    return log;
  }

  void setObserver(std::function<void(const Event&)> observer) {
    const std::unique_lock lock(observerMutex_);
    observer_ = std::move(observer);
  }

  void setToStderr(bool enabled) { stderrOverride_ = enabled ? Override::kOn : Override::kOff; }

  void event(unsigned int code, std::vector<std::string> emitted) {
    const EventInfo* row = findEvent(code);
    const std::vector<std::string> fields = completed(row, std::move(emitted));
    observe(Event{code, row ? row->name : "unknown", fields});
    write(eventRecord(now(), code, fields));
  }

  void write(const LogRecord& record) {
    const Sinks* sinks = isPreview() ? nullptr : configured_.get();
    std::vector<LogRecord> failures;
    const Taken taken = offer(sinks, record, failures);
    for (const LogRecord& failure : failures) {
      std::vector<LogRecord> known;
      writeToStderr(sinks, offer(sinks, failure, known), failure);
    }
    writeToStderr(sinks, taken, record);
  }

 private:
  enum class Override { kNone, kOn, kOff };

  /// What became of an entry at the destinations.
  struct Taken {
    bool any = false;
    bool intoJournal = false;
  };

  void observe(const Event& event) noexcept try {
    const std::shared_lock lock(observerMutex_);
    if (observer_) observer_(event);
  } catch (...) {
    // An observer must not throw; if it does, the log's own line is still written.
  }

  /// Offers an entry to every destination. failures: is told of each that fails in a way that is new.
  static Taken offer(const Sinks* sinks, const LogRecord& record, std::vector<LogRecord>& failures) {
    Taken taken;
    if (!sinks) return taken;
    for (const auto& destination : sinks->destinations) {
      const int error = destination->write(record);
      const bool known = destination->error.exchange(error) == error;
      taken.any |= error == 0;
      taken.intoJournal |= error == 0 && destination->intoJournal;
      if (!known && error) failures.push_back(sinkFailedRecord(now(), destination->kind, destination->path, error));
    }
    return taken;
  }

  void writeToStderr(const Sinks* sinks, const Taken& taken, const LogRecord& record) {
    const bool lost = sinks && !sinks->destinations.empty() && !taken.any;
    if (!wantsStderr(sinks, lost)) return;
    if (taken.intoJournal && stderrLeadsToJournal()) return;  // it is there already
    stderr_.write(logLine(record));
  }

  /// lost: no destination took the entry, although there are some
  bool wantsStderr(const Sinks* sinks, bool lost) const {
    const Override chosen = stderrOverride_;
    if (chosen != Override::kNone) return chosen == Override::kOn;
    return !sinks || sinks->toStderr || lost;
  }

  std::shared_mutex observerMutex_;  // held while the observer runs: once it is replaced, it is no longer called
  std::function<void(const Event&)> observer_;
  std::atomic<Override> stderrOverride_{Override::kNone};
  ConfiguredSinks configured_;
  StderrSink stderr_;
};

}  // namespace

void setEventObserver(std::function<void(const Event&)> observer) { Log::instance().setObserver(std::move(observer)); }

void setLogToStderr(bool enabled) { Log::instance().setToStderr(enabled); }

}  // namespace Velmar::Host

namespace Velmar {

Logger::~Logger() = default;

Logger& Logger::instance(bool /*forced*/) {
  static Logger& logger = *new Logger;
  return logger;
}

void Logger::log(unsigned int event, int /*reserved*/, const char* format, ...) noexcept {
  const Host::ErrnoKept kept;
  std::va_list arguments;
  va_start(arguments, format);
  try {
    Host::Log::instance().event(event, Host::formatFields(format, arguments));
  } catch (...) {
    // Out of memory: the event is lost, the report goes on.
  }
  va_end(arguments);
}

MigLogger::~MigLogger() = default;

MigLogger& MigLogger::instance(bool /*forced*/) {
  static MigLogger& logger = *new MigLogger;
  return logger;
}

}  // namespace Velmar

void basepp::dbg::debug(const char* file, int line, const char* function, int /*reserved*/, const char* format,
                        ...) noexcept {
  const Velmar::Host::ErrnoKept kept;
  std::va_list arguments;
  va_start(arguments, format);
  try {
    const auto texts = Velmar::Host::formatFields(format, arguments);
    Velmar::Host::Log::instance().write(Velmar::Host::debugRecord(Velmar::Host::now(), file, line, function, texts));
  } catch (...) {
    // Out of memory: the trace is lost.
  }
  va_end(arguments);
}
