// White space at the start of a text, without regard to the locale.

#include <cstring>

#include "platform/text_network.h"

namespace Velmar {

char* trim_left(char* text) { return text + std::strspn(text, " \t\n\v\f\r"); }

}  // namespace Velmar
