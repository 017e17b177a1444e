// Calls the installed classes, and catches the library's exception by the platform's type.

#include <velmar/spamreport.h>

#include <iostream>

int main() {
  if (Velmar::SpamreportGenerator::convert_home_dir_to_address("/home/d/u~d") != "u@d") return 1;
  try {
    const Velmar::Spamreport report(Velmar::RefRecipientPolicy(false), "nobody", "", 0, 0);
    return 2;
  } catch (const Velmar::Exception& e) {
    if (e.text() != "Invalid user: nobody") return 3;
    std::cout << e.asString() << "\n";
  }
  return vlm_spamreport_report_byrcpt("d", nullptr, 0, 0) == -1 ? 0 : 4;
}
