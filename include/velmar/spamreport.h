#pragma once

// libspamreport: quarantine reports. A report is a digest mail that tells the owner of a mailbox which messages were
// held as suspected spam in a period, with links and mail actions to release or delete each of them.
//
// C programs use the function; C++ programs may also use the classes.

#include <stdint.h>

#define VLM_SPAMREPORT_API __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

/// Builds and sends the quarantine reports of some mailboxes of one domain.
///
/// domain      the domain whose mailboxes are reported; NUL-terminated
/// recipients  comma-separated addresses user@domain; NUL-terminated. Blanks before an address are skipped, blanks
///             after it count; an address is cut after 127 bytes. Empty places are skipped
/// period      length of the report period in seconds; 0 = since the last scheduled hour
/// until       end of the report period, seconds since the epoch; 0 = now
///
/// Returns 0 when the list was walked to its end: failures of single reports are log events, not results.
/// Returns 0 also when memory for a copy of the list is lacking; nothing is done then.
/// Returns -1 for a null argument, and when the run was broken off: that is logged, later recipients get no report.
/// An exception that is not of the platform passes to the caller.
/// Blocks until the mails are in the queue. Any number of threads may call it at once; none of them may be cancelled
/// meanwhile, since every exception of a report, and so a cancellation, is stopped inside. Every call has to be over
/// before the process ends, by exit() or a return from main(), and none may come from a destructor of a static or
/// thread-local object: what reports stand on is released then.
VLM_SPAMREPORT_API int32_t vlm_spamreport_report_byrcpt(const char* domain, const char* recipients, int32_t period,
                                                        int64_t until);

#ifdef __cplusplus
}

#include <boost/shared_ptr.hpp>
#include <ctime>
#include <list>
#include <set>
#include <string>
#include <vector>

#include "platform/config_store.h"
#include "platform/mail_builder.h"
#include "platform/mailbox.h"
#include "platform/types.h"

namespace Velmar {

/// The recipient policy that manages a mailbox address, as the configuration records it.
class VLM_SPAMREPORT_API RecipientPolicy {
 public:
  /// Every byte of the record is zero.
  RecipientPolicy();
  virtual ~RecipientPolicy();

  /// Filled in place by the policy lookup; read only once it is shared.
  __recipient_policy record;
};

/// Shared handle to a RecipientPolicy. Empty = not looked up yet, or no policy applies.
/// Copies share the policy; handles to one policy may be copied and dropped on several threads.
class VLM_SPAMREPORT_API RefRecipientPolicy {
 public:
  /// create  true: a new policy with a zeroed record; false: an empty handle
  explicit RefRecipientPolicy(bool create);
  RefRecipientPolicy(const RefRecipientPolicy& other);
  RefRecipientPolicy& operator=(const RefRecipientPolicy& other);
  virtual ~RefRecipientPolicy();

  /// The policy, or null when the handle is empty; lives as long as any handle to it.
  RecipientPolicy* get() const noexcept;

 private:
  boost::shared_ptr<RecipientPolicy> policy_;
};

/// What a report shows of one held message. A value.
class VLM_SPAMREPORT_API CachedMessage {
 public:
  /// Copies the facts out of a held message. Throws what the message throws.
  explicit CachedMessage(const VXMessageRef& msg);

  std::time_t date;        ///< when the message was held, seconds since the epoch
  std::string from;        ///< raw From field, "" when absent
  std::string subject;     ///< raw Subject field, "" when absent
  std::string messageId;   ///< raw X-VX-MESSAGE-ID, else Message-Id field, "" when both are absent
  std::string mailboxKey;  ///< key in the quarantine mailbox; what follows the last comma may change
};

/// The held messages of one quarantine mailbox in a window of time. Used by one thread.
class VLM_SPAMREPORT_API CachedMailbox {
 public:
  /// name  as VXMailUserId::fname gives it. Opens nothing.
  explicit CachedMailbox(const std::string& name);
  CachedMailbox(const CachedMailbox&) = delete;
  CachedMailbox& operator=(const CachedMailbox&) = delete;
  ~CachedMailbox();

  /// Replaces the list by the messages of the `period` seconds before `until`, newest first.
  ///
  /// period  seconds; 0 = an empty window
  /// until   seconds since the epoch; 0 or less = now
  /// Both are cut to 32 bits, as is their difference. A mailbox that cannot be opened gives an empty list.
  /// Throws what the mail store throws; the list then holds what was read so far.
  void search(std::int64_t period, std::int64_t until);

  /// The result of the last search; lives as long as the mailbox object and until the next search.
  const std::list<CachedMessage>& getMessages() const noexcept;

 private:
  std::list<CachedMessage> messages;
  std::string name;
};

/// One quarantine report for one mailbox. Used by one thread.
///
/// The constructor gathers every setting; deliver() searches, composes and queues. A report that was constructed
/// can be composed.
class VLM_SPAMREPORT_API Spamreport : public QRLStaticCharSetFallbacks {
 public:
  /// policy         the mailbox's recipient policy; an empty handle is looked up here
  /// address        the mailbox's address, as text
  /// secondaryList  comma-separated addresses that the report stands for; may be empty
  /// period         length of the period in seconds; 0 = since the last scheduled hour
  /// until          end of the period, seconds since the epoch; 0 = now
  ///
  /// Throws an Exception of type name "SpamreportException" when no report is possible, and what the platform throws.
  Spamreport(const RefRecipientPolicy& policy, const std::string& address, const std::string& secondaryList,
             long period, long until);
  ~Spamreport() override;

