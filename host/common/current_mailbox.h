#pragma once

// The mailbox that a thread is working on, for the log: a failure's text does not always name it.

#include <string>
#include <string_view>

namespace Velmar::Host {

/// Notes that this thread begins to work on a mailbox. directory: /home/DOMAIN/USER~DOMAIN; anything else notes none.
void setCurrentMailbox(std::string_view directory) noexcept;

/// The address of the mailbox that this thread last began to work on; "" = none.
std::string currentMailbox();

}  // namespace Velmar::Host
