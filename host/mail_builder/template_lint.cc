// Reads template texts marker by marker and follows the sections that they open, as an expansion would. Called by
// `spamreport check` and a preview only, never for a report: what is odd here costs a report its looks, not its life.
//
// Which variables a reader sees depends on the actions that the antispam profile offers, because these open sections.

#include "host/mail_builder/template_lint.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "host/mail_builder/html_place.h"
#include "host/mail_builder/plural_class.h"
#include "host/mail_builder/template_names.h"
#include "host/mail_builder/utf8.h"

namespace Velmar::Host {
namespace {

using std::string;
using std::string_view;

constexpr string_view kRows = "QUARANTINE_MESSAGES_TABLE";
constexpr string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr string_view kImages[] = {"ICON_RELEASE", "ICON_DELETE", "ICON_DELALL", "TITLE_LOGO"};
constexpr string_view kHeldTexts[] = {"ORIG_FROM", "ORIG_SUBJECT", "SENDER_NAME", "SENDER_ADDRESS"};
constexpr string_view kOfMailActions[] = {"DELETE_CONTROL_USER", "DELETE_ALL_SUBJECT", "RELEASE_SUBJECT",
                                          "DELETE_SUBJECT"};
constexpr string_view kImage = "x-img-cid=";
constexpr string_view kAlt = "x-alt=";
constexpr string_view kInert = "x-inert=";
constexpr string_view kInertText = "x-inert-text=";
constexpr string_view kMailto[] = {"x-mailto-to", "x-mailto-subject"};
constexpr int kMostCharacters = 1000;
constexpr int kMostMessages = 1000;  // for which a template must have its words
constexpr int kMillion = 1'000'000;  // has a plural class of its own in some languages

enum class Part { kHeader, kHtml, kText };

// What must be offered for a place to be shown; kNever is no offer.
constexpr unsigned kWeb = 1;
constexpr unsigned kMail = 2;
constexpr unsigned kNever = 4;

template <class Names>
bool isOneOf(const Names& names, string_view name) {
  return std::find(std::begin(names), std::end(names), name) != std::end(names);
}

unsigned offerNeededBy(string_view section) {
  if (section == "SPAM_WEB_ACTION" || section == "SPAM_OTHER_ACTION") return kWeb;
  return section == "SPAM_EMAIL_ACTION" ? kMail : 0;
}

string offerText(unsigned offer) {
  constexpr const char* kTexts[] = {"neither web_release nor email_release", "web_release only", "email_release only",
                                    "web_release and email_release"};
  return kTexts[offer];
}

/// What a reader of each body looks for: one of some variables, where the profile offers the actions.
struct Wanted {
  std::array<string_view, 3> names;  ///< the first is the one to write
  unsigned offer;
  bool fault;  ///< else it is worth a look
  const char* purpose;
};

constexpr Wanted kWanted[] = {
    {{"ORIG_SUBJECT"}, 0, true, "what a message is about"},
    {{"SENDER_ADDRESS", "SENDER_NAME", "ORIG_FROM"}, 0, true, "who sent a message"},
    {{"RELEASE_URL"}, kWeb, true, "how to release a message on the web"},
    {{"RELEASE_EMAIL_ADDR", "EMAIL_ID"}, kMail, true, "how to release a message by mail"},
    {{"DELETE_URL"}, kWeb, false, "how to delete a message on the web"},
    {{"DELETE_EMAIL_ADDR", "EMAIL_ID"}, kMail, false, "how to delete a message by mail"},
    {{"DELETE_ALL_URL"}, kWeb, false, "how to delete all messages on the web"},
    {{"DELETE_ALL_EMAIL_ADDR", "DELETE_ALL_SUBJECT"}, kMail, false, "how to delete all messages by mail"},
    {{"PREFERENCE_URL"}, kWeb, false, "where to change the preferences"},
};

/// What stands between "{{" and "}}" of a variable.
struct Marker {
  string_view name;
  std::vector<string_view> modifiers;

