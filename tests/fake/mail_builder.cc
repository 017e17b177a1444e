// Templates that remember what was set, mails that remember what was called, and the queue of the fake world.

#include "platform/mail_builder.h"

#include <ctemplate/template.h>

#include <memory>

#include "tests/fake/fake.h"

namespace Velmar {

using Fake::call;
using Fake::join;
using Fake::world;

namespace {

/// A template that keeps what was set and opened; good() and the expanded texts follow from its TemplateText.
class Template : public VlmCMsg::VXCustomizedEmailTemplate {
 public:
  explicit Template(Fake::TemplateText text) : text_(std::move(text)) {}
  ~Template() override { Fake::note("~VXCustomizedEmailTemplate"); }

  bool good() const override { return text_.good; }
  void fallon(const QRLStaticCharSetFallbacks* fallbacks) override {
    call("fallon", fallbacks ? fallbacks->charsets().front() : "null");
  }
  void beginSection(const std::string& name) override {
    call("beginSection", name);
    open_.push_back(open_.back()->AddSectionDictionary(name));
  }
  void endSection() override {
    call("endSection");
    open_.pop_back();
  }
  int set(const std::string& name, const std::string& value) override { return store("set", name, value); }
  int headerFrom(const std::string& raw, const std::string& name) override { return store("headerFrom", name, raw); }
  int subject(const std::string& raw, const std::string& name) override { return store("subject", name, raw); }
  std::string headerFromRFC2047() override { return expand("headerFromRFC2047", text_.from); }
  std::string subjectRFC2047() override { return expand("subjectRFC2047", text_.subject); }
  std::string envFrom() override { return expand("envFrom", text_.envFrom); }
  std::string textbody() override { return expand("textbody", text_.text); }
  std::string htmlbody() override { return expand("htmlbody", text_.html); }

 private:
  int store(const char* operation, const std::string& name, const std::string& value) {
    call(operation, join({name, value}));
    open_.back()->SetValue(name, value);
    const auto status = world().setStatus.find(name);
    return status == world().setStatus.end() ? 0 : status->second;
  }
  std::string expand(const char* operation, const std::string& content) {
    call(operation);
    const std::unique_ptr<ctemplate::Template> parsed(
        ctemplate::Template::StringToTemplate(content, ctemplate::DO_NOT_STRIP));
    std::string text;
    parsed->Expand(&text, &root_);
    return text;
  }

  Fake::TemplateText text_;
  ctemplate::TemplateDictionary root_{"report"};
  std::vector<ctemplate::TemplateDictionary*> open_{&root_};
};

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
  out.assign(raw.empty() ? "" : raw + " as UTF-8");
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

struct VXMPopulateEmail::Impl : Fake::Mail {};

VXMPopulateEmail::VXMPopulateEmail() : impl_(std::make_unique<Impl>()) {
  call("VXMPopulateEmail");
  Fake::locked([&] { impl_->number = ++world().mailsBegun; });
}
VXMPopulateEmail::~VXMPopulateEmail() {
  Fake::note("~VXMPopulateEmail");
  if (world().onMailDestroyed) world().onMailDestroyed();
}

void VXMPopulateEmail::suppress_dsn(bool suppress) { call("suppress_dsn", suppress ? "true" : "false"); }
void VXMPopulateEmail::header_to(const std::string& value) { call("header_to", value); }
void VXMPopulateEmail::header_from(const std::string& value) { call("header_from", value); }
void VXMPopulateEmail::header_subject(const std::string& value) { call("header_subject", value); }
void VXMPopulateEmail::header_message_id(const std::string& value) { call("header_message_id", value); }
void VXMPopulateEmail::sender(const std::string& address) { call("sender", address); }
void VXMPopulateEmail::alternative_plain(const std::string& body, const std::string& charset) {
  call("alternative_plain", join({body, charset}));
}
void VXMPopulateEmail::alternative_html(const std::string& body, const std::string& charset) {
  call("alternative_html", join({body, charset}));
  impl_->html = body;
}

std::string VXMPopulateEmail::add_image_inline(const std::string& path, ContentType::SubType type) {
  call("add_image_inline", join({path, std::to_string(type)}));
  impl_->cids.push_back(std::to_string(impl_->number) + "." + std::to_string(impl_->cids.size() + 1));
  return impl_->cids.back();
}

int VXMPopulateEmail::send_queued_not_scanned(const std::string& recipients) {
  call("send_queued_not_scanned", recipients);
  impl_->recipients = recipients;
  Fake::locked([&] { world().queue.push_back(*impl_); });
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
  return boost::shared_ptr<VXCustomizedEmailTemplate>(new Template(found->second));
}

}  // namespace VlmCMsg
}  // namespace Velmar
