#pragma once

// Configuration records, each loaded once a process and shared by all reports from then on.
//
// There is no refresh: every report of a process sees the same settings.

#include <atomic>
#include <boost/thread/lock_guard.hpp>
#include <boost/thread/mutex.hpp>

#include "platform/config_store.h"
#include "platform/types.h"

namespace Velmar::CMF {

/// Owns one query handle.
class Query {
 public:
  explicit Query(G_CLI_GID gid) : handle_(cmf_query_create_withdomain(kSystemLevel, gid)) {}
  Query(const Query&) = delete;
  Query& operator=(const Query&) = delete;
  ~Query() { cmf_shm_read_unlock(handle_); }

  cmf_query* handle() const noexcept { return handle_; }

 private:
  static constexpr unsigned int kSystemLevel = 0;
  cmf_query* handle_;
};

/// One copy of a record of type T; never changes.
template <class T>
class ApsSysClientSideCache : public RefImpl {
 public:
  explicit ApsSysClientSideCache(const T& record) : record_(record) {}
  const T& record() const noexcept { return record_; }

 private:
  const T record_;
};

/// Shared handle to the cached record of type T with the identifier GID.
template <class T, G_CLI_GID GID>
class RefApsSysClientSideCache : public Ref<ApsSysClientSideCache<T>> {
 public:
  RefApsSysClientSideCache() = default;

  /// The process-wide object, loaded now if it was not yet. A load that throws leaves nothing behind: the next
  /// caller tries again. Any thread.
  /// reload  false: what is cached is used as it is. There is no other form.
  static RefApsSysClientSideCache instance(bool /*reload*/) {
    // s_loaded makes the unlocked test safe: who sees it true sees the finished handle, which never changes again.
    if (!s_loaded.load(std::memory_order_acquire)) {
      const boost::lock_guard<boost::mutex> guard(s_mutex);
      if (s_instance().isNull()) {
        s_instance() = load();
        s_loaded.store(true, std::memory_order_release);
      }
    }
    return s_instance();
  }

  static RefApsSysClientSideCache& s_instance() {
    static RefApsSysClientSideCache instance;
    return instance;
  }
  inline static boost::mutex s_mutex;  ///< serialises the first load
  inline static std::atomic<bool> s_loaded{false};

 private:
  explicit RefApsSysClientSideCache(ApsSysClientSideCache<T>* object) : Ref<ApsSysClientSideCache<T>>(object) {}

  static RefApsSysClientSideCache load() {
    const Query query(GID);
    const T* record = static_cast<const T*>(cmf_query_update(query.handle()));
    return RefApsSysClientSideCache(new ApsSysClientSideCache<T>(*record));
  }
};

using RefSpamReportSettings = RefApsSysClientSideCache<__aps_spam_report, G_CLI_SPAM_REPORT>;
using RefRemoteStorage = RefApsSysClientSideCache<__aps_remote_storage, G_CLI_REMOTE_STORAGE>;
using RefMailServer = RefApsSysClientSideCache<__aps_mailserver, G_CLI_MAILSERVER>;
using RefSysAntispam = RefApsSysClientSideCache<__aps_sys_antispam, G_CLI_SYS_ANTISPAM>;
using RefHighAvailability = RefApsSysClientSideCache<__velmar_ha, G_CLI_VELMAR_HA>;
using RefNasStorage = RefApsSysClientSideCache<__nas_storage_t, G_CLI_NAS_STORAGE>;

/// A query over the table GID with rows of type T.
template <class T, G_CLI_GID GID>
class TableQuery {
 public:
  TableQuery() : query_(GID) {}

  /// The first row; lives as long as the query. Throws Exception when the table has none.
  const T& head() {
    const T* row = static_cast<const T*>(cmf_query_table_head(query_.handle()));
    if (!row)
      throw Exception("ConfigurationException", 4, "TableQuery", __LINE__,
                      "configuration table " + std::to_string(GID) + " is empty");
    position_ = 0;
    return *row;
  }

  /// Index of the current row; -1 before the first one.
  int position() const noexcept { return position_; }

 private:
  Query query_;
  int position_ = -1;
};

using InterfaceTable = TableQuery<__aps_interface, G_CLI_INTERFACE>;

}  // namespace Velmar::CMF
