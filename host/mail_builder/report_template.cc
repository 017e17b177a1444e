// Parses the three texts of a report template into ctemplate objects of its own. The template store owns these.
//
// Nothing here reads files, and neither does ctemplate: the texts are given and includes are refused.

#include "host/mail_builder/report_template.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>
#include <utility>
#include <vector>

#include "host/mail_builder/template_errors.h"
#include "host/mail_builder/text_modifiers.h"
#include "host/mail_builder/utf8.h"
#include "platform/types.h"

namespace Velmar::Host {
namespace {

constexpr std::string_view kPragma = R"({{%AUTOESCAPE context="HTML"}})";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::array<std::string_view, 4> kHeldTexts = {"ORIG_FROM", "ORIG_SUBJECT", "SENDER_NAME", "SENDER_ADDRESS"};
constexpr std::string_view kInert = ":x-inert=";
constexpr std::string_view kLanguage = "Language:";
constexpr std::string_view kWrap = "Wrap:";
constexpr std::string_view kTagCharacters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-";
constexpr std::size_t kLeastColumns = 40;
constexpr std::size_t kMostColumns = 900;  // a mail's line has at most 998 bytes

struct Piece {
  const char* file;
  ctemplate::Strip strip;
};

/// By the value of TemplatePiece.
constexpr std::array<Piece, kTemplatePieces> kPieces = {{
    {"header.tpl", ctemplate::DO_NOT_STRIP},
    {"header.tpl", ctemplate::DO_NOT_STRIP},
    {"header.tpl", ctemplate::DO_NOT_STRIP},
    {"body.html.tpl", ctemplate::STRIP_BLANK_LINES},
    {"body.txt.tpl", ctemplate::DO_NOT_STRIP},
}};

std::size_t placeOf(TemplatePiece piece) { return static_cast<std::size_t>(piece); }

struct HeaderLine {
  std::string_view name;
  TemplatePiece piece;
};

constexpr std::array<HeaderLine, 3> kHeaderLines = {{
    {"From:", TemplatePiece::From},
    {"Subject:", TemplatePiece::Subject},
    {"Envelope-From:", TemplatePiece::EnvelopeFrom},
}};

/// The text without a byte order mark and with LF line ends.
std::string plainText(std::string_view text) {
  if (text.substr(0, kByteOrderMark.size()) == kByteOrderMark) text.remove_prefix(kByteOrderMark.size());
  std::string plain;
  plain.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\r' || text.substr(i, 2) != "\r\n") plain += text[i];
  }
  return plain;
}

std::string at(const char* file, std::string_view text, std::size_t place) {
  std::size_t line = 1;
  for (const char c : text.substr(0, place)) line += c == '\n';
  return std::string(file) + ":" + std::to_string(line) + ": ";
}

/// Faults that ctemplate would let pass; "" when there is none.
std::string forbidden(const char* file, std::string_view text) {
  struct Rule {
    std::string_view marker;
    const char* reason;
  };
  constexpr Rule kRules[] = {{"{{>", "includes are not supported"}, {"{{=", "other delimiters are not supported"}};
  if (trimmed(text).empty()) return std::string(file) + ": is missing or empty";
  if (text.find('\0') != std::string_view::npos || utf8Quality(text).malformed > 0) {
    return std::string(file) + ": is not UTF-8 text";
  }
  for (const Rule& rule : kRules) {
    const std::size_t place = text.find(rule.marker);
    if (place != std::string_view::npos) return at(file, text, place) + rule.reason;
  }
  return {};
}

std::string_view withoutInert(std::string_view modifiers) {
  if (!modifiers.starts_with(kInert)) return modifiers;
  return modifiers.substr(std::min(modifiers.find_first_not_of("0123456789", kInert.size()), modifiers.size()));
}

/// The place of a marker that might write a held text into HTML unescaped; npos when there is none. Auto-escape does
/// its work on a bare marker; of modifiers only those that escape more are let through.
std::size_t unescapedHeldText(std::string_view html) {
  constexpr std::string_view kAllowed[] = {"", ":h", ":html_escape", ":p", ":pre_escape"};
  for (const std::string_view name : kHeldTexts) {
    const std::string marker = "{{" + std::string(name);
    for (std::size_t from = html.find(marker); from != std::string_view::npos; from = html.find(marker, from + 1)) {
      const std::size_t start = from + marker.size();
      const std::string_view modifiers = withoutInert(trimmed(html.substr(start, html.find("}}", start) - start)));
      if (std::find(std::begin(kAllowed), std::end(kAllowed), modifiers) == std::end(kAllowed)) return from;
    }
  }
  return std::string_view::npos;
}

using Parsed = std::unique_ptr<ctemplate::Template>;

Parsed parsed(const std::string& text, ctemplate::Strip strip) {
  return Parsed(ctemplate::Template::StringToTemplate(text, strip));
}

/// The beginning of a text up to a marker, and the sections that are open after it.
struct Beginning {
  std::size_t marker = 0;  ///< place of its last marker
  std::size_t end = 0;     ///< behind it
  std::vector<std::string_view> open;
  std::size_t lastOpened = 0;  ///< place of the marker that opened the innermost one

