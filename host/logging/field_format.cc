// Walks an event's format by hand, because printf would merge the separators of the format with those in the texts.

#include "host/logging/field_format.h"

#include <sys/types.h>

#include <string_view>

namespace Velmar::Host {
namespace {

/// Arguments of one call, taken one by one.
class Arguments {
 public:
  explicit Arguments(std::va_list list) { va_copy(list_, list); }
  Arguments(const Arguments&) = delete;
  Arguments& operator=(const Arguments&) = delete;
  ~Arguments() { va_end(list_); }

  std::string text() {
    const char* value = va_arg(list_, const char*);
    return value ? value : "(null)";
  }
  template <class Number>
  std::string number() {
    return std::to_string(va_arg(list_, Number));
  }

 private:
  std::va_list list_;
};

/// Handles the conversion at the start of `rest`, which begins with "%". Returns its length, 0 when it is unknown.
std::size_t convert(std::string_view rest, Arguments& arguments, std::string& out) {
  if (rest.starts_with("%s")) return out += arguments.text(), 2;
  if (rest.starts_with("%d")) return out += arguments.number<int>(), 2;
  if (rest.starts_with("%u")) return out += arguments.number<unsigned int>(), 2;
  if (rest.starts_with("%zd")) return out += arguments.number<ssize_t>(), 3;
  if (rest.starts_with("%zu")) return out += arguments.number<std::size_t>(), 3;
  if (rest.starts_with("%%")) return out += '%', 2;
  return 0;
}

}  // namespace

std::vector<std::string> formatFields(const char* format, std::va_list list) {
  std::vector<std::string> fields(1);
  Arguments arguments(list);
  std::string_view rest = format ? format : "";
  while (!rest.empty()) {
    std::size_t length = 1;
    if (rest.front() == '\x01') {
      fields.emplace_back();
    } else if (rest.front() != '%') {
      fields.back() += rest.front();
    } else if (length = convert(rest, arguments, fields.back()); length == 0) {
      fields.back() += rest;
      length = rest.size();
    }
    rest.remove_prefix(length);
  }
  return fields;
}

}  // namespace Velmar::Host
