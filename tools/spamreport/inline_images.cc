// Puts the images of a report mail into its HTML. It reads only what the mail builder writes: it looks for lines that
// begin a MIME part, and takes a base64 image up to the next such line, which base64 cannot contain.

#include "tools/spamreport/inline_images.h"

#include <algorithm>
#include <map>
#include <string_view>

namespace Velmar::Tool {
namespace {

/// Takes the next line, without its end, off the front of `text`.
std::string_view takeLine(std::string_view& text) {
  const std::size_t end = std::min(text.find('\n'), text.size());
  std::string_view line = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  if (line.ends_with('\r')) line.remove_suffix(1);
  return line;
}

bool beginsPart(std::string_view line) { return line.starts_with("--"); }

std::string lowerCase(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return lower;
}

std::string_view withoutLeadingBlanks(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
  return text;
}

/// The header fields of a part by lower-case name, unfolded, without leading blanks. Ends behind the empty line.
std::map<std::string, std::string> takeHeader(std::string_view& rest) {
  std::map<std::string, std::string> fields;
  std::string name;
  while (!rest.empty()) {
    const std::string_view line = takeLine(rest);
    if (line.empty()) break;
    std::string_view value = line;
    if (line.front() != ' ' && line.front() != '\t') {
      const std::size_t colon = std::min(line.find(':'), line.size());
      name = lowerCase(line.substr(0, colon));
      value = line.substr(std::min(colon + 1, line.size()));
      fields[name].clear();
    }
    fields[name] += fields[name].empty() ? withoutLeadingBlanks(value) : value;
  }
  return fields;
}

bool isBase64(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '+' || c == '/' || c == '=';
}

bool isTypeCharacter(char c) { return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '/' || c == '-'; }

/// "image/png" out of a Content-Type; "" for what is no image.
std::string imageType(const std::string& contentType) {
  std::string type = lowerCase(contentType.substr(0, contentType.find_first_of("; \t")));
  const bool image = type.starts_with("image/") && std::all_of(type.begin(), type.end(), isTypeCharacter);
  return image ? type : "";
}

std::string contentId(const std::string& value) {
  const std::size_t open = value.find('<');
  const std::size_t close = value.find('>', open);
  return open == std::string::npos || close == std::string::npos ? "" : value.substr(open + 1, close - open - 1);
}

/// The base64 digits of a body. Stops before the line that begins the next part.
std::string takeBody(std::string_view& rest) {
  std::string digits;
  while (!rest.empty()) {
    std::string_view after = rest;
    const std::string_view line = takeLine(after);
    if (beginsPart(line)) break;
    std::copy_if(line.begin(), line.end(), std::back_inserter(digits), isBase64);
    rest = after;
  }
  return digits;
}

std::map<std::string, std::string> imagesById(std::string_view rest) {
  std::map<std::string, std::string> uris;
  while (!rest.empty()) {
    if (!beginsPart(takeLine(rest))) continue;
    auto header = takeHeader(rest);
    const std::string type = imageType(header["content-type"]);
    const std::string id = contentId(header["content-id"]);
    const bool base64 = lowerCase(header["content-transfer-encoding"]).starts_with("base64");
    if (!type.empty() && !id.empty() && base64) uris[id] = "data:" + type + ";base64," + takeBody(rest);
  }
  return uris;
}

}  // namespace

std::string inlineImages(const std::string& html, const std::string& mail) {
  constexpr std::string_view kScheme = "cid:";
  const std::map<std::string, std::string> uris = imagesById(mail);
  std::string page;
  for (std::size_t start = 0; start < html.size();) {
    const std::size_t found = std::min(html.find(kScheme, start), html.size());
    page.append(html, start, found - start);
    const std::size_t end = std::min(html.find_first_of("\"'<>() \t\r\n", found), html.size());
    const std::string reference = html.substr(found, end - found);
    const auto image = reference.empty() ? uris.end() : uris.find(reference.substr(kScheme.size()));
    page += image != uris.end() ? image->second : reference;
    start = end;
  }
  return page;
}

}  // namespace Velmar::Tool