  std::string closed(std::string_view text) const {
    std::string whole(text.substr(0, end));
    for (std::size_t i = open.size(); i > 0; --i) whole += "{{/" + std::string(open[i - 1]) + "}}";
    return whole;
  }
};

/// The beginning that ends with the marker number `count`, or with the last one before.
Beginning beginningOf(std::string_view text, std::size_t count) {
  Beginning beginning;
  std::vector<std::size_t> opened;
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t marker = text.find("{{", beginning.end);
    const std::size_t end = marker == std::string_view::npos ? marker : text.find("}}", marker);
    if (end == std::string_view::npos) break;
    beginning.marker = marker;
    beginning.end = end + 2;
    const char kind = text[marker + 2];
    if (kind == '#') {
      beginning.open.push_back(text.substr(marker + 3, end - marker - 3));
      opened.push_back(marker);
    } else if (kind == '/' && !opened.empty()) {
      beginning.open.pop_back();
      opened.pop_back();
    }
  }
  if (!opened.empty()) beginning.lastOpened = opened.back();
  return beginning;
}

std::size_t markersIn(std::string_view text) {
  std::size_t count = 0;
  for (std::size_t at = text.find("{{"); at != std::string_view::npos; at = text.find("{{", at + 2)) ++count;
  return count;
}

/// The place of the marker at which a text stops being sound, because ctemplate does not tell. Some ten parses.
std::size_t faultPlace(std::string_view text, ctemplate::Strip strip) {
  const TemplateErrors unread;
  std::size_t sound = 0;
  std::size_t faulty = markersIn(text) + 1;
  while (sound + 1 < faulty) {
    const std::size_t middle = sound + (faulty - sound) / 2;
    (parsed(beginningOf(text, middle).closed(text), strip) ? sound : faulty) = middle;
  }
  const Beginning first = beginningOf(text, faulty);
  if (faulty <= markersIn(text) && first.end > beginningOf(text, sound).end) return first.marker;
  const std::size_t unended = text.find("{{", first.end);
  return unended == std::string_view::npos ? first.lastOpened : unended;
}

bool isComment(std::string_view line) { return line.substr(0, 3) == "{{!" && line.find("}}") == line.size() - 2; }

}  // namespace

ReportTemplate::ReportTemplate(const TemplateTexts& texts, std::string name) : name_(std::move(name)) {
  registerTextModifiers();
  parseHeader(plainText(texts.header));
  parseHtml(plainText(texts.html));
  parseText(plainText(texts.text));
  if (!error_.empty()) return;
  all_ = texts.header + texts.html + texts.text;
  plurals_ = std::make_unique<const PluralClasses>(language_);
}

std::string ReportTemplate::countSection(std::int32_t count) const {
  const std::string name = "COUNT_" + plurals_->of(count);
  return all_.find("{{#" + name + "}}") == std::string::npos ? "COUNT_OTHER" : name;
}

std::string ReportTemplate::expand(TemplatePiece piece, const ctemplate::TemplateDictionaryInterface& values,
                                   std::size_t expectedBytes) const {
  if (!error_.empty()) {
    throw Exception("TemplateException", 4, "ReportTemplate", __LINE__, "template " + name_ + ": " + error_);
  }
  std::string text;
  text.reserve(expectedBytes);
  if (!pieces_[placeOf(piece)]->ExpandWithData(&text, &values, nullptr)) {
    throw Exception("TemplateException", 4, "ReportTemplate", __LINE__,
                    "template " + name_ + ": " + kPieces[placeOf(piece)].file + " cannot be expanded");
  }
  return text;
}

