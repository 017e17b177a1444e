// Reads times that are given as options. Every field is checked before the C library sees it, which would quietly turn
// the 31st of June into the 1st of July.

#include "tools/spamreport/time_text.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <ctime>
#include <limits>
#include <optional>
#include <string_view>

#include "tools/spamreport/commands.h"

namespace Velmar::Tool {
namespace {

constexpr std::int64_t kLast = std::numeric_limits<std::int32_t>::max();

[[noreturn]] void refuse(std::string_view text, const std::string& reason) {
  throw WrongUse("\"" + std::string(text) + "\": " + reason);
}

constexpr char kForm[] = "not seconds since the epoch and not a time like 2026-11-22T08:00";

bool isDigit(char c) { return c >= '0' && c <= '9'; }

/// Reads a text from its start, bit by bit.
class Cursor {
 public:
  explicit Cursor(std::string_view text) : text_(text), rest_(text) {}

  bool atEnd() const { return rest_.empty(); }
  char peek() const { return rest_.empty() ? '\0' : rest_.front(); }

  bool take(char c) {
    if (peek() != c) return false;
    rest_.remove_prefix(1);
    return true;
  }
  void expect(char c) {
    if (!take(c)) refuse(text_, kForm);
  }
  int number(std::size_t digits) {
    if (rest_.size() < digits) refuse(text_, kForm);
    int value = 0;
    for (const char c : rest_.substr(0, digits)) {
      if (!isDigit(c)) refuse(text_, kForm);
      value = value * 10 + (c - '0');
    }
    rest_.remove_prefix(digits);
    return value;
  }
  int number(std::size_t digits, const char* what, int most) {
    const int value = number(digits);
    if (value > most) refuse(text_, std::string(what) + " " + std::to_string(value) + " does not exist");
    return value;
  }

 private:
  std::string_view text_;
  std::string_view rest_;
};

std::tm readDateAndTime(Cursor& cursor, std::string_view text) {
  std::tm when{};
  const int year = cursor.number(4);
  cursor.expect('-');
  const int month = cursor.number(2);
  cursor.expect('-');
  const int day = cursor.number(2);
  const std::chrono::year_month_day date{std::chrono::year(year), std::chrono::month(static_cast<unsigned>(month)),
                                         std::chrono::day(static_cast<unsigned>(day))};
  if (!date.ok()) refuse(text, "there is no such day");
  cursor.expect('T');
  when.tm_hour = cursor.number(2, "hour", 23);
  cursor.expect(':');
  when.tm_min = cursor.number(2, "minute", 59);
  if (cursor.take(':')) when.tm_sec = cursor.number(2, "second", 59);
  when.tm_year = year - 1900;
  when.tm_mon = month - 1;
  when.tm_mday = day;
  return when;
}

/// What follows the sign of an offset, in seconds.
int readOffset(Cursor& cursor) {
  const int hours = cursor.number(2, "offset of hours", 23);
  const bool colon = cursor.take(':');
  const int minutes = colon || !cursor.atEnd() ? cursor.number(2, "offset of minutes", 59) : 0;
  return hours * 3600 + minutes * 60;
}

bool sameFields(const std::tm& a, const std::tm& b) {
  const auto fields = [](const std::tm& t) {
    return std::array{t.tm_year, t.tm_mon, t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec};
  };
  return fields(a) == fields(b);
}

/// Tries both readings of the clock, because what mktime guesses for the hour that happens twice depends on earlier
/// calls.
std::int64_t fromLocal(const std::tm& wanted, std::string_view text) {
  std::optional<std::time_t> first;
  for (const int summerTime : {1, 0}) {
    std::tm tried = wanted;
    tried.tm_isdst = summerTime;
    const std::time_t seconds = std::mktime(&tried);
    if (sameFields(tried, wanted)) first = first ? std::min(*first, seconds) : seconds;
  }
  if (!first) refuse(text, "the local clock skips this time");
  return *first;
}

std::int64_t readTime(std::string_view text) {
  Cursor cursor(text);
  std::tm when = readDateAndTime(cursor, text);
  if (cursor.atEnd()) return fromLocal(when, text);
  const std::int64_t asUtc = ::timegm(&when);
  const bool east = cursor.peek() == '+';
  std::int64_t offset = 0;
  if (cursor.take('+') || cursor.take('-')) {
    offset = readOffset(cursor);
  } else {
    cursor.expect('Z');
  }
  if (!cursor.atEnd()) refuse(text, kForm);
  return east ? asUtc - offset : asUtc + offset;
}

std::int64_t readSeconds(std::string_view text) {
  std::int64_t seconds = 0;
  for (const char c : text) {
    seconds = seconds * 10 + (c - '0');
    if (seconds > kLast) break;
  }
  return seconds;
}

std::int64_t parse(const std::string& text) {
  const bool number = !text.empty() && std::all_of(text.begin(), text.end(), isDigit);
  const std::int64_t seconds = number ? readSeconds(text) : readTime(text);
  if (seconds > kLast) refuse(text, "later than 2038-01-19T03:14:07Z, the last time that reports can handle");
  if (!number && seconds <= 0) refuse(text, "before 1970-01-01T00:00:01Z, the first time that reports can handle");
  return seconds;
}

}  // namespace

std::int64_t parseTime(const std::string& option, const std::string& text) try {
  return parse(text);
} catch (const WrongUse& e) {
  throw WrongUse(option + ": " + e.what());
}

std::int64_t parseUntil(const std::string& text) { return parseTime("--until", text); }

std::string timeText(std::int64_t seconds) {
  const std::time_t instant = seconds;
  std::tm utc{};
  ::gmtime_r(&instant, &utc);
  std::array<char, 64> text{};
  return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &utc)};
}

std::string localTimeText(std::int64_t seconds) {
  const std::time_t time = seconds;
  std::tm local{};
  ::localtime_r(&time, &local);
  std::array<char, 64> text{};
  std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M %Z", &local);
  return text.data();
}

std::string durationText(std::int64_t seconds) {
  struct Unit {
    std::int64_t seconds;
    const char* name;
  };
  static constexpr std::array<Unit, 3> kUnits{{{86400, " d"}, {3600, " h"}, {60, " min"}}};
  for (const Unit& unit : kUnits) {
    if (seconds >= unit.seconds) return std::to_string(seconds / unit.seconds) + unit.name;
  }
  return std::to_string(std::max<std::int64_t>(seconds, 0)) + " s";
}

}  // namespace Velmar::Tool
