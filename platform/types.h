#pragma once

// Value types, exceptions and reference-counted handles that every other platform header builds on.

#include <atomic>
#include <cstddef>
#include <exception>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/export.h"

namespace Velmar {

/// A failure of a platform operation or of the library.
///
/// Copyable; copies share nothing that changes, so they may be read from any thread.
class VLM_EXPORT Exception : public std::exception {
 public:
  /// typeName  name of the kind of failure, e.g. "SpamreportException"
  /// level     severity category; 1 = programming error, 4 = a report cannot be made
  /// source    name of the source unit that throws, e.g. "SpamreportGenerator"
  /// line      line number within that unit (a stable mark, not necessarily the line in today's file)
  /// text      what failed and the value that made it fail; UTF-8, may hold hostile bytes: escape it on output
  Exception(std::string typeName, int level, std::string source, int line, std::string text);
  Exception(const Exception&);
  Exception& operator=(const Exception&);
  ~Exception() override;

  const std::string& typeName() const noexcept { return typeName_; }
  int level() const noexcept { return level_; }
  const std::string& source() const noexcept { return source_; }
  int line() const noexcept { return line_; }
  const std::string& text() const noexcept { return text_; }

  /// "TYPE: TEXT (SOURCE:LINE, level N)".
  std::string asString() const;

  /// The same text as asString(); lives as long as the exception.
  const char* what() const noexcept override;

 private:
  std::string typeName_;
  std::string source_;
  std::string text_;
  std::string whole_;
  int level_;
  int line_;
};

/// Base of objects that count their own references. The count starts at 1: whoever creates
/// the object owns that one reference and normally hands it to a handle at once.
/// The count may be changed from any thread.
class VLM_EXPORT RefImpl {
 public:
  RefImpl() noexcept = default;
  RefImpl(const RefImpl&) = delete;
  RefImpl& operator=(const RefImpl&) = delete;
  virtual ~RefImpl();

  void addRef() const noexcept { count_.fetch_add(1, std::memory_order_relaxed); }

  /// Drops one reference; the last one deletes the object.
  void release() const noexcept {
    if (count_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
  }

 private:
  mutable std::atomic<unsigned> count_{1};
};

/// Throws the Exception of a dereferenced empty handle: text "operator->", level 1,
/// source "VlmRefcounted", line 359.
[[noreturn]] VLM_EXPORT void throwEmptyHandle();

/// Shared handle to a T derived from RefImpl. Copies share the object, the last handle deletes it.
/// Different handles to one object may be used from different threads; one handle may not.
template <class T>
class RefCounted {
 public:
  RefCounted() noexcept = default;

  /// Takes over the reference that the creator of `object` holds; null gives an empty handle.
  explicit RefCounted(T* object) noexcept : object_(object) {}

  RefCounted(const RefCounted& other) noexcept : object_(other.object_) {
    if (object_) object_->addRef();
  }
  RefCounted(RefCounted&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}

  /// A handle to a base class of U.
  template <class U>
  RefCounted(const RefCounted<U>& other) noexcept : object_(other.get()) {
    if (object_) object_->addRef();
  }

  RefCounted& operator=(RefCounted other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }
  ~RefCounted() {
    if (object_) object_->release();
  }

  T* get() const noexcept { return object_; }
  bool isNull() const noexcept { return object_ == nullptr; }
  explicit operator bool() const noexcept { return object_ != nullptr; }

  /// The object; throws the Exception of throwEmptyHandle() when the handle is empty.
  T* operator->() const {
    if (!object_) throwEmptyHandle();
    return object_;
  }
  T& operator*() const { return *operator->(); }

 private:
  T* object_ = nullptr;
};

/// The name under which most declarations use the handle.
template <class T>
using Ref = RefCounted<T>;

/// One mail address: local part and domain as they were written, byte for byte.
///
/// A value; nothing is folded, unquoted, converted or cut. The empty address stands for "none" and
/// for every text that is not exactly one address.
class VLM_EXPORT EmailAddress {
 public:
  /// The empty address.
  EmailAddress();
  EmailAddress(const EmailAddress&);
  EmailAddress(EmailAddress&&) noexcept;
  EmailAddress& operator=(const EmailAddress&);
  EmailAddress& operator=(EmailAddress&&) noexcept;
  ~EmailAddress();

