#pragma once

// What is odd about a report template that parses: names that no report fills, places where nothing shows, values that
// reach the page unescaped, parts that a reader would miss.

#include <span>
#include <vector>

#include "host/host.h"
#include "host/mail_builder/report_template.h"

namespace Velmar::Host {

/// The actions of a report, as an antispam profile sets them.
struct OfferedActions {
  bool web = false;
  bool mail = false;
};

/// The remarks on a template's three texts, in their order; none when there is nothing to say. Pure. Meant for texts
/// that parse: of others it says what it sees. Linear time in their length.
///
/// offers  what the reports that use the template may offer; empty = not known, then anything
std::vector<TemplateRemark> lintTemplate(const TemplateTexts& texts, std::span<const OfferedActions> offers);

}  // namespace Velmar::Host
