#pragma once

// What is odd about a report template that parses: names that no report fills, places where nothing shows, values that
// reach the page unescaped.

#include <span>
#include <string_view>
#include <vector>

#include "host/host.h"
#include "host/mail_builder/report_template.h"

namespace Velmar::Host {

/// A name that a report fills, and the section in which it does: "" = the top, else sections joined by "/".
struct TemplateName {
  std::string_view place;
  std::string_view name;
};

/// All variables and all sections of a report, once for each place. docs/templates.md describes them.
std::span<const TemplateName> templateVariables() noexcept;
std::span<const TemplateName> templateSections() noexcept;

/// The remarks on a template's three texts, in their order; none when there is nothing to say. Pure. Meant for texts
/// that parse: of others it says what it sees. Linear time in their length.
std::vector<TemplateRemark> lintTemplate(const TemplateTexts& texts);

}  // namespace Velmar::Host
