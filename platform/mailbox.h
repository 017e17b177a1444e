#pragma once

// Access to a mailbox and to the header of its messages.

#include <cstdint>
#include <ctime>
#include <string>
#include <utility>

#include "platform/export.h"
#include "platform/types.h"

namespace Velmar {

/// One header field as found in a message, or its absence.
class VLM_EXPORT TypeAndValue {
 public:
  /// Absent.
  TypeAndValue() = default;
  explicit TypeAndValue(std::string value) : value_(std::move(value)), null_(false) {}

  bool isNull() const noexcept { return null_; }
  /// The field's body as it stands in the message, unfolded, without leading and trailing white space; raw bytes:
  /// encoded words, 8-bit text and NUL are left alone. A value longer than 16 KiB may be cut, at white space where it
  /// has some. "" when absent.
  const std::string& value() const noexcept { return value_; }

 private:
  std::string value_;
  bool null_ = true;
};

using Header = TypeAndValue;

/// The header fields of one message.
class VLM_EXPORT HeaderContainer {
 public:
  HeaderContainer();
  HeaderContainer(const HeaderContainer&) = delete;
  HeaderContainer& operator=(const HeaderContainer&) = delete;
  virtual ~HeaderContainer();
  /// The first field of this name, matched without regard to ASCII case; a null value when there is none.
  virtual Header find(const std::string& name) const = 0;
};

/// What the mail store knows of a message besides its text.
class VLM_EXPORT VXMessageEnv : public RefImpl {
 public:
  ~VXMessageEnv() override;
  /// The key under which the mailbox holds the message; what follows its last comma may change during its life.
  virtual std::string key() const = 0;
  /// When the message was held, seconds since the epoch.
  virtual std::time_t time() const = 0;
};

/// One message of a mailbox. Used by one thread at a time.
class VLM_EXPORT VXMessageBase : public RefImpl {
 public:
  ~VXMessageBase() override;
  /// The header fields; they live as long as the message.
  virtual const HeaderContainer& headers() = 0;
  virtual Ref<VXMessageEnv> envelope() = 0;
  /// The marks of the message, one bit each; see VXMessageFlags.
  virtual std::uint64_t flags() = 0;
};

using VXMessageRef = Ref<VXMessageBase>;

/// A set of message marks. Set `mask` to the marks and `used` to 1, then call init().
struct VLM_EXPORT VXMessageFlags {
  static constexpr std::uint64_t DELETED = 0x20;   ///< removed by the owner, file not yet gone
  static constexpr std::uint64_t RELEASED = 0x80;  ///< passed on to the owner

  std::uint64_t mask = 0;
  std::uint32_t used = 0;

  /// Completes the set: `mask` then holds the bits to compare with a message's flag word.
  void init();
};

/// A selection of the messages of a mailbox.
class VLM_EXPORT VXMScopeRef {
 public:
  enum ScopeType : int {
    /// Messages whose time t satisfies a <= t < b, at most c of them. Adjacent windows neither repeat nor lose one.
    TIME_RANGE = 3,
  };

  /// Throws Exception for an unknown type.
  VXMScopeRef(const ScopeType& type, int a, int b, int c);

  int from() const noexcept { return a_; }
  int until() const noexcept { return b_; }
  int limit() const noexcept { return c_; }

 private:
  int a_;
  int b_;
  int c_;
};

/// An open mailbox. Used by one thread at a time; any number of handles may be open on one mailbox.
class VLM_EXPORT VXMailboxBase : public RefImpl {
 public:
  ~VXMailboxBase() override;
  virtual bool isOpen() const = 0;
  /// Restricts the following next() calls to the scope and starts them anew.
  /// Throws Exception when the mailbox cannot be listed.
  virtual void setScope(const VXMScopeRef& scope) = 0;
  /// The next message of the scope, in the order of delivery; an empty handle when there are no more. A message that
  /// vanishes or cannot be read is skipped: it costs only itself. Throws Exception at the end when the store refused
  /// every message: that is no empty scope.
  virtual VXMessageRef next() = 0;
};

enum MailboxOpenMethod : int {
  MAILBOX_OPEN_READ = 2,  ///< for reading, nothing is changed
};

/// Opens mailboxes.
class VLM_EXPORT VXMailBoxRef {
 public:
  enum MailBoxOp : int {
    MAILBOX_OP_NONE = 0,
  };

  /// name  as VXMailUserId::fname gives it
  /// Returns an open mailbox; an empty handle when there is surely none of this name.
  /// Throws Exception when it could not look, for a name that is no mailbox name, or another method or op. Any thread.
  static Ref<VXMailboxBase> create(const std::string& name, MailboxOpenMethod method, MailBoxOp op);
};

}  // namespace Velmar
