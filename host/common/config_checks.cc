// The rules for texts of the configuration file. Called by the table of keys; each rule stands alone.

#include "host/common/config_checks.h"

#include <arpa/inet.h>

#include <algorithm>

#include "host/common/root.h"
#include "platform/types.h"

namespace Velmar::Host {
namespace {

bool isAsciiLetterOrDigit(char c) { return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

bool isAboveAscii(char c) { return static_cast<unsigned char>(c) >= 0x80; }

bool onlyLettersDigitsAnd(std::string_view punctuation, std::string_view text) {
  return std::all_of(text.begin(), text.end(), [punctuation](char c) {
    return isAsciiLetterOrDigit(c) || punctuation.find(c) != std::string_view::npos;
  });
}

bool hasEmptyPart(std::string_view text) {
  return text.front() == '.' || text.back() == '.' || text.find("..") != std::string_view::npos;
}

// What follows the scheme of a URL; `fits` is false when the URL has another scheme.
struct AfterScheme {
  bool fits;
  std::string_view rest;
};

AfterScheme afterScheme(std::string_view scheme, std::string_view url) {
  return url.starts_with(scheme) ? AfterScheme{true, url.substr(scheme.size())} : AfterScheme{false, {}};
}

bool isPort(std::string_view text) {
  if (text.empty() || text.size() > 5 || text.find_first_not_of("0123456789") != std::string_view::npos) return false;
  const int port = std::stoi(std::string(text));
  return port >= 1 && port <= 65535;
}

bool isIpAddress(int family, std::string_view text) {
  unsigned char bytes[sizeof(in6_addr)];
  return inet_pton(family, std::string(text).c_str(), bytes) == 1;
}

// HOST, HOST:PORT, [IPV6] or [IPV6]:PORT.
std::string hostAndPortFault(std::string_view text) {
  std::string_view host = text.substr(0, text.find(':'));
  std::string_view port = text.substr(host.size());
  if (text.starts_with('[')) {
    const std::size_t end = text.find(']');
    if (end == std::string_view::npos || !isIpAddress(AF_INET6, text.substr(1, end - 1)))
      return "holds no IPv6 address between its brackets";
    port = text.substr(end + 1);
  } else if (host.empty()) {
    return "names no host";
  } else if (const std::string fault = hostNameFault(host); !fault.empty()) {
    return "its host " + fault;
  }
  if (!port.empty() && (port[0] != ':' || !isPort(port.substr(1)))) return "has no port from 1 to 65535 after its host";
  return "";
}

}  // namespace

std::size_t controlLength(std::string_view text, std::size_t at) {
  const auto byteAt = [text](std::size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0xffU; };
  if (byteAt(at) < 0x20 || byteAt(at) == 0x7f) return 1;
  return byteAt(at) == 0xc2 && byteAt(at + 1) < 0xa0 ? 2 : 0;  // U+0080 to U+009F
}

std::string controlFault(std::string_view text) {
  for (std::size_t i = 0; i < text.size(); ++i)
    if (controlLength(text, i) != 0) return "must not hold control characters";
  return "";
}

std::string domainNameFault(std::string_view text) {
  if (hasEmptyPart(text)) return "is no domain name: there is nothing before, after or between its dots";
  for (const char c : text)
    if (!isAsciiLetterOrDigit(c) && !isAboveAscii(c) && c != '-' && c != '.')
      return std::string("is no domain name: '") + c + "' cannot stand in one";
  return "";
}

std::string hostNameFault(std::string_view text) {
  if (!onlyLettersDigitsAnd("-._", text))
    return "is no host name: only ASCII letters, digits, '-', '.' and '_' can stand in one";
  if (hasEmptyPart(text)) return "is no host name: there is nothing before, after or between its dots";
  if (text.size() > kLongestHost)
    return "has " + std::to_string(text.size()) + " bytes, at most " + std::to_string(kLongestHost) +
           " fit into a link";
  return "";
}

std::string webHostFault(std::string_view text) {
  if (text.find(':') == std::string_view::npos) return hostNameFault(text);
  return isIpAddress(AF_INET6, text) ? ""
                                     : "is neither a host name (without port) nor an IPv6 address (without brackets)";
}

std::string accountNameFault(std::string_view text) {
  if (onlyLettersDigitsAnd("!#$%&'*+-/=?^_`{|}~.", text) && !hasEmptyPart(text)) return "";
  return "is no account name: it must be able to stand before an '@' without quotes";
}

std::string pathComponentFault(std::string_view text) {
  return isPathComponent(text) ? "" : "is no file name: it must be without '/' and at most 255 bytes";
}

std::string filePathFault(std::string_view text) {
  if (text.front() != '/') return "must start with '/'";
  if (text.back() == '/') return "names a directory, not a file";
  const std::string path = std::string(text) + "/";
  const bool dots = path.find("/../") != std::string::npos || path.find("/./") != std::string::npos;
  return dots ? "must be without '.' and '..' components" : "";
}

std::string ipAddressFault(std::string_view text) {
  return isIpAddress(AF_INET, text) || isIpAddress(AF_INET6, text) ? "" : "is no IPv4 or IPv6 address";
}

std::string smtpUrlFault(std::string_view text) {
  if (text.starts_with("smtps:")) return "must start with smtp://; tls = \"implicit\" begins with TLS";
  const auto [fits, rest] = afterScheme("smtp://", text);
  return fits ? hostAndPortFault(rest) : "must have the form smtp://HOST:PORT";
}

std::string ldapUrlFault(std::string_view text) {
  for (const char* scheme : {"ldap://", "ldaps://"})
    if (const auto [fits, rest] = afterScheme(scheme, text); fits) return hostAndPortFault(rest);
  const auto [fits, path] = afterScheme("ldapi://", text);
  if (!fits) return "must start with ldap://, ldaps:// or ldapi://";
  return onlyLettersDigitsAnd("%-._", path) ? "" : "its path must be percent-encoded";
}

std::string stateUrlFault(std::string_view text) {
  if (afterScheme("postgresql://", text).fits) return "";
  const auto [fits, path] = afterScheme("sqlite://", text);
  if (!fits) return "must start with sqlite:///PATH or postgresql://";
  return path.empty() ? "names no file" : filePathFault(path);
}

std::string ldapAttributeFault(std::string_view text) {
  return onlyLettersDigitsAnd("-.;", text) ? "" : "is no name of an LDAP attribute";
}

std::string ldapFilterFault(std::string_view text) {
  return text.front() == '(' && text.back() == ')' ? "" : "is no LDAP filter: it must stand in parentheses";
}

std::string userFilterFault(std::string_view text) {
  if (std::string fault = ldapFilterFault(text); !fault.empty()) return fault;
  return text.find("{address}") != std::string_view::npos ? "" : "must hold {address}, else it finds any user";
}

std::string addressListFault(std::string_view text) try {
  return EmailAddress::rfc5322ParseSet(std::string(text), true, true).empty() ? "names no address" : "";
} catch (const Exception& exception) {
  return exception.text();
}

}  // namespace Velmar::Host
