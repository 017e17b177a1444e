// Checks of the templates that reports use. Each goes the way that a report would go.

#include <array>
#include <boost/shared_ptr.hpp>
#include <stdexcept>

#include "host/host.h"
#include "platform/config_store.h"
#include "platform/mail_builder.h"
#include "tools/spamreport/checks.h"

namespace Velmar::Tool {
namespace {

using VlmCMsg::VXCustomizedEmailTemplate;

constexpr int kReportTemplate = 38;

/// The name of the system-wide template.
std::string systemTemplate() {
  cmf_query* query = cmf_query_create_withdomain(0, G_CLI_SPAM_REPORT);
  std::string name = static_cast<const __aps_spam_report*>(cmf_query_update(query))->templateName;
  cmf_shm_read_unlock(query);
  return name;
}

/// Values as a report sets them, for what a template makes of them: From must be an address afterwards, for instance.
constexpr std::array<std::pair<const char*, const char*>, 5> kSampleValues{{
    {"RELEASE_CONTROL_USER", "release@mail.example"},
    {"DELETE_CONTROL_USER", "delete@mail.example"},
    {"QUARANTINE_MESSAGES_COUNT", "1"},
    {"QUARANTINE_PERIOD_FROM", "Nov 22, 2026, 8:00 AM"},
    {"QUARANTINE_PERIOD_TO", "Nov 22, 2026, 12:00 PM"},
}};

void expandTemplate(const std::string& name, const std::string& domain) {
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
}

Check templateCheck(const std::string& subject, const std::string& name, const std::string& domain) {
  const std::string place = "etc/velmar/templates/" + (domain.empty() ? "" : domain + "/") + name + "/";
  return {subject, [=] { return lookAtTemplate(name, domain); },
          "see header.tpl, body.html.tpl and body.txt.tpl in " + place + ", or name another template"};
}

}  // namespace

std::vector<Finding> lookAtTemplate(const std::string& name, const std::string& domain) {
  const std::string fault = Host::templateFault(name, domain);
  if (!fault.empty()) throw std::runtime_error("\"" + name + "\": " + fault);
  expandTemplate(name, domain);
  std::vector<Finding> findings;
  for (const Host::TemplateRemark& remark : Host::templateRemarks(name, domain)) {
    findings.push_back({Finding::Level::kBad, "\"" + name + "\": " + remark.place + ": " + remark.text});
  }
  return findings.empty() ? good("\"" + name + "\"") : findings;
}

std::string templateDomain(const std::string& domain) {
  const char* mainDomain = domain == "system" ? nullptr : cfg_get_main_domain_name(domain.c_str(), 0);
  return mainDomain && *mainDomain ? mainDomain : domain;
}

void addTemplateChecks(Checks& checks) {
  const std::string name = systemTemplate();
  checks.push_back(templateCheck("template of the system", name, ""));
  if (name != "default") checks.push_back(templateCheck("template default", "default", ""));
  for (const std::string& domain : Host::configuredDomains()) {
    const Ref<ApsGwServer> record = RefApsGwServerCache::instance(false)->find(domain);
    if (!record || !record->useOwnTemplate) continue;
    checks.push_back(templateCheck("template of " + domain, record->templateName, templateDomain(domain)));
  }
}

}  // namespace Velmar::Tool
