#pragma once

// A host in a directory of its own with one mailbox, whose reports are caught where they would be queued; and what of a
// report must not depend on the messages in it.

#include <filesystem>
#include <string>
#include <vector>

#include "host/host.h"
#include "tests/support/temp_root.h"
#include "velmar/spamreport.h"

namespace Velmar::Testing {

/// One at a time in a process.
class OneMailbox {
 public:
  static constexpr char kAddress[] = "anna@example.org";
  static constexpr std::int64_t kUntil = 1700000000;

  OneMailbox() {
    std::filesystem::create_directories(root / "etc/velmar");
    std::filesystem::copy_file(Host::shareDirectory() + "/demo/host.toml", root / "etc/velmar/host.toml");
    Host::setLogToStderr(false);
    Host::setMailSink([this](const Host::QueuedMail& mail) { mails_.push_back(mail); });
  }
  ~OneMailbox() { Host::setMailSink(nullptr); }

  /// Puts a message into the quarantine, so many seconds before the end of the period, in place of the one of that
  /// time.
  void hold(int seconds, const std::string& text) const {
    const std::string name = std::to_string(kUntil - seconds) + ".M1P1.host";
    root.write("home/example.org/anna~example.org/quarantine/new/" + name, text);
  }

  /// The mails of the exported call, by default of the mailbox.
  std::vector<Host::QueuedMail> report(const std::string& domain = "example.org",
                                       const std::string& recipients = kAddress) {
    mails_.clear();
    vlm_spamreport_report_byrcpt(domain.c_str(), recipients.c_str(), 86400, kUntil);
    return mails_;
  }

  const TempRoot root;

 private:
  std::vector<Host::QueuedMail> mails_;
};

/// The tags of the page without the values of attributes, and the indents of the text's lines. Lines that continue one
/// with a held text in it stand deeper and are left out.
inline std::string shapeOf(const Host::QueuedMail& mail) {
  std::string shape;
  char quote = '\0';
  for (const char c : mail.html) {
    const bool inTag = !shape.empty() && shape.back() != '>';
    if (quote == '\0' && (inTag || c == '<')) shape += c;
    if (quote == '\0' && inTag && (c == '"' || c == '\'')) {
      quote = c;
    } else if (c == quote) {
      quote = '\0';
    }
  }
  for (std::size_t line = 0; line < mail.text.size(); line = mail.text.find('\n', line) + 1) {
    const std::size_t indent = mail.text.find_first_not_of(' ', line) - line;
    if (indent <= 4) shape += std::to_string(indent);
  }
  return shape;
}

}  // namespace Velmar::Testing
