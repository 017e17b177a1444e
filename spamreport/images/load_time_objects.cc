// Everything about images that exists from the moment the library is loaded, in one file because the order counts:
// paths, the unbound binding, the image object, the modifier around it, its registration. Registration must come
// before any template is parsed: ctemplate resolves modifiers while parsing and ignores unknown ones silently.

#include <ctemplate/template_modifiers.h>

#include <boost/make_shared.hpp>

#include "spamreport/images/threaded_image_var_callback.h"

namespace Velmar {

const std::string VarCidImage::imgroot = "/migadmin/www/admin/images";
const std::string VarCidImage::IMG_ICON_DELETE = imgroot + "/icon_delete.png";
const std::string VarCidImage::IMG_ICON_RELEASE = imgroot + "/icon_release.png";
const std::string VarCidImage::IMG_ICON_DELALL = imgroot + "/icon_deleteall.png";
const std::string VarCidImage::IMG_TITLELOGO_DEFAULT = imgroot + "/icon_titlelogo.png";
const std::string VarCidImage::IMG_TITLELOGO_CUSTOM = imgroot + "/icon_titlelogo_custom";
const std::string VarCidImage::IMG_TITLELOGO_PREVIEW = imgroot + "/icon_titlelogo";
const VarCidImage::Binding VarCidImage::null_pemail(nullptr, VarCidImage::CidCache());

VlmCMsg::CmsgVarModifier<VarCidImage, 1> ThreadedImageVarCallback::cid_maker_(boost::make_shared<VarCidImage>());

namespace {

[[maybe_unused]] const bool registered = ctemplate::AddModifier("x-img-cid=", &ThreadedImageVarCallback::cid_maker_);

}  // namespace
}  // namespace Velmar
