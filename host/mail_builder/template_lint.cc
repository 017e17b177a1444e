// Reads template texts marker by marker and follows the sections that they open, as an expansion would. Called by
// `spamreport check` only, never for a report: what is odd here costs a report its looks, not its life.
//
// A section opens a dictionary below the one that fills it, and a name that a dictionary lacks is looked for in those
// above it. So a section or variable is shown where the chain of the open sections reaches a place that fills it.

#include "host/mail_builder/template_lint.h"

#include <algorithm>
#include <array>
#include <set>
#include <string>
#include <tuple>

#include "host/mail_builder/utf8.h"

namespace Velmar::Host {
namespace {

constexpr std::string_view kRows = "QUARANTINE_MESSAGES_TABLE";
constexpr std::string_view kRowWeb = "QUARANTINE_MESSAGES_TABLE/SPAM_WEB_ACTION";
constexpr std::string_view kRowMail = "QUARANTINE_MESSAGES_TABLE/SPAM_EMAIL_ACTION";
constexpr std::string_view kWeb = "SPAM_WEB_ACTION";
constexpr std::string_view kMail = "SPAM_EMAIL_ACTION";
constexpr std::string_view kOther = "SPAM_OTHER_ACTION";

constexpr TemplateName kVariables[] = {
    {"", "QUARANTINE_MESSAGES_COUNT"},
    {"", "QUARANTINE_PERIOD_FROM"},
    {"", "QUARANTINE_PERIOD_TO"},
    {"", "TITLE_LOGO"},
    {"", "RELEASE_CONTROL_USER"},
    {"", "DELETE_CONTROL_USER"},
    {"", "DELETE_ALL_SUBJECT"},
    {"", "RELEASE_SUBJECT"},
    {"", "DELETE_SUBJECT"},
    {"", "MAILBOX_ADDRESS"},
    {"", "SITE_NAME"},
    {"", "TIME_ZONE"},
    {kRows, "ROW_NUMBER"},
    {kRows, "SENDER_NAME"},
    {kRows, "SENDER_ADDRESS"},
    {kRows, "ORIG_DATE"},
    {kRows, "ORIG_FROM"},
    {kRows, "ORIG_SUBJECT"},
    {kRows, "EMAIL_ID"},
    {kRows, "ICON_RELEASE"},
    {kRows, "ICON_DELETE"},
    {kRowWeb, "RELEASE_URL"},
    {kRowWeb, "DELETE_URL"},
    {kRowMail, "RELEASE_EMAIL_ADDR"},
    {kRowMail, "DELETE_EMAIL_ADDR"},
    {kWeb, "DELETE_ALL_URL"},
    {kWeb, "ICON_DELALL"},
    {kWeb, "ICON_RELEASE"},
    {kWeb, "ICON_DELETE"},
    {kMail, "DELETE_ALL_EMAIL_ADDR"},
    {kMail, "ICON_DELALL"},
    {kMail, "ICON_RELEASE"},
    {kMail, "ICON_DELETE"},
    {kOther, "PREFERENCE_URL"},
};

constexpr TemplateName kSections[] = {
    {"", "TABLE_HEADER"},
    {"", kRows},
    {"", kWeb},
    {"", kMail},
    {"", kOther},
    {"TABLE_HEADER", kWeb},
    {"TABLE_HEADER", kMail},
    {"", "COUNT_ZERO"},
    {"", "COUNT_ONE"},
    {"", "COUNT_TWO"},
    {"", "COUNT_FEW"},
    {"", "COUNT_MANY"},
    {"", "COUNT_OTHER"},
    {kRows, "NO_SENDER"},
    {kRows, "WITH_SENDER_NAME"},
    {kRows, "WITH_SENDER_ADDRESS"},
    {kRows, "NO_SUBJECT"},
    {kRows, "ODD_ROW"},
    {kRows, "EVEN_ROW"},
    {kRows, kWeb},
    {kRows, kMail},
};

constexpr std::array<std::string_view, 4> kImages{"ICON_RELEASE", "ICON_DELETE", "ICON_DELALL", "TITLE_LOGO"};
constexpr std::string_view kImageModifier = "x-img-cid=";
constexpr std::string_view kMailtoModifiers[] = {"x-mailto-to", "x-mailto-subject"};
constexpr std::string_view kWordModifiers[] = {"x-alt=", "x-inert=", "x-inert-text="};
constexpr std::string_view kReleaseWays[] = {"RELEASE_URL", "RELEASE_EMAIL_ADDR", "RELEASE_SUBJECT", "EMAIL_ID",
                                             "PREFERENCE_URL"};

enum class Part { kHeader, kHtml, kText };

bool isBuiltIn(std::string_view name) { return name == "BI_SPACE" || name == "BI_NEWLINE"; }

bool isNamed(std::span<const TemplateName> names, std::string_view name) {
  return std::any_of(names.begin(), names.end(), [&](const TemplateName& row) { return row.name == name; });
}

/// The place above; of the top there is none.
std::string_view above(std::string_view place) {
  const std::size_t slash = place.rfind('/');
  return slash == std::string_view::npos ? std::string_view() : place.substr(0, slash);
}

/// The row that fills `name` as seen from `place`; null when none does.
const TemplateName* visible(std::span<const TemplateName> names, std::string_view place, std::string_view name) {
  for (;; place = above(place)) {
    for (const TemplateName& row : names) {
      if (row.name == name && row.place == place) return &row;
    }
    if (place.empty()) return nullptr;
  }
}

std::string placesOf(std::span<const TemplateName> names, std::string_view name) {
  std::string text;
  for (const TemplateName& row : names) {
    if (row.name != name) continue;
    text += (text.empty() ? "" : " or ") + (row.place.empty() ? "the top" : std::string(row.place));
  }
  return text;
}

/// What stands between "{{" and "}}" of a variable.
struct Marker {
  std::string_view name;
  std::vector<std::string_view> modifiers;
  bool quoted = false;  ///< a quote stands before it, so it begins an attribute

