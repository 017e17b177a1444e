// Catches ctemplate's messages on std::cerr while a template is parsed. Only ReportTemplate uses it.

#include "host/mail_builder/template_errors.h"

#include <atomic>
#include <iostream>
#include <string_view>

#include "host/mail_builder/utf8.h"

namespace Velmar::Host {
namespace {

thread_local std::string* threadCapture = nullptr;

/// Sends the bytes of a capturing thread to its capture and those of all others to the buffer underneath.
class RoutingBuffer final : public std::streambuf {
 public:
  void setUnderneath(std::streambuf* underneath) {
    if (underneath != this) underneath_ = underneath;
  }

 protected:
  int_type overflow(int_type c) override {
    if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
    const char byte = traits_type::to_char_type(c);
    return xsputn(&byte, 1) == 1 ? c : traits_type::eof();
  }

  std::streamsize xsputn(const char* bytes, std::streamsize count) override {
    if (!threadCapture) return underneath_.load()->sputn(bytes, count);
    threadCapture->append(bytes, static_cast<std::size_t>(count));
    return count;
  }

  int sync() override { return threadCapture ? 0 : underneath_.load()->pubsync(); }

 private:
  std::atomic<std::streambuf*> underneath_{nullptr};
};

std::mutex captureMutex;

/// Never destroyed: another thread may still be writing through it when a capture ends.
RoutingBuffer& routingBuffer() {
  static auto* const kBuffer = new RoutingBuffer;
  return *kBuffer;
}

void removeAll(std::string& text, std::string_view piece) {
  for (std::size_t at = text.find(piece); at != std::string::npos; at = text.find(piece, at)) {
    text.erase(at, piece.size());
  }
}

}  // namespace

TemplateErrors::TemplateErrors() : lock_(captureMutex), before_(std::cerr.rdbuf()) {
  routingBuffer().setUnderneath(before_);
  threadCapture = &captured_;
  std::cerr.rdbuf(&routingBuffer());
}

TemplateErrors::~TemplateErrors() {
  std::cerr.rdbuf(before_);
  threadCapture = nullptr;
}

std::string TemplateErrors::text() const {
  std::string text(trimmed(captured_));
  removeAll(text, "ERROR: ");
  removeAll(text, "Template : ");
  for (std::size_t at = text.find('\n'); at != std::string::npos; at = text.find('\n', at)) text.replace(at, 1, "; ");
  return text.empty() ? "does not parse" : text;
}

}  // namespace Velmar::Host
