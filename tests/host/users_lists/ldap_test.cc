// The directory against a real server, and against servers that fall silent.

#include <arpa/inet.h>
#include <gmock/gmock.h>

#include <thread>

#include "host/users_lists/ldap/ldap_directory.h"
#include "host/users_lists/ldap/ldap_escape.h"
#include "platform/users_lists.h"
#include "tests/support/slapd.h"
#include "tests/support/temp_root.h"
#include "tests/support/thrown_by.h"

namespace Velmar::Host {
namespace {

using namespace std::chrono_literals;
using namespace Testing;
using ::testing::HasSubstr;
using Addresses = std::set<std::string>;

// Groups: ada is in staff, that in division, that in company, that in division again; odd is owned by itself.
constexpr char kBase[] = "dc=example,dc=org";
struct Entry {
  std::string name, type, attributes;
};
const Entry kEntries[] = {
    {"ou=people", "organizationalUnit", ""},
    {"ou=groups", "organizationalUnit", ""},
    {"cn=ada,ou=people", "inetOrgPerson", "sn: x\nmail: ada@d\n"},
    {"cn=boss,ou=people", "inetOrgPerson", "sn: x\nmail: x@d, y@d\nmail: z-boss@d\nmail: a-boss@d\n"},
    {"cn=ceo,ou=people", "inetOrgPerson", "sn: x\nmail: ceo@d\n"},
    {"cn=chair,ou=people", "inetOrgPerson", "sn: x\nmail: chair@d\n"},
    {"cn=mute,ou=people", "inetOrgPerson", "sn: x\n"},
    {"cn=lonely,ou=people", "inetOrgPerson", "sn: x\nmail: lonely@d\n"},
    {"cn=one,ou=people", "inetOrgPerson", "sn: x\nmail: two@d\n"},
    {"cn=other,ou=people", "inetOrgPerson", "sn: x\nmail: two@d\n"},
    {"cn=Ä\\, (*\\5c,ou=people", "inetOrgPerson", "sn: x\nmail: a*(b)\\c@d\n"},
    {"cn=staff,ou=groups", "groupOfNames",
     "owner: cn=gone,ou=people,B\nmember: cn=ada,ou=people,B\nowner: cn=boss,ou=people,B\nowner: "
     "cn=mute,ou=people,B\n"},
    {"cn=division,ou=groups", "groupOfNames",
     "member: cn=staff,ou=groups,B\nmember: cn=company,ou=groups,B\nowner: cn=ceo,ou=people,B\n"},
    {"cn=company,ou=groups", "groupOfNames", "member: cn=division,ou=groups,B\nowner: cn=chair,ou=people,B\n"},
    {"cn=odd,ou=groups", "groupOfNames",
     "objectClass: extensibleObject\nmember: cn=ada,ou=people,B\nmember: cn=Ä\\, (*\\5c,ou=people,B\nowner: "
     "cn=odd,ou=groups,B\nmail: odd@d\n"
     "description: no name\n"},
    {"ou=far", "organizationalUnit", ""},
    {"ou=farther,ou=far", "referral", "objectClass: extensibleObject\nref: ldap://127.0.0.1:1/ou=farther\n"},
};

std::string ldif() {
  std::string text = std::string("dn: ") + kBase + "\nobjectClass: organization\nobjectClass: dcObject\no: Example\n";
  for (const Entry& entry : kEntries) {
    std::string attributes = entry.attributes;
    for (std::size_t place; (place = attributes.find(",B\n")) != std::string::npos;)
      attributes.replace(place + 1, 1, kBase);
    text += "\ndn: " + entry.name + "," + kBase + "\nobjectClass: " + entry.type + "\n" + attributes;
  }
  return text;
}

class Ldap : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    root_ = new TempRoot;
    root_->write("ldif", ldif());
    for (const auto& [name, mode] : {std::pair("password", 0640), {"open", 0644}}) {
      root_->write(name, "secret\r\nnot this\n");
      ::chmod((*root_ / name).c_str(), static_cast<mode_t>(mode));
    }
    for (const auto& [name, text] : {std::pair("wrong", "guess\n"), {"empty", "\nsecret\n"}, {"garbage.pem", "x"}}) {
      root_->write(name, text);
      ::chmod((*root_ / name).c_str(), 0600);
    }
    server_ = new Slapd(*root_ / "slapd", *root_ / "ldif");
  }
  static void TearDownTestSuite() {
    delete server_;
    delete root_;
  }

