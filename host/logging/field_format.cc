// Walks an event's format by hand, because printf would merge the separators of the format with those in the texts.

#include "host/logging/field_format.h"

#include <sys/types.h>

#include <string_view>

namespace Velmar::Host {
namespace {

std::string textOf(const char* value) { return value ? value : "(null)"; }

/// Handles the conversion at the start of `rest`, which begins with "%". Returns its length, 0 when it is unknown.
std::size_t convert(std::string_view rest, std::va_list& arguments, std::string& out) {
  // NOLINTBEGIN(clang-analyzer-valist.Uninitialized): the caller has started it
  if (rest.starts_with("%s")) return out += textOf(va_arg(arguments, const char*)), 2;
  if (rest.starts_with("%d")) return out += std::to_string(va_arg(arguments, int)), 2;
  if (rest.starts_with("%u")) return out += std::to_string(va_arg(arguments, unsigned int)), 2;
  if (rest.starts_with("%zd")) return out += std::to_string(va_arg(arguments, ssize_t)), 3;
  if (rest.starts_with("%zu")) return out += std::to_string(va_arg(arguments, std::size_t)), 3;
  // NOLINTEND(clang-analyzer-valist.Uninitialized)
  if (rest.starts_with("%%")) return out += '%', 2;
  return 0;
}

}  // namespace

std::vector<std::string> formatFields(const char* format, std::va_list& arguments) {
  std::string_view rest = format ? format : "";
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

}  // namespace Velmar::Host
