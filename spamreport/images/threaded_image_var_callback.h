#pragma once

// The binding of the mail under construction to the thread that builds it.

#include "platform/mail_builder.h"
#include "spamreport/images/cmsg_var_modifier.h"
#include "spamreport/images/var_cid_image.h"

namespace Velmar {

/// While it lives, images that templates name on this thread are attached to the given mail.
///
/// Create and destroy it on the thread that expands the template, and destroy it before the mail. Neither throws: a
/// binding that fails leaves the thread unbound, and the images appear as their words.
class ThreadedImageVarCallback {
 public:
  explicit ThreadedImageVarCallback(VXMPopulateEmail* pemail) noexcept;
  ThreadedImageVarCallback(const ThreadedImageVarCallback&) = delete;
  ThreadedImageVarCallback& operator=(const ThreadedImageVarCallback&) = delete;
  ~ThreadedImageVarCallback();

  /// The one modifier, registered with ctemplate as "x-img-cid=" when the library is loaded; holds the one VarCidImage.
  static VlmCMsg::CmsgVarModifier<VarCidImage, 1> cid_maker_;

 private:
  unsigned long thread_;
};

}  // namespace Velmar
