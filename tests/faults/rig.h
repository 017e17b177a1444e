#pragma once

// Makes a report of the example host in a process of its own while something fails, then another one in the same
// process while nothing does, and looks at all that they left behind.

#include <functional>
#include <string>

namespace Velmar::Testing {

/// A kind of fault; all are called in the thread that reports.
struct Fault {
  std::function<void()> arm = [] {};
  std::function<void()> disarm = [] {};
  std::function<std::string()> struck = [] { return std::string(); };  ///< what was, "" when nothing was
  bool lasting = false;                                                ///< all calls fail from then on
  bool memory = false;  ///< it shows as std::bad_alloc and, inside of libraries, as words that are missing
};

class Rig {
 public:
  /// Lays out the example host and makes the report that others are held to.
  Rig();
  Rig(const Rig&) = delete;
  Rig& operator=(const Rig&) = delete;
  ~Rig();

  /// One report under the n-th fault; what is wrong afterwards fails the test. Returns what was struck.
  std::string report(const Fault& fault, int n);

  const std::string& root() const { return root_; }

 private:
  struct Account;

  void layOut() const;
  void takeMails() const;
  void reportAndTell(const Fault& fault) const;
  Account live(const Fault& fault) const;
  std::size_t countMails(const Fault& fault, bool warned) const;
  void expectToldAndGivenBack(const Account& account, const Fault& fault) const;
  void expectCleanReport() const;

  std::string directory_, root_;
  long until_ = 0;
  std::string mail_;   // as comparable() has it
  std::string files_;  // what a report leaves below var
};

}  // namespace Velmar::Testing
