// Binds a mail to the delivering thread and ends that binding.

#include "spamreport/images/threaded_image_var_callback.h"

#include <pthread.h>

namespace Velmar {

ThreadedImageVarCallback::ThreadedImageVarCallback(VXMPopulateEmail* pemail) noexcept : thread_(pthread_self()) {
  try {
    const boost::shared_ptr<VarCidImage> image = cid_maker_.held();
    image->bind(thread_, pemail);
  } catch (...) {
    // The report goes out with words instead of images.
  }
}

ThreadedImageVarCallback::~ThreadedImageVarCallback() {
  try {
    const boost::shared_ptr<VarCidImage> image = cid_maker_.held();
    image->unbind(thread_);
  } catch (...) {
    // A stale entry is reset by the thread's next binding.
  }
}

}  // namespace Velmar
