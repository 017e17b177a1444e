#pragma once

// The small public face of the host platform, for the administrator's command and the benchmarks.

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/export.h"

namespace Velmar::Host {

/// The version of this software, e.g. "1.0.0".
VLM_EXPORT const char* version();

/// Opens /dev/null for each standard stream that is closed, the wrong way round. Else the next file that is opened gets
/// its number, and what is meant for the stream is written into a mail, the log or a connection.
/// False when /dev/null cannot be opened; errno says why.
VLM_EXPORT bool occupyStandardStreams() noexcept;

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
  /// What happened, as a sentence whose placeholders name fields: {mailbox} is the value, {count:message/messages} a
  /// number with the word for one or for more, {recipients#recipient/recipients} how many values the commas separate.
  const char* text;
  bool warning = false;  ///< something needs a look, although no report is lost
};

/// All log events, by ascending code. They live as long as the process.
VLM_EXPORT std::span<const EventInfo> eventTable() noexcept;

/// The readable text of an event in general: field names in capitals stand for values, N for how many there are.
VLM_EXPORT std::string eventTextForm(const EventInfo& event);

/// One log event as it was emitted. References are valid during the call of an observer only.
struct Event {
  unsigned int code;
  const char* name;                        ///< as in docs/log-events.md, "unknown" for other codes
  const std::vector<std::string>& fields;  ///< raw bytes, unescaped; the log may add "mailbox"
};

/// Calls `observer` for each event of any thread, beside the log's own sinks, until another one (or null) is set.
/// The observer must not throw, must not log or set an observer, and must be safe to call from the threads that report.
/// When this returns, the observer that was set before is no longer running.
VLM_EXPORT void setEventObserver(std::function<void(const Event&)> observer);

/// Whether events are also written to stderr. Unless this is called the configuration decides, and events that no other
/// sink takes go there. Any thread.
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

enum class SpoolState {
  kWaiting,     ///< will be handed on
  kFailed,      ///< refused for good or given up; stays until it is retried or dropped
  kUnreadable,  ///< damaged, or this user may not read it
};

/// One entry of the spool. Of an unreadable one only id, state and lastReply, the reason, are set.
struct SpoolEntry {
  std::string id;
  std::string sender;
  std::vector<std::string> recipients;  ///< who has not got the mail
  bool suppressDsn = false;
  long long queuedAt = 0;       ///< seconds since the epoch: when it was accepted, or retried after it had failed
  unsigned long long size = 0;  ///< bytes of the mail
  SpoolState state = SpoolState::kWaiting;
  int attempts = 0;           ///< how often handing on has failed
  long long nextAttempt = 0;  ///< seconds since the epoch; 0 = at once
  std::string lastReply;      ///< printable; "" = not tried yet
};

/// What waits in the spool and what has failed, the unreadable first, then oldest first.
/// Throws Exception when a directory cannot be listed.
VLM_EXPORT std::vector<SpoolEntry> listSpool();

/// The whole mail of one entry. Throws Exception when there is none of this id or it cannot be read.
VLM_EXPORT QueuedMail readSpool(const std::string& id);

/// Makes an entry due at once; a failed one waits again, for as long as a new one. Also lifts a queue hold.
/// Throws Exception when there is none of this id, it cannot be read, or it is being handed on right now.
VLM_EXPORT void retryQueued(const std::string& id);

/// Removes an entry, also an unreadable one, and logs that. Throws as above.
VLM_EXPORT void dropQueued(const std::string& id);

/// While the mail server cannot be used, mails wait together until the next try.
struct QueueHold {
  int failures = 0;     ///< tries in a row that found it so; 0 = no hold
  long long until = 0;  ///< seconds since the epoch
  std::string reason;
};

/// The hold as the last round left it. Throws Exception when it could not look.
VLM_EXPORT QueueHold queueHold();

struct FlushOptions {
  bool evenIfNotDue = false;  ///< also what is to be tried later, and in spite of a hold
};

/// A mail, or a part of its recipients, that was not handed on.
struct FlushProblem {
  std::string id;
  SpoolState state = SpoolState::kWaiting;  ///< what it is now: waiting for the next attempt, failed, or unreadable
  std::vector<std::string> recipients;
  std::string reply;
};

