#pragma once

// What became of one report, told from the log events of its making.

#include <cstddef>
#include <string>
#include <vector>

namespace Velmar::Tool {

/// An event that was seen, with copies of its texts.
struct SeenEvent {
  unsigned int code = 0;
  std::string name;
  std::vector<std::string> fields;
};

enum class OutcomeKind {
  kSent,
  kNothingHeld,
  kDisabled,
  kNoRecipients,
  kDeletedUser,
  kNoMailbox,  ///< there is no mailbox of this address
  kNoDomain,   ///< stands for a whole domain that has no directory, and so no mailboxes
  kFailed,
};

struct Outcome {
  OutcomeKind kind = OutcomeKind::kFailed;
  std::string detail;  ///< one line for people, raw bytes; may be empty
};

/// Reads the events of one mailbox in their order. A failure counts whatever else was seen; a built report counts as
/// sent unless a failure came with it. Without any event that decides, the report is taken as failed.
///
/// brokenOff    the call said that it did not get to its end
/// deletedUser  the mailbox belongs to a deleted user, for whom no event is logged
Outcome outcomeOf(const std::vector<SeenEvent>& events, bool brokenOff, bool deletedUser);

/// As people read it ("nothing held"), and as programs do ("nothing_held").
const char* kindText(OutcomeKind kind);
const char* kindKey(OutcomeKind kind);

/// All kinds, in the order in which they are counted.
std::vector<OutcomeKind> allKinds();

/// Whether a report that was asked for could not be made.
bool isFailure(const Outcome& outcome);

/// How many outcomes are of this kind.
std::size_t countOf(const std::vector<Outcome>& outcomes, OutcomeKind kind);

/// One line: how many mailboxes, and how many of each kind that occurred, e.g. "3 mailboxes: 2 sent, 1 failed".
std::string summaryOf(const std::vector<Outcome>& outcomes);

}  // namespace Velmar::Tool
