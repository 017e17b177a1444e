// Queue and message identifiers.

#include "host/mail_builder/message_ids.h"

#include <sys/random.h>
#include <unicode/uidna.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <memory>
#include <string_view>

#include "host/mail_builder/system_file.h"
#include "platform/mail_builder.h"
#include "platform/types.h"

namespace Velmar::Host {
namespace {

constexpr std::size_t kMaxDomain = 253;
constexpr char kNoDomain[] = "localhost.invalid";

bool isAtomText(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         std::string_view("!#$%&'*+-/=?^_`{|}~").find(c) != std::string_view::npos;
}

bool isDotAtom(std::string_view text) {
  bool atom = false;  // the byte before was part of one
  for (const char c : text) {
    if (c == '.' ? !atom : !isAtomText(c)) return false;
    atom = c != '.';
  }
  return atom && text.size() <= kMaxDomain;
}

/// "YYYYMMDDhhmmss".
std::string digits(const std::tm& when) {
  std::array<char, 80> text{};
  std::snprintf(text.data(), text.size(), "%04d%02d%02d%02d%02d%02d", when.tm_year + 1900, when.tm_mon + 1,
                when.tm_mday, when.tm_hour, when.tm_min, when.tm_sec);
  return text.data();
}

std::tm localNow() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  ::localtime_r(&now, &local);
  return local;
}

}  // namespace

std::string randomToken(std::size_t bytes) {
  constexpr std::string_view kHex = "0123456789abcdef";
  std::array<unsigned char, 32> random{};
  bytes = std::min(bytes, random.size());
  ssize_t got = 0;
  do {
    got = ::getrandom(random.data(), bytes, 0);
  } while (got < 0 && errno == EINTR);
  if (got != static_cast<ssize_t>(bytes)) {
    throw Exception("MailBuilderException", 4, "MessageIds", __LINE__, "no random bytes: " + errorText(errno));
  }
  std::string token;
  for (std::size_t i = 0; i < bytes; ++i) token += {kHex[random[i] >> 4], kHex[random[i] & 15]};
  return token;
}

std::string asciiDomain(const std::string& domain) {
  UErrorCode error = U_ZERO_ERROR;
  const std::unique_ptr<UIDNA, decltype(&uidna_close)> idna(uidna_openUTS46(UIDNA_NONTRANSITIONAL_TO_ASCII, &error),
                                                            &uidna_close);
  std::array<char, kMaxDomain + 1> ascii{};
  UIDNAInfo info = UIDNA_INFO_INITIALIZER;
  if (U_FAILURE(error) || domain.size() > 4 * kMaxDomain) return {};
  const std::int32_t length =
      uidna_nameToASCII_UTF8(idna.get(), domain.data(), static_cast<std::int32_t>(domain.size()), ascii.data(),
                             static_cast<std::int32_t>(ascii.size()), &info, &error);
  if (U_FAILURE(error) || info.errors != 0) return {};
  return std::string(ascii.data(), static_cast<std::size_t>(length));
}

std::string messageIdDomain(const std::string& domain) {
  if (isDotAtom(domain)) return domain;
  const std::string ascii = asciiDomain(domain);
  return isDotAtom(ascii) ? ascii : kNoDomain;
}

}  // namespace Velmar::Host

namespace Velmar::LW {

std::string createQueueId(const std::tm* when) {
  static std::atomic<unsigned> counter{0};
  const std::tm time = when ? *when : Host::localNow();
  return Host::digits(time) + "-" + std::to_string(::getpid()) + "-" +
         std::to_string(counter.fetch_add(1, std::memory_order_relaxed)) + "-" + Host::randomToken(8);
}

std::string createHeaderMessageIdValue(const std::string& domain, const std::tm& when) {
  return "<" + Host::digits(when) + "." + Host::randomToken(12) + "@" + Host::messageIdDomain(domain) + ">";
}

}  // namespace Velmar::LW
