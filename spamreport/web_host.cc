// Chooses the web host of a report: the first rule that applies wins. Called once a report, by its construction.

#include "spamreport/web_host.h"

#include "platform/logging.h"
#include "platform/text_network.h"
#include "spamreport/configuration_sources.h"
#include "spamreport/log_events.h"

namespace Velmar {
namespace {

constexpr int kGatewayMode = 4;  // mail mode of a system without a host name of its own
constexpr int kAddressTextSize = 46;
constexpr std::uint32_t kFamilyIpv6 = 10;

AvailabilityState availability() {
  const auto ha = CMF::RefHighAvailability::instance(false);
  const auto storage = CMF::RefNasStorage::instance(false);
  return {ha->record().mode, nCfg_debug_zone()->haSyncFlag, storage->record().mode};
}

std::string headInterfaceAddress() {
  CMF::InterfaceTable table;
  char text[kAddressTextSize] = "";
  vlm_ip_to_string(table.head().address, text, sizeof text, 1);
  return text;
}

std::string unbracketedHost(const std::string& configured) {
  if (!configured.empty()) return configured;
  if (qrl_mail_mode() == kGatewayMode) return headInterfaceAddress();
  return nCfg_debug_zone()->hostName;
}

}  // namespace

bool leavesWebHostEmpty(const AvailabilityState& state) {
  return state.haMode >= 2 && state.haMode != 3 && state.haSyncFlag != 1 &&
         (state.storageMode == 1 || state.haMode != 4);
}

std::string chooseWebHost(const std::string& configured) {
  if (leavesWebHostEmpty(availability())) {
    Logger::instance(false).log(LogEvent::kWebHostLeftEmpty, 0, "%s", " ");  // the blank is deliberate
    return "";
  }
  std::string host = unbracketedHost(configured);
  vlm_ip_address address{};
  if (vlm_string_to_ip(host, &address) == 1 && address.family == kFamilyIpv6) return "[" + host + "]";
  return host;
}

}  // namespace Velmar
