// Any bytes as a held subject: the markup of the HTML is that of the template, and header values are one line.
// The rest of the input is a template's own text, which must be refused or can be expanded.

#include <memory>

#include "host/mail_builder/customized_template.h"
#include "host/mail_builder/report_template.h"
#include "tests/fuzz/fuzz.h"

namespace {

using Velmar::Host::ReportTemplate;
using Velmar::Host::TemplateTexts;

constexpr char kHeader[] = "From: Q <q@example.org>\nSubject: {{S}}\nEnvelope-From:\n";
constexpr char kHtml[] =
    "<p title=\"{{S}}\">{{S}}</p><a href=\"{{S}}\">a</a><a href=\"/x?q={{S}}\">b</a>"
    "<style>a{color:{{S}}}</style><script>var a='{{S}}'</script><i title={{S}}>c</i>";

std::ptrdiff_t markup(const std::string& html) {
  return std::count_if(html.begin(), html.end(), [](char c) { return c == '<' || c == '>' || c == '"'; });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const auto kTemplate = std::make_shared<const ReportTemplate>(TemplateTexts{kHeader, kHtml, "{{S}}"}, "fuzz");
  const std::string input(reinterpret_cast<const char*>(data), size);
  const std::size_t cut = std::min(input.find('\n'), input.size());

  const auto values = Velmar::Host::customize(kTemplate);
  values->subject(input.substr(0, cut), "S");
  require(markup(values->htmlbody()) == markup(kHtml));
  for (const std::string& line : {values->subjectRFC2047(), values->textbody()}) {
    require(line.find_first_of("\r\n") == std::string::npos);
  }

  const std::string text = input.substr(cut);
  const auto own =
      Velmar::Host::customize(std::make_shared<const ReportTemplate>(TemplateTexts{kHeader, text, text}, "own"));
  own->subject(input, "S");
  if (own->good()) own->htmlbody().append(own->textbody());
  return 0;
}