  static LdapProfileConfig profile() {
    LdapProfileConfig profile;
    profile.number = 3;
    profile.urls = {server_->url()};
    profile.bindDn = std::string("cn=admin,") + kBase;
    profile.passwordFile = "/password";
    profile.userBase = std::string("ou=people,") + kBase;
    profile.groupBase = std::string("ou=groups,") + kBase;
    profile.groupFilter = "(objectClass=groupOfNames)";
    profile.nestedGroups = true;
    profile.timeout = 1;
    return profile;
  }

  static std::string lookUp(LdapDirectory& directory) {
    return thrownBy([&] { directory.ownersOfGroupsOf("ada@d", false); });
  }

  static inline TempRoot* root_ = nullptr;
  static inline Slapd* server_ = nullptr;
};

TEST(LdapFilter, LetsNoBytesMeanAnything) {
  EXPECT_EQ(escapedFilterValue(std::string("*(a)\\\0\x7f\n\xc3\xa9 =", 12)), "\\2a\\28a\\29\\5c\\00\\7f\\0a\\c3\\a9 =");
  EXPECT_EQ(userFilter("(|(mail={address})(alias=x{address}))", "{address}*"),
            "(|(mail={address}\\2a)(alias=x{address}\\2a))");
  EXPECT_EQ(memberFilter("(a=b)", "m", std::vector<std::string>{"cn=x\\,y", "z)"}),
            "(&(a=b)(|(m=cn=x\\5c,y)(m=z\\29)))");
}

TEST(CircuitBreaker, LetsOneTryOnceThePauseIsOver) {
  CircuitBreaker breaker(60s);
  const CircuitBreaker::Clock::time_point start{};
  const struct {
    std::chrono::seconds at;
    const char* event;  // what is reported before the question; null = nothing
    const char* want;   // part of the refusal; null = may try
  } steps[] = {
      {0s, nullptr, nullptr},
      {0s, "a", "another 60 s after a"},
      {59s, nullptr, "another 1 s after a"},
      {60s, nullptr, nullptr},
      {60s, nullptr, "another 60 s after a"},
      {90s, "b", "another 60 s after b"},
      {150s, nullptr, nullptr},
      {151s, "", nullptr},
      {153s, "c", "60 s after c"},
  };
  for (const auto& step : steps) {
    if (step.event && *step.event) breaker.failed(start + step.at, step.event);
    if (step.event && !*step.event) breaker.succeeded();
    const auto refusal = breaker.refusal(start + step.at);
    EXPECT_EQ(refusal.has_value(), step.want != nullptr) << step.at.count();
    EXPECT_THAT(refusal.value_or(""), HasSubstr(step.want ? step.want : "")) << step.at.count();
  }
}

TEST_F(Ldap, FindsTheOwnersOfAUsersGroups) {
  const struct {
    const char* user;
    bool nested;
    int depth;  // 0 = the profile follows none
    Addresses want;
  } cases[] = {
      {"ada@d", false, 8, {"odd@d", "z-boss@d"}},
      {"ada@d", true, 0, {"odd@d", "z-boss@d"}},
      {"ada@d", true, 1, {"ceo@d", "odd@d", "z-boss@d"}},
      {"ada@d", true, 64, {"ceo@d", "chair@d", "odd@d", "z-boss@d"}},
      {"a*(b)\\c@d", true, 8, {"odd@d"}},
      {"lonely@d", true, 8, {}},
      {"nobody@d", true, 8, {}},
      {"*", true, 8, {}},
      {"ada@d)(cn=*", true, 8, {}},
  };
  for (const auto& c : cases) {
    LdapProfileConfig config = profile();
    config.nestedGroups = c.depth > 0;
    config.nestedDepth = c.depth;
    EXPECT_EQ(LdapDirectory(config).ownersOfGroupsOf(c.user, c.nested), c.want) << c.user << ' ' << c.depth;
  }
}

