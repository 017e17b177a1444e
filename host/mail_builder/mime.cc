// Assembles the report mail. VXMPopulateEmail calls this when the mail is sent.
//
// Everything is written once, into one buffer. The header lines are never shown to a mail library, which would parse
// the addresses again and turn the domains of international ones around.

#include "host/mail_builder/mime.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string_view>
#include <utility>

#include "host/mail_builder/header_encoding.h"
#include "host/mail_builder/quoted_printable.h"

namespace Velmar::Host {
namespace {

constexpr std::size_t kUsualFraming = 4096;  // header lines and boundaries

/// A moment as RFC 5322 section 3.3 writes it, in the local zone and whatever the process's locale.
std::string dateText(std::time_t moment) {
  static constexpr std::array kDays = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  static constexpr std::array kMonths = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                         "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  std::tm local{};
  localtime_r(&moment, &local);
  const long minutes = std::labs(local.tm_gmtoff) / 60;
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "%s, %02d %s %d %02d:%02d:%02d %c%02ld%02ld",
                kDays[static_cast<std::size_t>(local.tm_wday)], local.tm_mday,
                kMonths[static_cast<std::size_t>(local.tm_mon)], local.tm_year + 1900, local.tm_hour, local.tm_min,
                local.tm_sec, local.tm_gmtoff < 0 ? '-' : '+', minutes / 60, minutes % 60);
  return text.data();
}

/// Writes the parts of a mail one after the other.
class MailWriter {
 public:
  MailWriter(const MailContent& content, const std::string& boundaryToken)
      : content_(content), alternative_("=_alternative." + boundaryToken), related_("=_related." + boundaryToken) {}

  std::string write() {
    mail_.reserve(expectedSize());
    writeHead();
    field("Content-Type", "multipart/alternative; boundary=\"" + alternative_ + "\"");
    openPart(alternative_);
    writeText("plain", content_.plain);
    openPart(alternative_);
    content_.images.empty() ? writeText("html", content_.html) : writeHtmlWithImages();
    close(alternative_);
    return std::move(mail_);
  }

 private:
  std::size_t expectedSize() const {
    std::size_t bytes = kUsualFraming + (content_.plain.size() + content_.html.size()) / 4 * 5;
    for (const InlineImage& image : content_.images) bytes += image.base64.size();
    return bytes;
  }

  void field(const char* name, std::string_view value) { mail_ += foldedField(name, value); }

  void writeHead() {
    field("Date", dateText(std::time(nullptr)));
    field("From", content_.from);
    field("To", content_.to);
    field("Subject", content_.subject);
    field("Message-ID", content_.messageId);
    field("Auto-Submitted", "auto-generated");
    field("MIME-Version", "1.0");
  }

  /// Every boundary contains "=_", which neither quoted-printable nor base64 can: none is looked for in the content.
  void openPart(const std::string& boundary) { mail_.append("\r\n--").append(boundary).append("\r\n"); }
  void close(const std::string& boundary) { mail_.append("\r\n--").append(boundary).append("--\r\n"); }

  void writeText(const std::string& subtype, std::string_view text) {
    field("Content-Type", "text/" + subtype + "; charset=utf-8");
    field("Content-Transfer-Encoding", "quoted-printable");
    mail_ += "\r\n";
    appendQuotedPrintable(text, mail_);
  }

  void writeHtmlWithImages() {
    field("Content-Type", "multipart/related; type=\"text/html\"; boundary=\"" + related_ + "\"");
    openPart(related_);
    writeText("html", content_.html);
    for (const InlineImage& image : content_.images) writeImage(image);
    close(related_);
  }

  void writeImage(const InlineImage& image) {
    openPart(related_);
    field("Content-Type", "image/" + std::string(image.subtype));
    field("Content-Disposition", "inline; filename=\"" + image.fileName + "\"");
    field("Content-ID", "<" + image.contentId + ">");
    field("Content-Transfer-Encoding", "base64");
    mail_ += "\r\n";
    mail_ += image.base64;
  }

  const MailContent& content_;
  const std::string alternative_;
  const std::string related_;
  std::string mail_;
};

}  // namespace

std::string assembleMail(const MailContent& content, const std::string& boundaryToken) {
  return MailWriter(content, boundaryToken).write();
}

}  // namespace Velmar::Host
