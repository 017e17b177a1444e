// A program of a mail system that calls the library with whatever it was given, unchecked, for test_arguments.py.

#include <iostream>
#include <string>

#include "velmar/spamreport.h"

// Reads pairs of domain and recipients, each text ended by a NUL.
int main() {
  int result = 0;
  for (std::string domain, recipients;
       std::getline(std::cin, domain, '\0') && std::getline(std::cin, recipients, '\0');)
    result |= vlm_spamreport_report_byrcpt(domain.c_str(), recipients.c_str(), 86400, 0);
  return result == 0 ? 0 : 1;
}
