// Text as it may stand in an HTML text or in a quoted attribute value.

#include "platform/text_network.h"

namespace Velmar {

std::string vlm_html_encode(const std::string& text) {
  std::string html;
  html.reserve(text.size());
  for (const char c : text) {
    switch (c) {
      case '&':
        html += "&amp;";
        break;
      case '<':
        html += "&lt;";
        break;
      case '>':
        html += "&gt;";
        break;
      case '"':
        html += "&quot;";
        break;
      case '\'':
        html += "&#39;";  // HTML 4 has no name for it
        break;
      default:
        html += c;
    }
  }
  return html;
}

}  // namespace Velmar
