#pragma once

// A PostgreSQL server of the tests' own, in a directory of its own, reached through a socket in it.

#include <string>

#include "tests/support/temp_root.h"

namespace Velmar::Testing {

/// Runs from its first use to the end of the test program, however that ends. It refuses to run as root, so a test that
/// runs as root starts it as the user of the package.
class PostgresqlServer {
 public:
  static PostgresqlServer& instance();

  /// The URL of its database with the right password, which holds characters that are coded in a URL.
  std::string url(const std::string& password = "gehe%25im%2F7") const;

  void start();
  void stop();

  /// Takes away everything in the database. Its URL is another one afterwards, for those who remember the store.
  void empty();

 private:
  PostgresqlServer();
  ~PostgresqlServer();

  std::string directory_;
  pid_t process_ = 0;
  int store_ = 0;
};

}  // namespace Velmar::Testing
