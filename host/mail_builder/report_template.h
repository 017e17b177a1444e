#pragma once

// A parsed report template: what its three files say, checked and ready to be expanded by any thread.

#include <ctemplate/template.h>
#include <ctemplate/template_dictionary_interface.h>

#include <array>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "host/mail_builder/plural_class.h"

namespace Velmar::Host {

/// The texts of a template directory.
struct TemplateTexts {
  std::string header;  ///< header.tpl: "From: TEXT", "Subject: TEXT", "Envelope-From: ADDRESS"; "Language: TAG", "Wrap:
                       ///< COLUMNS"
  std::string html;    ///< body.html.tpl
  std::string text;    ///< body.txt.tpl
};

/// The pieces that can be expanded.
enum class TemplatePiece { From, Subject, EnvelopeFrom, Html, Text };
inline constexpr std::size_t kTemplatePieces = 5;

/// A parsed template. Does not change, so any number of threads may expand it at once.
///
/// Each header line is parsed for itself: no value can begin a second one. Sections may stand within a line. Empty
/// lines, and lines that hold one comment "{{! ... }}", are skipped; other lines and second ones of a kind are faults.
/// The HTML is escaped for the place where a value lands (AUTOESCAPE; put in front when the file lacks it).
/// Not offered, and faults: includes ("{{>"), other delimiters ("{{="), and modifiers other than ":h" and ":p" on the
/// held texts (ORIG_FROM, ORIG_SUBJECT, SENDER_NAME, SENDER_ADDRESS) in HTML, after one ":x-inert=" at most: ":none"
/// and some others would let a held message write markup.
class ReportTemplate {
 public:
  /// Parses; never throws for a faulty text, see error(). `name` stands in messages, normally the directory.
  ReportTemplate(const TemplateTexts& texts, std::string name);

  const std::string& name() const noexcept { return name_; }

  /// "" when the template is usable, else the first fault: "FILE:LINE: REASON", or "FILE: REASON" of a whole file.
  const std::string& error() const noexcept { return error_; }

  /// The tag of its language, English when it names none.
  const std::string& language() const noexcept { return language_; }

  /// Columns at which lines of the text body are broken; 0 = they are left as they are.
  std::size_t wrap() const noexcept { return wrap_; }

  /// The section that is shown for this number: "COUNT_" and its class in the template's language (English when it
  /// names none), COUNT_OTHER when the template has no section of that class. Only of a usable template.
  std::string countSection(std::int32_t count) const;

  /// The piece with the dictionary's values. What a modifier throws passes through. `expectedBytes` may be wrong: it
  /// spares a large text from moving while it grows.
  /// Throws Exception when the template is not usable or cannot be expanded.
  std::string expand(TemplatePiece piece, const ctemplate::TemplateDictionaryInterface& values,
                     std::size_t expectedBytes = 0) const;

 private:
  bool parse(TemplatePiece piece, const std::string& text, const std::string& place = {});
  void parseHeader(const std::string& header);
  void parseHtml(std::string html);
  void parseText(const std::string& text);
  void parseLanguage(const std::string& place, const std::string& tag);
  void parseWrap(const std::string& place, std::string_view columns);
  void fail(const std::string& reason);

  std::string name_;
  std::string error_;
  std::string language_ = "en";
  std::size_t wrap_ = 0;
  std::string all_;  ///< the three texts, to see what they use
  std::unique_ptr<const PluralClasses> plurals_;
  // Owned one by one, not in a ctemplate cache: when a modifier throws, a cache leaves the template counted for ever.
  std::array<std::unique_ptr<ctemplate::Template>, kTemplatePieces> pieces_;
};

}  // namespace Velmar::Host
