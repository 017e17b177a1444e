// Templates that remember what was set, mails that remember what was called, and the queue of the fake world.

#include "platform/mail_builder.h"

#include <ctemplate/template.h>

#include <memory>
#include <stdexcept>

#include "tests/fake/fake.h"

namespace Velmar {

using Fake::call;
using Fake::join;
using Fake::world;

namespace Fake {
namespace {

void fill(const Section& section, ctemplate::TemplateDictionary& dictionary) {
  for (const auto& [name, value] : section.values) dictionary.SetValue(name, value);
  for (const Section& inner : section.sections) fill(inner, *dictionary.AddSectionDictionary(inner.name));
}

}  // namespace

std::string expand(const std::string& content, const Section& section) {
  const std::unique_ptr<ctemplate::Template> parsed(
      ctemplate::Template::StringToTemplate(content, ctemplate::DO_NOT_STRIP));
  ctemplate::TemplateDictionary dictionary("report");
  fill(section, dictionary);
  std::string text;
  parsed->Expand(&text, &dictionary);
  return text;
}

std::string Section::asText(int depth) const {
  const std::string indent(static_cast<std::size_t>(2 * depth), ' ');
  std::string text;
  for (const auto& [variable, value] : values) text += indent + variable + "=" + value + "\n";
  for (const Section& inner : sections) text += indent + inner.name + "\n" + inner.asText(depth + 1);
  return text;
}

const Section& Section::at(const std::string& section, int index) const {
  for (const Section& inner : sections) {
    if (inner.name == section && index-- == 0) return inner;
  }
  throw std::out_of_range("no such section: " + section + " in\n" + asText());
}

Template::~Template() { note("~VXCustomizedEmailTemplate"); }

bool Template::good() const { return text_.good; }

void Template::fallon(const QRLStaticCharSetFallbacks* fallbacks) {
  call("fallon", fallbacks ? fallbacks->charsets().front() : "null");
}

void Template::beginSection(const std::string& name) {
  call("beginSection", name);
  open_.push_back(&open_.back()->sections.emplace_back(Section{name, {}, {}}));
}

void Template::endSection() {
  call("endSection");
  if (open_.size() == 1) throw Exception("TemplateException", 4, "Fake", 1, "no section is open");
  open_.pop_back();
}

int Template::store(const char* operation, const std::string& name, const std::string& value) {
  call(operation, join({name, value}));
  open_.back()->values[name] = value;
  const auto status = world().setStatus.find(name);
  return status == world().setStatus.end() ? 0 : status->second;
}

int Template::set(const std::string& name, const std::string& value) { return store("set", name, value); }
int Template::headerFrom(const std::string& raw, const std::string& name) {
  return store("headerFrom", name, "From " + raw);
}
int Template::subject(const std::string& raw, const std::string& name) {
  return store("subject", name, "Subject " + raw);
}

std::string Template::headerFromRFC2047() {
  call("headerFromRFC2047");
  return text_.from;
}
std::string Template::subjectRFC2047() {
  call("subjectRFC2047");
  return text_.subject;
}
std::string Template::envFrom() {
  call("envFrom");
  return text_.envFrom;
}
std::string Template::textbody() {
  call("textbody");
  return expand(text_.text, root_);
}
std::string Template::htmlbody() {
  call("htmlbody");
  return expand(text_.html, root_);
}

}  // namespace Fake

namespace {

class SystemCharsets : public QRLStaticCharSetFallbacks {
 public:
  const std::vector<std::string>& charsets() const override {
    call("system charsets");
    return names_;
  }

