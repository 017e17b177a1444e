#include "platform/types.h"
namespace Velmar {
EmailAddress::EmailAddress() = default;
}
