// Value types come from the host platform. These few operations pass through here on their way there (the linker
// redirects them, see CMakeLists.txt), so that they are recorded and can be made to fail like every other call.

#include "platform/types.h"
#include "tests/fake/fake.h"

using Velmar::Buffer;
using Velmar::EmailAddress;
using Velmar::Fake::call;
using Velmar::Fake::join;

// A member function takes its object as the first argument, and a class with a destructor is returned in the same way
// by members and by functions; so a plain function can stand in for a member. The names are the linker's.
// NOLINTBEGIN
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpragmas"
#pragma GCC diagnostic ignored "-Wunknown-warning-option"
#pragma GCC diagnostic ignored "-Wreturn-type-c-linkage"
extern "C" {

std::string __real__ZNK6Velmar6Buffer14toBase64StringB5cxx11Ev(const Buffer*);
std::string __wrap__ZNK6Velmar6Buffer14toBase64StringB5cxx11Ev(const Buffer* buffer) {
  call("toBase64String");
  return __real__ZNK6Velmar6Buffer14toBase64StringB5cxx11Ev(buffer);
}

EmailAddress __real__ZN6Velmar12EmailAddress12rfc5322ParseERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEEb(
    const std::string&, bool);
EmailAddress __wrap__ZN6Velmar12EmailAddress12rfc5322ParseERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEEb(
    const std::string& text, bool requireDomain) {
  call("rfc5322Parse", join({text, requireDomain ? "true" : "false"}));
  return __real__ZN6Velmar12EmailAddress12rfc5322ParseERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEEb(
      text, requireDomain);
}
}
#pragma GCC diagnostic pop
// NOLINTEND
