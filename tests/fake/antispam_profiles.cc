// The anti-spam profiles of the fake world.

#include "platform/antispam_profiles.h"

#include "tests/fake/fake.h"

namespace Velmar {

ProfileFactory* ProfileFactory::instance() {
  static ProfileFactory factory;
  return &factory;
}

ProfileAntiSpam ProfileFactory::createProfileAntiSpam(int profile, unsigned int domain) {
  Fake::call("createProfileAntiSpam", Fake::join({std::to_string(profile), std::to_string(domain)}));
  const auto found = Fake::world().profiles.find({profile, domain});
  return found == Fake::world().profiles.end() ? ProfileAntiSpam() : ProfileAntiSpam(found->second);
}

}  // namespace Velmar
