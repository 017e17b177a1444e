#pragma once

// The surroundings of the library, in memory: what a test sets up, what the library asked for, and failures on order.
//
// A test calls reset(), fills world(), runs the library and then looks at world() again. What the library does may
// happen on several threads; setting up and looking may not happen meanwhile, except through the functions below.

#include <atomic>
#include <cstdint>
#include <ctime>
#include <functional>
#include <list>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/antispam_profiles.h"
#include "platform/config_store.h"
#include "platform/mail_builder.h"

namespace Velmar::Fake {

/// One log event.
struct Event {
  unsigned int code = 0;
  std::string format;
  std::vector<std::string> fields;
  std::string log = "Logger";  ///< "MigLogger" for the other log

  bool operator==(const Event&) const = default;
};
void PrintTo(const Event& event, std::ostream* out);

/// A message in a fake mailbox.
struct HeldMessage {
  std::time_t time = 0;
  std::string key;
  std::map<std::string, std::string> headers;  ///< looked up by exactly the name that is asked for
  std::uint64_t flags = 0;
};

struct Mailbox {
  bool open = true;
  std::vector<HeldMessage> messages;
};

/// What a site's template holds. Bodies are ctemplate texts.
struct TemplateText {
  bool good = true;
  std::string from, subject, envFrom, text, html;
};

/// One opened section of a template with what was set in it. The top level has the name "".
struct Section {
  std::string name;
  std::map<std::string, std::string> values;
  std::list<Section> sections;  ///< in the order in which they were opened

  /// One line a section and variable, indented by depth.
  std::string asText(int depth = 0) const;
  /// The index-th section of this name directly below; throws std::out_of_range when there are fewer.
  const Section& at(const std::string& section, int index = 0) const;
};

/// Expands a ctemplate text with a section's values and the sections in it; records nothing.
std::string expand(const std::string& content, const Section& section);

/// A template that keeps what was set and opened as a tree; good() and the expanded texts follow from its TemplateText.
class Template : public VlmCMsg::VXCustomizedEmailTemplate {
 public:
  explicit Template(TemplateText text = {}) : text_(std::move(text)) {}
  ~Template() override;

  const Section& root() const { return root_; }

  bool good() const override;
  void fallon(const QRLStaticCharSetFallbacks* fallbacks) override;
  void beginSection(const std::string& name) override;
  void endSection() override;
  int set(const std::string& name, const std::string& value) override;
  int headerFrom(const std::string& raw, const std::string& name) override;
  int subject(const std::string& raw, const std::string& name) override;
  std::string headerFromRFC2047() override;
  std::string subjectRFC2047() override;
  std::string envFrom() override;
  std::string textbody() override;
  std::string htmlbody() override;

 private:
  int store(const char* operation, const std::string& name, const std::string& value);

  TemplateText text_;
  Section root_;
  std::vector<Section*> open_{&root_};
};

struct Image {
  std::string path;
  int type = 0;
  std::string cid;

  bool operator==(const Image&) const = default;
};

/// A mail that was handed to the queue.
struct Mail {
  int number = 0;  ///< counts the mails that were begun, from 1
  bool suppressDsn = false;
  std::string to, from, subject, messageId, sender, recipients;
  std::string plain, plainCharset, html, htmlCharset;
  std::vector<Image> images;
};

/// Everything that the library can ask for, and what it did.
struct World {
  nCfg_global_block global{};
  __aps_spam_report spamReport{};
  __aps_remote_storage remoteStorage{};
  __aps_mailserver mailServer{};
  __aps_sys_antispam sysAntispam{};
  __velmar_ha highAvailability{};
  __nas_storage_t nasStorage{};
  std::vector<__aps_interface> interfaces;
  std::map<std::uint32_t, __aps_user_group> userGroups;
  std::map<std::string, Ref<ApsGwServer>> domains;
  std::map<std::string, std::string> mainDomains;
  std::map<std::string, __recipient_policy> policies;  ///< by address
  std::map<std::pair<int, unsigned int>, ProfileAntiSpam::Switches> profiles;
  std::optional<std::string> localDomain;
  int mailMode = 1;

  std::map<std::pair<std::string, std::string>, std::vector<std::string>> lists;  ///< by owner and list
  std::map<std::string, std::string> languages;                                   ///< by address
  std::set<std::string> deletedPaths;
  std::set<std::string> groupOwners;

  std::map<std::string, Mailbox> mailboxes;          ///< by address of the owner
  std::map<std::uint64_t, std::uint64_t> flagMasks;  ///< what a flag value is completed to; else itself
  std::map<std::pair<std::string, std::string>, TemplateText> templates;  ///< by domain ("" = system) and name
  std::map<std::string, int> setStatus;                                   ///< by variable; else 0
  std::map<std::string, std::string> decoded;                             ///< UTF-8 by raw header text; else the same
  std::optional<int> encodedLength;                                       ///< what the access encoder returns
  std::function<void()> onQuery;                                          ///< while a configuration query runs
  std::function<void()> onMailDestroyed;

  std::vector<std::string> calls;  ///< every call of the platform, "name(argument,argument)", in order
  std::vector<Event> events;
  std::vector<Mail> queue;
  int openQueries = 0;    ///< configuration queries not ended
  int openNameLists = 0;  ///< fetched lists not freed
};
World& world();

/// Back to an empty world: no call recorded, none to fail, the clock at 0.
void reset();

/// The clock that time() shows and sleep() moves on.
void setClock(std::time_t now);

/// Makes strdup() find no memory, or find it again.
void setCopiesFail(bool fail);

/// What a failing call throws: an Exception with the text "call of NAME fails", a std::runtime_error, an int.
enum class Failure { Platform, Standard, Foreign };

/// Makes the nth call (from 1) fail, and the `times` - 1 after it. name "" counts the calls of every name.
void failCall(const std::string& name, int nth = 1, Failure kind = Failure::Platform, int times = 1);
/// The call that failed since the order was given (the last one), "" when none did.
std::string failedCall();

/// The ApsGwServer of a domain, made when it is not there.
ApsGwServer& domain(const std::string& name);

/// The recorded calls whose text begins with one of these.
std::vector<std::string> callsOf(const std::vector<std::string>& prefixes);

// For the fake platform itself.

/// Records a call and throws when it is to fail.
void call(const std::string& name, const std::string& arguments = "");
/// Records a call that cannot fail.
void note(const std::string& name, const std::string& arguments = "");
void addEvent(Event event);
/// Runs `change` alone.
void locked(const std::function<void()>& change);
/// The arguments of a call, as text and separated by commas.
std::string join(std::initializer_list<std::string> arguments);

}  // namespace Velmar::Fake
