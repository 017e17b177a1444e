// The recipient policy and the handle that shares it.

#include <cstring>

#include "velmar/spamreport.h"

namespace Velmar {

RecipientPolicy::RecipientPolicy() { std::memset(&record, 0, sizeof record); }
RecipientPolicy::~RecipientPolicy() = default;

RefRecipientPolicy::RefRecipientPolicy(bool create) {
  // reset() deletes the new policy when its own bookkeeping cannot be allocated.
  if (create) policy_.reset(new RecipientPolicy);
}
RefRecipientPolicy::RefRecipientPolicy(const RefRecipientPolicy&) = default;
RefRecipientPolicy& RefRecipientPolicy::operator=(const RefRecipientPolicy&) = default;
RefRecipientPolicy::~RefRecipientPolicy() = default;

RecipientPolicy* RefRecipientPolicy::get() const noexcept { return policy_.get(); }

}  // namespace Velmar