  bool has(std::string_view modifier) const {
    return std::find(modifiers.begin(), modifiers.end(), modifier) != modifiers.end();
  }
  bool escapesHtml() const { return has("h") || has("html_escape") || has("p") || has("pre_escape"); }
};

Marker parseMarker(std::string_view inside, bool quoted) {
  Marker marker{inside.substr(0, inside.find(':')), {}, quoted};
  while (inside.find(':') != std::string_view::npos) {
    inside.remove_prefix(inside.find(':') + 1);
    marker.modifiers.push_back(inside.substr(0, inside.find(':')));
  }
  return marker;
}

/// Goes through one file.
class Linter {
 public:
  Linter(Part part, const char* file, std::vector<TemplateRemark>& remarks)
      : part_(part), file_(file), remarks_(remarks) {}

  void read(std::string_view text) {
    std::size_t counted = 0;
    for (std::size_t open = text.find("{{"); open != std::string_view::npos; open = text.find("{{", open)) {
      const std::size_t end = text.find("}}", open);
      if (end == std::string_view::npos) return;  // no marker: the parser's business
      line_ += static_cast<std::size_t>(std::count(&text[counted], &text[open], '\n'));
      counted = open;
      const char before = open == 0 ? '\0' : text[open - 1];
      readMarker(text.substr(open + 2, end - open - 2), before == '"' || before == '\'');
      open = end + 2;
    }
  }

  /// What a body must have; the first line of the file stands for all of it.
  void checkComplete() {
    line_ = 1;
    const auto uses = [this](std::string_view name) { return shown_.contains(name); };
    if (!uses("ORIG_SUBJECT") && !uses("ORIG_FROM") && !uses("SENDER_ADDRESS")) {
      remark("lists no messages: no ORIG_FROM and no ORIG_SUBJECT in the section " + std::string(kRows));
    } else if (std::none_of(std::begin(kReleaseWays), std::end(kReleaseWays), uses)) {
      remark("offers no way to release a message: no RELEASE_URL and no RELEASE_EMAIL_ADDR");
    }
  }

 private:
  struct Level {
    std::string_view name;
    std::string place;
  };

  void remark(std::string text) {
    remarks_.push_back({std::string(file_) + ":" + std::to_string(line_), std::move(text)});
  }

  void readMarker(std::string_view inside, bool quoted) {
    if (inside.empty() || inside[0] == '!' || inside[0] == '%') return;
    const std::string_view rest = trimmed(inside.substr(1));
    if (inside[0] == '#') return open(rest);
    if (inside[0] == '/') return close(rest);
    variable(parseMarker(trimmed(inside), quoted));
  }