bool ReportTemplate::parse(TemplatePiece piece, const std::string& text, const std::string& place) {
  const Piece& wanted = kPieces[placeOf(piece)];
  std::string reason;
  {
    const TemplateErrors errors;
    pieces_[placeOf(piece)] = parsed(text, wanted.strip);
    reason = errors.text();
  }
  if (pieces_[placeOf(piece)]) return true;
  fail((place.empty() ? at(wanted.file, text, faultPlace(text, wanted.strip)) : place) + reason);
  return false;
}

void ReportTemplate::parseHeader(const std::string& header) {
  const std::string fault = forbidden("header.tpl", header);
  if (!fault.empty()) return fail(fault);
  std::array<bool, kHeaderLines.size()> seen{};
  bool language = false;
  bool wrap = false;
  for (std::size_t from = 0, end = 0; from < header.size(); from = end + 1) {
    end = std::min(header.find('\n', from), header.size());
    const std::string_view line = trimmed(std::string_view(header).substr(from, end - from));
    if (line.empty() || isComment(line)) continue;
    const std::string place = at("header.tpl", header, from);
    if (line.starts_with(kLanguage)) {
      if (std::exchange(language, true)) return fail(place + "a second Language:");
      parseLanguage(place, std::string(trimmed(line.substr(kLanguage.size()))));
      continue;
    }
    if (line.starts_with(kWrap)) {
      if (std::exchange(wrap, true)) return fail(place + "a second Wrap:");
      parseWrap(place, trimmed(line.substr(kWrap.size())));
      continue;
    }
    std::size_t i = 0;
    while (i < kHeaderLines.size() && line.substr(0, kHeaderLines[i].name.size()) != kHeaderLines[i].name) ++i;
    if (i == kHeaderLines.size()) return fail(place + "neither From:, Subject:, Envelope-From:, Language: nor Wrap:");
    if (std::exchange(seen[i], true)) return fail(place + "a second " + std::string(kHeaderLines[i].name));
    const std::string value(trimmed(line.substr(kHeaderLines[i].name.size())));
    if (!parse(kHeaderLines[i].piece, value, place)) return;
  }
  for (std::size_t i = 0; i < kHeaderLines.size(); ++i) {
    if (!seen[i]) return fail("header.tpl: no line " + std::string(kHeaderLines[i].name));
  }
}

void ReportTemplate::parseLanguage(const std::string& place, const std::string& tag) {
  const bool sound = !tag.empty() && tag.size() <= 64 && tag.find_first_not_of(kTagCharacters) == std::string::npos;
  if (!sound) return fail(place + "no language tag such as \"de\" or \"pt-BR\": \"" + tag + "\"");
  language_ = tag;
}

void ReportTemplate::parseWrap(const std::string& place, std::string_view columns) {
  const auto [end, error] = std::from_chars(columns.data(), columns.data() + columns.size(), wrap_);
  if (error == std::errc() && end == columns.data() + columns.size() && wrap_ >= kLeastColumns && wrap_ <= kMostColumns)
    return;
  fail(place + "no number of columns from 40 to 900: \"" + std::string(columns) + "\"");
}

void ReportTemplate::parseHtml(std::string html) {
  const std::string fault = forbidden("body.html.tpl", html);
  if (!fault.empty()) return fail(fault);
  const std::size_t place = unescapedHeldText(html);
  if (place != std::string::npos) {
    return fail(at("body.html.tpl", html, place) +
                "a held text takes no modifier but :x-inert=N, :h and :p here, so that no message can write markup");
  }
  if (html.compare(0, kPragma.size(), kPragma) != 0) html.insert(0, kPragma);
  parse(TemplatePiece::Html, html);
}

void ReportTemplate::parseText(const std::string& text) {
  const std::string fault = forbidden("body.txt.tpl", text);
  if (!fault.empty()) return fail(fault);
  parse(TemplatePiece::Text, text);
}

void ReportTemplate::fail(const std::string& reason) {
  if (error_.empty()) error_ = reason;
}

}  // namespace Velmar::Host
