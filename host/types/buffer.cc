// A run of bytes, kept or referred to, and its base64 form.

#include <limits>

#include "platform/types.h"

namespace Velmar {

Buffer::Buffer() = default;

Buffer::Buffer(const void* data, unsigned int length, bool copy) {
  const char* bytes = static_cast<const char*>(data);
  if (copy) {
    assign(std::string(length ? bytes : "", length));
  } else if (length) {
    data_ = bytes;
    length_ = length;
  }
}

Buffer::Buffer(const Buffer& other)
    : owned_(other.owned_), data_(other.owned_.empty() ? other.data_ : owned_.data()), length_(other.length_) {}

Buffer& Buffer::operator=(const Buffer& other) {
  Buffer copy(other);
  owned_.swap(copy.owned_);  // the bytes stay where they are
  data_ = copy.data_;
  length_ = copy.length_;
  return *this;
}

Buffer::~Buffer() = default;

void Buffer::assign(const std::string& bytes) {
  if (bytes.size() > std::numeric_limits<unsigned int>::max()) {
    throw Exception("BufferException", 4, "Buffer", __LINE__,
                    "a buffer cannot hold " + std::to_string(bytes.size()) + " bytes");
  }
  std::vector<char>(bytes.begin(), bytes.end()).swap(owned_);
  data_ = owned_.empty() ? nullptr : owned_.data();
  length_ = static_cast<unsigned int>(owned_.size());
}

std::string Buffer::toBase64String() const {
  static constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  const auto byteAt = [this](unsigned int i) -> unsigned {
    return i < length_ ? static_cast<unsigned char>(data_[i]) : 0U;
  };
  std::string text;
  text.reserve((static_cast<std::size_t>(length_) + 2) / 3 * 4);
  for (unsigned int i = 0; i < length_; i += 3) {
    const unsigned group = byteAt(i) << 16 | byteAt(i + 1) << 8 | byteAt(i + 2);
    text += kDigits[group >> 18];
    text += kDigits[group >> 12 & 63];
    text += i + 1 < length_ ? kDigits[group >> 6 & 63] : '=';
    text += i + 2 < length_ ? kDigits[group & 63] : '=';
  }
  return text;
}

}  // namespace Velmar
