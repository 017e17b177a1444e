// The exception that every operation of the platform throws.

#include "platform/types.h"

namespace Velmar {

Exception::Exception(std::string typeName, int level, std::string source, int line, std::string text)
    : typeName_(std::move(typeName)),
      source_(std::move(source)),
      text_(std::move(text)),
      whole_(typeName_ + ": " + text_ + " (" + source_ + ":" + std::to_string(line) + ", level " +
             std::to_string(level) + ")"),
      level_(level),
      line_(line) {}

Exception::Exception(const Exception&) = default;
Exception& Exception::operator=(const Exception&) = default;
Exception::~Exception() = default;

std::string Exception::asString() const { return whole_; }

const char* Exception::what() const noexcept { return whole_.c_str(); }

}  // namespace Velmar
