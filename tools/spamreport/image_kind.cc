// Tells images by their first bytes, which is all that a mail program goes by in the end.

#include "tools/spamreport/image_kind.h"

namespace Velmar::Tool {

std::string_view imageKind(std::string_view bytes) {
  using namespace std::string_view_literals;
  static constexpr struct {
    std::string_view start;
    std::string_view kind;
  } kKinds[] = {{"\x89PNG\r\n\x1A\n"sv, "PNG"}, {"\xFF\xD8\xFF"sv, "JPEG"}, {"GIF87a"sv, "GIF"}, {"GIF89a"sv, "GIF"}};
  for (const auto& [start, kind] : kKinds) {
    if (bytes.starts_with(start)) return kind;
  }
  return "";
}

}  // namespace Velmar::Tool
