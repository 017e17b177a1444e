// Takes the events of the library and hands each to the observer, the log file and stderr. It never throws
// and never lets the state of the log decide whether a report goes out. A stderr that nobody reads holds it up, as it
// would any program: whoever starts a daemon reads it or closes it.

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <system_error>

#include "host/common/host_config.h"
#include "host/common/preview.h"
#include "host/common/root.h"
#include "host/host.h"
#include "host/logging/event_table.h"
#include "host/logging/field_format.h"
#include "host/logging/file_sink.h"
#include "host/logging/log_line.h"
#include "host/logging/write_fully.h"
#include "platform/logging.h"

namespace Velmar::Host {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kPauseAfterFailedLoad{10};

/// Where the configuration wants the log.
struct Sinks {
  bool toStderr = true;
  std::unique_ptr<FileSink> file;  ///< null = none
};

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
    const LogConfig& config = hostConfig().log;
    auto sinks = std::make_unique<Sinks>();
    sinks->toStderr = config.toStderr;
    if (!config.file.empty()) sinks->file = std::make_unique<FileSink>(underRoot(config.file));
    owned_ = std::move(sinks);
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

  void event(unsigned int code, const std::vector<std::string>& fields) {
    observe(code, fields);
    write(eventLine(now(), code, fields));
  }

  void write(const std::string& line) {
    const Override chosen = stderrOverride_;
    const Sinks* sinks = isPreview() ? nullptr : configured_.get();
    bool toStderr = chosen == Override::kNone ? !sinks || sinks->toStderr : chosen == Override::kOn;
    if (sinks && sinks->file && !writeToFile(*sinks->file, line, chosen)) toStderr = chosen != Override::kOff;
    if (toStderr) writeToStderr(line);
  }

 private:
  enum class Override { kNone, kOn, kOff };

  void observe(unsigned int code, const std::vector<std::string>& fields) noexcept try {
    const std::shared_lock lock(observerMutex_);
    const EventInfo* row = findEvent(code);
    if (observer_) observer_(Event{code, row ? row->name : "unknown", fields});
  } catch (...) {
    // An observer must not throw; if it does, the log's own line is still written.
  }

  /// False when the line did not get into the file; stderr hears once why.
  bool writeToFile(FileSink& file, const std::string& line, Override chosen) {
    const int error = file.write(line);
    const bool known = fileError_.exchange(error) == error;
    if (error == 0) return true;
    if (!known && chosen != Override::kOff) {
      writeToStderr(unwritableLine(now(), file.path(), std::generic_category().message(error)));
    }
    return false;
  }

  std::shared_mutex observerMutex_;  // held while the observer runs: once it is replaced, it is no longer called
  std::function<void(const Event&)> observer_;
  std::atomic<Override> stderrOverride_{Override::kNone};
  std::atomic<int> fileError_{0};
  ConfiguredSinks configured_;
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
    const auto fields = Velmar::Host::formatFields(format, arguments);
    Velmar::Host::Log::instance().write(Velmar::Host::debugLine(Velmar::Host::now(), file, line, function, fields));
  } catch (...) {
    // Out of memory: the trace is lost.
  }
  va_end(arguments);
}
