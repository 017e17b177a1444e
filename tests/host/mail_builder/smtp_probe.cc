// Hands the mail on standard input to a server, for test_smtp_postfix.py.
//
// usage: smtp_probe URL none|offered|required|implicit CA_FILE AUTH_FILE never|default SENDER RECIPIENT...
// Prints "accepted|temporary|permanent TEXT" for each recipient; exit 3 and the reason when nothing may be sent.

#include <cstdio>
#include <iostream>
#include <iterator>
#include <map>
#include <string>

#include "host/mail_builder/hand_over/smtp_transport.h"
#include "platform/types.h"

namespace {

using Velmar::Host::SmtpTls;

Velmar::Host::QueueConfig configOf(char** arguments) {
  const std::map<std::string, SmtpTls> kinds = {{"none", SmtpTls::kNone},
                                                {"offered", SmtpTls::kOffered},
                                                {"required", SmtpTls::kRequired},
                                                {"implicit", SmtpTls::kImplicit}};
  Velmar::Host::QueueConfig config;
  config.url = arguments[0];
  config.tls = kinds.at(arguments[1]);
  config.caFile = arguments[2];
  config.authFile = arguments[3];
  config.timeout = 10;
  return config;
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 8) return 2;
  Velmar::Host::QueuedMail mail;
  mail.suppressDsn = std::string(arguments[5]) == "never";
  mail.sender = arguments[6];
  mail.recipients.assign(arguments + 7, arguments + count);
  mail.content.assign(std::istreambuf_iterator<char>(std::cin), {});
  try {
    const auto transport = Velmar::Host::makeSmtpTransport(configOf(arguments + 1), "gw.example.org");
    const char* const names[] = {"accepted", "temporary", "permanent"};
    for (const auto& reply : transport->send(mail).recipients) {
      std::printf("%s %s\n", names[static_cast<int>(reply.verdict)], reply.text.c_str());
    }
  } catch (const Velmar::Exception& e) {
    std::fprintf(stderr, "%s\n", e.text().c_str());
    return 3;
  }
  return 0;
}
