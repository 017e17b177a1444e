#pragma once

// The inline images of reports: which there are, and which mail of which thread has got which of them.

#include <ctemplate/template_emitter.h>

#include <boost/thread/shared_mutex.hpp>
#include <cstdint>
#include <map>
#include <string>
#include <utility>

#include "platform/mail_builder.h"

namespace Velmar {

/// Replaces a template variable by an image element and attaches the image to the mail that the thread is building.
/// There is one, for the life of the process; any number of threads may use it at once.
class VarCidImage {
 public:
  /// Image name -> the HTML already returned for it in one mail.
  using CidCache = std::map<std::string, std::string>;
  /// A thread's mail under construction, and what was attached to it.
  using Binding = std::pair<VXMPopulateEmail*, CidCache>;

  static const std::string imgroot;
  static const std::string IMG_ICON_DELETE;
  static const std::string IMG_ICON_RELEASE;
  static const std::string IMG_ICON_DELALL;
  static const std::string IMG_TITLELOGO_DEFAULT;
  static const std::string IMG_TITLELOGO_CUSTOM;   ///< for other modules; not read here
  static const std::string IMG_TITLELOGO_PREVIEW;  ///< a site's own logo, tried first; its type is sniffed
  static const Binding null_pemail;                ///< stands for a thread without a mail

  /// Throws boost::thread_resource_error when a mutex cannot be made.
  VarCidImage();

  /// The text that replaces a variable.
  ///
  /// value  the variable's own text; becomes the alternative text as it is, unescaped
  /// name   image name; an unknown one gives `value` back, as does a thread without a mail
  /// out    not used
  /// Throws what attaching the image throws.
  std::string operator()(const std::string& value, const std::string& name, ctemplate::ExpandEmitter* out);

  /// The image type that the first 16 bytes of a file tell; SUBTYPE_NONE when it is none of the known ones.
  static ContentType::SubType get_img_type(const char (&header)[16]);

  /// Binds a mail to a thread with nothing attached to it; a mail bound before is forgotten.
  void bind(unsigned long thread, VXMPopulateEmail* pemail);
  /// Ends the binding of a thread, if it has one.
  void unbind(unsigned long thread);

 private:
  /// The calling thread's binding, or null when it has none. Only the thread itself removes it: the pointer stays good.
  Binding* findBinding();

  std::map<std::string, std::string> images;  ///< name -> path; never changes
  std::map<unsigned long, Binding> threads;   ///< by pthread_self()
  boost::shared_mutex lock;                   ///< guards the shape of `threads`
};

}  // namespace Velmar
