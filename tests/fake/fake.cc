// The world that the fake platform shows, the record of calls, and failures on order.

#include "tests/fake/fake.h"

#include <algorithm>
#include <mutex>
#include <stdexcept>

namespace Velmar::Fake {
namespace {

struct Order {
  std::string name;
  int nth = 0;
  int times = 0;
  Failure kind = Failure::Platform;
  int seen = 0;
  std::string failed;

  bool strikes(const std::string& called, const std::string& arguments) {
    if (nth == 0 || (!name.empty() && name != called)) return false;
    ++seen;
    if (seen < nth || seen >= nth + times) return false;
    failed = called + "(" + arguments + ")";
    return true;
  }
};

std::mutex mutex;
World theWorld;
Order order;

[[noreturn]] void fail(const std::string& name) {
  const std::string text = "call of " + name + " fails";
  if (order.kind == Failure::Standard) throw std::runtime_error(text);
  if (order.kind == Failure::Foreign) throw 42;
  throw Exception("FakeException", 4, "Fake", 1, text);
}

}  // namespace

World& world() { return theWorld; }

void reset() {
  theWorld = World();
  order = Order();
  setClock(0);
}

void failCall(const std::string& name, int nth, Failure kind, int times) { order = {name, nth, times, kind, 0, ""}; }

std::string failedCall() { return order.failed; }

ApsGwServer& domain(const std::string& name) {
  Ref<ApsGwServer>& record = theWorld.domains[name];
  if (record.isNull()) record = Ref<ApsGwServer>(new ApsGwServer);
  record->domain = name;
  return *record;
}

std::vector<std::string> callsOf(const std::vector<std::string>& prefixes) {
  std::vector<std::string> found = theWorld.calls;
  std::erase_if(found, [&](const std::string& text) {
    return std::none_of(prefixes.begin(), prefixes.end(), [&](const auto& prefix) { return text.starts_with(prefix); });
  });
  return found;
}

void note(const std::string& name, const std::string& arguments) {
  locked([&] { theWorld.calls.push_back(name + "(" + arguments + ")"); });
}

void call(const std::string& name, const std::string& arguments) {
  note(name, arguments);
  bool strikes = false;
  locked([&] { strikes = order.strikes(name, arguments); });
  if (strikes) fail(name);
}

void locked(const std::function<void()>& change) {
  const std::lock_guard<std::mutex> guard(mutex);
  change();
}

std::string join(std::initializer_list<std::string> arguments) {
  std::string text;
  for (const std::string& argument : arguments) text += (text.empty() ? "" : ",") + argument;
  return text;
}

}  // namespace Velmar::Fake
