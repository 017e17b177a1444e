// What is said about odd templates, and that the names it knows are those of the documentation.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <set>

#include "host/mail_builder/template_lint.h"

namespace Velmar::Host {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Names = std::set<std::pair<std::string, std::string>>;

std::string contentOf(const std::string& path) {
  std::ifstream in(path);
  return {std::istreambuf_iterator<char>(in), {}};
}

std::vector<std::string> said(const TemplateTexts& texts) {
  std::vector<std::string> lines;
  for (const TemplateRemark& remark : lintTemplate(texts)) lines.push_back(remark.place + ": " + remark.text);
  return lines;
}

TEST(TemplateLintTest, ShippedTemplatesAreSoundAndHaveWordsForEachNumber) {
  std::size_t sets = 0;
  for (const auto& entry : std::filesystem::directory_iterator(SHARE "/templates")) {
    const std::string directory = entry.path().string() + "/";
    const TemplateTexts texts{contentOf(directory + "header.tpl"), contentOf(directory + "body.html.tpl"),
                              contentOf(directory + "body.txt.tpl")};
    const ReportTemplate parsed(texts, directory);
    ASSERT_EQ(parsed.error(), "") << directory;
    EXPECT_THAT(said(texts), IsEmpty()) << directory;
    static const std::regex kLanguage("Language: (.*)\n");
    std::smatch language;
    ASSERT_TRUE(std::regex_search(texts.header, language, kLanguage)) << directory;
    const PluralClasses classes(language[1]);
    for (int count = 0; count <= 200; ++count) {
      EXPECT_EQ(parsed.countSection(count), "COUNT_" + classes.of(count)) << directory << " " << count;
    }
    ++sets;
  }
  EXPECT_EQ(sets, 20U);
}

TEST(TemplateLintTest, EachOddityIsNamedWithItsPlace) {
  const std::string rows = "{{#QUARANTINE_MESSAGES_TABLE}}";
  const std::string body = rows + "{{ORIG_FROM}}{{EMAIL_ID}}{{/QUARANTINE_MESSAGES_TABLE}}";
  const struct {
    std::string marker;
    std::string want;  ///< of a page that holds the marker in its second line
  } cases[] = {
      {"{{ORIG_SUBJET}}", "unknown variable ORIG_SUBJET: it is always empty"},
      {"{{! {{ORIG_SUBJET }}{{BI_SPACE}}", ""},
      {"{{ORIG_DATE}}", "ORIG_DATE is empty here, it is filled in QUARANTINE_MESSAGES_TABLE"},
      {rows + "{{QUARANTINE_PERIOD_TO}}{{/QUARANTINE_MESSAGES_TABLE}}", ""},
      {rows + "{{#SPAM_WEB_ACTION}}{{RELEASE_URL}}{{ORIG_DATE}}", ""},
      {rows + "{{#ODD_ROW}}{{#SPAM_EMAIL_ACTION}}{{DELETE_EMAIL_ADDR:h:none}}", ""},
      {rows + "{{#QUARANTINE_MESSAGES_TABLE_separator}}, {{/QUARANTINE_MESSAGES_TABLE_separator}}", ""},
      // The page's own section of this name is not the row's, and a row sees it only where it has none itself.
      {"{{#SPAM_WEB_ACTION}}{{RELEASE_URL}}",
       "RELEASE_URL is empty here, it is filled in QUARANTINE_MESSAGES_TABLE/SPAM_WEB_ACTION"},
      {rows + "{{#SPAM_WEB_ACTION}}{{DELETE_ALL_URL}}",
       "DELETE_ALL_URL is empty here, it is filled in SPAM_WEB_ACTION"},
      {rows + "{{#SPAM_WEB_ACTION}}{{/SPAM_WEB_ACTION}}{{RELEASE_URL}}",
       "RELEASE_URL is empty here, it is filled in QUARANTINE_MESSAGES_TABLE/SPAM_WEB_ACTION"},
      {rows + "{{#SPAM_OTHER_ACTION}}{{PREFERENCE_URL}}", ""},
      {"{{#EVEN_ROW}}", "the section EVEN_ROW is never shown here, only in QUARANTINE_MESSAGES_TABLE"},
      {"{{#WEB}}", "unknown section WEB: it is never shown"},
      {"{{TITLE_LOGO:none}}", "TITLE_LOGO is not escaped: write \":h\" before \":none\""},
      {"{{TITLE_LOGO:h:x-img-cid=TITLE_LOGO:none}}", ""},
      {"{{TITLE_LOGO:h:x-img-cid=LOGO:none}}", "TITLE_LOGO:x-img-cid=LOGO: there is no image LOGO"},
      {"{{TITLE_LOGO:x-img-cid=TITLE_LOGO}}", "TITLE_LOGO shows as its own source text: write \":none\" at its end"},
      {"{{TITLE_LOGO:x-image}}", "TITLE_LOGO:x-image: unknown modifier, it does nothing"},
      {rows + "{{#SPAM_EMAIL_ACTION}}<a href=\"{{RELEASE_EMAIL_ADDR}}\">",
       "RELEASE_EMAIL_ADDR becomes \"#\" in a link: write {{RELEASE_EMAIL_ADDR:h:none}}"},
  };
  for (const auto& [marker, want] : cases) {
    const std::vector<std::string> got = said({"", body + "\n" + marker + "\n", body});
    EXPECT_EQ(got, want.empty() ? std::vector<std::string>() : std::vector{"body.html.tpl:2: " + want}) << marker;
  }
  EXPECT_THAT(said({"\n\nSubject: {{COUNT}}", "{{ORIG_FROM}}\n{{#TABLE_HEADER}}",
                    rows + "\n{{ORIG_FROM}}{{ICON_DELETE:x-img-cid=ICON_DELETE}}"}),
              ElementsAre("header.tpl:3: unknown variable COUNT: it is always empty",
                          "body.html.tpl:1: ORIG_FROM is empty here, it is filled in QUARANTINE_MESSAGES_TABLE",
                          "body.html.tpl:1: lists no messages: no ORIG_FROM and no ORIG_SUBJECT in the section "
                          "QUARANTINE_MESSAGES_TABLE",
                          "body.txt.tpl:2: ICON_DELETE:x-img-cid=ICON_DELETE: only the page can show an image",
                          "body.txt.tpl:1: offers no way to release a message: no RELEASE_URL and no "
                          "RELEASE_EMAIL_ADDR"));
}

std::vector<std::string> quotedIn(const std::string& cell) {
  static const std::regex kName("`([A-Z_]+)`");
  std::vector<std::string> names;
  for (std::sregex_iterator found(cell.begin(), cell.end(), kName), end; found != end; ++found) {
    names.push_back((*found)[1]);
  }
  return names;
}

std::vector<std::string> placesIn(const std::string& cell) {
  const std::string row = "QUARANTINE_MESSAGES_TABLE";
  std::vector<std::string> places = quotedIn(cell);
  if (cell.starts_with("top")) places.insert(places.begin(), "");
  if (cell == "the row") places = {row};
  if (cell.starts_with("the row's ")) places = {row + "/" + quotedIn(cell).at(0)};
  return places;
}

/// The rows of all tables whose first column has this head.
Names documented(const std::string& head) {
  static const std::regex kRow(R"(\|([^|\n]*)\|([^|\n]*)\|[^|\n]*\|)");
  const std::string page = contentOf(DOCS "/templates.md");
  Names names;
  std::string table;
  for (std::sregex_iterator row(page.begin(), page.end(), kRow), end; row != end; ++row) {
    const std::string first = (*row)[1];
    if (first.find_first_not_of(" -") == std::string::npos) continue;
    if (first.find('`') == std::string::npos) table = first;
    if (table != " " + head + " ") continue;
    const std::string where = (*row)[2].str().substr(1, (*row)[2].length() - 2);
    for (const std::string& place : placesIn(where)) {
      for (const std::string& name : quotedIn(first)) names.emplace(place, name);
    }
  }
  return names;
}

TEST(TemplateLintTest, KnowsTheDocumentedNames) {
  const std::pair<const char*, std::span<const TemplateName>> cases[] = {{"variable", templateVariables()},
                                                                         {"section", templateSections()}};
  for (const auto& [head, known] : cases) {
    Names names;
    for (const TemplateName& row : known) names.emplace(row.place, row.name);
    EXPECT_EQ(names, documented(head)) << head;
  }
}

}  // namespace
}  // namespace Velmar::Host