  std::size_t placeOf(string_view modifier) const {
    return static_cast<std::size_t>(std::find(modifiers.begin(), modifiers.end(), modifier) - modifiers.begin());
  }
  bool has(string_view modifier) const { return placeOf(modifier) < modifiers.size(); }
  bool hasKind(string_view kind) const {
    return std::any_of(modifiers.begin(), modifiers.end(), [kind](string_view m) { return m.starts_with(kind); });
  }
  bool escapesHtml() const { return has("h") || has("html_escape") || has("p") || has("pre_escape"); }

  /// Whether the image itself is escaped after it was made.
  bool escapesImage() const {
    const auto image = std::find_if(modifiers.begin(), modifiers.end(), [](auto m) { return m.starts_with(kImage); });
    return std::any_of(image, modifiers.end(), [](auto m) { return m == "h" || m == "html_escape"; });
  }
};

Marker parseMarker(string_view inside) {
  Marker marker{inside.substr(0, inside.find(':')), {}};
  while (inside.find(':') != string_view::npos) {
    inside.remove_prefix(inside.find(':') + 1);
    marker.modifiers.push_back(inside.substr(0, inside.find(':')));
  }
  return marker;
}

std::size_t linesIn(string_view text) { return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')); }

/// Goes through one file.
class Linter {
 public:
  Linter(Part part, const char* file, std::span<const OfferedActions> offers, std::vector<TemplateRemark>& remarks)
      : part_(part), file_(file), remarks_(remarks) {
    for (const OfferedActions& offer : offers) offers_.insert((offer.web ? kWeb : 0) | (offer.mail ? kMail : 0));
    if (offers_.empty()) offers_ = {kWeb, kMail, kWeb | kMail};
  }

  void read(string_view text) {
    std::size_t done = 0;
    for (std::size_t open = text.find("{{"); open != string_view::npos; open = text.find("{{", done)) {
      const std::size_t end = text.find("}}", open);
      if (end == string_view::npos) break;  // no marker: the parser's business
      readPiece(text.substr(done, open - done));
      readMarker(text.substr(open + 2, end - open - 2));
      line_ += linesIn(text.substr(open, end - open));
      done = end + 2;
    }
    readPiece(text.substr(done));
  }

  /// What a body must have; the first line of the file stands for all of it.
  void checkComplete() {
    line_ = 1;
    if (!sections_.contains(kRows)) return remark("lists no messages: no section " + string(kRows));
    for (const Wanted& wanted : kWanted) checkWanted(wanted);
    if (part_ != Part::kHtml) return;
    if (!sections_.contains("TABLE_HEADER")) remark("no section TABLE_HEADER, which each report opens", false);
    if (!sections_.contains("ODD_ROW") && !sections_.contains("EVEN_ROW")) {
      remark("no section ODD_ROW or EVEN_ROW, one of which each row opens", false);
    }
  }

  /// That there are words for each number of messages, where the file chooses words by number.
  /// language  its tag, for the remarks; anywhere  the COUNT_ sections of all three files
  void checkCounts(const PluralClasses& classes, const string& language, const std::set<string_view>& anywhere) {
    const auto first = std::find_if(sections_.begin(), sections_.end(), [](const auto& s) { return isCount(s.first); });
    if (first == sections_.end() || !classes.known()) return;
    std::map<string, int> numbers;  // the first of each class
    for (int number = 0; number <= kMostMessages; ++number) numbers.emplace("COUNT_" + classes.of(number), number);
    line_ = first->second;
    for (const auto& [name, number] : numbers) {
      const bool own = anywhere.contains(name);
      if (!sections_.contains(own ? name : "COUNT_OTHER")) {
        remark("shows nothing for the number " + std::to_string(number) + ": write the section " + name);
      } else if (!own && name != "COUNT_OTHER") {
        remark("COUNT_OTHER is shown for the number " + std::to_string(number) + ", for which \"" + language +
                   "\" has words of its own: write the section " + name,
               false);
      }
    }
    numbers.emplace("COUNT_" + classes.of(kMillion), kMillion);
    for (const auto& [name, line] : sections_) {
      if (!isCount(name) || name == "COUNT_OTHER" || numbers.contains(string(name))) continue;
      line_ = line;
      remark("the section " + string(name) + " is never shown: the language \"" + language + "\" has no such class",
             false);
    }
  }

  /// The line of each section that is used.
  const std::map<string_view, std::size_t>& sections() const { return sections_; }

  static bool isCount(string_view section) { return section.starts_with("COUNT_"); }

 private:
  struct Level {
    string_view name;
    string place;
    unsigned offer;  ///< needed for this level to be shown
  };

  void remark(string text, bool fault = true) {
    remarks_.push_back({string(file_) + ":" + std::to_string(line_), std::move(text), fault});
  }

  /// A piece of text between markers. A name in single braces was meant to be a marker.
  void readPiece(string_view piece) {
    std::size_t counted = 0;
    for (std::size_t open = piece.find('{'); open != string_view::npos; open = piece.find('{', open + 1)) {
      const std::size_t end = piece.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ_", open + 1);
      if (end == string_view::npos || piece[end] != '}') continue;
      const string_view name = piece.substr(open + 1, end - open - 1);
      if (!isNamed(templateVariables(), name)) continue;
      line_ += linesIn(piece.substr(counted, open - counted));
      counted = open;
      remark("{" + string(name) + "} is shown as it is: write {{" + string(name) + "}}");
    }
    line_ += linesIn(piece.substr(counted));
    html_.read(piece);
  }

  void readMarker(string_view inside) {
    if (inside.empty() || inside[0] == '!') return;
    if (inside[0] == '%') {
      if (part_ != Part::kHtml)
        remark("this is plain text, and would be escaped for a page: remove {{" + string(inside) + "}}");
      return;
    }
    const string_view rest = trimmed(inside.substr(1));
    if (inside[0] == '#') return open(rest);
    if (inside[0] == '/') return close(rest);
    variable(parseMarker(trimmed(inside)));
  }

  string_view place() const { return levels_.empty() ? string_view() : string_view(levels_.back().place); }
  unsigned offerHere() const { return levels_.empty() ? 0 : levels_.back().offer; }

  /// ctemplate's own: the section FOO_separator is shown between two rounds of FOO.
  bool isSeparator(string_view name) const {
    constexpr string_view kEnd = "_separator";
    return !levels_.empty() && name.ends_with(kEnd) && name.substr(0, name.size() - kEnd.size()) == levels_.back().name;
  }

  void open(string_view name) {
    const TemplateName* row = visibleName(templateSections(), place(), name);
    if (row) {
      sections_.emplace(name, line_);
      return levels_.push_back({name, string(row->place) + (row->place.empty() ? "" : "/") + string(name),
                                offerHere() | offerNeededBy(name)});
    }
    const bool separator = isSeparator(name);
    if (isNamed(templateSections(), name)) {
      remark("the section " + string(name) + " is never shown here, only in " + placesOfName(templateSections(), name));
    } else if (!separator) {
      remark("unknown section " + string(name) + ": it is never shown");
    }
    levels_.push_back({name, string(place()), separator ? offerHere() : kNever});
  }

  void close(string_view name) {
    if (!levels_.empty() && levels_.back().name == name) levels_.pop_back();
  }

  void variable(const Marker& marker) {
    const string name(marker.name);
    if (visibleName(templateVariables(), place(), marker.name)) {
      shown_[marker.name].insert(offerHere());
    } else if (isNamed(templateVariables(), marker.name)) {
      remark(name + " is empty here, it is filled in " + placesOfName(templateVariables(), marker.name));
    } else if (name != "BI_SPACE" && name != "BI_NEWLINE") {
      remark("unknown variable " + name + ": it is always empty");
    }
    if (isOneOf(kOfMailActions, marker.name)) checkMailOnly(name);
    for (const string_view modifier : marker.modifiers) checkModifier(marker, modifier);
    if (part_ == Part::kHtml) checkEscaping(marker);
    if (isOneOf(kHeldTexts, marker.name)) checkInert(marker);
  }

  void checkMailOnly(const string& name) {
    for (const unsigned offer : offers_) {
      if ((offer & kMail) != 0 || (offerHere() & ~offer) != 0) continue;
      return remark(name + " is empty in a report with " + offerText(offer) + ": put it into SPAM_EMAIL_ACTION");
    }
  }

  void checkModifier(const Marker& marker, string_view modifier) {
    if (!modifier.starts_with("x-")) return;  // the parser knows ctemplate's own
    const string text = string(marker.name) + ":" + string(modifier) + ": ";
    if (modifier.starts_with(kImage)) {
      const string image(modifier.substr(kImage.size()));
      if (!isOneOf(kImages, image)) return remark(text + "there is no image " + image);
      if (part_ != Part::kHtml) remark(text + "only the page can show an image");
    } else if (isOneOf(kMailto, modifier)) {
      if (!marker.name.ends_with("_EMAIL_ADDR")) remark(text + "it is for a variable ..._EMAIL_ADDR only");
    } else if (modifier.starts_with(kInert) || modifier.starts_with(kInertText)) {
      checkCharacters(text, modifier.substr(modifier.find('=') + 1));
      if (modifier.starts_with(kInert) && part_ == Part::kText)
        remark(text + "in plain text write " + string(kInertText));
    } else if (!modifier.starts_with(kAlt)) {
      remark(text + "unknown modifier, it does nothing");
    }
  }

  void checkCharacters(const string& text, string_view number) {
    int value = 0;
    const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), value);
    if (error == std::errc() && end == number.data() + number.size() && value > 0 && value <= kMostCharacters) return;
    remark(text + "no number of characters from 1 to " + std::to_string(kMostCharacters));
  }