  /// The charset fallbacks for texts of held messages; bound on first use.
  const std::vector<std::string>& charsets() const override;

  /// Sends the report when one is due; when it is not, a log event says why. Throws what the platform throws;
  /// then nothing was queued.
  void deliver();

  /// The envelope recipients, joined by "," in the order of addresses; "" when nobody is to receive the report.
  std::string getReportRecipients();

  /// Sets the variables of the report as a whole. Returns the joined status of the template, -1 for an empty handle.
  int makeHeader(boost::shared_ptr<VlmCMsg::VXCustomizedEmailTemplate> mailTemplate,
                 const std::list<CachedMessage>& messages);

  /// Sets the variables of the plain text's mail actions. Returns 0, -1 for an empty handle.
  int makeTextBody(boost::shared_ptr<VlmCMsg::VXCustomizedEmailTemplate> mailTemplate,
                   const std::list<CachedMessage>& messages);

  /// Fills the table of messages and the report-wide actions. Returns 0, -1 for an empty handle.
  /// recipientText and mail are not read: images reach the mail through the thread's binding.
  int makeBodies(boost::shared_ptr<VlmCMsg::VXCustomizedEmailTemplate> mailTemplate,
                 const std::list<CachedMessage>& messages, const std::string& recipientText, VXMPopulateEmail& mail);

  /// A new queue identifier.
  static std::string getQueueId();

  /// The identifier by which actions name a held message: base64 of its mailbox key up to the last comma.
  /// Where the platform fails at that: the message id without its first character, up to the first ">".
  /// Throws std::out_of_range when the message id is empty.
  static std::string Base64MsgId(const CachedMessage& message);

  /// A raw header value decoded to UTF-8 and escaped for HTML; " &nbsp" when there is nothing to show.
  static std::string NormalizeDisplayField(const std::string& raw);

 protected:
  RefRecipientPolicy policy;
  long periodSeconds;
  EmailAddress releaseAddress;
  EmailAddress deleteAddress;
  std::string webHost;
  std::string reserved1;  ///< left empty
  std::string reserved2;  ///< left empty
  bool useDomainTemplate;
  std::string templateName;
  bool sendToRecipient;
  bool sendToGroupOwner;
  bool groupOwnerOption;
  bool groupOwnerOnly;
  bool sendToOthers;
  std::int32_t groupOwnerLdapProfile;
  std::string otherRecipients;
  EmailAddress recipient;
  std::string language;
  std::set<EmailAddress> secondaryAddresses;
  bool quarantineReportEnabled;
  bool emailReleaseEnabled;
  bool webReleaseEnabled;
  bool userGroupFlag;           ///< recorded only
  bool whitelistSenderEnabled;  ///< recorded only
  std::string webBaseUrl;
  std::string queueId;
  std::string messageIdValue;
  std::string accessHash;
  mutable RefQRLStaticCharSetFallbacks charsetFallbacks;
  std::time_t periodEnd;

 private:
  VLM_LOCAL void takeDomainSettings(const ApsGwServer& domain);
  VLM_LOCAL void findPolicy();
  VLM_LOCAL void takeProfileSettings(const ApsGwServer& domain);
  VLM_LOCAL void takeLanguage();
  VLM_LOCAL void makeActionAddresses();
  VLM_LOCAL void settlePeriod(long until);
  VLM_LOCAL boost::shared_ptr<VlmCMsg::VXCustomizedEmailTemplate> chooseTemplate() const;
  VLM_LOCAL void compose(const boost::shared_ptr<VlmCMsg::VXCustomizedEmailTemplate>& mailTemplate,
                         VXMPopulateEmail& mail) const;
};

/// A mailbox directory whose report could not be built or delivered.
class VLM_SPAMREPORT_API FailReport {
 public:
  explicit FailReport(const File::Path& path);
  ~FailReport();

  File::Path path;    ///< the mailbox directory
  std::string error;  ///< text of the last failure, "" at first
  int tries;          ///< attempts made so far
};

/// Turns mailbox directories (/home/DOMAIN/USER~DOMAIN) into delivered reports. Used by one thread at a time.
class VLM_SPAMREPORT_API SpamreportGenerator : public File::Processor {
 public:
  /// period, until  as for Spamreport
  SpamreportGenerator(long period, long until);
  /// The same; `policy` is not used: every report looks its policy up itself.
  SpamreportGenerator(const RefRecipientPolicy& policy, long period, long until);
  ~SpamreportGenerator() override;

  /// Builds and delivers the report of one mailbox. Failures of the report are logged or dropped, never thrown;
  /// what fails before (deleted-user test, path) passes to the caller.
  void process(const File::Path& path) override;

  /// The same with a result: 1 = delivered (or not due), 0 = failed, with `error` set when a platform Exception was
  /// the cause. Other exceptions pass to the caller.
  int processFail(const File::Path& path, std::string& error);

  /// Retries the entries of `failed`, each until it has been tried maxTries times, with 30 seconds between passes.
  /// Delivered entries are removed; those that remain are logged. Blocks.
  void processFailList(int maxTries);

  /// The address of a mailbox directory; "" when the path is none. The first six characters are skipped unseen.
  /// Throws std::out_of_range for a path of one to five characters.
  static std::string convert_home_dir_to_address(const std::string& path);

 protected:
  RefRecipientPolicy policy;
  std::int64_t period;
  std::int64_t until;

 public:
  /// Failed reports waiting for processFailList, in the order in which they are tried. Filled by the caller:
  /// process() never adds to it.
  std::list<FailReport> failed;

 private:
  VLM_LOCAL void report(const std::string& address) const;
};

}  // namespace Velmar
#endif
