// Assembles the report mail. VXMPopulateEmail calls this when the mail is sent.
//
// The header lines are written here and never shown to GMime, which would parse the addresses again and turn the
// domains of international ones around. GMime makes the body parts.

#include "host/mail_builder/mime.h"

#include <gmime/gmime.h>

#include <memory>

#include "host/mail_builder/header_encoding.h"
#include "platform/types.h"

namespace Velmar::Host {
namespace {

struct Unreference {
  void operator()(gpointer object) const noexcept { g_object_unref(object); }
};
template <class T>
using Object = std::unique_ptr<T, Unreference>;

struct FreeOptions {
  void operator()(GMimeFormatOptions* options) const noexcept { g_mime_format_options_free(options); }
};
using FormatOptions = std::unique_ptr<GMimeFormatOptions, FreeOptions>;

struct FreeText {
  void operator()(char* text) const noexcept { g_free(text); }
};
struct FreeTime {
  void operator()(GDateTime* time) const noexcept { g_date_time_unref(time); }
};

/// Once a process, on first use; GMime is never shut down, because other users of it in the process may live on.
void startGMime() {
  static const bool kStarted = (g_mime_init(), true);
  static_cast<void>(kStarted);
}

FormatOptions networkFormat() {
  FormatOptions options(g_mime_format_options_clone(nullptr));
  g_mime_format_options_set_newline_format(options.get(), GMIME_NEWLINE_FORMAT_DOS);
  return options;
}

std::string dateNow() {
  const std::unique_ptr<GDateTime, FreeTime> now(g_date_time_new_now_local());
  const std::unique_ptr<char, FreeText> text(g_mime_utils_header_format_date(now.get()));
  return text.get();
}

void setContent(GMimePart* part, std::string_view bytes, GMimeContentEncoding encoding) {
  const Object<GMimeStream> stream(g_mime_stream_mem_new_with_buffer(bytes.data(), bytes.size()));
  const Object<GMimeDataWrapper> wrapper(
      g_mime_data_wrapper_new_with_stream(stream.get(), GMIME_CONTENT_ENCODING_DEFAULT));
  g_mime_part_set_content(part, wrapper.get());
  g_mime_part_set_content_encoding(part, encoding);
}

Object<GMimeObject> textPart(const char* subtype, std::string_view text) {
  Object<GMimeObject> part(GMIME_OBJECT(g_mime_part_new_with_type("text", subtype)));
  g_mime_object_set_content_type_parameter(part.get(), "charset", "utf-8");
  setContent(GMIME_PART(part.get()), text, GMIME_CONTENT_ENCODING_QUOTEDPRINTABLE);
  return part;
}

Object<GMimeObject> imagePart(const InlineImage& image) {
  Object<GMimeObject> part(GMIME_OBJECT(g_mime_part_new_with_type("image", image.subtype)));
  g_mime_object_set_disposition(part.get(), GMIME_DISPOSITION_INLINE);
  g_mime_object_set_content_disposition_parameter(part.get(), "filename", image.fileName.c_str());
  g_mime_object_set_content_id(part.get(), image.contentId.c_str());
  setContent(GMIME_PART(part.get()), image.bytes, GMIME_CONTENT_ENCODING_BASE64);
  return part;
}

/// Every boundary contains "=_", which neither quoted-printable nor base64 can: GMime does not look for boundaries
/// in the content.
Object<GMimeObject> multipart(const char* subtype, const std::string& boundary) {
  GMimeMultipart* made = g_mime_multipart_new_with_subtype(subtype);
  g_mime_multipart_set_boundary(made, boundary.c_str());
  return Object<GMimeObject>(GMIME_OBJECT(made));
}

void add(const Object<GMimeObject>& parent, const Object<GMimeObject>& part) {
  g_mime_multipart_add(GMIME_MULTIPART(parent.get()), part.get());
}

Object<GMimeObject> htmlWithImages(const MailContent& content, const std::string& boundaryToken) {
  Object<GMimeObject> html = textPart("html", content.html);
  if (content.images.empty()) return html;
  Object<GMimeObject> related = multipart("related", "=_related." + boundaryToken);
  g_mime_object_set_content_type_parameter(related.get(), "type", "text/html");
  add(related, html);
  for (const InlineImage& image : content.images) add(related, imagePart(image));
  return related;
}

std::string headerLines(const MailContent& content) {
  return foldedField("Date", dateNow()) + foldedField("From", content.from) + foldedField("To", content.to) +
         foldedField("Subject", content.subject) + foldedField("Message-ID", content.messageId) +
         foldedField("Auto-Submitted", "auto-generated") + foldedField("MIME-Version", "1.0");
}

}  // namespace

std::string assembleMail(const MailContent& content, const std::string& boundaryToken) {
  startGMime();
  const Object<GMimeObject> root = multipart("alternative", "=_alternative." + boundaryToken);
  add(root, textPart("plain", content.plain));
  add(root, htmlWithImages(content, boundaryToken));

  const FormatOptions format = networkFormat();
  const Object<GMimeStream> stream(g_mime_stream_mem_new());
  const std::string header = headerLines(content);
  if (g_mime_stream_write(stream.get(), header.data(), header.size()) < 0 ||
      g_mime_object_write_to_stream(root.get(), format.get(), stream.get()) < 0) {
    throw Exception("MailBuilderException", 4, "Mime", __LINE__,
                    "mail " + std::string(content.messageId) + " cannot be assembled");
  }
  const GByteArray* bytes = g_mime_stream_mem_get_byte_array(GMIME_STREAM_MEM(stream.get()));
  return std::string(reinterpret_cast<const char*>(bytes->data), bytes->len);
}

}  // namespace Velmar::Host