  void checkEscaping(const Marker& marker) {
    const string name(marker.name);
    const bool none = marker.has("none");
    if (html_.beginsUnquotedValue())
      remark(name + " stands in an attribute without quotes: write \"{{" + name + "}}\"");
    if (none && !marker.escapesHtml()) remark(name + " is not escaped: write \":h\" before \":none\"");
    if (marker.hasKind(kImage) && !none) remark(name + " shows as its own source text: write \":none\" at its end");
    if (marker.hasKind(kImage) && marker.escapesImage()) {
      remark(name + " shows as its own source text: write \":h\" before \":" + string(kImage) + "\"");
    }
    if (html_.beginsQuotedValue() && !none && marker.name.ends_with("_EMAIL_ADDR")) {
      remark(name + " becomes \"#\" in a link: write {{" + name + ":h:none}}");
    }
  }

  /// The marker of a variable as a body should have it.
  string usualForm(string_view name) const {
    string form = "{{" + string(name);
    if (name.ends_with("_EMAIL_ADDR")) form += part_ == Part::kHtml ? ":h:none" : ":x-mailto-to";
    if (isOneOf(kHeldTexts, name)) form += ":" + string(part_ == Part::kHtml ? kInert : kInertText) + "200";
    return form + "}}";
  }

  void checkInert(const Marker& marker) {
    if (part_ == Part::kHeader || marker.hasKind(kInert) || marker.hasKind(kInertText)) return;
    remark(string(marker.name) + " may hold what looks like a link or hides text: write " + usualForm(marker.name),
           false);
  }

