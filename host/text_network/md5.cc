// The MD5 digest behind the link hashes, by OpenSSL. No protection against forgery: see trusted_base64.cc for that.

#include <openssl/evp.h>

#include "platform/text_network.h"
#include "platform/types.h"

namespace Velmar {
namespace {

Exception misuse(int line, const char* what) { return Exception("DigestException", 1, "Md5Hasher", line, what); }

/// The algorithm, looked up once and kept as long as the process: a look-up costs more than a short digest.
/// Throws where OpenSSL has none (FIPS-only hosts), and looks again next time.
const EVP_MD* md5() {
  static const EVP_MD* const algorithm = [] {
    const EVP_MD* fetched = EVP_MD_fetch(nullptr, "MD5", nullptr);
    if (!fetched) {
      throw Exception("DigestException", 4, "Md5Hasher", __LINE__,
                      "OpenSSL on this host offers no MD5 digest (FIPS-only configuration?)");
    }
    return fetched;
  }();
  return algorithm;
}

}  // namespace

struct Md5Hasher::Context {
  std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> evp{EVP_MD_CTX_new(), &EVP_MD_CTX_free};
};

Md5Hasher::Md5Hasher() : context_(std::make_unique<Context>()) {
  if (EVP_DigestInit_ex2(context_->evp.get(), md5(), nullptr) != 1) {
    throw Exception("DigestException", 4, "Md5Hasher", __LINE__, "the MD5 digest cannot be started");
  }
}

Md5Hasher::~Md5Hasher() = default;

void Md5Hasher::update(const void* data, std::size_t length) {
  if (final_) throw misuse(__LINE__, "update of a finalized MD5 digest");
  if (length != 0 && EVP_DigestUpdate(context_->evp.get(), data, length) != 1) {
    throw Exception("DigestException", 4, "Md5Hasher", __LINE__, "the MD5 digest cannot be updated");
  }
}

void Md5Hasher::finalize() {
  if (final_) throw misuse(__LINE__, "MD5 digest finalized twice");
  if (EVP_DigestFinal_ex(context_->evp.get(), digest_.data(), nullptr) != 1) {
    throw Exception("DigestException", 4, "Md5Hasher", __LINE__, "the MD5 digest cannot be completed");
  }
  final_ = true;
}

void Md5Hasher::xorDigest(std::uint32_t key) {
  if (!final_) throw misuse(__LINE__, "xorDigest before the MD5 digest is finalized");
  for (std::size_t i = 0; i < digest_.size(); ++i) digest_[i] ^= static_cast<unsigned char>(key >> i % 4 * 8);
}

std::string Md5Hasher::digestAsHexString() const {
  if (!final_) throw misuse(__LINE__, "digestAsHexString before the MD5 digest is finalized");
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const unsigned char byte : digest_) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

}  // namespace Velmar