  /// Parses one RFC 5322 mailbox (section 3.4): an addr-spec, or a display name with an addr-spec in
  /// angle brackets; comments and folding white space where the grammar has them; UTF-8 as RFC 6532 adds it.
  ///
  /// text           any bytes; at most 64 kB are looked at, a longer text is no address
  /// requireDomain  true: a local part alone is no address; false: it is accepted ("root")
  ///
  /// Returns the empty address for anything else: control characters, invalid UTF-8, groups, lists, trailing
  /// text, obsolete routes, an empty local part or domain. Does not throw (but for memory). Linear time, no recursion.
  static EmailAddress rfc5322Parse(const std::string& text, bool requireDomain);

  /// Parses an RFC 5322 address list: mailboxes separated by commas; empty places are skipped.
  ///
  /// requireDomain   as for rfc5322Parse
  /// throwOnInvalid  true: a member that is no address throws an Exception that names it;
  ///                 false: such a member is left out and the others are kept
  static std::set<EmailAddress> rfc5322ParseSet(const std::string& text, bool requireDomain, bool throwOnInvalid);

  bool isEmptyAddress() const noexcept { return local_.empty(); }

  /// "local@domain" without display name and comments; "" for the empty address.
  std::string address() const;
  /// The text of the address for links, logs and lists: the same as address().
  std::string asString() const;
  /// As written, quotes included; "" for the empty address.
  const std::string& localPart() const noexcept { return local_; }
  /// As written, brackets of a domain literal included; "" when there is none.
  const std::string& domain() const noexcept { return domain_; }
  /// Unquoted display name, still possibly with encoded words; "" when there was none.
  const std::string& displayName() const noexcept { return display_; }

  /// Local parts byte by byte, then domains without regard to ASCII case; display names do not count.
  friend VLM_EXPORT bool operator<(const EmailAddress& a, const EmailAddress& b);
  friend VLM_EXPORT bool operator==(const EmailAddress& a, const EmailAddress& b);

 private:
  std::string local_;
  std::string domain_;
  std::string display_;
};

/// A run of bytes.
class VLM_EXPORT Buffer {
 public:
  Buffer();
  /// data, length  the bytes; `data` may be null when `length` is 0
  /// copy          true: the buffer keeps a copy; false: it refers to the caller's bytes, which must outlive it
  Buffer(const void* data, unsigned int length, bool copy);
  Buffer(const Buffer&);
  Buffer& operator=(const Buffer&);
  ~Buffer();

  /// Replaces the contents by a copy of these bytes.
  void assign(const std::string& bytes);

  bool isEmpty() const noexcept { return length_ == 0; }
  unsigned int length() const noexcept { return length_; }
  /// The bytes, not NUL-terminated; null when the buffer is empty. Valid until the buffer changes.
  const char* data() const noexcept { return data_; }

  /// Standard base64 (RFC 4648 section 4) with padding, in one line whatever the length; "" for no bytes.
  std::string toBase64String() const;

 private:
  std::vector<char> owned_;
  const char* data_ = nullptr;
  unsigned int length_ = 0;
};

namespace File {

/// A path as text. Copyable; the text is kept as given, nothing is looked up.
class VLM_EXPORT Path {
 public:
  explicit Path(std::string text);
  Path(const Path&);
  Path(Path&&) noexcept;
  Path& operator=(const Path&);
  Path& operator=(Path&&) noexcept;
  ~Path();

  /// The text, NUL-terminated; valid as long as the path.
  const char* name() const noexcept { return text_.c_str(); }
  std::string asString() const;

 private:
  std::string text_;
};

/// Something that handles one path at a time.
class VLM_EXPORT Processor {
 public:
  Processor();
  Processor(const Processor&) = delete;
  Processor& operator=(const Processor&) = delete;
  virtual ~Processor();

  virtual void process(const Path& path) = 0;
};

/// Opens a file of the system read-only, as open(2) does: a descriptor that the caller closes, or -1.
/// The path is one of the system's own absolute paths; where the system lives below a root directory,
/// so does the file. Never blocks and opens only regular files. Never throws. Any thread.
VLM_EXPORT int openReadOnly(const char* path) noexcept;

}  // namespace File
}  // namespace Velmar
