#pragma once

// The configuration store: records, domains, recipient policies. Read only.

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/export.h"
#include "platform/types.h"

namespace Velmar {

/// Identifiers of the configuration records and tables.
enum G_CLI_GID : int {
  G_CLI_INTERFACE = 1,
  G_CLI_VELMAR_HA = 282,
  G_CLI_SPAM_REPORT = 450,
  G_CLI_USER_GROUP = 455,
  G_CLI_MAILSERVER = 617,
  G_CLI_NAS_STORAGE = 631,
  G_CLI_REMOTE_STORAGE = 636,
  G_CLI_SYS_ANTISPAM = 801,
};

// Every text of a record is NUL-terminated UTF-8 within its array.

/// System-wide settings of quarantine reports (G_CLI_SPAM_REPORT).
struct __aps_spam_report {
  std::uint32_t ngid;
  std::uint32_t schedule;        ///< bit h set = reports run at hour h, local time
  std::uint32_t port;            ///< TCP port of the web interface, 1 to 65535
  std::int32_t accessLinkHours;  ///< validity of the web-login link in hours; 0 or less = no such link
  char webHost[258];             ///< host name of the web links; empty = none configured
  char templateName[38];         ///< name of the system-wide report template
};
static_assert(sizeof(__aps_spam_report) == 312);
static_assert(offsetof(__aps_spam_report, schedule) == 4);
static_assert(offsetof(__aps_spam_report, port) == 8);
static_assert(offsetof(__aps_spam_report, accessLinkHours) == 12);
static_assert(offsetof(__aps_spam_report, webHost) == 16);
static_assert(offsetof(__aps_spam_report, templateName) == 274);

/// Remote quarantine storage (G_CLI_REMOTE_STORAGE); reports only hold it.
struct __aps_remote_storage {
  std::uint32_t ngid;
  std::uint32_t enabled;
};

/// Mail server (G_CLI_MAILSERVER); reports only hold it.
struct __aps_mailserver {
  std::uint32_t ngid;
  std::uint32_t smtpPort;
};

/// System anti-spam settings (G_CLI_SYS_ANTISPAM).
struct __aps_sys_antispam {
  std::uint32_t ngid;
  std::uint32_t flags;
  char releaseName[36];  ///< local part of the quarantine release account
  char deleteName[36];   ///< local part of the quarantine delete account
};
static_assert(offsetof(__aps_sys_antispam, releaseName) == 8);
static_assert(offsetof(__aps_sys_antispam, deleteName) == 44);

/// High availability (G_CLI_VELMAR_HA).
struct __velmar_ha {
  std::uint32_t ngid;
  std::uint32_t mode;  ///< 0 = off
};
static_assert(offsetof(__velmar_ha, mode) == 4);

/// Storage (G_CLI_NAS_STORAGE).
struct __nas_storage_t {
  std::uint32_t mode;  ///< 0 = local
};
static_assert(offsetof(__nas_storage_t, mode) == 0);

/// An IP address. family is 2 (IPv4, the first four bytes count) or 10 (IPv6); network byte order.
struct vlm_ip_address {
  std::uint32_t family;
  std::uint8_t bytes[16];
};

/// One row of the table of network interfaces (G_CLI_INTERFACE).
struct __aps_interface {
  std::uint32_t ngid;
  char name[16];
  vlm_ip_address address;
};

/// One user group (G_CLI_USER_GROUP).
struct __aps_user_group {
  std::uint32_t ngid;
  std::uint32_t flag;
};

/// The recipient policy that manages an address.
struct __recipient_policy {
  std::uint32_t ngid;
  std::uint32_t flag;            ///< the policy's own flag word
  std::int32_t antispamProfile;  ///< number of the anti-spam profile; 0 = none
  std::uint32_t userGroup;       ///< number of the user group; 0 = none
  std::uint32_t spamReport;      ///< non-zero = the policy takes part in quarantine reports
};

/// The global configuration block.
struct nCfg_global_block {
  std::uint32_t debugMask;   ///< which debug traces are written
  std::uint32_t haSyncFlag;  ///< 1 = the high-availability pair shares its quarantine
  char hostName[257];        ///< host name of the system
};

/// The global configuration block. Never null; lives as long as the process; read only.
/// Throws Exception when the configuration cannot be read. Any thread.
VLM_EXPORT const nCfg_global_block* nCfg_debug_zone();

/// A query of the configuration store; opaque, owned by whoever created it.
struct cmf_query;

/// Opens a query for the record or table `gid`. domain 0 = system level, the only one there is here.
/// Returns a query that the caller ends with cmf_shm_read_unlock; never null.
/// Throws Exception for an unknown gid, another domain, or a configuration that cannot be read. Any thread.
VLM_EXPORT cmf_query* cmf_query_create_withdomain(unsigned int domain, G_CLI_GID gid);

/// Runs the query and returns its record, whose type follows from the gid. Never null for a record: one that the
/// configuration leaves out comes back with its documented defaults. The record lives as long as the query.
VLM_EXPORT const void* cmf_query_update(cmf_query* query);

/// The first record of a table; null when the table is empty. It lives as long as the query.
VLM_EXPORT const void* cmf_query_table_head(cmf_query* query);

/// Ends a query: gives up its hold on the store and frees it. Null does nothing. Never throws.
VLM_EXPORT void cmf_shm_read_unlock(cmf_query* query) noexcept;

/// Copies the row with number `ngid` of table `gid` into `record` (`size` = the record type's size in bytes).
/// Returns 1 when there is such a row, 0 when there is none; then `record` is left as it was.
/// Throws Exception for an unknown table, a wrong size, or a configuration that cannot be read. Any thread.
VLM_EXPORT int vlm_cmf_get_table_data_by_ngid(G_CLI_GID gid, std::uint32_t ngid, void* record, std::size_t size);

/// Says whether a policy qualifies for a lookup: non-zero = yes. Must not throw.
using recipient_policy_filter = int (*)(const __recipient_policy* policy);

/// Qualifies the policies that take part in quarantine reports (`spamReport` non-zero).
VLM_EXPORT int vlm_recipient_policy_spamreport_filter(const __recipient_policy* policy);

/// Finds the policy that manages an address: the first in configured order whose address pattern matches
/// and that `filter` accepts (null accepts all).
///
/// address   bare address, UTF-8
/// record    filled on success, else left as it was
/// domain    0 = policies of every domain, the only value used here
/// managed   1 = only policies that are in force, 0 = also switched-off ones
/// Returns 0 when a policy was found, non-zero when surely none applies.
/// Throws Exception when it could not look. Any thread.
VLM_EXPORT int cfg_get_managed_recipient_policy_with_filter(const char* address, __recipient_policy* record,
                                                            recipient_policy_filter filter, int domain, int managed);

/// Writes the host part of the action addresses (the local domain, else the host name), NUL-terminated.
/// Returns 0; non-zero when neither is configured or it does not fit into `size` bytes: then buffer[0] is NUL.
/// Throws Exception when the configuration cannot be read. Any thread.
VLM_EXPORT int cfg_get_localdomain_or_host(char* buffer, int size);

/// The main domain of an associated domain; null when `domain` has none (also when it is unknown or main itself).
/// reserved is 0. The text lives as long as the process. Throws Exception when it could not look. Any thread.
VLM_EXPORT const char* cfg_get_main_domain_name(const char* domain, int reserved);

/// The mail mode of the system: 1 = server, 2 = transparent, 3 = relay, 4 = gateway without a host name.
/// Throws Exception when the configuration cannot be read. Any thread.
VLM_EXPORT int qrl_mail_mode();

/// Report settings of one mail domain. Never changes after it is made.
struct VLM_EXPORT ApsGwServer : public RefImpl {
  ~ApsGwServer() override;

