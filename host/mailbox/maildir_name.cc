// Reads time, unique part and marks out of a Maildir file name. Called for every name of a mailbox, so it must not
// allocate; names come from whoever can deliver mail, so it must not trust them.

#include "host/mailbox/maildir_name.h"

#include <algorithm>
#include <charconv>

#include "platform/mailbox.h"

namespace Velmar::Host {
namespace {

constexpr std::string_view kInfo = ":2,";

struct FlagMark {
  char flag;
  std::uint64_t mark;
};

constexpr FlagMark kFlagMarks[] = {
    {'T', VXMessageFlags::DELETED},
    {'P', VXMessageFlags::RELEASED},
    {'S', MARK_SEEN},
    {'R', MARK_REPLIED},
    {'F', MARK_FLAGGED},
    {'D', MARK_DRAFT},
};

constexpr bool marksAreDistinct() {
  std::uint64_t seen = 0;
  for (const FlagMark& row : kFlagMarks) {
    if (seen & row.mark) return false;
    seen |= row.mark;
  }
  return true;
}
static_assert(marksAreDistinct());

}  // namespace

std::optional<std::int64_t> deliveryTime(std::string_view name) noexcept {
  if (name.empty() || name.front() == '-') return std::nullopt;
  std::int64_t time = 0;
  const char* const end = name.data() + name.size();
  const auto [stop, error] = std::from_chars(name.data(), end, time);
  if (error != std::errc() || stop == end || *stop != '.') return std::nullopt;
  return time;
}

std::string_view uniquePart(std::string_view name) noexcept { return name.substr(0, name.rfind(kInfo)); }

std::string_view identifyingPart(std::string_view name) noexcept {
  return name.substr(0, std::min(name.find(','), name.find(kInfo.substr(0, 2))));
}

std::uint64_t messageMarks(std::string_view name) noexcept {
  const std::size_t info = name.rfind(kInfo);
  if (info == std::string_view::npos) return 0;
  std::uint64_t marks = 0;
  for (const char flag : name.substr(info + kInfo.size())) {
    for (const FlagMark& row : kFlagMarks) {
      if (row.flag == flag) marks |= row.mark;
    }
  }
  return marks;
}

}  // namespace Velmar::Host