TEST_F(Ldap, NeverTakesAPartOrAFaultForAnAnswer) {
  using Change = void (*)(LdapProfileConfig&);
  const struct {
    const char* user;
    OwnerBounds bounds;
    Change change;
    const char* want;
  } cases[] = {
      {"two@d", {}, [](auto&) {}, "more than one entry below \"ou=people,dc=example,dc=org\" matches (mail=two@d)"},
      {"two@d", {}, [](auto& p) { p.userFilter = "(|(mail={address})(sn=x))"; }, "more than one entry"},
      {"ada@d", {0, 9}, [](auto&) {}, "in more groups than the server, or one look-up, gives"},
      {"ada@d", {2, 9}, [](auto&) {}, "in more than 2 groups"},
      {"ada@d", {9, 3}, [](auto&) {}, "more than 3 owners"},
      {"ada@d", {}, [](auto& p) { p.userBase = "ou=none,dc=example,dc=org"; }, "No such object"},
      {"ada@d", {}, [](auto& p) { p.groupBase = "ou=none,dc=example,dc=org"; }, "No such object"},
      {"ada@d", {}, [](auto& p) { p.groupBase = "x"; }, "below \"x\": Invalid DN syntax"},
      {"ada@d", {}, [](auto& p) { p.groupBase = "dc=elsewhere"; }, "refers to another server"},
      {"ada@d", {}, [](auto& p) { p.groupBase = "ou=far,dc=example,dc=org"; }, "refers to another server"},
      {"ada@d", {}, [](auto& p) { p.userFilter = "(&(mail={address})"; }, "Bad search filter"},
      {"a*(b)\\c@d", {}, [](auto& p) { p.ownerAttribute = "description"; }, "entry \"no name\": Invalid DN syntax"},
      {"ada@d", {}, [](auto& p) { p.bindDn.clear(); }, "Insufficient access"},
      {"ada@d", {}, [](auto& p) { p.passwordFile = "/wrong"; }, "=org\": Invalid credentials"},
      {"ada@d", {}, [](auto& p) { p.passwordFile = "/open"; }, "/open is open to every user of this host"},
      {"ada@d", {}, [](auto& p) { p.passwordFile = "/empty"; }, "/empty has an empty first line"},
      {"ada@d", {}, [](auto& p) { p.passwordFile = "/none"; }, "/none cannot be opened: No such file"},
      {"ada@d", {}, [](auto& p) { p.passwordFile = "/slapd"; }, "/slapd is no regular file"},
  };
  for (const auto& c : cases) {
    LdapProfileConfig config = profile();
    c.change(config);
    LdapDirectory directory(config, {.bounds = c.bounds});
    const std::string text = thrownBy([&] { directory.ownersOfGroupsOf(c.user, true); });
    EXPECT_THAT(text, ::testing::StartsWith("LDAP profile 3: ")) << c.want;
    EXPECT_THAT(text, HasSubstr(c.want));
    EXPECT_THAT(text, ::testing::Not(HasSubstr("secret"))) << c.want;
  }
}