/// What one round did, in mails; a mail that is refused in part counts as failed and as delayed.
struct FlushResult {
  bool enabled = true;         ///< false: the configuration leaves mails in the spool, and nothing was done
  std::size_t handedOn = 0;    ///< to all recipients that they still had
  std::size_t delayed = 0;     ///< to be tried again later
  std::size_t failed = 0;      ///< refused for good or given up
  std::size_t unreadable = 0;  ///< left as they are
  std::size_t notDue = 0;      ///< not tried: their time has not come
  std::size_t held = 0;        ///< not tried: the server cannot be used
  std::vector<FlushProblem> problems;
};

/// Hands on what waits in the spool and what comes in meanwhile: what has not been tried yet, oldest first, then the
/// rest by the time at which it is due. Any number of processes may do so at once: a mail is tried by one of them.
/// Throws Exception when spool or configuration cannot be used, or when it cannot be noted that somebody has got a
/// mail: then that mail waits as before.
VLM_EXPORT FlushResult flushQueue(const FlushOptions& options);

/// Makes the spool's directories when they are missing and looks whether this user may write there. Throws Exception.
VLM_EXPORT void checkSpool();

/// Looks whether the spool's file system has the room that the configuration asks for. Throws Exception with the
/// numbers when it has not, or when it could not look.
VLM_EXPORT void checkSpoolRoom();

/// Connects to the mail server of the configuration as a mail would, with TLS and authentication. Returns its name and
/// what it offers; "" when mails stay in the spool. Throws Exception with the reason.
VLM_EXPORT std::string checkMailServer();

/// The tag of the language that a report template is written in, as its header.tpl says: "de", "pt-BR". Where there is
/// no usable template of that name it is that of the system's default, which a report falls back to, or "en".
/// name, domain  as for VXCustomizedEmailTemplate::create. Throws Exception when it could not look.
VLM_EXPORT std::string templateLanguage(const std::string& name, const std::string& domain);

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
  std::string text;   ///< what, and what to do about it
  bool fault = true;  ///< else it is worth a look, and may be meant so
};

/// The remarks on the template that templateFault() looks at; none when there is no such template. What its reports may
/// offer is known from the antispam profiles. Throws the same, also when the configuration cannot be read.
VLM_EXPORT std::vector<TemplateRemark> templateRemarks(const std::string& name, const std::string& domain);

/// A template's directory: it holds one of the three files at least.
struct TemplateSet {
  std::string domain;  ///< whose it is; "" = the system's
  std::string name;
};

/// The templates below etc/velmar/templates, used or not, in order. Throws Exception when it could not look.
VLM_EXPORT std::vector<TemplateSet> ownTemplates();

/// The names of the templates that came with the software, in order. Throws Exception when it could not look.
VLM_EXPORT std::vector<std::string> shippedTemplates();

/// As templateFault() and templateRemarks(), of the shipped template also where one of the system stands before it.
VLM_EXPORT std::string shippedTemplateFault(const std::string& name);
VLM_EXPORT std::vector<TemplateRemark> shippedTemplateRemarks(const std::string& name);

/// Looks at the secret that signs login links; makes it when there is none. Throws Exception with the reason.
VLM_EXPORT void checkSecret();

/// What an access value, the part of a login link that lets its bearer in, is good for.
struct LoginAccess {
  enum class State {
    kGranted,
    kExpired,    ///< issued by this installation, but its time is over
    kNotIssued,  ///< made or changed by somebody else
  };

  State state = State::kNotIssued;
  std::string address;  ///< the mailbox that it lets in to; "" unless granted
};

/// Looks at an access value as whoever resolves a login link gets it, its URL escapes undone. Whether the mailbox still
/// exists, and whose it is by now, is the caller's question.
/// now  seconds since the epoch; an access value ends at its expiry, not after it
/// Throws Exception when the installation's secret is missing or cannot be read. Any thread.
VLM_EXPORT LoginAccess checkLoginAccess(std::string_view value, long long now);

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

/// How far back scheduled reports make up for missed ones, in hours. Throws Exception when the configuration cannot be
/// read.
VLM_EXPORT int catchUpHours();

/// Whether a domain has a directory for mailboxes. Throws Exception when it could not look.
VLM_EXPORT bool domainDirectoryExists(const std::string& domain);

/// Whether the mailbox of a bare address exists on disk, also that of a deleted user. Throws Exception when it could
/// not look, or when the address cannot name a mailbox.
VLM_EXPORT bool mailboxExists(const std::string& address);

