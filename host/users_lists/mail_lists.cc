// The address lists of users. Called by the report generator, which repairs one-sided links with them, and by the
// administrator's command. Addresses are kept byte for byte and compared without regard to the case of their domain.

#include <cstdlib>
#include <cstring>
#include <new>

#include "host/host.h"
#include "host/users_lists/state_store.h"
#include "platform/users_lists.h"

namespace Velmar {
namespace {

using namespace Host;

std::string given(const char* what, const char* text) {
  if (!text) throw Exception("StateException", 1, "MailLists", __LINE__, std::string(what) + " is null");
  return text;
}

// Names become part of comma-separated texts and of log lines.
const std::string& storable(const char* what, const std::string& text) {
  const auto unfit = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f || c == ','; };
  for (const char c : text) {
    if (unfit(c)) {
      throw Exception("StateException", 4, "MailLists", __LINE__,
                      std::string(what) + " holds a comma or control character: \"" + text + "\"");
    }
  }
  if (text.empty()) throw Exception("StateException", 4, "MailLists", __LINE__, std::string(what) + " is empty");
  return text;
}

std::vector<std::string> namesInOrder(const std::string& owner, const std::string& list) {
  const std::string ownerKey = addressKey(owner);
  return withState([&](StateSession& state) {
    std::vector<std::string> names;
    for (const auto& [entry] : state.rows<std::string>(
             "SELECT entry FROM list_entry WHERE owner_key = :o AND list = :l ORDER BY id", {ownerKey, list})) {
      names.push_back(entry);
    }
    return names;
  });
}

// One block holds the pointers and, behind them, the texts.
mail_list_names inOneBlock(const std::vector<std::string>& names) {
  if (names.empty()) return {};
  std::size_t size = names.size() * sizeof(char*);
  for (const std::string& name : names) size += name.size() + 1;
  void* const block = std::malloc(size);
  if (!block) throw std::bad_alloc();
  mail_list_names result{static_cast<int>(names.size()), static_cast<char**>(block)};
  char* text = static_cast<char*>(block) + names.size() * sizeof(char*);
  for (std::size_t i = 0; i < names.size(); ++i) {
    result.names[i] = text;
    std::memcpy(text, names[i].c_str(), names[i].size() + 1);
    text += names[i].size() + 1;
  }
  return result;
}

}  // namespace

int mail_list_get_names(const char* owner, const char* list, mail_list_names* names, int, int) {
  if (!names) throw Exception("StateException", 1, "MailLists", __LINE__, "place for the names is null");
  *names = inOneBlock(namesInOrder(given("list owner", owner), given("list name", list)));
  return 0;
}

int mail_list_find(const char* owner, const char* list, const char* entry, int) {
  const std::string ownerKey = addressKey(given("list owner", owner));
  const std::string listName = given("list name", list);
  const std::string entryKey = addressKey(given("list entry", entry));
  return withState([&](StateSession& state) {
    const auto found =
        state.rows<long long>("SELECT 1 FROM list_entry WHERE owner_key = :o AND list = :l AND entry_key = :e",
                              {ownerKey, listName, entryKey});
    return found.empty() ? 0 : 1;
  });
}

int mail_list_delete_from(const char* owner, const char* list, const char* entry, int) {
  const std::string ownerKey = addressKey(given("list owner", owner));
  const std::string listName = given("list name", list);
  const std::string entryKey = addressKey(given("list entry", entry));
  return withState([&](StateSession& state) {
    StateChange change(state);
    state.run("DELETE FROM list_entry WHERE owner_key = :o AND list = :l AND entry_key = :e",
              {ownerKey, listName, entryKey});
    change.commit();
    return 0;
  });
}

void mail_list_free_names(mail_list_names* names) noexcept {
  if (!names) return;
  std::free(names->names);
  *names = {};
}

namespace Host {

void addListEntry(const std::string& owner, const std::string& list, const std::string& entry) {
  const std::string ownerKey = addressKey(storable("list owner", owner));
  const std::string entryKey = addressKey(storable("list entry", entry));
  storable("list name", list);
  withState([&](StateSession& state) {
    StateChange change(state);
    state.run(
        "INSERT INTO list_entry (owner_key, list, entry_key, owner, entry) VALUES (:k, :l, :e, :o, :t) "
        "ON CONFLICT DO NOTHING",
        {ownerKey, list, entryKey, owner, entry});
    change.commit();
  });
}

std::vector<std::pair<std::string, std::string>> listEntries(const std::string& owner) {
  const std::string ownerKey = addressKey(owner);
  return withState([&](StateSession& state) {
    std::vector<std::pair<std::string, std::string>> entries;
    for (const auto& [list, entry] : state.rows<std::string, std::string>(
             "SELECT list, entry FROM list_entry WHERE owner_key = :o ORDER BY list, id", {ownerKey})) {
      entries.emplace_back(list, entry);
    }
    return entries;
  });
}

}  // namespace Host
}  // namespace Velmar
