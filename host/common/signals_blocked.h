#pragma once

// Keeps the signals of a program away from the threads that this library starts.

#include <pthread.h>
#include <signal.h>

namespace Velmar::Host {

/// As long as this lives, this thread, and what it starts, takes no signals: they are the program's business.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

 private:
  sigset_t before_{};
};

}  // namespace Velmar::Host
