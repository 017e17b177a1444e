// Images of a mail inside its page.

#include "tools/spamreport/inline_images.h"

#include <gtest/gtest.h>

namespace {

std::string image(const std::string& id, const std::string& body, const std::string& type = "image/png") {
  return "--=_b\r\nContent-Type:\r\n " + type + ";\r\n\tname=icon.png\r\ncontent-transfer-encoding: BASE64\r\n" +
         "Content-Id: " + id + "\r\n\r\n" + body + "\r\n";
}

TEST(InlineImages, ReplacesReferencesByTheBase64ImagesOfTheMail) {
  const std::string mail = "From: a@b\r\n\r\n--=_b\r\nContent-Type: text/html\r\n\r\n<p>--x</p>\r\n" +
                           image("<1@h>", "AAAA\r\nBBBB") + image("<1@h2>", "CC==", "Image/GIF") +
                           image("<bad@h>", "AA\">\x01<b>AA") + image("<text@h>", "AAAA", "text/html") +
                           image("<type@h>", "AAAA", "image/png\"onload=x") + image("bare@h", "AAAA") +
                           "--=_b\r\nContent-Type: image/png\r\nContent-Id: <plain@h>\r\n\r\nAAAA\r\n--=_b--\r\n";
  const std::pair<std::string, std::string> cases[] = {
      {"<img src='cid:1@h2'>cid:1@h", "<img src='data:image/gif;base64,CC=='>data:image/png;base64,AAAABBBB"},
      {"url(cid:1@h2) cid:1@h2<", "url(data:image/gif;base64,CC==) data:image/gif;base64,CC==<"},
      {"\"cid:bad@h\"", "\"data:image/png;base64,AAbAA\""},
      {"cid:other cid: cid:text@h cid:type@h cid:bare@h", "cid:other cid: cid:text@h cid:type@h cid:bare@h"},
      {"cid:plain@h ends with cid:1@", "cid:plain@h ends with cid:1@"},
  };
  for (const auto& [html, want] : cases) EXPECT_EQ(Velmar::Tool::inlineImages(html, mail), want);
  for (std::size_t length = 0; length <= mail.size(); ++length) {
    const std::string page = Velmar::Tool::inlineImages("<img src=\"cid:1@h\">", mail.substr(0, length));
    EXPECT_TRUE(page.starts_with("<img src=\"") && page.ends_with("\">")) << page;
  }
}

}  // namespace
