// The mailboxes of the fake world. A scope is recorded and selects every message.

#include "platform/mailbox.h"

#include "tests/fake/fake.h"

namespace Velmar {

using Fake::call;
using Fake::join;
using Fake::world;

namespace {

class FakeEnvelope : public VXMessageEnv {
 public:
  explicit FakeEnvelope(const Fake::HeldMessage& message) : message_(message) {}
  std::string key() const override {
    call("key");
    return message_.key;
  }
  std::time_t time() const override {
    call("time");
    return message_.time;
  }

 private:
  const Fake::HeldMessage& message_;
};

/// A message, which is its own header set.
class FakeMessage : public VXMessageBase, private HeaderContainer {
 public:
  explicit FakeMessage(const Fake::HeldMessage& message) : message_(message) {}
  const HeaderContainer& headers() override {
    call("headers");
    return *this;
  }
  Ref<VXMessageEnv> envelope() override {
    call("envelope");
    return Ref<VXMessageEnv>(new FakeEnvelope(message_));
  }
  std::uint64_t flags() override {
    call("flags");
    return message_.flags;
  }

 private:
  Header find(const std::string& name) const override {
    call("find", name);
    const auto found = message_.headers.find(name);
    return found == message_.headers.end() ? Header() : Header(found->second);
  }

  const Fake::HeldMessage& message_;
};

class FakeMailbox : public VXMailboxBase {
 public:
  explicit FakeMailbox(const Fake::Mailbox& mailbox) : mailbox_(mailbox) {}
  ~FakeMailbox() override { Fake::note("~VXMailboxBase"); }
  bool isOpen() const override { return mailbox_.open; }
  void setScope(const VXMScopeRef&) override { call("setScope"); }
  VXMessageRef next() override {
    call("next");
    if (position_ == mailbox_.messages.size()) return {};
    return VXMessageRef(new FakeMessage(mailbox_.messages[position_++]));
  }

 private:
  const Fake::Mailbox& mailbox_;
  std::size_t position_ = 0;
};

}  // namespace

HeaderContainer::HeaderContainer() = default;
HeaderContainer::~HeaderContainer() = default;
VXMessageEnv::~VXMessageEnv() = default;
VXMessageBase::~VXMessageBase() = default;
VXMailboxBase::~VXMailboxBase() = default;

void VXMessageFlags::init() {
  call("init", join({std::to_string(mask), std::to_string(used)}));
  const auto found = world().flagMasks.find(mask);
  if (found != world().flagMasks.end()) mask = found->second;
}

VXMScopeRef::VXMScopeRef(const ScopeType& type, int a, int b, int c) : a_(a), b_(b), c_(c) {
  call("VXMScopeRef", join({std::to_string(type), std::to_string(a), std::to_string(b), std::to_string(c)}));
}

Ref<VXMailboxBase> VXMailBoxRef::create(const std::string& name, MailboxOpenMethod method, MailBoxOp op) {
  call("VXMailBoxRef::create", join({name, std::to_string(method), std::to_string(op)}));
  const auto found = world().mailboxes.find(name);
  return found == world().mailboxes.end() ? Ref<VXMailboxBase>() : Ref<VXMailboxBase>(new FakeMailbox(found->second));
}

}  // namespace Velmar