  bool shows(const Wanted& wanted, unsigned offer) const {
    return std::any_of(wanted.names.begin(), wanted.names.end(), [&](string_view name) {
      const auto found = shown_.find(name);
      return found != shown_.end() && std::any_of(found->second.begin(), found->second.end(),
                                                  [offer](unsigned needed) { return (needed & ~offer) == 0; });
    });
  }

  void checkWanted(const Wanted& wanted) {
    std::vector<unsigned> lacking;
    std::size_t asked = 0;
    for (const unsigned offer : offers_) {
      if ((wanted.offer & ~offer) != 0) continue;
      ++asked;
      if (!shows(wanted, offer)) lacking.push_back(offer);
    }
    if (lacking.empty()) return;
    const string where = lacking.size() == asked ? "" : " in a report with " + offerText(lacking.front());
    const string name(wanted.names[0]);
    remark("does not say " + string(wanted.purpose) + where + ": put " + usualForm(name) + " into " +
               placesOfName(templateVariables(), name),
           wanted.fault);
  }

  Part part_;
  const char* file_;
  std::set<unsigned> offers_;
  std::vector<TemplateRemark>& remarks_;
  std::vector<Level> levels_;
  std::map<string_view, std::set<unsigned>> shown_;  ///< with what must be offered
  std::map<string_view, std::size_t> sections_;
  HtmlPlace html_;
  std::size_t line_ = 1;
};

/// A line of header.tpl that is no matter for a marker.
struct HeaderLine {
  string place;
  string value;
};

HeaderLine headerLine(string_view header, string_view name) {
  std::size_t number = 0;
  for (std::size_t from = 0; from < header.size(); from = std::min(header.find('\n', from), header.size()) + 1) {
    ++number;
    const string_view line = trimmed(header.substr(from, header.find('\n', from) - from));
    if (line.starts_with(name)) {
      return {"header.tpl:" + std::to_string(number), string(trimmed(line.substr(name.size())))};
    }
  }
  return {};
}

string_view withoutMark(string_view text) {
  if (text.starts_with(kByteOrderMark)) text.remove_prefix(kByteOrderMark.size());
  return text;
}

/// The remarks on lines of header.tpl.
void checkHeader(string_view header, const string& language, bool known, std::vector<TemplateRemark>& remarks) {
  const HeaderLine subject = headerLine(header, "Subject:");
  if (!subject.place.empty() && subject.value.empty()) remarks.push_back({subject.place, "the subject is empty"});
  if (known) return;
  remarks.push_back({headerLine(header, "Language:").place,
                     "unknown language \"" + language + "\": words are chosen as if it had one form for all numbers"});
}

void checkMarkup(string_view html, std::vector<TemplateRemark>& remarks) {
  std::size_t line = 1;
  std::size_t counted = 0;
  for (MarkupRemark& remark : markupRemarks(html)) {
    line += linesIn(html.substr(counted, remark.place - counted));
    counted = remark.place;
    remarks.push_back({"body.html.tpl:" + std::to_string(line), std::move(remark.text), remark.fault});
  }
}

}  // namespace

std::vector<TemplateRemark> lintTemplate(const TemplateTexts& texts, std::span<const OfferedActions> offers) {
  const string_view header = withoutMark(texts.header);
  const string named = headerLine(header, "Language:").value;
  const string language = named.empty() ? "en" : named;
  const PluralClasses classes(language);
  std::vector<TemplateRemark> remarks;
  checkHeader(header, language, classes.known(), remarks);

  std::array<Linter, 3> files{Linter(Part::kHeader, "header.tpl", offers, remarks),
                              Linter(Part::kHtml, "body.html.tpl", offers, remarks),
                              Linter(Part::kText, "body.txt.tpl", offers, remarks)};
  files[0].read(header);
  files[1].read(texts.html);
  files[1].checkComplete();
  checkMarkup(texts.html, remarks);
  files[2].read(texts.text);
  files[2].checkComplete();

  std::set<string_view> counts;
  for (const Linter& file : files) {
    for (const auto& [name, line] : file.sections()) {
      if (Linter::isCount(name)) counts.insert(name);
    }
  }
  for (Linter& file : files) file.checkCounts(classes, language, counts);
  return remarks;
}

}  // namespace Velmar::Host