/// Numbers of the configured LDAP profiles, in the order of the configuration. Throws Exception when it cannot be read.
VLM_EXPORT std::vector<int> configuredLdapProfiles();

/// Connects to each server of an LDAP profile, binds, and tries the searches of a look-up. Returns a line that says
/// what answered. Throws Exception that names profile, server and the first fault; also when no group has an owner.
VLM_EXPORT std::string checkLdapProfile(int number);

/// The mailboxes of a domain that exist on disk, as addresses, sorted; deleted users are left out.
/// Throws Exception when the domain's directory cannot be listed; a missing one is empty.
VLM_EXPORT std::vector<std::string> mailboxesOfDomain(const std::string& domain);

/// Adds an entry to an address list; one that is there already is no error. Throws Exception.
VLM_EXPORT void addListEntry(const std::string& owner, const std::string& list, const std::string& entry);

/// All entries of one owner as (list, entry), by list and then in the order in which they were added.
VLM_EXPORT std::vector<std::pair<std::string, std::string>> listEntries(const std::string& owner);

/// Whether dates can be written in the language of this code ("de", "pt-BR", "de_DE.UTF-8"); else they are in English.
VLM_EXPORT bool isKnownLanguage(const std::string& code);

/// The name of a language in English, and in its own words where these differ: "German, Deutsch". An unknown code stays
/// as it is.
VLM_EXPORT std::string languageName(const std::string& code);

/// The language that a user has chosen; "" = none. Throws Exception when it could not look.
VLM_EXPORT std::string preferredLanguage(const std::string& address);

/// Sets the preferred language of a user; "" removes the preference. Throws Exception.
VLM_EXPORT void setPreferredLanguage(const std::string& address, const std::string& language);

/// Looks whether the state store can be read and written; makes it when it is missing. Returns its name: a path, or a
/// URL without password and parameters. Throws Exception with the reason.
VLM_EXPORT std::string checkState();

/// What this software makes itself when it first needs it: paths below the root, whether they exist or not.
struct OwnPlaces {
  std::string state;  ///< a file; "" when the state store is a server's
  std::string secret;
  std::string spool;  ///< a directory
};

/// Throws Exception when the configuration cannot be read.
VLM_EXPORT OwnPlaces ownPlaces();

class RunHold;

/// The right to make the scheduled reports: at most one run at a time holds it on all hosts that share the state store.
/// It ends with the object or the process.
class VLM_EXPORT ScheduledRunLock {
 public:
  /// Null when another run holds it. Throws Exception when it could not look.
  static std::unique_ptr<ScheduledRunLock> tryAcquire();

  ScheduledRunLock(const ScheduledRunLock&) = delete;
  ScheduledRunLock& operator=(const ScheduledRunLock&) = delete;
  ~ScheduledRunLock();

  /// Throws Exception when the right was lost meanwhile, as when the connection to a database server broke: another
  /// run may have it then. Not from two threads at once.
  void confirm();

 private:
  explicit ScheduledRunLock(std::unique_ptr<RunHold> hold);

  std::unique_ptr<RunHold> hold_;
};

/// Where the reports of a domain stand. Times are seconds since the epoch.
struct ReportedUntil {
  long long domain = 0;  ///< end of the last period that was reported for the whole domain; 0 = none yet
  /// Mailboxes that stand elsewhere: ahead (a run was broken off after them) or behind (their report failed).
  /// By address, its domain in ASCII lower case.
  std::map<std::string, long long> mailboxes;
};

/// What is noted for a domain, whose name counts without regard to ASCII case. Throws Exception when it could not look.
VLM_EXPORT ReportedUntil reportedUntil(const std::string& domain);

/// Notes that one mailbox has got its report up to `until`, while the run over the domain goes on. Throws Exception.
VLM_EXPORT void setMailboxReportedUntil(const std::string& domain, const std::string& address, long long until);

/// Ends the run over a domain: it now stands at `until`, except for the mailboxes in `behind`. All at once or, with an
/// Exception, not at all; what was noted for single mailboxes before is forgotten.
VLM_EXPORT void setDomainReportedUntil(const std::string& domain, long long until,
                                       const std::map<std::string, long long>& behind);

}  // namespace Velmar::Host
