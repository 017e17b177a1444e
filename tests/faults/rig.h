#pragma once

// Makes a report of the example host in a process of its own while something fails, then another one while nothing
// does, and looks at all that they left behind.

#include <functional>
#include <string>

namespace Velmar::Testing {

/// Which of the calls that count fail, those of one thread: the n-th from 1, or that and all that follow.
struct Strike {
  int n = 0;
  bool forGood = false;

  bool hits(int call) const { return call == n || (forGood && call > n); }
};

/// A kind of fault. arm and disarm are called in the thread that reports.
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

  /// One report under the n-th fault; what is wrong afterwards fails the test. Returns whether anything was struck.
  bool report(const Fault& fault, int n) const;

  const std::string& root() const { return root_; }

 private:
  int inProcess(const std::function<bool()>& work) const;
  void live(const Fault& fault) const;
  int takeMails(bool mayLackWords) const;

  std::string directory_, root_;
  long until_ = 0;
  std::string mail_;   // as comparable() has it
  std::string files_;  // what a report leaves below var
};

}  // namespace Velmar::Testing
