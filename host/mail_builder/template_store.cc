// Finds and reads report templates and keeps the parsed ones for the process. VXCustomizedEmailTemplate::create() calls
// this once a report, `spamreport check` once a template. It knows nothing of dictionaries and mails.

#include "host/mail_builder/template_store.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "host/common/host_config.h"
#include "host/common/root.h"
#include "host/host.h"
#include "host/mail_builder/system_file.h"
#include "host/mail_builder/template_lint.h"
#include "platform/types.h"

namespace Velmar::Host {
namespace {

constexpr std::size_t kMaxFile = std::size_t{1} << 20;
constexpr std::size_t kMaxKept = 256;  // templates; one a domain is usual

constexpr std::array<const char*, 3> kFiles = {"header.tpl", "body.html.tpl", "body.txt.tpl"};

constexpr char kOwnTemplates[] = "/etc/velmar/templates";  // below the root
constexpr char kShippedTemplates[] = "/templates";         // of the share directory

struct TemplateFile {
  Descriptor descriptor{-1};
  FileIdentity identity;
};
using TemplateFiles = std::array<TemplateFile, kFiles.size()>;
using Identities = std::array<FileIdentity, kFiles.size()>;

struct KeptTemplate {
  Identities identities;
  bool settled = false;
  std::shared_ptr<const ReportTemplate> parsed;
};

std::mutex keptMutex;

std::map<std::string, KeptTemplate>& kept() {
  static std::map<std::string, KeptTemplate> templates;
  return templates;
}

Exception cannotLook(const std::string& path, const std::string& reason) {
  return Exception("TemplateException", 4, "TemplateStore", __LINE__, "template file " + path + ": " + reason);
}

/// The opened file; one that is not there is not open.
TemplateFile openFile(const std::string& path) {
  TemplateFile file;
  file.descriptor = Descriptor(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
  if (!file.descriptor.isOpen()) {
    if (errno == ENOENT || errno == ENOTDIR) return file;
    throw cannotLook(path, errorText(errno));
  }
  struct stat status {};
  if (::fstat(file.descriptor.get(), &status) != 0) throw cannotLook(path, errorText(errno));
  if (!S_ISREG(status.st_mode)) throw cannotLook(path, "is not a regular file");
  file.identity = identityOf(status);
  return file;
}

/// Surely not there: whatever else keeps it from being looked at is told when its files are opened.
bool isMissing(const std::string& directory) {
  return ::access(directory.c_str(), F_OK) != 0 && (errno == ENOENT || errno == ENOTDIR);
}

Identities identitiesIn(const std::string& directory) {
  Identities identities;
  for (std::size_t i = 0; i < kFiles.size(); ++i) identities[i] = identityAt(directory + "/" + kFiles[i]);
  return identities;
}

Identities identitiesOf(const TemplateFiles& files) {
  Identities identities;
  for (std::size_t i = 0; i < files.size(); ++i) identities[i] = files[i].identity;
  return identities;
}

bool areSettled(const Identities& identities) { return std::all_of(identities.begin(), identities.end(), isSettled); }

/// The files of a directory; those that are not there are not open. Empty when there is none of them.
std::optional<TemplateFiles> openFiles(const std::string& directory) {
  TemplateFiles files;
  for (std::size_t i = 0; i < files.size(); ++i) files[i] = openFile(directory + "/" + kFiles[i]);
  const auto isOpen = [](const TemplateFile& file) { return file.descriptor.isOpen(); };
  if (std::none_of(files.begin(), files.end(), isOpen)) return std::nullopt;
  return files;
}

TemplateTexts readTexts(const std::string& directory, const TemplateFiles& files) {
  std::array<std::string, kFiles.size()> texts;
  for (std::size_t i = 0; i < files.size(); ++i) {
    if (files[i].descriptor.isOpen()) {
      texts[i] = readUpTo(files[i].descriptor.get(), kMaxFile, directory + "/" + kFiles[i]);
    }
  }
  return {std::move(texts[0]), std::move(texts[1]), std::move(texts[2])};
}

/// The template as it was parsed, when its files are still the same; null otherwise.
std::shared_ptr<const ReportTemplate> unchangedTemplate(const std::string& directory) {
  KeptTemplate entry;
  {
    const std::lock_guard lock(keptMutex);
    const auto found = kept().find(directory);
    if (found == kept().end() || !found->second.settled) return nullptr;
    entry = found->second;
  }
  return identitiesIn(directory) == entry.identities ? entry.parsed : nullptr;
}

/// Where a template may lie; the first place that has one counts. None when a name is no path component.
std::vector<std::string> directoriesOf(const std::string& name, const std::string& domain) {
  if (!isPathComponent(name)) return {};
  const std::string own = underRoot(kOwnTemplates) + "/";
  if (domain.empty()) return {own + name, shareDirectory() + kShippedTemplates + "/" + name};
  if (!isPathComponent(domain)) return {};
  return {own + domain + "/" + name};
}

/// What the reports of each profile offer.
std::vector<OfferedActions> offeredActions() {
  const HostConfig& config = hostConfig();
  std::vector<OfferedActions> offers;
  for (const ProfileConfig& profile : config.profiles) {
    const ProfileAntiSpam::Switches& is = profile.switches;
    if (is.quarantineReport) offers.push_back({is.quarantineWebRelease, is.quarantineEmailRelease});
  }
  return offers;
}

/// None when the directory holds no template.
std::optional<std::vector<TemplateRemark>> remarksOn(const std::string& directory) {
  const std::optional<TemplateFiles> files = openFiles(directory);
  if (!files) return std::nullopt;
  return lintTemplate(readTexts(directory, *files), offeredActions());
}

/// The names of the directories in one, in order; none when it does not exist.
std::vector<std::string> directoriesIn(const std::string& directory) try {
  std::vector<std::string> names;
  if (!std::filesystem::exists(directory)) return names;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    if (entry.is_directory()) names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
} catch (const std::filesystem::filesystem_error& e) {
  throw cannotLook(directory, e.code().message());
}

void keep(const std::string& directory, KeptTemplate entry) {
  const std::lock_guard lock(keptMutex);
  if (kept().size() >= kMaxKept && !kept().contains(directory)) kept().clear();
  kept()[directory] = std::move(entry);
}

}  // namespace

std::shared_ptr<const ReportTemplate> reportTemplateIn(const std::string& directory) {
  if (auto parsed = unchangedTemplate(directory)) return parsed;
  if (isMissing(directory)) return nullptr;  // as a system's own templates usually are
  const std::optional<TemplateFiles> files = openFiles(directory);
  if (!files) return nullptr;

  KeptTemplate entry;
  entry.identities = identitiesOf(*files);
  entry.settled = areSettled(entry.identities);
  entry.parsed = std::make_shared<const ReportTemplate>(readTexts(directory, *files), directory);
  keep(directory, entry);
  return entry.parsed;
}

std::string templateLanguage(const std::string& name, const std::string& domain) {
  auto found = findReportTemplate(name, domain);
  if (!found || !found->error().empty()) found = findReportTemplate("default", "");
  return found ? found->language() : "en";
}

std::string templateFault(const std::string& name, const std::string& domain) {
  const auto found = findReportTemplate(name, domain);
  if (found) return found->error();
  return "there is no template in " + underRoot(kOwnTemplates) + "/" + (domain.empty() ? "" : domain + "/") + name +
         "/";
}

std::vector<TemplateRemark> templateRemarks(const std::string& name, const std::string& domain) {
  for (const std::string& directory : directoriesOf(name, domain)) {
    if (auto remarks = remarksOn(directory)) return std::move(*remarks);
  }
  return {};
}

std::vector<TemplateSet> ownTemplates() {
  const std::string own = underRoot(kOwnTemplates);
  std::vector<TemplateSet> sets;
  for (const std::string& name : directoriesIn(own)) {
    if (openFiles(own + "/" + name)) sets.push_back({"", name});
    for (const std::string& inner : directoriesIn(own + "/" + name)) {
      if (openFiles(own + "/" + name + "/" + inner)) sets.push_back({name, inner});
    }
  }
  return sets;
}

std::vector<std::string> shippedTemplates() { return directoriesIn(shareDirectory() + kShippedTemplates); }

std::string shippedTemplateFault(const std::string& name) {
  const auto found = reportTemplateIn(shareDirectory() + kShippedTemplates + "/" + name);
  return found ? found->error() : "none of its files is there";
}

std::vector<TemplateRemark> shippedTemplateRemarks(const std::string& name) {
  return remarksOn(shareDirectory() + kShippedTemplates + "/" + name).value_or(std::vector<TemplateRemark>());
}

std::shared_ptr<const ReportTemplate> findReportTemplate(const std::string& name, const std::string& domain) {
  for (const std::string& directory : directoriesOf(name, domain)) {
    if (auto found = reportTemplateIn(directory)) return found;
  }
  return nullptr;
}

}  // namespace Velmar::Host
