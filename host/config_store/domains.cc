// Domain records, out of the configuration.

#include "host/common/host_config.h"
#include "host/host.h"
#include "platform/config_store.h"

namespace Velmar {
namespace {

// The records of the process's configuration, which outlives every cache.
class ConfiguredDomains : public ApsGwServerCache {
 public:
  explicit ConfiguredDomains(const Host::HostConfig& config) : config_(config) {}

  Ref<ApsGwServer> find(const std::string& domain) const override {
    const Host::DomainConfig* found = config_.findDomain(domain);
    return found ? found->record : Ref<ApsGwServer>();
  }

 private:
  const Host::HostConfig& config_;
};

}  // namespace

ApsGwServer::~ApsGwServer() = default;

ApsGwServerCache::~ApsGwServerCache() = default;

RefApsGwServerCache RefApsGwServerCache::instance(bool) {
  const Host::HostConfig& config = Host::hostConfig();  // before the static, whose initialiser must not throw
  static const RefApsGwServerCache& cache = *new RefApsGwServerCache(new ConfiguredDomains(config));
  return cache;
}

const char* cfg_get_main_domain_name(const char* domain, int) {
  const Host::DomainConfig* found = Host::hostConfig().findDomain(domain);
  return found && !found->mainDomain.empty() ? found->mainDomain.c_str() : nullptr;
}

namespace Host {

std::vector<std::string> configuredDomains() {
  std::vector<std::string> names;
  for (const DomainConfig& domain : hostConfig().domains) names.push_back(domain.name);
  return names;
}

int catchUpHours() { return hostConfig().catchUpHours; }

}  // namespace Host
}  // namespace Velmar
