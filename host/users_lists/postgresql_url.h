#pragma once

// The URL of a PostgreSQL store, in the parts that matter here.

#include <string>
#include <string_view>
#include <vector>

namespace Velmar::Host {

/// postgresql://[USER[:PASSWORD]@][HOST[:PORT][,...]][/DATABASE][?KEY=VALUE[&...]], as libpq takes it.
struct PostgresqlUrl {
  std::string connect;               ///< the URL with our parameters wherever it does not give them itself
  std::string name;                  ///< for people: without user, password and parameters
  std::vector<std::string> secrets;  ///< passwords, as they are written and as they are meant; none is empty
};

/// Takes such a URL apart. libpq has the last word on all else in it.
/// Throws Exception, without showing the URL, when user and password cannot be told from the rest for sure.
PostgresqlUrl parsePostgresqlUrl(std::string_view url);

/// The text with each `mark` and two hexadecimal digits after it as the byte that they name; anything else stays.
std::string hexDecoded(std::string_view text, char mark);

}  // namespace Velmar::Host
