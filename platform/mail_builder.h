#pragma once

// Templates, mail assembly, header encodings and the mail queue.

#include <boost/shared_ptr.hpp>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "platform/export.h"
#include "platform/types.h"

namespace Velmar {

/// The charsets to try, in order, for text whose own charset is missing, unknown or wrong.
class VLM_EXPORT QRLStaticCharSetFallbacks : public RefImpl {
 public:
  ~QRLStaticCharSetFallbacks() override;
  /// IANA names; the last one accepts any bytes. The list lives as long as the object. Any thread.
  virtual const std::vector<std::string>& charsets() const = 0;
};

/// Handle to a charset list.
class VLM_EXPORT RefQRLStaticCharSetFallbacks : public Ref<const QRLStaticCharSetFallbacks> {
 public:
  /// An empty handle.
  RefQRLStaticCharSetFallbacks() = default;
  /// The process-wide list. Never an empty handle. Any thread.
  static RefQRLStaticCharSetFallbacks instance();

 private:
  using Ref<const QRLStaticCharSetFallbacks>::Ref;
};

/// Decodes a raw header value to UTF-8: RFC 2047 encoded words, raw 8-bit text by the fallbacks.
///
/// raw        any bytes. No text is lost: what cannot be decoded stands as it is written
/// out        replaced by valid UTF-8 in which control characters (line breaks, tabs, NUL and 0x01 too) are blanks
/// fallbacks  charsets to try; null = the process-wide list
/// Throws Exception only when the converters cannot be opened. Any thread; linear time.
VLM_EXPORT void stringToUtf8(const std::string& raw, Buffer& out, const QRLStaticCharSetFallbacks* fallbacks);

/// An address text as a value that may stand in a To field; throws Exception when it is not one address.
VLM_EXPORT std::string stringToValidEmailAddressRfc822HeaderValue(const std::string& address);

namespace LW {

/// A new queue identifier, unique on this host: letters, digits, "-" only.
/// when  time that it carries, local time; null = now
VLM_EXPORT std::string createQueueId(const std::tm* when);

/// A fresh Message-ID value, angle brackets included (RFC 5322 section 3.6.4).
/// domain  right side of the identifier; when  the time that it carries
VLM_EXPORT std::string createHeaderMessageIdValue(const std::string& domain, const std::tm& when);

}  // namespace LW

/// Media subtypes of images, by the numbers of the mail builder.
struct ContentType {
  enum SubType : int {
    SUBTYPE_NONE = 0,
    SUBTYPE_JPEG = 12,
    SUBTYPE_GIF = 13,
    SUBTYPE_PNG = 14,
  };
};

/// A mail under construction. Used by one thread; not copyable.
///
/// Texts that go into header fields must not hold CR, LF or NUL: such a call throws Exception and changes nothing.
class VLM_EXPORT VXMPopulateEmail {
 public:
  VXMPopulateEmail();
  VXMPopulateEmail(const VXMPopulateEmail&) = delete;
  VXMPopulateEmail& operator=(const VXMPopulateEmail&) = delete;
  ~VXMPopulateEmail();

  /// true: nobody is to be told of this mail's delivery or failure (DSN NOTIFY=NEVER).
  void suppress_dsn(bool suppress);
  /// Values of header fields, already encoded for the wire (RFC 2047).
  void header_to(const std::string& value);
  void header_from(const std::string& value);
  void header_subject(const std::string& value);
  /// With or without angle brackets.
  void header_message_id(const std::string& value);
  /// Envelope sender: a bare address, or "" for the null reverse-path.
  void sender(const std::string& address);

  /// The two alternatives, UTF-8. charset is "utf-8". Line ends may be LF or CRLF.
  void alternative_plain(const std::string& body, const std::string& charset);
  void alternative_html(const std::string& body, const std::string& charset);

  /// Attaches the image file as an inline part beside the HTML and returns its content id, without brackets.
  /// path  one of the system's own absolute paths, as for File::openReadOnly
  /// Throws Exception when the file cannot be read or is larger than 1 MiB; then nothing is attached.
  std::string add_image_inline(const std::string& path, ContentType::SubType type);

  /// Hands the finished mail to the mail queue for these envelope recipients (bare addresses separated by commas),
  /// past content scanning. Returns 0 once the queue has it safely.
  /// Throws Exception when the mail is incomplete, a recipient is no address, or the queue did not accept it:
  /// then nothing was queued.
  int send_queued_not_scanned(const std::string& recipients);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

namespace VlmCMsg {

/// A customised mail template with the values to fill it. Used by one thread.
///
/// Values are raw UTF-8; the template says how each is escaped where it lands. Sections nest: set(), headerFrom() and
/// subject() act on the innermost open one. A section opened several times is shown several times.
class VLM_EXPORT VXCustomizedEmailTemplate {
 public:
  /// type      message type; 38 = quarantine report
  /// name      template name; names that are no single path component never match
  /// domain    domain whose own templates are looked up; "" = system-wide
  /// reserved  0
  /// Returns a template; an empty handle or one that is not good() when there is none of this name or it does not
  /// parse. Throws Exception when it could not look. Any thread.
  static boost::shared_ptr<VXCustomizedEmailTemplate> create(int type, const std::string& name,
                                                             const std::string& domain, int reserved);

  VXCustomizedEmailTemplate() = default;
  VXCustomizedEmailTemplate(const VXCustomizedEmailTemplate&) = delete;
  VXCustomizedEmailTemplate& operator=(const VXCustomizedEmailTemplate&) = delete;
  virtual ~VXCustomizedEmailTemplate();

  virtual bool good() const = 0;

  /// Charsets for held texts that name none; null = the process-wide list. Must outlive the template.
  virtual void fallon(const QRLStaticCharSetFallbacks* fallbacks) = 0;

  virtual void beginSection(const std::string& name) = 0;
  /// Throws Exception when no section is open.
  virtual void endSection() = 0;
  /// Sets a variable; a later value of the same name in the same section wins. Returns 0.
  virtual int set(const std::string& name, const std::string& value) = 0;
  /// Sets variable `name` from a raw From field: decoded, one line, at most 1000 characters (then an ellipsis).
  virtual int headerFrom(const std::string& raw, const std::string& name) = 0;
  /// Sets variable `name` from a raw Subject field, likewise.
  virtual int subject(const std::string& raw, const std::string& name) = 0;

  /// The template's own From value and subject, expanded and encoded for the wire (RFC 2047).
  virtual std::string headerFromRFC2047() = 0;
  virtual std::string subjectRFC2047() = 0;
  /// The envelope sender, a bare address or "".
  virtual std::string envFrom() = 0;
  /// The expanded bodies, UTF-8. An exception of a template modifier passes through.
  virtual std::string textbody() = 0;
  virtual std::string htmlbody() = 0;
};

}  // namespace VlmCMsg
}  // namespace Velmar
