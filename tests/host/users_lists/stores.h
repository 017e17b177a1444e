#pragma once

// The stores that every operation must work on.

#include <gtest/gtest.h>

#include <string>

#include "host/users_lists/state_store.h"
#include "tests/host/users_lists/postgresql_server.h"
#include "tests/support/temp_root.h"

namespace Velmar::Testing {

constexpr char kSqliteUrl[] = "sqlite:///var/lib/velmar/state.db";

/// An empty store of the kind that the parameter names, below a root of its own.
class OnEachStore : public ::testing::TestWithParam<const char*> {
 protected:
  OnEachStore() {
    if (onServer) PostgresqlServer::instance().empty();
    Host::setStateUrl(onServer ? PostgresqlServer::instance().url() : kSqliteUrl);
  }
  ~OnEachStore() override { Host::dropThreadState(); }

  /// A session of another program with the same store.
  std::unique_ptr<soci::session> otherProgram() const {
    return Host::threadDatabase().open(std::chrono::milliseconds(50));
  }

  const bool onServer = std::string(GetParam()) == "PostgreSQL";
  TempRoot root{"velmar test = "};
};

#define FOR_EACH_STORE(suite)                                                        \
  INSTANTIATE_TEST_SUITE_P(Stores, suite, ::testing::Values("SQLite", "PostgreSQL"), \
                           [](const auto& it) { return it.param; })

}  // namespace Velmar::Testing
