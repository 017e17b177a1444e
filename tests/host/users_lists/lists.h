#pragma once

// Short forms of the list operations for tests.

#include <string>
#include <vector>

#include "host/host.h"
#include "platform/types.h"
#include "platform/users_lists.h"
#include "tests/support/thrown_by.h"

namespace Velmar::Testing {

inline std::vector<std::string> namesOf(const std::string& owner, const std::string& list) {
  mail_list_names names;
  mail_list_get_names(owner.c_str(), list.c_str(), &names, 0, 0);
  std::vector<std::string> result(names.names, names.names + names.count);
  for (int i = 0; i < 2; ++i) mail_list_free_names(&names);  // the second time does no harm
  return result;
}

inline bool listHolds(const std::string& owner, const std::string& list, const std::string& entry) {
  return mail_list_find(owner.c_str(), list.c_str(), entry.c_str(), 0) != 0;
}

inline void removeEntry(const std::string& owner, const std::string& list, const std::string& entry) {
  mail_list_delete_from(owner.c_str(), list.c_str(), entry.c_str(), 0);
}

}  // namespace Velmar::Testing
