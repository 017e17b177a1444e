// The configuration of the fake world, and its anti-spam profiles.

#include "platform/config_store.h"

#include <cstdio>
#include <cstring>

#include "tests/fake/fake.h"

namespace Velmar {

using Fake::call;
using Fake::join;
using Fake::world;

struct cmf_query {
  G_CLI_GID gid;
};

namespace {

const void* recordOf(G_CLI_GID gid) {
  static const std::map<G_CLI_GID, const void*> records{
      {G_CLI_SPAM_REPORT, &world().spamReport},     {G_CLI_REMOTE_STORAGE, &world().remoteStorage},
      {G_CLI_MAILSERVER, &world().mailServer},      {G_CLI_SYS_ANTISPAM, &world().sysAntispam},
      {G_CLI_VELMAR_HA, &world().highAvailability}, {G_CLI_NAS_STORAGE, &world().nasStorage}};
  return records.at(gid);
}

class DomainRecords : public ApsGwServerCache {
 public:
  Ref<ApsGwServer> find(const std::string& domain) const override {
    call("ApsGwServerCache::find", domain);
    const auto found = world().domains.find(domain);
    return found == world().domains.end() ? Ref<ApsGwServer>() : found->second;
  }
};

}  // namespace

ApsGwServer::~ApsGwServer() = default;
ApsGwServerCache::~ApsGwServerCache() = default;

RefApsGwServerCache RefApsGwServerCache::instance(bool reload) {
  call("RefApsGwServerCache::instance", std::to_string(reload));
  return RefApsGwServerCache(new DomainRecords);
}

const nCfg_global_block* nCfg_debug_zone() {
  call("nCfg_debug_zone");
  return &world().global;
}

cmf_query* cmf_query_create_withdomain(unsigned int domain, G_CLI_GID gid) {
  call("cmf_query_create_withdomain", join({std::to_string(domain), std::to_string(gid)}));
  Fake::locked([] { ++world().openQueries; });
  return new cmf_query{gid};
}

const void* cmf_query_update(cmf_query* query) {
  call("cmf_query_update", std::to_string(query->gid));
  if (world().onQuery) world().onQuery();
  return recordOf(query->gid);
}

const void* cmf_query_table_head(cmf_query* query) {
  call("cmf_query_table_head", std::to_string(query->gid));
  return world().interfaces.empty() ? nullptr : &world().interfaces.front();
}

void cmf_shm_read_unlock(cmf_query* query) noexcept {
  if (!query) return;
  Fake::note("cmf_shm_read_unlock", std::to_string(query->gid));
  Fake::locked([] { --world().openQueries; });
  delete query;
}

int vlm_cmf_get_table_data_by_ngid(G_CLI_GID gid, std::uint32_t ngid, void* record, std::size_t size) {
  call("vlm_cmf_get_table_data_by_ngid", join({std::to_string(gid), std::to_string(ngid)}));
  const auto found = world().userGroups.find(ngid);
  if (found == world().userGroups.end()) return 0;
  std::memcpy(record, &found->second, size);
  return 1;
}

int vlm_recipient_policy_spamreport_filter(const __recipient_policy* policy) { return policy->spamReport != 0; }

int cfg_get_managed_recipient_policy_with_filter(const char* address, __recipient_policy* record,
                                                 recipient_policy_filter filter, int domain, int managed) {
  const char* name = filter == &vlm_recipient_policy_spamreport_filter ? "spamreport_filter" : "another filter";
  call("cfg_get_managed_recipient_policy_with_filter",
       join({address, name, std::to_string(domain), std::to_string(managed)}));
  const auto found = world().policies.find(address);
  if (found == world().policies.end()) return -1;
  *record = found->second;
  return 0;
}

int cfg_get_localdomain_or_host(char* buffer, int size) {
  call("cfg_get_localdomain_or_host", std::to_string(size));
  buffer[0] = '\0';
  if (!world().localDomain) return -1;
  std::snprintf(buffer, static_cast<std::size_t>(size), "%s", world().localDomain->c_str());
  return 0;
}

const char* cfg_get_main_domain_name(const char* domain, int reserved) {
  call("cfg_get_main_domain_name", join({domain, std::to_string(reserved)}));
  const auto found = world().mainDomains.find(domain);
  return found == world().mainDomains.end() ? nullptr : found->second.c_str();
}

int qrl_mail_mode() {
  call("qrl_mail_mode");
  return world().mailMode;
}

ProfileFactory* ProfileFactory::instance() {
  static ProfileFactory factory;
  return &factory;
}

ProfileAntiSpam ProfileFactory::createProfileAntiSpam(int profile, unsigned int domain) {
  call("createProfileAntiSpam", join({std::to_string(profile), std::to_string(domain)}));
  const auto found = world().profiles.find({profile, domain});
  return found == world().profiles.end() ? ProfileAntiSpam() : ProfileAntiSpam(found->second);
}

}  // namespace Velmar
