#pragma once

// Hands mails to a mail server over SMTP.

#include <memory>
#include <string>

#include "host/common/host_config.h"
#include "host/mail_builder/hand_over/transport.h"

namespace Velmar::Host {

/// A transport to the server of `config.url`. It connects with the first mail, keeps the session for further ones and
/// opens it again when the server has closed it meanwhile.
///
/// ehloName  the name of this host in EHLO, e.g. "gw.example.org"
/// Reads `config.authFile` at once; throws Exception when it or `config.caFile` cannot be used.
/// Connecting, with TLS and login, must be done within `config.timeout`, and so must each reply be whole; the one to
/// the content within ten times that, since servers do their checks there. The content must leave with 16 KiB a second
/// or more on average and without a stop of `config.timeout`. A connection lost between the final dot and its reply
/// counts as temporary failure: such a mail may arrive twice.
std::unique_ptr<Transport> makeSmtpTransport(const QueueConfig& config, const std::string& ehloName);

}  // namespace Velmar::Host
