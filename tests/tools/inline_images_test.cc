// Images of a mail inside its page.

#include "tools/spamreport/inline_images.h"

#include <gtest/gtest.h>

namespace {

using Velmar::Tool::inlineImages;

std::string image(const std::string& id, const std::string& body, const std::string& type = "image/png") {
  return "--=_b\r\nContent-Type: " + type + "; name=icon.png\r\nContent-Transfer-Encoding: base64\r\nContent-Id: <" +
         id + ">\r\n\r\n" + body + "\r\n";
}

std::string mailWith(const std::string& parts) {
  return "From: a@b\r\nContent-Type: multipart/related; boundary=\"=_b\"\r\n\r\n--=_b\r\nContent-Type: "
         "text/html\r\n\r\n"
         "<p>--x</p>\r\n" +
         parts + "--=_b--\r\n";
}

TEST(InlineImages, ReplacesReferencesByTheImages) {
  const std::string mail = mailWith(image("1@h", "AAAA\r\nBBBB") + image("1@h2", "CC==", "Image/GIF"));
  const struct {
    const char* html;
    const char* want;
  } cases[] = {
      {"", ""},
      {"<p>no image</p>", "<p>no image</p>"},
      {"<img src=\"cid:1@h\">", "<img src=\"data:image/png;base64,AAAABBBB\">"},
      {"<img src='cid:1@h2'>cid:1@h", "<img src='data:image/gif;base64,CC=='>data:image/png;base64,AAAABBBB"},
      {"url(cid:1@h) cid:1@h cid:1@h<",
       "url(data:image/png;base64,AAAABBBB) data:image/png;base64,AAAABBBB "
       "data:image/png;base64,AAAABBBB<"},
      {"<img src=\"cid:other\">", "<img src=\"cid:other\">"},
      {"cid:", "cid:"},
      {"ends with cid:1@", "ends with cid:1@"},
  };
  for (const auto& c : cases) EXPECT_EQ(inlineImages(c.html, mail), c.want) << c.html;
}

TEST(InlineImages, ReadsFoldedFieldsAndBareLineFeeds) {
  const std::string mail =
      "--=_b\ncontent-type:\n image/png;\n\tname=x\nCONTENT-TRANSFER-ENCODING: BASE64\ncontent-ID:\n "
      "<i@h>\n\nQUJD\n--=_b--\n";
  EXPECT_EQ(inlineImages("cid:i@h", mail), "data:image/png;base64,QUJD");
}

TEST(InlineImages, TakesOnlyBase64Images) {
  const std::string parts[] = {
      image("i@h", "AAAA", "text/html"),
      image("i@h", "AAAA", "image/png\"onload=x"),
      "--=_b\r\nContent-Type: image/png\r\nContent-Id: <i@h>\r\n\r\nAAAA\r\n",
      "--=_b\r\nContent-Type: image/png\r\nContent-Transfer-Encoding: base64\r\nContent-Id: i@h\r\n\r\nAAAA\r\n",
      "Content-Type: image/png\r\nContent-Transfer-Encoding: base64\r\nContent-Id: <i@h>\r\n\r\nAAAA\r\n",
  };
  for (const std::string& part : parts) EXPECT_EQ(inlineImages("cid:i@h", mailWith(part)), "cid:i@h") << part;
  EXPECT_EQ(inlineImages("\"cid:i@h\"", mailWith(image("i@h", "AA\">\x01<b>AA"))), "\"data:image/png;base64,AAbAA\"");
}

TEST(InlineImages, SurvivesAnyCutOfTheMail) {
  const std::string mail = mailWith(image("i@h", "AAAA"));
  for (std::size_t length = 0; length <= mail.size(); ++length) {
    const std::string page = inlineImages("<img src=\"cid:i@h\">", mail.substr(0, length));
    EXPECT_TRUE(page.starts_with("<img src=\"") && page.ends_with("\">")) << page;
  }
}

}  // namespace
