#pragma once

// The surroundings of the library, in memory: what a test sets up, what the library asked for, and failures on order.
//
// A test calls reset(), fills world(), runs the library and then looks at world() again. What the library does may
// happen on several threads; setting up and looking may not happen meanwhile, except through the functions below.

#include <cstdint>
#include <ctime>
#include <functional>
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

/// A mail that was handed to the queue. What was set in it is among the calls.
struct Mail {
  int number = 0;  ///< counts the mails that were begun, from 1
  std::string recipients, html;
  std::vector<std::string> cids;  ///< of the images, "NUMBER.1" and so on
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
  bool copiesFail = false;  ///< strdup() finds no memory
  int signals = 0;          ///< how many pauses to come end after a second, by a signal

  std::map<std::pair<std::string, std::string>, std::vector<std::string>> lists;  ///< by owner and list
  std::map<std::string, std::string> languages;                                   ///< by address
  std::set<std::string> deletedPaths, groupOwners;

  std::map<std::string, Mailbox> mailboxes;          ///< by address of the owner
  std::map<std::uint64_t, std::uint64_t> flagMasks;  ///< what a flag value is completed to; else itself
  std::map<std::pair<std::string, std::string>, TemplateText> templates;  ///< by domain ("" = system) and name
  std::map<std::string, int> setStatus;                                   ///< by variable; else 0
  std::optional<int> encodedLength;                                       ///< what the access encoder returns
  std::function<void()> onQuery;                                          ///< while a configuration query runs
  std::function<void()> onMailDestroyed;

  /// Every call of the platform, "name(argument,argument)", in order. Log events and traces are among them, with the
  /// 0x01 between fields shown as "|": "Logger::log(80011,0,%zd|%s|%s,2|u@d|a@x,b@x)".
  std::vector<std::string> calls;
  std::vector<Mail> queue;
  int mailsBegun = 0;
  int openQueries = 0;  ///< configuration queries not ended
};
World& world();

/// Back to an empty world: no call recorded, none to fail, the clock at 0.
void reset();

/// The clock that time() shows and sleep() moves on.
void setClock(std::time_t now);

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
/// Runs `change` alone.
void locked(const std::function<void()>& change);
/// The arguments of a call, as text and separated by commas.
std::string join(std::initializer_list<std::string> arguments);

}  // namespace Velmar::Fake
