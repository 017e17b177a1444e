// Renders the dates of header and rows; called once a row.

#include "spamreport/date_text.h"

#include "platform/text_network.h"

namespace Velmar {
namespace {

constexpr int kDateAndTime = 2;  // the platform's style of date with time of day
constexpr std::size_t kDateSize = 1024;

}  // namespace

std::string dateText(std::time_t when, const std::string& language) {
  std::tm local{};
  char text[kDateSize] = "";
  if (localtime_r(&when, &local)) translate_datetime(&local, kDateAndTime, language.c_str(), text, sizeof text);
  return text;
}

}  // namespace Velmar