  std::string domain;             ///< lower case
  bool sendToRecipient = true;    ///< the mailbox itself receives its reports
  bool sendToGroupOwner = false;  ///< the owners of its LDAP groups do
  bool groupOwnerOption = false;  ///< handed to the owner lookup
  bool groupOwnerOnly = false;    ///< leave the mailbox out when there are owners
  std::int32_t groupOwnerLdapProfile = -1;
  bool sendToOthers = false;    ///< the addresses of otherRecipients receive them
  std::string otherRecipients;  ///< RFC 5322 address list
  bool useOwnTemplate = false;  ///< templateName names a template of this domain
  std::string templateName;
  std::uint32_t profileDomain = 0;  ///< domain number under which its anti-spam profiles are kept
};

/// All domain records. Never changes after it is made.
class VLM_EXPORT ApsGwServerCache : public RefImpl {
 public:
  ~ApsGwServerCache() override;
  /// The record of a domain, matched without regard to ASCII case; an empty handle when there is surely none.
  /// Throws Exception when it could not look. Any thread.
  virtual Ref<ApsGwServer> find(const std::string& domain) const = 0;
};

/// Handle to the process-wide domain records.
class VLM_EXPORT RefApsGwServerCache : public Ref<ApsGwServerCache> {
 public:
  /// reload  false: what is loaded is used, else loaded now. true: the same here (configuration is loaded once).
  /// Never an empty handle. Throws Exception when the configuration cannot be read. Any thread.
  static RefApsGwServerCache instance(bool reload);

 private:
  using Ref<ApsGwServerCache>::Ref;
};

}  // namespace Velmar
