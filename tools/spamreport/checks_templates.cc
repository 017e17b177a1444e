// Checks of the templates that reports use. Each goes the way that a report would go.

#include <algorithm>
#include <array>
#include <boost/shared_ptr.hpp>
#include <set>
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

/// "NAME", or "DOMAIN/NAME" as in `preview --template`.
std::string fullName(const std::string& name, const std::string& domain) {
  return domain.empty() ? name : domain + "/" + name;
}

std::string remedy(const std::string& place) {
  return "header.tpl, body.html.tpl and body.txt.tpl belong in " + place + "/; templates.md explains them";
}

Check templateCheck(const std::string& subject, const std::string& name, const std::string& domain) {
  return {subject, [=] { return lookAtTemplate(name, domain); },
          remedy("etc/velmar/templates/" + fullName(name, domain)) + "; or name another template"};
}

void addRemarks(std::vector<Finding>& findings, const std::string& name,
                const std::vector<Host::TemplateRemark>& remarks) {
  for (const Host::TemplateRemark& remark : remarks) {
    findings.push_back({remark.fault ? Finding::Level::kBad : Finding::Level::kNote,
                        "\"" + name + "\": " + remark.place + ": " + remark.text});
  }
}

std::vector<Finding> lookAtShippedTemplates() {
  std::vector<Finding> findings;
  const std::vector<std::string> names = Host::shippedTemplates();
  for (const std::string& name : names) {
    const std::string fault = Host::shippedTemplateFault(name);
    if (!fault.empty()) findings.push_back({Finding::Level::kBad, "\"" + name + "\": " + fault});
    addRemarks(findings, name, Host::shippedTemplateRemarks(name));
  }
  if (names.empty()) return bad("there is none in " + Host::shareDirectory() + "/templates/");
  return findings.empty() ? good(counted(names.size(), "template", "templates")) : findings;
}

/// The domain's record, when it has one.
Ref<ApsGwServer> recordOf(const std::string& domain) { return RefApsGwServerCache::instance(false)->find(domain); }

bool looksUnder(const std::string& domain, const std::string& templatesOf) {
  return templateDomain(domain) == templatesOf;
}

std::vector<Finding> lookAtUnusedTemplate(const Host::TemplateSet& set) {
  std::vector<Finding> findings = lookAtTemplate(set.name, set.domain);
  const std::vector<std::string> domains = Host::configuredDomains();
  const auto looks = [&set](const std::string& domain) { return looksUnder(domain, set.domain); };
  if (!set.domain.empty() && std::none_of(domains.begin(), domains.end(), looks)) {
    findings.push_back(
        {Finding::Level::kNote, "no domain of the configuration looks in templates/" + set.domain + "/"});
  }
  return findings;
}

/// A template of the domain's own that has no effect, because the domain does not say that it has one.
Check idleNameCheck(const std::string& domain, const std::string& name) {
  return {"template of " + domain, [name] { return note("template = \"" + name + "\" has no effect"); },
          "add own_template = true to the domain, or remove the name"};
}

}  // namespace

std::vector<Finding> lookAtTemplate(const std::string& name, const std::string& domain) {
  const std::string fault = Host::templateFault(name, domain);
  if (!fault.empty()) throw std::runtime_error("\"" + name + "\": " + fault);
  expandTemplate(name, domain);
  std::vector<Finding> findings;
  addRemarks(findings, name, Host::templateRemarks(name, domain));
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
    const Ref<ApsGwServer> record = recordOf(domain);
    if (!record || record->templateName.empty()) continue;
    checks.push_back(record->useOwnTemplate
                         ? templateCheck("template of " + domain, record->templateName, templateDomain(domain))
                         : idleNameCheck(domain, record->templateName));
  }
}

void addUnusedTemplateChecks(Checks& checks) {
  std::set<std::string> used{systemTemplate(), "default"};
  for (const std::string& domain : Host::configuredDomains()) {
    const Ref<ApsGwServer> record = recordOf(domain);
    if (record && record->useOwnTemplate) used.insert(fullName(record->templateName, templateDomain(domain)));
  }
  for (const Host::TemplateSet& set : Host::ownTemplates()) {
    const std::string full = fullName(set.name, set.domain);
    if (used.contains(full)) continue;
    checks.push_back({"unused template " + full, [set] { return lookAtUnusedTemplate(set); },
                      remedy("etc/velmar/templates/" + full) + "; or remove it"});
  }
  checks.push_back({"templates as installed", lookAtShippedTemplates, "install the software again"});
}

}  // namespace Velmar::Tool
