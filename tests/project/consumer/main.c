/* Calls the installed function from C. */

#include <velmar/spamreport.h>

int main(void) {
  if (vlm_spamreport_report_byrcpt(0, 0, 0, 0) != -1) return 1;
  return vlm_spamreport_report_byrcpt("d.example", "", 3600, INT64_C(0)) == 0 ? 0 : 2;
}
