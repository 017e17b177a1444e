// Opens ICU's converters by the names of mail and keeps a few of them for each thread. Only the decoder calls this.
//
// A converter is not safe to share, and opening one costs more than decoding a subject: hence a cache per thread, of
// bounded size because hostile mail may name every charset there is.

#include "host/mail_builder/charsets.h"

#include <unicode/ucnv.h>
#include <unicode/ucnv_cb.h>
#include <unicode/ucnv_err.h>
#include <unicode/ustring.h>

#include <algorithm>
#include <array>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "platform/types.h"

namespace Velmar::Host {
namespace {

constexpr std::size_t kMaxName = 64;
constexpr std::size_t kMaxOpen = 16;                   // converters a thread keeps
constexpr std::size_t kPiece = std::size_t{64} << 20;  // more than any header; ICU counts in 32 bits
constexpr char kUtf8[] = "UTF-8";

struct CloseConverter {
  void operator()(UConverter* converter) const noexcept { ucnv_close(converter); }
};
using Converter = std::unique_ptr<UConverter, CloseConverter>;

/// Null when ICU knows the name but has no data for it: distributions leave rare charsets out.
Converter openConverter(const std::string& name) {
  UErrorCode error = U_ZERO_ERROR;
  Converter converter(ucnv_open(name.c_str(), &error));
  if (error == U_MEMORY_ALLOCATION_ERROR) throw std::bad_alloc();
  return U_SUCCESS(error) ? std::move(converter) : nullptr;
}

/// The thread's own converter of this canonical name, or null; most recently used first. The nulls are kept too.
UConverter* threadConverter(const std::string& name) {
  thread_local std::vector<std::pair<std::string, Converter>> open;
  const auto found = std::find_if(open.begin(), open.end(), [&name](const auto& entry) { return entry.first == name; });
  if (found != open.end()) {
    std::rotate(open.begin(), found, found + 1);
  } else {
    open.emplace(open.begin(), name, openConverter(name));
    if (open.size() > kMaxOpen) open.pop_back();
  }
  return open.front().second.get();
}

bool isCharsetName(std::string_view name) {
  return !name.empty() && name.size() <= kMaxName && std::all_of(name.begin(), name.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::string_view("._:+()-").find(c) != std::string_view::npos;
  });
}

/// ICU's own name of a charset; "" when its alias table has none.
std::string canonicalName(std::string_view name) {
  if (!isCharsetName(name)) return {};
  UErrorCode error = U_ZERO_ERROR;
  const char* canonical = ucnv_getAlias(std::string(name).c_str(), 0, &error);
  return U_SUCCESS(error) && canonical ? canonical : "";
}

/// The same; some senders write "x-" before the name of an ordinary charset, and ICU has not all of these.
std::string canonicalNameOfMail(std::string_view name) {
  std::string canonical = canonicalName(name);
  const bool marked = name.starts_with("x-") || name.starts_with("X-");
  return canonical.empty() && marked ? canonicalName(name.substr(2)) : canonical;
}

/// Charsets whose name senders put on text of a larger charset, which reads the smaller one's text the same.
std::string largerCharset(const std::string& canonical) {
  using Names = std::pair<std::string, std::string>;
  static const auto kLarger = std::to_array<Names>({
      {canonicalName("iso-8859-1"), canonicalName("windows-1252")},
      {canonicalName("iso-8859-9"), canonicalName("windows-1254")},
      {canonicalName("tis-620"), canonicalName("windows-874")},
      {canonicalName("gb2312"), canonicalName("gb18030")},
      {canonicalName("gb_2312-80"), canonicalName("gb18030")},
      {canonicalName("gbk"), canonicalName("gb18030")},
      {canonicalName("euc-kr"), canonicalName("windows-949")},
      {canonicalName("ks_c_5601-1987"), canonicalName("windows-949")},
      {canonicalName("cp949"), canonicalName("windows-949")},  // else a charset of IBM's
      {canonicalName("big5"), canonicalName("big5-hkscs")},
  });
  for (const auto& [smaller, larger] : kLarger) {
    if (canonical == smaller && !larger.empty()) return larger;
  }
  return canonical;
}

bool isStateful(const UConverter* converter) {
  switch (ucnv_getType(converter)) {
    case UCNV_SBCS:
    case UCNV_DBCS:
    case UCNV_MBCS:
    case UCNV_LATIN_1:
    case UCNV_US_ASCII:
    case UCNV_UTF8:
    case UCNV_CESU8:
      return false;
    default:
      return true;
  }
}

/// Writes U+FFFD for what the converter cannot read (ICU's own substitution writes U+001A for single bytes) and counts.
/// `context` is a std::size_t.
void countAndSubstitute(const void* context, UConverterToUnicodeArgs* args, const char*, std::int32_t,
                        UConverterCallbackReason reason, UErrorCode* error) {
  if (reason > UCNV_IRREGULAR) return;
  constexpr UChar kReplacement = 0xfffd;
  ++*static_cast<std::size_t*>(const_cast<void*>(context));
  *error = U_ZERO_ERROR;
  ucnv_cbToUWriteUChars(args, &kReplacement, 1, 0, error);
}

/// The characters above U+007F that were understood.
std::size_t countForeign(const std::vector<UChar>& text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](UChar c) { return c >= 0x80 && c != 0xfffd; }));
}

