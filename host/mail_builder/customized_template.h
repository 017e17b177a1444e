#pragma once

// The template handle of the library, on top of a parsed report template.

#include <boost/shared_ptr.hpp>
#include <memory>
#include <string>

#include "host/mail_builder/report_template.h"
#include "platform/mail_builder.h"

namespace Velmar::Host {

/// What the host adds to a report's values for all of it.
struct HostValues {
  std::string mailbox;  ///< address of the mailbox that the report is about
  std::string site;     ///< name of the mail site
};

/// A handle with the host's values only. The parsed template is shared and stays alive as long as the handle.
boost::shared_ptr<VlmCMsg::VXCustomizedEmailTemplate> customize(std::shared_ptr<const ReportTemplate> parsed,
                                                                const HostValues& host = {});

}  // namespace Velmar::Host
