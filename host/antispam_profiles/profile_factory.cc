// Anti-spam profiles out of the configuration: the set of a domain first, then the one of the system.

#include "host/common/host_config.h"
#include "platform/antispam_profiles.h"

namespace Velmar {
namespace {

constexpr std::uint32_t kSystem = 0;

}  // namespace

ProfileFactory* ProfileFactory::instance() {
  static ProfileFactory factory;
  return &factory;
}

ProfileAntiSpam ProfileFactory::createProfileAntiSpam(int profile, unsigned int domain) {
  const Host::HostConfig& config = Host::hostConfig();
  for (const std::uint32_t set : {std::uint32_t{domain}, kSystem})
    if (const auto found = config.profilePlaces.find({set, profile}); found != config.profilePlaces.end())
      return ProfileAntiSpam(config.profiles[found->second].switches);
  return {};
}

}  // namespace Velmar
