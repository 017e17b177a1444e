#pragma once

// The finished mail as bytes.

#include <string>
#include <string_view>
#include <vector>

namespace Velmar::Host {

struct InlineImage {
  std::string contentId;  ///< without brackets
  std::string fileName;   ///< printable ASCII without quotes and backslashes
  const char* subtype;    ///< of "image/"
  std::string base64;     ///< in lines that are ended by CR LF
};

/// What a report mail consists of, by reference. Header values are ready for the wire and checked.
struct MailContent {
  std::string_view from;
  std::string_view to;
  std::string_view subject;
  std::string_view messageId;  ///< with brackets
  std::string_view plain;      ///< UTF-8, LF line ends
  std::string_view html;       ///< UTF-8, LF line ends
  const std::vector<InlineImage>& images;
};

/// The mail, all lines ended by CR LF and at most 998 bytes long:
///
///   multipart/alternative
///     text/plain                     quoted-printable
///     multipart/related              only when there are images; else text/html alone
///       text/html                    quoted-printable
///       image/..., inline            base64
///
/// boundaryToken  letters, digits and dots that make the boundaries unlike those of other mails
/// Throws Exception when a header line is too long. Any thread.
std::string assembleMail(const MailContent& content, const std::string& boundaryToken);

}  // namespace Velmar::Host
