#pragma once

// Short forms of the list operations for tests.

#include <gmock/gmock.h>

#include <functional>
#include <string>
#include <vector>

#include "host/host.h"
#include "host/users_lists/state_store.h"
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

// Every operation on the store, each of which must throw an error that names the store and `want`, and no password.
inline void expectAllFail(const std::string& want) {
  char buffer[36];
  const std::function<void()> operations[] = {
      [] { namesOf("u@d", "l"); },
      [] { listHolds("u@d", "l", "a@x"); },
      [] { removeEntry("u@d", "l", "a@x"); },
      [] { Host::addListEntry("u@d", "l", "b@x"); },
      [&] { get_user_pref_lang("u@d", buffer, sizeof buffer); },
      [] { Host::setPreferredLanguage("u@d", "de"); },
      [] { Host::reportedUntil("d"); },
      [] { Host::setDomainReportedUntil("d", 1, {}); },
      [] { Host::checkState(); },
  };
  using ::testing::HasSubstr;
  const auto wanted = ::testing::AllOf(HasSubstr("state store " + Host::threadDatabase().name()), HasSubstr(want),
                                       ::testing::Not(HasSubstr("gehe")));
  for (const auto& operation : operations) EXPECT_THAT(thrownBy(operation), wanted);
}

}  // namespace Velmar::Testing
