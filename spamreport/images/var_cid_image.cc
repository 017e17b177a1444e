// Attaches images to the mail of the calling thread, each at most once a mail, and refers to them by content id.
//
// Called by the template modifier while a report's HTML is expanded.

#include "spamreport/images/var_cid_image.h"

#include <pthread.h>
#include <unistd.h>

#include <boost/thread/locks.hpp>
#include <boost/thread/thread.hpp>
#include <cerrno>
#include <cstring>

#include "platform/types.h"

namespace Velmar {
namespace {

constexpr char kTitleLogo[] = "TITLE_LOGO";
constexpr std::size_t kHeaderSize = 16;

struct Image {
  std::string path;
  ContentType::SubType type;
};

/// Reads exactly the first bytes of a file; false when it cannot be opened or is shorter.
bool readHeader(const std::string& path, char (&header)[kHeaderSize]) {
  const int fd = File::openReadOnly(path.c_str());
  if (fd < 0) return false;
  ssize_t count;
  do {
    count = read(fd, header, kHeaderSize);
  } while (count < 0 && errno == EINTR);
  close(fd);
  return count == static_cast<ssize_t>(kHeaderSize);
}

/// The site's own logo when there is a usable one, else the default.
Image chooseLogo(const std::string& defaultPath) {
  char header[kHeaderSize] = {};
  const ContentType::SubType type = readHeader(VarCidImage::IMG_TITLELOGO_PREVIEW, header)
                                        ? VarCidImage::get_img_type(header)
                                        : ContentType::SUBTYPE_NONE;
  if (type == ContentType::SUBTYPE_NONE) return {defaultPath, ContentType::SUBTYPE_PNG};
  return {VarCidImage::IMG_TITLELOGO_PREVIEW, type};
}

/// Icons are always declared PNG; only the logo is looked at.
Image chooseImage(const std::string& name, const std::string& path) {
  if (name == kTitleLogo) return chooseLogo(path);
  return {path, ContentType::SUBTYPE_PNG};
}

std::string imageElement(const std::string& cid, const std::string& alternative) {
  return "<img src=\"cid:" + cid + "\" alt=\"" + alternative + "\">\n";
}

}  // namespace

VarCidImage::VarCidImage()
    : images{{"ICON_RELEASE", IMG_ICON_RELEASE},
             {"ICON_DELALL", IMG_ICON_DELALL},
             {"ICON_DELETE", IMG_ICON_DELETE},
             {kTitleLogo, IMG_TITLELOGO_DEFAULT}} {}

ContentType::SubType VarCidImage::get_img_type(const char (&header)[kHeaderSize]) {
  struct Magic {
    std::int32_t length;
    char bytes[8];
    std::int32_t type;
  };
  static constexpr Magic img_magics[] = {
      {6, {'G', 'I', 'F', '8', '7', 'a'}, ContentType::SUBTYPE_GIF},
      {6, {'G', 'I', 'F', '8', '9', 'a'}, ContentType::SUBTYPE_GIF},
      {3, {'\xFF', '\xD8', '\xFF'}, ContentType::SUBTYPE_JPEG},
      {8, {'\x89', 'P', 'N', 'G', '\r', '\n', '\x1A', '\n'}, ContentType::SUBTYPE_PNG},
      {0, {}, ContentType::SUBTYPE_NONE},
  };
  const Magic* magic = img_magics;
  while (magic->length != 0 && std::memcmp(header, magic->bytes, static_cast<std::size_t>(magic->length)) != 0) ++magic;
  return static_cast<ContentType::SubType>(magic->type);
}

VarCidImage::Binding* VarCidImage::findBinding() {
  const boost::this_thread::disable_interruption uninterrupted;
  const boost::shared_lock<boost::shared_mutex> shared(lock);
  const auto entry = threads.find(pthread_self());
  return entry == threads.end() ? nullptr : &entry->second;
}

void VarCidImage::bind(unsigned long thread, VXMPopulateEmail* pemail) {
  const boost::this_thread::disable_interruption uninterrupted;
  const boost::unique_lock<boost::shared_mutex> exclusive(lock);
  threads[thread] = Binding(pemail, CidCache());
}

void VarCidImage::unbind(unsigned long thread) {
  const boost::this_thread::disable_interruption uninterrupted;
  const boost::unique_lock<boost::shared_mutex> exclusive(lock);
  threads.erase(thread);
}

std::string VarCidImage::operator()(const std::string& value, const std::string& name,
                                    ctemplate::ExpandEmitter* /*out*/) {
  const auto image = images.find(name);
  if (image == images.end()) return value;
  Binding* binding = findBinding();
  const Binding& current = binding ? *binding : null_pemail;
  if (!current.first) return value;
  if (const auto known = current.second.find(name); known != current.second.end()) return known->second;

  const Image chosen = chooseImage(name, image->second);
  std::string html = imageElement(binding->first->add_image_inline(chosen.path, chosen.type), value);
  binding->second[name] = html;
  return html;
}

}  // namespace Velmar
