// Walks an event's format by hand, because printf would merge the separators of the format with those in the texts.

#include "host/logging/field_format.h"

#include <sys/types.h>

#include <string_view>

namespace Velmar::Host {
namespace {

std::string textOf(const char* value) { return value ? value : "(null)"; }

class EndedWithScope {
 public:
  explicit EndedWithScope(std::va_list& list) : list_(list) {}
  EndedWithScope(const EndedWithScope&) = delete;
  EndedWithScope& operator=(const EndedWithScope&) = delete;
  ~EndedWithScope() { va_end(list_); }

 private:
  std::va_list& list_;
};

/// Handles the conversion at the start of `rest`, which begins with "%". Returns its length, 0 when it is unknown.
std::size_t convert(std::string_view rest, std::va_list& arguments, std::string& out) {
  if (rest.starts_with("%s")) return out += textOf(va_arg(arguments, const char*)), 2;
  if (rest.starts_with("%d")) return out += std::to_string(va_arg(arguments, int)), 2;
  if (rest.starts_with("%u")) return out += std::to_string(va_arg(arguments, unsigned int)), 2;
  if (rest.starts_with("%zd")) return out += std::to_string(va_arg(arguments, ssize_t)), 3;
  if (rest.starts_with("%zu")) return out += std::to_string(va_arg(arguments, std::size_t)), 3;
  if (rest.starts_with("%%")) return out += '%', 2;
  return 0;
}

std::vector<std::string> split(std::string_view rest, std::va_list& arguments) {
  std::vector<std::string> fields(1);
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

}  // namespace

std::vector<std::string> formatFields(const char* format, std::va_list list) {
  std::va_list arguments;  // as a parameter it is a pointer, which cannot be passed on by reference
  va_copy(arguments, list);
  const EndedWithScope ended(arguments);
  return split(format ? format : "", arguments);
}

}  // namespace Velmar::Host
