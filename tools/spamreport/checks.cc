// The single checks. Each goes the way that a report would go and changes nothing that a report would not change.

#include "tools/spamreport/checks.h"

#include <algorithm>
#include <array>
#include <boost/shared_ptr.hpp>
#include <ctime>
#include <stdexcept>

#include "host/host.h"
#include "platform/config_store.h"
#include "platform/mail_builder.h"
#include "tools/spamreport/time_text.h"

namespace Velmar::Tool {
namespace {

using VlmCMsg::VXCustomizedEmailTemplate;

constexpr int kReportTemplate = 38;

std::string counted(std::size_t count, const std::string& one, const std::string& many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

/// The name of the system-wide template.
std::string systemTemplate() {
  cmf_query* query = cmf_query_create_withdomain(0, G_CLI_SPAM_REPORT);
  std::string name = static_cast<const __aps_spam_report*>(cmf_query_update(query))->templateName;
  cmf_shm_read_unlock(query);
  return name;
}

/// The domain under which the templates of `domain` are kept.
std::string templateDomain(const std::string& domain) {
  const char* mainDomain = domain == "system" ? nullptr : cfg_get_main_domain_name(domain.c_str(), 0);
  return mainDomain && *mainDomain ? mainDomain : domain;
}

/// Values as a report sets them, for what a template makes of them: From must be an address afterwards, for instance.
constexpr std::array<std::pair<const char*, const char*>, 5> kSampleValues{{
    {"RELEASE_CONTROL_USER", "release@mail.example"},
    {"DELETE_CONTROL_USER", "delete@mail.example"},
    {"QUARANTINE_MESSAGES_COUNT", "1"},
    {"QUARANTINE_PERIOD_FROM", "Nov 22, 2026, 8:00 AM"},
    {"QUARANTINE_PERIOD_TO", "Nov 22, 2026, 12:00 PM"},
}};

/// Loads a template and expands each of its parts.
std::string lookAtTemplate(const std::string& name, const std::string& domain) {
  const std::string fault = Host::templateFault(name, domain);
  if (!fault.empty()) throw std::runtime_error("\"" + name + "\": " + fault);
  const auto loaded = VXCustomizedEmailTemplate::create(kReportTemplate, name, domain, 0);
  for (const auto& [variable, value] : kSampleValues) loaded->set(variable, value);
  const std::array<std::pair<const char*, std::string>, 3> parts{{{"From line", loaded->headerFromRFC2047()},
                                                                  {"HTML body", loaded->htmlbody()},
                                                                  {"text body", loaded->textbody()}}};
  for (const auto& [part, text] : parts) {
    if (text.empty()) throw std::runtime_error("\"" + name + "\" has an empty " + part);
  }
  loaded->subjectRFC2047();
  loaded->envFrom();
  return "\"" + name + "\"";
}

Check templateCheck(const std::string& subject, const std::string& name, const std::string& domain) {
  const std::string place = "etc/velmar/templates/" + (domain.empty() ? "" : domain + "/") + name + "/";
  return {subject, [=] { return lookAtTemplate(name, domain); },
          "see header.tpl, body.html.tpl and body.txt.tpl in " + place + ", or name another template"};
}

void addTemplateChecks(std::vector<Check>& checks) {
  const std::string name = systemTemplate();
  checks.push_back(templateCheck("template of the system", name, ""));
  if (name != "default") checks.push_back(templateCheck("template default", "default", ""));
  for (const std::string& domain : Host::configuredDomains()) {
    const Ref<ApsGwServer> record = RefApsGwServerCache::instance(false)->find(domain);
    if (!record || !record->useOwnTemplate) continue;
    checks.push_back(templateCheck("template of " + domain, record->templateName, templateDomain(domain)));
  }
}

void addImageChecks(std::vector<Check>& checks) {
  for (const char* name : {"icon_delete.png", "icon_release.png", "icon_deleteall.png", "icon_titlelogo.png"}) {
    const std::string path = std::string("/migadmin/www/admin/images/") + name;
    const auto look = [path] {
      VXMPopulateEmail mail;
      mail.add_image_inline(path, ContentType::SUBTYPE_PNG);
      return std::string("readable");
    };
    checks.push_back({std::string("image ") + name, look,
                      "put a readable image of at most 1 MiB there, or remove it: the installed one stands in"});
  }
}

std::string lookAtSpool() {
  Host::checkSpool();
  std::size_t waiting = 0;
  std::size_t failed = 0;
  long long oldest = std::time(nullptr);
  for (const Host::SpoolEntry& entry : Host::listSpool()) {
    if (entry.state == Host::SpoolState::kUnreadable) throw std::runtime_error(entry.lastReply);
    if (entry.state == Host::SpoolState::kWaiting) {
      ++waiting;
      oldest = std::min(oldest, entry.queuedAt);
    } else {
      ++failed;
    }
  }
  if (waiting + failed == 0) return "empty";
  return counted(waiting, "mail waits", "mails wait") + ", the oldest for " +
         durationText(std::time(nullptr) - oldest) + "; " + counted(failed, "has", "have") + " failed";
}

std::string lookAtSecret() {
  Host::checkSecret();
  return "signs links";
}

bool hasPolicy(const std::string& mailbox) {
  __recipient_policy policy{};
  return cfg_get_managed_recipient_policy_with_filter(mailbox.c_str(), &policy, vlm_recipient_policy_spamreport_filter,
                                                      0, 1) == 0;
}

std::string lookAtPolicies(const std::string& domain) {
  const std::vector<std::string> mailboxes = Host::mailboxesOfDomain(domain);
  std::size_t managed = 0;
  for (const std::string& mailbox : mailboxes) managed += hasPolicy(mailbox);
  return std::to_string(managed) + " of " + counted(mailboxes.size(), "mailbox", "mailboxes") + " take part in reports";
}

void addPolicyChecks(std::vector<Check>& checks) {
  for (const std::string& domain : Host::configuredDomains()) {
    checks.push_back({"policies of " + domain, [domain] { return lookAtPolicies(domain); },
                      "let this user list home/" + domain + " and read the configuration"});
  }
}

}  // namespace

Check configurationCheck() {
  const auto look = [] {
    std::array<char, 512> host{};
    if (cfg_get_localdomain_or_host(host.data(), static_cast<int>(host.size())) != 0) {
      throw std::runtime_error("neither a local domain nor a host name is configured");
    }
    return counted(Host::configuredDomains().size(), "domain", "domains") + ", actions go to " + host.data();
  };
  return {"configuration", look, "write or correct etc/velmar/host.toml; velmar-host.toml(5) describes it"};
}

std::vector<Check> installationChecks() {
  std::vector<Check> checks;
  addTemplateChecks(checks);
  addImageChecks(checks);
  checks.push_back({"state store", Host::checkState,
                    "let this user read and write what state.url names; when another program holds it, end that one"});
  checks.push_back({"spool", lookAtSpool, "let this user read and write var/spool/velmar; move away what is damaged"});
  checks.push_back(
      {"secret", lookAtSecret,
       "let this user, and nobody else, read var/lib/velmar/secret; without it reports have no login link"});
  addPolicyChecks(checks);
  return checks;
}

}  // namespace Velmar::Tool
