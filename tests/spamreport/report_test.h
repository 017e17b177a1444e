#pragma once

// What every test of the library starts from: a fake world in which the report of u@d.example is due, and views of it.

#include <ctemplate/template_emitter.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <ctime>
#include <locale>
#include <stdexcept>
#include <string>
#include <vector>

#include "include/velmar/spamreport.h"
#include "platform/mailbox.h"
#include "spamreport/configuration_sources.h"
#include "spamreport/images/threaded_image_var_callback.h"
#include "tests/fake/fake.h"

namespace Velmar {

using Fake::callsOf;
using Fake::failCall;
using Fake::Failure;
using Fake::world;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Property;
using ::testing::Throws;
using Texts = std::vector<std::string>;

/// A report whose fields a test may see and set.
class Probe : public Spamreport {
 public:
  explicit Probe(const std::string& address = "u@d.example", const std::string& secondary = "", long period = 3600,
                 long until = 0, const RefRecipientPolicy& given = RefRecipientPolicy(false))
      : Spamreport(given, address, secondary, period, until) {}

  using Spamreport::accessHash, Spamreport::emailReleaseEnabled, Spamreport::groupOwnerLdapProfile,
      Spamreport::groupOwnerOnly, Spamreport::groupOwnerOption, Spamreport::language, Spamreport::messageIdValue,
      Spamreport::otherRecipients, Spamreport::periodEnd, Spamreport::periodSeconds, Spamreport::policy,
      Spamreport::quarantineReportEnabled, Spamreport::sendToGroupOwner, Spamreport::sendToOthers,
      Spamreport::sendToRecipient, Spamreport::templateName, Spamreport::useDomainTemplate, Spamreport::userGroupFlag,
      Spamreport::webBaseUrl, Spamreport::webHost, Spamreport::webReleaseEnabled, Spamreport::whitelistSenderEnabled;
};

class ReportTest : public ::testing::Test {
 protected:
  static constexpr std::time_t kNow = 1773153000;  // 2026-03-10 14:30:00 UTC

  void SetUp() override {
    setTimeZone("UTC0");
    startAnew();
  }
  void TearDown() override { EXPECT_EQ(world().openQueries, 0) << "a configuration query was not ended"; }

  static void setTimeZone(const char* zone) {
    setenv("TZ", zone, 1);
    tzset();
  }

  /// The world of a report that is due, with nothing loaded yet.
  static void startAnew() {
    Fake::reset();
    Fake::setClock(kNow);
    forget<CMF::RefSpamReportSettings, CMF::RefRemoteStorage, CMF::RefMailServer, CMF::RefSysAntispam,
           CMF::RefHighAvailability, CMF::RefNasStorage>();
    setText(world().spamReport.webHost, "web.example");
    setText(world().spamReport.templateName, "site");
    setText(world().sysAntispam.releaseName, "release");
    setText(world().sysAntispam.deleteName, "delete");
    setText(world().global.hostName, "host.example");
    world().spamReport.port = 443;
    world().localDomain = "gw.example";
    Fake::domain("d.example");
    world().policies["u@d.example"] = {1, 0, 5, 0, 1};
    world().profiles[{5, 0}] = {true, true, true, true};
    world().mailboxes["u@d.example"].messages = {held(kNow - 60, "key1"), held(kNow - 30, "key2")};
    world().templates[{"", "site"}] = {true,
                                       "Sender",
                                       "Held",
                                       "env@d.example",
                                       "{{QUARANTINE_MESSAGES_COUNT}} held",
                                       "{{TITLE_LOGO:x-img-cid=TITLE_LOGO}}"};
  }

  template <std::size_t N>
  static void setText(char (&field)[N], const std::string& text) {
    std::snprintf(field, N, "%s", text.c_str());
  }

  static Fake::HeldMessage held(std::time_t when, const std::string& key) {
    return {when, key, {{"From", "f-" + key}, {"Subject", "s-" + key}, {"Message-Id", "<id-" + key + ">"}}, 0};
  }

  /// The record of a message as the library makes it.
  static CachedMessage cached(const Fake::HeldMessage& message) {
    world().mailboxes["scratch"] = {true, {message}};
    return CachedMessage(VXMailBoxRef::create("scratch", MAILBOX_OPEN_READ, VXMailBoxRef::MAILBOX_OP_NONE)->next());
  }

  /// A word as the image modifier with this argument shows it.
  static std::string throughModifier(const std::string& word, const std::string& argument) {
    std::string out;
    ctemplate::StringEmitter emitter(&out);
    ThreadedImageVarCallback::cid_maker_.Modify(word.data(), word.size(), nullptr, &emitter, argument);
    return out;
  }

  static Texts logged() { return callsOf({"Logger", "MigLogger"}); }

 private:
  template <class... Caches>
  static void forget() {
    ((Caches::s_instance() = {}, Caches::s_loaded = false), ...);
  }
};

}  // namespace Velmar