 private:
  std::vector<std::string> names_{"utf-8", "windows-1252"};
};

}  // namespace

QRLStaticCharSetFallbacks::~QRLStaticCharSetFallbacks() = default;

RefQRLStaticCharSetFallbacks RefQRLStaticCharSetFallbacks::instance() {
  call("RefQRLStaticCharSetFallbacks::instance");
  return RefQRLStaticCharSetFallbacks(new SystemCharsets);
}

void stringToUtf8(const std::string& raw, Buffer& out, const QRLStaticCharSetFallbacks* fallbacks) {
  call("stringToUtf8", join({raw, fallbacks ? "fallbacks" : "null"}));
  const auto found = world().decoded.find(raw);
  out.assign(found == world().decoded.end() ? raw : found->second);
}

std::string stringToValidEmailAddressRfc822HeaderValue(const std::string& address) {
  call("stringToValidEmailAddressRfc822HeaderValue", address);
  return "<" + address + ">";
}

std::string LW::createQueueId(const std::tm* when) {
  call("createQueueId", when ? "time" : "null");
  return "QID";
}

std::string LW::createHeaderMessageIdValue(const std::string& domain, const std::tm& when) {
  char time[32];
  std::strftime(time, sizeof time, "%Y%m%d-%H%M%S", &when);
  call("createHeaderMessageIdValue", join({domain, time}));
  return std::string("<") + time + "@" + domain + ">";
}

struct VXMPopulateEmail::Impl {
  Fake::Mail mail;
};

VXMPopulateEmail::VXMPopulateEmail() : impl_(std::make_unique<Impl>()) {
  call("VXMPopulateEmail");
  static std::atomic<int> begun{0};
  impl_->mail.number = ++begun;
}
VXMPopulateEmail::~VXMPopulateEmail() {
  Fake::note("~VXMPopulateEmail");
  if (world().onMailDestroyed) world().onMailDestroyed();
}

void VXMPopulateEmail::suppress_dsn(bool suppress) {
  call("suppress_dsn", suppress ? "true" : "false");
  impl_->mail.suppressDsn = suppress;
}
void VXMPopulateEmail::header_to(const std::string& value) {
  call("header_to", value);
  impl_->mail.to = value;
}
void VXMPopulateEmail::header_from(const std::string& value) {
  call("header_from", value);
  impl_->mail.from = value;
}
void VXMPopulateEmail::header_subject(const std::string& value) {
  call("header_subject", value);
  impl_->mail.subject = value;
}
void VXMPopulateEmail::header_message_id(const std::string& value) {
  call("header_message_id", value);
  impl_->mail.messageId = value;
}
void VXMPopulateEmail::sender(const std::string& address) {
  call("sender", address);
  impl_->mail.sender = address;
}
void VXMPopulateEmail::alternative_plain(const std::string& body, const std::string& charset) {
  call("alternative_plain", charset);
  impl_->mail.plain = body;
  impl_->mail.plainCharset = charset;
}
void VXMPopulateEmail::alternative_html(const std::string& body, const std::string& charset) {
  call("alternative_html", charset);
  impl_->mail.html = body;
  impl_->mail.htmlCharset = charset;
}

std::string VXMPopulateEmail::add_image_inline(const std::string& path, ContentType::SubType type) {
  call("add_image_inline", join({path, std::to_string(type)}));
  Fake::Mail& mail = impl_->mail;
  mail.images.push_back({path, type, std::to_string(mail.number) + "." + std::to_string(mail.images.size() + 1)});
  return mail.images.back().cid;
}

int VXMPopulateEmail::send_queued_not_scanned(const std::string& recipients) {
  call("send_queued_not_scanned", recipients);
  impl_->mail.recipients = recipients;
  Fake::locked([&] { world().queue.push_back(impl_->mail); });
  return 9;
}

namespace VlmCMsg {

VXCustomizedEmailTemplate::~VXCustomizedEmailTemplate() = default;

boost::shared_ptr<VXCustomizedEmailTemplate> VXCustomizedEmailTemplate::create(int type, const std::string& name,
                                                                               const std::string& domain,
                                                                               int reserved) {
  call("create", join({std::to_string(type), name, domain, std::to_string(reserved)}));
  const auto found = world().templates.find({domain, name});
  if (found == world().templates.end()) return {};
  return boost::shared_ptr<VXCustomizedEmailTemplate>(new Fake::Template(found->second));
}

}  // namespace VlmCMsg
}  // namespace Velmar