/// Converts to UTF-16; the result has exactly the text's length. Counts the malformed sequences.
std::vector<UChar> toUtf16(UConverter* converter, std::string_view bytes, std::size_t& malformed) {
  UErrorCode error = U_ZERO_ERROR;
  ucnv_setToUCallBack(converter, countAndSubstitute, &malformed, nullptr, nullptr, &error);
  std::vector<UChar> text(bytes.size() + 8);
  for (;;) {
    error = U_ZERO_ERROR;
    malformed = 0;
    const std::int32_t length = ucnv_toUChars(converter, text.data(), static_cast<std::int32_t>(text.size()),
                                              bytes.data(), static_cast<std::int32_t>(bytes.size()), &error);
    text.resize(static_cast<std::size_t>(std::max(length, 0)));
    if (error != U_BUFFER_OVERFLOW_ERROR) break;
  }
  if (U_FAILURE(error)) {
    throw Exception("CharsetException", 4, "Charsets", __LINE__,
                    std::string("conversion failed: ") + u_errorName(error));
  }
  return text;
}

void appendUtf16(const std::vector<UChar>& text, std::string& utf8) {
  const std::size_t before = utf8.size();
  utf8.resize(before + 3 * text.size());
  std::int32_t length = 0;
  UErrorCode error = U_ZERO_ERROR;
  u_strToUTF8WithSub(utf8.data() + before, static_cast<std::int32_t>(utf8.size() - before), &length, text.data(),
                     static_cast<std::int32_t>(text.size()), 0xfffd, nullptr, &error);
  utf8.resize(before + static_cast<std::size_t>(U_SUCCESS(error) ? length : 0));
}

}  // namespace

Charset findCharset(std::string_view name) {
  const std::string canonical = canonicalNameOfMail(name);
  if (canonical.empty()) return {};
  const std::string larger = largerCharset(canonical);
  const UConverter* converter = threadConverter(larger);
  return converter ? Charset{larger, isStateful(converter)} : Charset{};
}

TextQuality appendAsUtf8(const Charset& charset, std::string_view bytes, std::string& utf8) {
  if (charset.name == kUtf8) {
    utf8.append(bytes);
    return utf8Quality(bytes);
  }
  TextQuality quality;
  UConverter* converter = threadConverter(charset.name);
  for (; !bytes.empty(); bytes.remove_prefix(std::min(bytes.size(), kPiece))) {
    std::size_t malformed = 0;
    const std::vector<UChar> text = toUtf16(converter, bytes.substr(0, kPiece), malformed);
    quality.malformed += malformed;
    quality.foreign += countForeign(text);
    appendUtf16(text, utf8);
  }
  return quality;
}

}  // namespace Velmar::Host
