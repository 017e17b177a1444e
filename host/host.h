#pragma once

// The small public face of the host platform, for the administrator's command and the benchmarks.

#include <array>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/export.h"

namespace Velmar::Host {

/// The version of this software, e.g. "1.0.0".
VLM_EXPORT const char* version();

/// The directory of what is installed beside the code (templates, images, demo): VELMAR_SHARE from the environment,
/// else found relative to this library. Not below the root: it belongs to the program.
VLM_EXPORT std::string shareDirectory();

/// Any bytes as text for a terminal: control characters, bytes that are not UTF-8 and characters that hide text or turn
/// its direction are written as escapes (\n, \xHH). Quotes and backslashes stay. Never a line break in it.
VLM_EXPORT std::string printable(std::string_view bytes);

/// What is known of one log event.
struct EventInfo {
  unsigned int code;
  const char* name;                   ///< as in docs/log-events.md
  std::array<const char*, 3> fields;  ///< names of its fields in order; null = no further one
  bool failure;                       ///< a report that was due is not sent
  const char* meaning;                ///< one line for people
};

/// All log events, by ascending code. They live as long as the process.
VLM_EXPORT std::span<const EventInfo> eventTable() noexcept;

/// One log event as it was emitted. References are valid during the call of an observer only.
struct Event {
  unsigned int code;
  const char* name;                        ///< as in docs/log-events.md, "unknown" for other codes
  const std::vector<std::string>& fields;  ///< raw bytes, unescaped
};

/// Calls `observer` for each event of any thread, beside the log's own sinks, until another one (or null) is set.
/// The observer must not throw, must not log or set an observer, and must be safe to call from the threads that report.
/// When this returns, the observer that was set before is no longer running.
VLM_EXPORT void setEventObserver(std::function<void(const Event&)> observer);

/// Whether events are also written to stderr. The configuration decides unless this is called, and a log file that
/// cannot be written sends them there. Any thread.
VLM_EXPORT void setLogToStderr(bool enabled);

/// A mail as the library hands it to the queue.
struct QueuedMail {
  std::string id;                       ///< queue id, the file's name
  std::string sender;                   ///< envelope sender; "" = null reverse-path
  std::vector<std::string> recipients;  ///< envelope recipients
  bool suppressDsn = false;
  std::string content;  ///< the mail, CRLF line ends
  std::string html;     ///< the HTML alternative with its cid: references; empty when read from the spool
  std::string text;     ///< the plain alternative; empty when read from the spool
};

/// From now on mails of any thread go to `sink` instead of the spool; null restores the spool.
/// What the sink throws passes to whoever sends.
VLM_EXPORT void setMailSink(std::function<void(const QueuedMail&)> sink);

/// One entry of the spool.
struct SpoolEntry {
  std::string id;
  std::string sender;
  std::vector<std::string> recipients;
  bool suppressDsn = false;
  long long queuedAt = 0;       ///< seconds since the epoch
  unsigned long long size = 0;  ///< bytes of the mail
};

/// What waits in the spool, oldest first. An entry that cannot be read throws Exception naming the file.
VLM_EXPORT std::vector<SpoolEntry> listSpool();

/// The whole mail of one entry. Throws Exception when there is none of this id or it cannot be read.
VLM_EXPORT QueuedMail readSpool(const std::string& id);

/// Makes the spool's directories when they are missing and looks whether this user may write there. Throws Exception.
VLM_EXPORT void checkSpool();

/// What keeps a report template from being used, with file and line where there is one; "" when nothing does.
/// name, domain  as for VXCustomizedEmailTemplate::create. Throws Exception when it could not look.
VLM_EXPORT std::string templateFault(const std::string& name, const std::string& domain);

/// What a preview looks at instead of the user's and the site's own choice.
struct PreviewChoice {
  std::string language;        ///< code of a language; "" = what the user prefers
  std::string templateName;    ///< "" = what the configuration says
  std::string templateDomain;  ///< whose template of that name; "" = the system's
};

/// From now on this process makes previews, with this choice until another one is set: events go to the observer, and
/// to stderr when setLogToStderr() said so, but not to the log. Any thread.
VLM_EXPORT void setPreview(PreviewChoice choice);

/// The room that the spool's file system has left for this user, and how much of it must stay free.
struct SpoolRoom {
  long long freeMib = 0;
  long long freeFiles = -1;  ///< -1 = the file system does not count files
  long long leastMib = 0;
  long long leastFiles = 0;
};

/// Throws Exception when there is no spool or it could not look.
VLM_EXPORT SpoolRoom spoolRoom();

/// A file that the configuration names, beside itself.
struct ConfiguredFile {
  enum class Use { kLog, kPassword, kCertificates };
  std::string key;   ///< as in the configuration, e.g. "queue.auth_file"
  std::string path;  ///< below the root
  Use use = Use::kLog;
};

/// All of them, whether they exist or not; the configuration itself is one when it holds a password.
/// Throws Exception when it cannot be read.
VLM_EXPORT std::vector<ConfiguredFile> configuredFiles();

/// Something odd about a report template that can be used: a name that no report fills, a value that is not escaped.
struct TemplateRemark {
  std::string place;  ///< FILE:LINE
  std::string text;
};

/// The remarks on the template that templateFault() looks at; none when there is no such template. It throws the same.
VLM_EXPORT std::vector<TemplateRemark> templateRemarks(const std::string& name, const std::string& domain);

/// Looks at the secret that signs login links; makes it when there is none. Throws Exception with the reason.
VLM_EXPORT void checkSecret();

/// Names of the configured domains, in the order of the configuration. Throws Exception when it cannot be read.
VLM_EXPORT std::vector<std::string> configuredDomains();

/// A recipient policy whose pattern matches an address.
struct PolicyMatch {
  std::uint32_t number = 0;  ///< its place among the policies of the configuration, from 1
  std::string pattern;
  bool enabled = true;
  bool takesPart = true;  ///< in reports
};

/// The policies whose pattern matches a bare address, in the order of the configuration: the first one that is enabled
/// and takes part decides. Throws Exception when the configuration cannot be read.
VLM_EXPORT std::vector<PolicyMatch> policiesMatching(const std::string& address);

/// Whether the directory of a mailbox exists, deleted or not.
/// address  bare; throws Exception when it cannot name a directory or when it could not look
VLM_EXPORT bool mailboxExists(const std::string& address);

/// The mailboxes of a domain that exist on disk, as addresses, sorted; deleted users are left out.
/// Throws Exception when the domain's directory cannot be listed; a missing one is empty.
VLM_EXPORT std::vector<std::string> mailboxesOfDomain(const std::string& domain);

/// Adds an entry to an address list; one that is there already is no error. Throws Exception.
VLM_EXPORT void addListEntry(const std::string& owner, const std::string& list, const std::string& entry);

/// All entries of one owner as (list, entry), by list and then in the order in which they were added.
VLM_EXPORT std::vector<std::pair<std::string, std::string>> listEntries(const std::string& owner);

/// Whether dates can be written in the language of this code ("de", "pt-BR", "de_DE.UTF-8"); else they are in English.
VLM_EXPORT bool isKnownLanguage(const std::string& code);

/// Sets the preferred language of a user; "" removes the preference. Throws Exception.
VLM_EXPORT void setPreferredLanguage(const std::string& address, const std::string& language);

}  // namespace Velmar::Host