TEST_F(Ldap, DemandsTheCertificateOfTheRightAuthority) {
  const struct {
    bool startTls;
    const char* ca;
    const char* host;
    const char* want;
  } cases[] = {
      {true, "/slapd/ca.pem", "127.0.0.1", "nothing thrown"},
      {false, "/slapd/ca.pem", "127.0.0.1", "nothing thrown"},
      {true, "/slapd/other.pem", "127.0.0.1", "TLS, with a valid certificate for this host by an authority"},
      {false, "/slapd/other.pem", "127.0.0.1", "slapd/other.pem: Can't contact LDAP server"},
      {true, "/slapd/ca.pem", "localhost", "TLS, with a valid certificate for this host by an authority"},
      {false, "/slapd/ca.pem", "localhost", "slapd/ca.pem: Can't contact LDAP server"},
      {false, "", "127.0.0.1", "by an authority in /etc/"},
      {true, "/none.pem", "127.0.0.1", "/none.pem cannot be opened: No such file"},
      {false, "/garbage.pem", "127.0.0.1", "garbage.pem: Can't contact"},
  };
  for (const auto& c : cases) {
    LdapProfileConfig config = profile();
    config.startTls = c.startTls;
    std::string url = c.startTls ? server_->url() : server_->tlsUrl();
    config.urls = {url.replace(url.find("127.0.0.1"), 9, c.host)};
    config.caFile = c.ca;
    EXPECT_THAT(thrownBy([&] { LdapDirectory(config).ownersOfGroupsOf("ada@d", false); }), HasSubstr(c.want)) << c.ca;
  }
}

/// Sends `answer` to each of the first who connect, once all of these have, and says nothing more.
class SilentServer {
 public:
  explicit SilentServer(const std::string& answer, std::size_t peers = 1) : peers_(peers) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    auto* const any = reinterpret_cast<sockaddr*>(&address);
    if (::listen(listener_, 8) != 0 || ::getsockname(listener_, any, &size) != 0) throw std::runtime_error("no port");
    url = "127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    thread_ = std::thread([this, answer] {
      for (int& peer : peers_) peer = ::accept(listener_, nullptr, nullptr);
      for (const int peer : peers_) ::send(peer, answer.data(), answer.size(), MSG_NOSIGNAL);
    });
  }
  ~SilentServer() {
    ::shutdown(listener_, SHUT_RDWR);
    thread_.join();
    ::close(listener_);
    for (const int peer : peers_) ::close(peer);
  }

  std::string url;  // without its scheme

 private:
  int listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  std::vector<int> peers_;
  std::thread thread_;
};

const std::string kBound("\x30\x0c\x02\x01\x01\x61\x07\x0a\x01\x00\x04\x00\x04\x00", 14);
const std::string kFound("\x30\x0c\x02\x01\x02\x65\x07\x0a\x01\x00\x04\x00\x04\x00", 14);

TEST_F(Ldap, TriesAServerOnceThatFallsSilentOrGarbles) {
  const std::string garbledEntry("\x30\x0e\x02\x01\x02\x64\x09\x04\x01x\x30\x04\x30\x7f\x04\x00", 16);
  const std::string garbledEnd("\x30\x05\x02\x01\x02\x65\x00", 7);
  const std::string tlsBegins("\x30\x0c\x02\x01\x01\x78\x07\x0a\x01\x00\x04\x00\x04\x00", 14);
  const struct {
    const char* scheme;
    bool startTls;
    std::string answer;
    const char* want;
  } cases[] = {
      {"ldap://", false, "", "bind as \"cn=admin,dc=example,dc=org\": no answer within 1 s"},
      {"ldap://", false, kBound, "search of (mail=ada@d) below \"ou=people,dc=example,dc=org\": no answer within 1 s"},
      {"ldap://", false, kBound + garbledEnd,
       "search of (mail=ada@d) below \"ou=people,dc=example,dc=org\": Decoding error"},
      {"ldap://", false, kBound + garbledEntry + kFound, "reading an answer: Decoding error"},
      {"ldap://", true, "", "StartTLS: no answer within 1 s"},
      {"ldap://", true, tlsBegins, "TLS: no answer within 1 s"},
      {"ldaps://", false, "", "TLS: no answer within 1 s"},
  };
  for (const auto& c : cases) {
    const SilentServer silent(c.answer);
    LdapProfileConfig config = profile();
    config.startTls = c.startTls;
    config.urls = {c.scheme + silent.url};
    LdapDirectory directory(config);
    const auto start = std::chrono::steady_clock::now();
    const std::string text = lookUp(directory);
    EXPECT_EQ(text, "LDAP profile 3: " + config.urls[0] + ": " + c.want);
    EXPECT_GE(std::chrono::steady_clock::now() - start, text.ends_with(" 1 s") ? 900ms : 0ms) << c.want;
    for (int i = 0; i < 100; ++i) EXPECT_THAT(lookUp(directory), HasSubstr("not tried for another"));
    EXPECT_LE(std::chrono::steady_clock::now() - start, 30s) << c.want;
  }
}

