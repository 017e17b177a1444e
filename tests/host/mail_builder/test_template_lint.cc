// What is said about odd templates, and that the names it knows are those of the documentation.

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <set>

#include "host/mail_builder/html_place.h"
#include "host/mail_builder/plural_class.h"
#include "host/mail_builder/template_lint.h"
#include "host/mail_builder/template_names.h"

namespace Velmar::Host {
namespace {

using ::testing::IsEmpty;
using Names = std::set<std::pair<std::string, std::string>>;

std::string contentOf(const std::string& path) {
  std::ifstream in(path);
  return {std::istreambuf_iterator<char>(in), {}};
}

/// What is no fault has "note: " before its text.
std::vector<std::string> said(const TemplateTexts& texts, const std::vector<OfferedActions>& offers = {}) {
  std::vector<std::string> lines;
  for (const TemplateRemark& remark : lintTemplate(texts, offers)) {
    lines.push_back(remark.place + (remark.fault ? ": " : ": note: ") + remark.text);
  }
  return lines;
}

TemplateTexts textsIn(const std::string& directory) {
  return {contentOf(directory + "/header.tpl"), contentOf(directory + "/body.html.tpl"),
          contentOf(directory + "/body.txt.tpl")};
}

TEST(TemplateLintTest, ShippedTemplatesAreSoundAndHaveWordsForEachNumber) {
  std::size_t sets = 0;
  for (const auto& entry : std::filesystem::directory_iterator(SHARE "/templates")) {
    const std::string directory = entry.path().string();
    const TemplateTexts texts = textsIn(directory);
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
  EXPECT_GE(sets, 20U);
}

TEST(TemplateLintTest, EachOddMarkerIsNamedWithItsPlace) {
  const std::string rows = "{{#QUARANTINE_MESSAGES_TABLE}}";
  const TemplateTexts sound = textsIn(SHARE "/templates/default");
  const auto lines = std::to_string(std::count(sound.html.begin(), sound.html.end(), '\n') + 2);
  // What is said of a page that has the marker added in a line of its own.
  const std::pair<std::string, std::string> cases[] = {
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
      {rows + "<p title={{ORIG_DATE}} id='x'>",
       "ORIG_DATE stands in an attribute without quotes: write \"{{ORIG_DATE}}\""},
      {rows + "<p title='a={{ORIG_DATE}}'> a={{ORIG_DATE}}", ""},
      {"{QUARANTINE_PERIOD_TO} {x} {", "{QUARANTINE_PERIOD_TO} is shown as it is: write {{QUARANTINE_PERIOD_TO}}"},
      {"{{SITE_NAME:x-mailto-to}}", "SITE_NAME:x-mailto-to: it is for a variable ..._EMAIL_ADDR only"},
      {rows + "{{SENDER_NAME:x-inert=1001}}", "SENDER_NAME:x-inert=1001: no number of characters from 1 to 1000"},
      {rows + "{{ORIG_FROM}}",
       "note: ORIG_FROM may hold what looks like a link or hides text: write {{ORIG_FROM:x-inert=200}}"},
      {"{{TITLE_LOGO:x-img-cid=TITLE_LOGO:h:none}}",
       "TITLE_LOGO shows as its own source text: write \":h\" before \":x-img-cid=\""},
      {"{{DELETE_SUBJECT}}",
       "DELETE_SUBJECT is empty in a report with web_release only: put it into SPAM_EMAIL_ACTION"},
      {"<IMG alt='' SRC=LOGO-AZ.png>",
       "the image \"logo-az.png\" does not exist for the mail's reader: show an image by "
       "{{TITLE_LOGO:h:x-img-cid=TITLE_LOGO:none}}"},
      {"<img src = 'a.png'>",
       "the image \"a.png\" does not exist for the mail's reader: show an image by "
       "{{TITLE_LOGO:h:x-img-cid=TITLE_LOGO:none}}"},
      {rows + "<a title='{{ORIG_SUBJECT:x-inert=9}}'><{{ORIG_SUBJECT:x-inert=9}}>",
       "ORIG_SUBJECT lets a message write tags or attributes: put it between tags"},
      {rows + "<a title='' HREF='x{{ORIG_SUBJECT:x-inert=9}}'>",
       "ORIG_SUBJECT lets a message choose a link, an image or a style: put it between tags"},
      {"<imgx><img data-src=\"a\" alt=\"src\"><img src=\"{{SITE_NAME}}\">", ""},
      {"<script>", "no mail program runs a script: remove it"},
      {rows + "{{#SPAM_EMAIL_ACTION}}<a href=\"{{RELEASE_EMAIL_ADDR}}\">",
       "RELEASE_EMAIL_ADDR becomes \"#\" in a link: write {{RELEASE_EMAIL_ADDR:h:none}}"},
  };
  for (const auto& [marker, want] : cases) {
    const std::vector<std::string> got = said({sound.header, sound.html + "\n" + marker + "\n", sound.text});
    EXPECT_EQ(got, want.empty() ? std::vector<std::string>() : std::vector{"body.html.tpl:" + lines + ": " + want})
        << marker;
  }
}

// m = markup, u and q = a value begins, without and behind a quote, a = of an active attribute, c = comment
TEST(HtmlPlaceTest, KnowsWhatStandsHere) {
  const std::pair<const char*, std::vector<const char*>> cases[] = {
      {"m", {"<", "<a", "<z", "<A", "<Z", "<a x='y'", "<!--x--><a"}},
      {"mu", {"<a x=", "<a x=' ' y="}},
      {"q", {"<a x='", "<a x=\"", "<a href='' x='", "<a title='"}},
      {"qa", {"<a href='", "<a b='' STYLE = '", "<a onx='"}},
      {"a", {"<a HREF = \"x"}},
      {"c", {"<!--", "<!-- <a", "<!--<", "<!-- ->"}},
      {"",
       {"", "<@", "<[", "<`", "<{", "< ", "a>", "<a x='y", "<a x='\"", "<a x='>", "<a x=''>", "<!-->", "<!--->", "<!-x",
        "<!--<a href='-->"}},
  };
  for (const auto& [want, texts] : cases) {
    for (const char* text : texts) {
      const std::string more = std::string(text) + ">a";
      HtmlPlace place;
      place.read(std::string_view(more).substr(0, more.size() - 2));  // nothing behind it counts
      const std::string got = std::string(place.isMarkup() ? "m" : "") + (place.beginsUnquotedValue() ? "u" : "") +
                              (place.beginsQuotedValue() ? "q" : "") + (place.isActive() ? "a" : "") +
                              (place.inComment() ? "c" : "");
      EXPECT_EQ(got, want) << text;
    }
  }
  HtmlPlace cut;
  cut.read(std::string_view("<a").substr(0, 1));
  cut.read("x=");
  EXPECT_FALSE(cut.beginsUnquotedValue());
}

TEST(TemplateLintTest, EachMissingPartIsNamed) {
  using T = TemplateTexts;
  const std::string subject = "{{ORIG_SUBJECT:x-inert-text=300}}", url = "{{RELEASE_URL}}";
  const std::string webSubject = "{{#SPAM_WEB_ACTION}}" + subject + "{{/SPAM_WEB_ACTION}}";
  const std::string noRelease =
      "does not say how to release a message on the web: put {{RELEASE_URL}} into "
      "QUARANTINE_MESSAGES_TABLE/SPAM_WEB_ACTION";
  const std::vector<OfferedActions> web{{true, false}}, mail{{false, true}};
  // What is said of the default template, joined by "; ", when a text in it is replaced everywhere.
  const auto saidWith = [](std::string T::*file, const std::string& old, const std::string& by,
                           const std::vector<OfferedActions>& offers = {}) {
    TemplateTexts texts = textsIn(SHARE "/templates/default");
    std::string& text = texts.*file;
    EXPECT_NE(text.find(old), std::string::npos) << old;
    for (std::size_t at = 0; (at = text.find(old, at)) != std::string::npos; at += by.size()) {
      text.replace(at, old.size(), by);
    }
    std::string all;
    for (const std::string& line : said(texts, offers)) all += (all.empty() ? "" : "; ") + line;
    return all;
  };
  EXPECT_EQ(saidWith(&T::text, url, ""), "body.txt.tpl:1: " + noRelease);
  EXPECT_EQ(saidWith(&T::text, url, "", mail), "");
  EXPECT_EQ(saidWith(&T::html, "<a href=\"{{RELEASE_URL}}\">", "<!-- <a href=\"{{RELEASE_URL}}\"> -->"),
            "body.html.tpl:1: " + noRelease);
  EXPECT_EQ(saidWith(&T::text, subject, webSubject),
            "body.txt.tpl:1: does not say what a message is about in a report with email_release only: put "
            "{{ORIG_SUBJECT:x-inert-text=200}} into QUARANTINE_MESSAGES_TABLE");
  EXPECT_EQ(saidWith(&T::text, subject, webSubject, web), "");
  EXPECT_EQ(saidWith(&T::text, "{{PREFERENCE_URL}}", ""),
            "body.txt.tpl:1: note: does not say where to change the preferences: put {{PREFERENCE_URL}} into "
            "SPAM_OTHER_ACTION");
  EXPECT_EQ(saidWith(&T::text, "{{MAILBOX_ADDRESS}} at", "{{%AUTOESCAPE context=\"HTML\"}}{{MAILBOX_ADDRESS}} at"),
            "body.txt.tpl:3: this is plain text, and would be escaped for a page: remove {{%AUTOESCAPE "
            "context=\"HTML\"}}");
  EXPECT_EQ(saidWith(&T::html, "{{#EVEN_ROW}} class=\"even\" bgcolor=\"#f7f9fa\"{{/EVEN_ROW}}", ""),
            "body.html.tpl:1: note: no section ODD_ROW or EVEN_ROW, one of which each row opens");
  EXPECT_EQ(saidWith(&T::text, "{{#COUNT_ONE}}", "{{#COUNT_TWO}}"),
            "body.txt.tpl:1: shows nothing for the number 1: write the section COUNT_ONE; body.txt.tpl:1: note: the "
            "section COUNT_TWO is never shown: the language \"en\" has no such class");
  EXPECT_EQ(saidWith(&T::header, "Language: en", "Language: german"),
            "header.tpl:1: unknown language \"german\": words are chosen as if it had one form for all numbers");
  EXPECT_EQ(saidWith(&T::header, "Language: en", "Language: sv"), "");
  EXPECT_EQ(saidWith(&T::header, "RELEASE", "DELETE", web),
            "header.tpl:3: DELETE_CONTROL_USER is empty in a report with web_release only: put it into "
            "SPAM_EMAIL_ACTION");
  EXPECT_EQ(saidWith(&T::header, "Subject: ", "Subject:\nX: "), "header.tpl:4: the subject is empty");
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
    const std::string cell = (*row)[2];
    const std::string where = cell.substr(1, cell.size() - 2);
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
