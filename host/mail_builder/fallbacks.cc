// The charsets for held text that names none, or a wrong one.

#include "platform/mail_builder.h"

namespace Velmar {
namespace {

/// UTF-8 rejects nearly all text that is not UTF-8, so it comes first. Windows-1252 takes any bytes, so it comes last.
/// The multi-byte charsets of East Asia stand nowhere: they accept too much Western text to be told from it.
class StandardFallbacks final : public QRLStaticCharSetFallbacks {
 public:
  const std::vector<std::string>& charsets() const override { return charsets_; }

 private:
  std::vector<std::string> charsets_{"utf-8", "windows-1252"};
};

}  // namespace

QRLStaticCharSetFallbacks::~QRLStaticCharSetFallbacks() = default;

RefQRLStaticCharSetFallbacks RefQRLStaticCharSetFallbacks::instance() {
  static const Ref<const StandardFallbacks> kStandard(new StandardFallbacks);
  kStandard->addRef();
  return RefQRLStaticCharSetFallbacks(kStandard.get());
}

}  // namespace Velmar
