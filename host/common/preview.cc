// Keeps what a preview shall look at. Preferences and templates ask for it; in a process that makes no preview it
// chooses nothing.

#include "host/common/preview.h"

#include <atomic>
#include <mutex>
#include <utility>

namespace Velmar::Host {
namespace {

std::mutex choiceMutex;
std::atomic<bool> previewing{false};

std::shared_ptr<const PreviewChoice>& chosen() {
  static auto& choice = *new std::shared_ptr<const PreviewChoice>(std::make_shared<PreviewChoice>());
  return choice;
}

}  // namespace

void setPreview(PreviewChoice choice) {
  previewing = true;
  auto next = std::make_shared<const PreviewChoice>(std::move(choice));
  const std::lock_guard lock(choiceMutex);
  chosen().swap(next);
}

bool isPreview() noexcept { return previewing; }

std::shared_ptr<const PreviewChoice> previewChoice() {
  const std::lock_guard lock(choiceMutex);
  return chosen();
}

}  // namespace Velmar::Host
