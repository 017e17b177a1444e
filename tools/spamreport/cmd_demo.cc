// spamreport demo: lays out an example host in a directory, from the tables and messages in the share directory.
//
// A directory that demo laid out carries a marker, written first, so that one which was left half-way can be laid out
// again. Nothing is removed from a directory without it.

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <iostream>
#include <set>

#include "host/host.h"
#include "tools/spamreport/commands.h"
#include "tools/spamreport/demo_index.h"
#include "tools/spamreport/files.h"

namespace Velmar::Tool {
namespace {

namespace fs = std::filesystem;

constexpr char kMarker[] = ".velmar-demo";
constexpr char kMarkerText[] = "Laid out by \"spamreport demo\", which may remove home, migadmin and var again.\n";

/// Makes sure that the directory is ours to fill.
void claim(const fs::path& directory) {
  if (fs::exists(directory) && !fs::is_directory(directory)) {
    throw WrongUse("\"" + directory.string() + "\": not a directory");
  }
  fs::create_directories(directory);
  if (!fs::is_regular_file(directory / kMarker) && !fs::is_empty(directory)) {
    throw WrongUse("\"" + directory.string() + "\": not empty, and not laid out by spamreport demo");
  }
  writeFile(directory / kMarker, kMarkerText);
  for (const char* part : {"home", "migadmin", "var"}) fs::remove_all(directory / part);
}

/// What a table of the demo says; an address or entry that is unfit is found when it is used.
std::vector<TableRow> tableOf(const fs::path& file, std::size_t columns) {
  return parseTable(readFile(file), file.string(), columns);
}

void layOutQuarantine(const fs::path& demo, const fs::path& root, const std::vector<DemoMessage>& messages) {
  const std::int64_t now = std::time(nullptr);
  std::size_t number = 0;
  for (const DemoMessage& message : messages) {
    const fs::path quarantine = root / quarantineDirectory(message.mailbox);
    for (const char* folder : {"new", "cur", "tmp"}) fs::create_directories(quarantine / folder);
    fs::copy_file(demo / "messages" / message.file, quarantine / message.folder / maildirName(message, now, ++number));
  }
}

void copyFiles(const fs::path& from, const fs::path& to) {
  fs::create_directories(to);
  for (const auto& entry : fs::directory_iterator(from)) {
    if (entry.is_regular_file()) fs::copy_file(entry.path(), to / entry.path().filename());
  }
}

void fillStateStore(const fs::path& demo) {
  for (const TableRow& row : tableOf(demo / "lists.tsv", 3)) {
    Host::addListEntry(row.fields[0], row.fields[1], row.fields[2]);
  }
  for (const TableRow& row : tableOf(demo / "prefs.tsv", 2)) {
    Host::setPreferredLanguage(row.fields[0], row.fields[1]);
  }
}

std::size_t mailboxCount(const std::vector<DemoMessage>& messages) {
  std::set<std::string> mailboxes;
  for (const DemoMessage& message : messages) mailboxes.insert(message.mailbox);
  return mailboxes.size();
}

}  // namespace

int demo(const std::string& directory) {
  const fs::path root = fs::absolute(directory).lexically_normal();
  const fs::path share = Host::shareDirectory();
  const fs::path demo = share / "demo";
  const auto messages = parseDemoIndex(readFile(demo / "index.tsv"), (demo / "index.tsv").string());
  claim(root);
  ::setenv("VELMAR_ROOT", root.c_str(), 1);

  fs::create_directories(root / "etc/velmar");
  writeFile(root / "etc/velmar/host.toml", readFile(demo / "host.toml"));
  copyFiles(share / "images", root / "migadmin/www/admin/images");
  layOutQuarantine(demo, root, messages);
  fs::create_directories(root / "var");
  fillStateStore(demo);

  std::cout << Host::printable(root.string()) << ": " << mailboxCount(messages) << " mailboxes with " << messages.size()
            << " held messages\nTry: spamreport check --root " << Host::printable(directory) << "\n";
  return kGood;
}

}  // namespace Velmar::Tool
