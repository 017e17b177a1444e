// The modifiers of plain-text bodies. ctemplate calls them while it expands a report's text.

#include "host/mail_builder/text_modifiers.h"

#include <ctemplate/template_emitter.h>
#include <ctemplate/template_modifiers.h>

#include <charconv>

#include "host/mail_builder/utf8.h"

namespace Velmar::Host {
namespace {

constexpr std::string_view kScheme = "mailto:";
constexpr std::string_view kSubject = "?subject=";

class MailtoTo final : public ctemplate::TemplateModifier {
  void Modify(const char* in, std::size_t inlen, const ctemplate::PerExpandData*, ctemplate::ExpandEmitter* out,
              const std::string&) const override {
    out->Emit(std::string(mailtoAddress({in, inlen})));
  }
};

class MailtoSubject final : public ctemplate::TemplateModifier {
  void Modify(const char* in, std::size_t inlen, const ctemplate::PerExpandData*, ctemplate::ExpandEmitter* out,
              const std::string&) const override {
    out->Emit(mailtoSubject({in, inlen}));
  }
};

/// "%" without two hexadecimal digits stands for itself.
std::string percentDecoded(std::string_view text) {
  std::string bytes;
  bytes.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    unsigned char byte = 0;
    const char* digits = text.data() + i + 1;
    const bool escape =
        text[i] == '%' && i + 2 < text.size() && std::from_chars(digits, digits + 2, byte, 16).ptr == digits + 2;
    bytes += escape ? static_cast<char>(byte) : text[i];
    if (escape) i += 2;
  }
  return bytes;
}

}  // namespace

void registerTextModifiers() {
  // ctemplate keeps the pointers for ever, so the objects are never destroyed.
  static auto* const kTo = new MailtoTo;
  static auto* const kSubjectOf = new MailtoSubject;
  static const bool kRegistered =
      ctemplate::AddModifier("x-mailto-to", kTo) && ctemplate::AddModifier("x-mailto-subject", kSubjectOf);
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