TEST_F(Ldap, WaitsOnceForAllTheConnectionsThatItKept) {
  const SilentServer silent(kBound + kFound, 3);
  LdapProfileConfig config = profile();
  config.urls = {"ldap://" + silent.url};
  LdapDirectory directory(config);
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) threads.emplace_back([&] { EXPECT_EQ(lookUp(directory), "nothing thrown"); });
  for (std::thread& thread : threads) thread.join();
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < 3; ++i) EXPECT_THAT(lookUp(directory), HasSubstr("no answer within 1 s"));
  EXPECT_LE(std::chrono::steady_clock::now() - start, 2900ms);
}

TEST_F(Ldap, TakesTheNextServerAndConnectsAnew) {
  const SilentServer silent("");
  LdapProfileConfig config = profile();
  config.urls = {"ldap://127.0.0.1:1", "ldap://" + silent.url, server_->url()};
  LdapDirectory directory(config);
  const Addresses want{"odd@d", "z-boss@d"};
  EXPECT_EQ(directory.ownersOfGroupsOf("ada@d", false), want);
  server_->stop();
  server_->start();
  EXPECT_EQ(directory.ownersOfGroupsOf("ada@d", false), want);  // its connection was closed meanwhile
  server_->stop();
  const std::string text = lookUp(directory);
  server_->start();
  for (const std::string& part : {std::string("after ldap://127.0.0.1:1: cannot connect"), silent.url + ": bind as",
                                  server_->url() + ": cannot connect: Can't contact LDAP server"}) {
    EXPECT_THAT(text, HasSubstr(part));
  }
  EXPECT_THAT(lookUp(directory), HasSubstr("60 s after " + server_->url()));
}

TEST_F(Ldap, KeepsConnectionsForThisProcessAndAWhile) {
  const LdapProfileConfig config = profile();
  IdleConnections idle(1h);
  IdleConnections tooLong(0ms);
  for (IdleConnections* connections : {&idle, &tooLong}) {
    connections->put(std::make_unique<LdapConnection>(config, server_->url()));
  }
  const pid_t child = ::fork();
  if (child == 0) ::_exit(idle.take() == nullptr ? 0 : 1);
  int status = -1;
  ::waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(tooLong.take(), nullptr);
  const auto kept = idle.take();
  ASSERT_NE(kept, nullptr);
  EXPECT_FALSE(kept->read("cn=none," + config.userBase, "mail"));
}

TEST_F(Ldap, ChecksThatGroupsHaveMembersAndOwners) {
  LdapProfileConfig config = profile();
  EXPECT_EQ(LdapDirectory(config).check(),
            server_->url() + " answers, with groups that have owners; the password goes there unencrypted");
  config.ownerAttribute = "seeAlso";
  EXPECT_THAT(thrownBy([&] { LdapDirectory(config).check(); }), HasSubstr("no group with members and owners"));
}

TEST_F(Ldap, AProfileThatIsNotConfiguredIsAnError) {
  root_->write("etc/velmar/host.toml",
               "global.host_name = \"h.d\"\nantispam = {release_account = \"r\", delete_account = \"d\"}\n");
  const auto look = [] { QRL_LdapUserManager::Instance().getGroupOwnerAddressesForUser("ada@d", 7, true); };
  EXPECT_EQ(thrownBy(look), "LDAP profile 7 is not configured");
}

}  // namespace
}  // namespace Velmar::Host
