// What the reference-counted handles need out of line.

#include "platform/types.h"

namespace Velmar {

RefImpl::~RefImpl() = default;

void throwEmptyHandle() { throw Exception("NullPointerException", 1, "VlmRefcounted", 359, "operator->"); }

}  // namespace Velmar
