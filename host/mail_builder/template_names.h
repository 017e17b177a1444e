#pragma once

// The names that a report fills. docs/templates.md describes them.

#include <span>
#include <string>
#include <string_view>

namespace Velmar::Host {

/// A name that a report fills, and the section in which it does: "" = the top, else sections joined by "/".
struct TemplateName {
  std::string_view place;
  std::string_view name;
};

/// All variables and all sections of a report, once for each place.
std::span<const TemplateName> templateVariables() noexcept;
std::span<const TemplateName> templateSections() noexcept;

/// Whether any place has this name.
bool isNamed(std::span<const TemplateName> names, std::string_view name);

/// The row that fills `name` as seen from `place`; null when none does. A section opens a dictionary below the one that
/// fills it, and a name that a dictionary lacks is looked for in those above it.
const TemplateName* visibleName(std::span<const TemplateName> names, std::string_view place, std::string_view name);

/// The places of a name in words: "the top or TABLE_HEADER".
std::string placesOfName(std::span<const TemplateName> names, std::string_view name);

}  // namespace Velmar::Host
