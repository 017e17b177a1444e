#pragma once

// Where report templates come from.
//
//   DOMAIN given   etc/velmar/templates/DOMAIN/NAME/ below the root, and nothing else
//   system-wide    etc/velmar/templates/NAME/ below the root, else templates/NAME/ of the share directory
//
// Each directory holds header.tpl, body.html.tpl and body.txt.tpl.

#include <memory>
#include <string>

#include "host/mail_builder/report_template.h"
#include "platform/export.h"

namespace Velmar::Host {

/// The template of this name; null when there surely is none. A template with faults is given out too, see its
/// error(): one of the three files missing is a fault, all of them missing is no template.
///
/// name, domain  anything that is no single path component finds nothing; domain "" = system-wide
///
/// A parsed template is kept and given out again until one of its files is another one (device, inode, size, times).
/// Throws Exception when a directory or file cannot be looked at. Any thread.
VLM_EXPORT std::shared_ptr<const ReportTemplate> findReportTemplate(const std::string& name, const std::string& domain);

/// The template in one directory, absolute path; as above.
VLM_EXPORT std::shared_ptr<const ReportTemplate> reportTemplateIn(const std::string& directory);

}  // namespace Velmar::Host
