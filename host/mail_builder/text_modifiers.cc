// The modifiers of plain-text bodies. ctemplate calls them while it expands a report's text.

#include "host/mail_builder/text_modifiers.h"

#include <ctemplate/template_emitter.h>
#include <ctemplate/template_modifiers.h>

#include <algorithm>
#include <charconv>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "host/mail_builder/inert_text.h"
#include "host/mail_builder/utf8.h"

namespace Velmar::Host {
namespace {

constexpr std::string_view kScheme = "mailto:";
constexpr std::string_view kSubject = "?subject=";

constexpr std::size_t kMaxInert = 1000;

/// A modifier that is a function of the value and of what stands behind its "=".
class TextModifier final : public ctemplate::TemplateModifier {
 public:
  using Function = std::function<std::string(std::string_view value, std::string_view argument)>;
  explicit TextModifier(Function function) : function_(std::move(function)) {}

 private:
  void Modify(const char* in, std::size_t inlen, const ctemplate::PerExpandData*, ctemplate::ExpandEmitter* out,
              const std::string& argument) const override {
    const bool given = argument.starts_with('=');
    out->Emit(function_({in, inlen}, std::string_view(argument).substr(given ? 1 : 0)));
  }

  Function function_;
};

/// ctemplate keeps the pointer for ever, so the object is never destroyed.
bool add(const char* name, TextModifier::Function function) {
  static auto* const kKept = new std::vector<std::unique_ptr<const TextModifier>>;
  kKept->push_back(std::make_unique<const TextModifier>(std::move(function)));
  return ctemplate::AddModifier(name, kKept->back().get());
}

/// A number of characters; anything else is the most that a report keeps of a text.
std::size_t charactersOf(std::string_view argument) {
  std::size_t number = 0;
  const auto [end, error] = std::from_chars(argument.data(), argument.data() + argument.size(), number);
  const bool sound = error == std::errc() && end == argument.data() + argument.size();
  return sound && number > 0 && number < kMaxInert ? number : kMaxInert;
}

/// "%" without two hexadecimal digits stands for itself.
std::string percentDecoded(std::string_view text) {
  std::string bytes;
  bytes.reserve(text.size());
  while (!text.empty()) {
    const std::size_t plain = std::min(text.find('%'), text.size());
    bytes.append(text.substr(0, plain));
    text.remove_prefix(plain);
    if (text.empty()) break;
    unsigned char byte = 0;
    const bool escape =
        text.size() > 2 && std::from_chars(text.data() + 1, text.data() + 3, byte, 16).ptr == text.data() + 3;
    bytes += escape ? static_cast<char>(byte) : '%';
    text.remove_prefix(escape ? 3 : 1);
  }
  return bytes;
}

}  // namespace

void registerTextModifiers() {
  using View = std::string_view;
  static const bool kRegistered =
      add("x-mailto-to", [](View value, View) { return std::string(mailtoAddress(value)); }) &&
      add("x-mailto-subject", [](View value, View) { return mailtoSubject(value); }) &&
      add("x-alt=", [](View, View argument) { return std::string(argument); }) &&
      add("x-inert=", [](View value, View n) { return inertText(value, charactersOf(n), LinkBreak::kHidden); }) &&
      add("x-inert-text=", [](View value, View n) { return inertText(value, charactersOf(n), LinkBreak::kVisible); });
  static_cast<void>(kRegistered);
}

std::string_view mailtoAddress(std::string_view link) {
  if (link.substr(0, kScheme.size()) == kScheme) link.remove_prefix(kScheme.size());
  return link.substr(0, link.find(kSubject));
}

std::string mailtoSubject(std::string_view link) {
  const std::size_t subject = link.find(kSubject);
  if (subject == std::string_view::npos) return {};
  return oneLine(percentDecoded(link.substr(subject + kSubject.size())));
}

}  // namespace Velmar::Host
