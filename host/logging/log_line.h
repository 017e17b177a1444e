#pragma once

// The forms in which entries of the log leave the process.

#include <sys/types.h>

#include <string>

#include "host/logging/log_record.h"

namespace Velmar::Host {

/// A line of a file or of stderr: "2026-11-22T08:00:00.123+01:00 0x80010 nothing-held "TEXT" mailbox="u@d"" and a line
/// feed; "-" in place of the code where there is none. The time is written as local time. Every value is escaped.
std::string logLine(const LogRecord& record);

/// A datagram of the journal's native protocol: MESSAGE, PRIORITY, SYSLOG_IDENTIFIER, SYSLOG_FACILITY, VELMAR_EVENT
/// (the code, for events only), VELMAR_EVENT_NAME and VELMAR_FIELD for each field. MESSAGE is escaped, the fields'
/// values are raw bytes.
std::string journalDatagram(const LogRecord& record);

/// A datagram as syslog(3) sends it: "<PRI>Nov 22 08:00:00 spamreport[PID]: NAME: TEXT", facility mail, escaped.
std::string syslogDatagram(const LogRecord& record, pid_t pid);

}  // namespace Velmar::Host
