#pragma once

// The template handle of the library, on top of a parsed report template.

#include <boost/shared_ptr.hpp>
#include <memory>

#include "host/mail_builder/report_template.h"
#include "platform/mail_builder.h"

namespace Velmar::Host {

/// A handle with no values yet. The parsed template is shared and stays alive as long as the handle.
boost::shared_ptr<VlmCMsg::VXCustomizedEmailTemplate> customize(std::shared_ptr<const ReportTemplate> parsed);

}  // namespace Velmar::Host
