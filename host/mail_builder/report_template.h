#pragma once

// A parsed report template: what its three files say, checked and ready to be expanded by any thread.

#include <ctemplate/template.h>
#include <ctemplate/template_dictionary_interface.h>

#include <array>
#include <memory>
#include <string>

namespace Velmar::Host {

/// The texts of a template directory.
struct TemplateTexts {
  std::string header;  ///< header.tpl: "From: TEXT", "Subject: TEXT", "Envelope-From: ADDRESS"
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
/// held texts ORIG_FROM and ORIG_SUBJECT in HTML: ":none" and some others would let a held message write markup.
class ReportTemplate {
 public:
  /// Parses; never throws for a faulty text, see error(). `name` stands in messages, normally the directory.
  ReportTemplate(const TemplateTexts& texts, std::string name);

  const std::string& name() const noexcept { return name_; }

  /// "" when the template is usable, else the first fault: "FILE: REASON" or "FILE:LINE: REASON".
  const std::string& error() const noexcept { return error_; }

  /// The piece with the dictionary's values. What a modifier throws passes through.
  /// Throws Exception when the template is not usable or cannot be expanded.
  std::string expand(TemplatePiece piece, const ctemplate::TemplateDictionaryInterface& values) const;

 private:
  bool parse(TemplatePiece piece, const std::string& text);
  void parseHeader(const std::string& header);
  void parseHtml(std::string html);
  void parseText(const std::string& text);
  void fail(const std::string& reason);

  std::string name_;
  std::string error_;
  // Owned one by one, not in a ctemplate cache: when a modifier throws, a cache leaves the template counted for ever.
  std::array<std::unique_ptr<ctemplate::Template>, kTemplatePieces> pieces_;
};

}  // namespace Velmar::Host
