// Any bytes as the two texts of the exported call: nobody but the owner of the one mailbox gets a report, and nothing
// is looked at or made beside the root.

#include <fcntl.h>
#include <sys/stat.h>

#include "tests/fuzz/fuzz.h"
#include "tests/support/one_mailbox.h"

namespace {

using Velmar::Testing::OneMailbox;

OneMailbox& mailbox() {
  static OneMailbox one;
  return one;
}

bool reporting = false;  // what coverage is counted with opens files of its own afterwards

const char* checked(const char* path) {
  if (!reporting) return path;
  const std::string steps = std::string(path) + "/";
  const bool below = steps.starts_with(mailbox().root / "") && steps.find("/../") == std::string::npos;
  require(below || steps.starts_with(Velmar::Host::shareDirectory()));
  return path;
}

}  // namespace

// The linker puts these in the place of the C library's, in our own code only.
extern "C" {
int __real_open(const char* path, int flags, mode_t mode);
int __real_lstat(const char* path, struct stat* status);
int __real_mkdir(const char* path, mode_t mode);

int __wrap_open(const char* path, int flags, mode_t mode) { return __real_open(checked(path), flags, mode); }
int __wrap_lstat(const char* path, struct stat* status) { return __real_lstat(checked(path), status); }
int __wrap_mkdir(const char* path, mode_t mode) { return __real_mkdir(checked(path), mode); }
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool kHeld = (mailbox().hold(1, "From: h@h\nMessage-Id: <h@h>\n\n"), true);
  static_cast<void>(kHeld);
  const std::string input(data, data + size);
  const std::size_t cut = std::min(input.find('\n'), size);
  const std::string recipients = input.substr(std::min(cut + 1, size));
  reporting = true;
  const auto mails = mailbox().report(input.substr(0, cut), recipients);
  reporting = false;
  const auto most = 1 + std::count(recipients.begin(), recipients.end(), ',');
  require(static_cast<std::ptrdiff_t>(mails.size()) <= most);
  for (const auto& mail : mails) require(mail.recipients == std::vector<std::string>{OneMailbox::kAddress});
  return 0;
}
