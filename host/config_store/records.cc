// Configuration records and tables by identifier, and the single values beside them. A query is a view of the
// process's configuration: it copies nothing and holds no lock.

#include <cstring>

#include "host/common/host_config.h"
#include "platform/config_store.h"

namespace Velmar {

struct cmf_query {
  const void* record;  ///< of a table the first row, null when it is empty
  bool isTable;
};

namespace {

using Host::HostConfig;

Exception storeException(int line, const std::string& text) {
  return Exception("ConfigException", 4, "ConfigStore", line, text);
}

template <class Row>
const void* firstOf(const std::vector<Row>& rows) {
  return rows.empty() ? nullptr : &rows.front();
}

cmf_query queryOf(const HostConfig& config, G_CLI_GID gid) {
  switch (gid) {
    case G_CLI_INTERFACE:
      return {firstOf(config.interfaces), true};
    case G_CLI_USER_GROUP:
      return {firstOf(config.userGroups), true};
    case G_CLI_VELMAR_HA:
      return {&config.highAvailability, false};
    case G_CLI_SPAM_REPORT:
      return {&config.spamReport, false};
    case G_CLI_MAILSERVER:
      return {&config.mailServer, false};
    case G_CLI_NAS_STORAGE:
      return {&config.nasStorage, false};
    case G_CLI_REMOTE_STORAGE:
      return {&config.remoteStorage, false};
    case G_CLI_SYS_ANTISPAM:
      return {&config.sysAntispam, false};
  }
  throw storeException(__LINE__, "no configuration record has identifier " + std::to_string(gid));
}

void checkSize(G_CLI_GID gid, std::size_t size, std::size_t want) {
  if (size != want)
    throw storeException(__LINE__, "a row of configuration table " + std::to_string(gid) + " has " +
                                       std::to_string(want) + " bytes, not " + std::to_string(size));
}

template <class Row>
const void* rowAt(const std::vector<Row>& rows, std::size_t place) {
  return place < rows.size() ? &rows[place] : nullptr;
}

// The row with this number; null when there is none. `size` is what the caller takes for the size of a row.
const void* rowOf(const HostConfig& config, G_CLI_GID gid, std::uint32_t ngid, std::size_t size) {
  if (gid == G_CLI_USER_GROUP) {
    checkSize(gid, size, sizeof(__aps_user_group));
    const auto found = config.userGroupPlaces.find(ngid);
    return found == config.userGroupPlaces.end() ? nullptr : &config.userGroups[found->second];
  }
  if (gid == G_CLI_INTERFACE) {
    checkSize(gid, size, sizeof(__aps_interface));
    return rowAt(config.interfaces, std::size_t{ngid} - 1);
  }
  throw storeException(__LINE__, "no configuration table has identifier " + std::to_string(gid));
}

}  // namespace

const nCfg_global_block* nCfg_debug_zone() { return &Host::hostConfig().global; }

cmf_query* cmf_query_create_withdomain(unsigned int domain, G_CLI_GID gid) {
  if (domain != 0)
    throw storeException(__LINE__, "configuration record " + std::to_string(gid) + " of domain number " +
                                       std::to_string(domain) + ": records are kept for 0 (system) only");
  return new cmf_query(queryOf(Host::hostConfig(), gid));
}

const void* cmf_query_update(cmf_query* query) { return query->record; }

const void* cmf_query_table_head(cmf_query* query) {
  if (!query->isTable) throw storeException(__LINE__, "a single configuration record was read as a table");
  return query->record;
}

void cmf_shm_read_unlock(cmf_query* query) noexcept { delete query; }

int vlm_cmf_get_table_data_by_ngid(G_CLI_GID gid, std::uint32_t ngid, void* record, std::size_t size) {
  const void* row = rowOf(Host::hostConfig(), gid, ngid, size);
  if (!row) return 0;
  std::memcpy(record, row, size);
  return 1;
}

int cfg_get_localdomain_or_host(char* buffer, int size) {
  if (size <= 0) return -1;
  buffer[0] = '\0';
  const HostConfig& config = Host::hostConfig();
  const std::string host = config.localDomain.empty() ? config.global.hostName : config.localDomain;
  if (host.empty() || host.size() >= static_cast<std::size_t>(size)) return -1;
  std::memcpy(buffer, host.c_str(), host.size() + 1);
  return 0;
}

int qrl_mail_mode() { return Host::hostConfig().mailMode; }

}  // namespace Velmar