  std::string_view place() const { return levels_.empty() ? std::string_view() : levels_.back().place; }

  /// ctemplate's own: the section FOO_separator is shown between two rounds of FOO.
  bool isSeparator(std::string_view name) const {
    constexpr std::string_view kEnd = "_separator";
    return !levels_.empty() && name.ends_with(kEnd) && name.substr(0, name.size() - kEnd.size()) == levels_.back().name;
  }

  void open(std::string_view name) {
    const TemplateName* row = visible(kSections, place(), name);
    if (row) {
      return levels_.push_back({name, std::string(row->place) + (row->place.empty() ? "" : "/") + std::string(name)});
    }
    if (isNamed(kSections, name)) {
      remark("the section " + std::string(name) + " is never shown here, only in " + placesOf(kSections, name));
    } else if (!isSeparator(name)) {
      remark("unknown section " + std::string(name) + ": it is never shown");
    }
    levels_.push_back({name, std::string(place())});
  }

  void close(std::string_view name) {
    if (!levels_.empty() && levels_.back().name == name) levels_.pop_back();
  }

  void variable(const Marker& marker) {
    const std::string name(marker.name);
    if (visible(kVariables, place(), marker.name)) {
      shown_.insert(marker.name);
    } else if (isNamed(kVariables, marker.name)) {
      remark(name + " is empty here, it is filled in " + placesOf(kVariables, marker.name));
    } else if (!isBuiltIn(marker.name)) {
      remark("unknown variable " + name + ": it is always empty");
    }
    for (const std::string_view modifier : marker.modifiers) checkModifier(marker, modifier);
    if (part_ == Part::kHtml) checkEscaping(marker);
  }

  void checkModifier(const Marker& marker, std::string_view modifier) {
    if (!modifier.starts_with("x-")) return;  // the parser knows ctemplate's own
    const std::string text = std::string(marker.name) + ":" + std::string(modifier);
    if (modifier.starts_with(kImageModifier)) {
      const std::string_view image = modifier.substr(kImageModifier.size());
      if (std::find(kImages.begin(), kImages.end(), image) == kImages.end()) {
        remark(text + ": there is no image " + std::string(image));
      } else if (part_ != Part::kHtml) {
        remark(text + ": only the page can show an image");
      }
    } else if (std::none_of(std::begin(kWordModifiers), std::end(kWordModifiers),
                            [modifier](std::string_view known) { return modifier.starts_with(known); }) &&
               std::find(std::begin(kMailtoModifiers), std::end(kMailtoModifiers), modifier) ==
                   std::end(kMailtoModifiers)) {
      remark(text + ": unknown modifier, it does nothing");
    }
  }

  void checkEscaping(const Marker& marker) {
    const std::string name(marker.name);
    const bool none = marker.has("none");
    const bool image = std::any_of(marker.modifiers.begin(), marker.modifiers.end(),
                                   [](std::string_view modifier) { return modifier.starts_with(kImageModifier); });
    if (none && !marker.escapesHtml()) remark(name + " is not escaped: write \":h\" before \":none\"");
    if (image && !none) remark(name + " shows as its own source text: write \":none\" at its end");
    if (marker.quoted && !none && marker.name.ends_with("_EMAIL_ADDR")) {
      remark(name + " becomes \"#\" in a link: write {{" + name + ":h:none}}");
    }
  }

  Part part_;
  const char* file_;
  std::vector<TemplateRemark>& remarks_;
  std::vector<Level> levels_;
  std::set<std::string_view> shown_;
  std::size_t line_ = 1;
};

}  // namespace

std::span<const TemplateName> templateVariables() noexcept { return kVariables; }
std::span<const TemplateName> templateSections() noexcept { return kSections; }

std::vector<TemplateRemark> lintTemplate(const TemplateTexts& texts) {
  std::vector<TemplateRemark> remarks;
  Linter(Part::kHeader, "header.tpl", remarks).read(texts.header);
  for (const auto& [part, file, text] : {std::tuple{Part::kHtml, "body.html.tpl", std::string_view(texts.html)},
                                         std::tuple{Part::kText, "body.txt.tpl", std::string_view(texts.text)}}) {
    Linter linter(part, file, remarks);
    linter.read(text);
    linter.checkComplete();
  }
  return remarks;
}

}  // namespace Velmar::Host
