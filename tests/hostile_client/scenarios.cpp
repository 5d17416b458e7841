#include "tests/hostile_client/scenarios.h"

namespace {

using Family = const std::vector<KovaHostileScenario> &(*)();

constexpr Family kFamilies[] = {KovaHostileRequestScenarios, KovaHostileConnectionScenarios,
                                KovaHostileMediaScenarios};

} // namespace

std::vector<KovaHostileScenario> KovaHostileScenarios()
{
    std::vector<KovaHostileScenario> all;
    for (const Family pfnFamily : kFamilies)
        all.insert(all.end(), pfnFamily().begin(), pfnFamily().end());
    return all;
}

const KovaHostileScenario *KovaHostileFind(const std::string &name)
{
    for (const Family pfnFamily : kFamilies) {
        for (const KovaHostileScenario &scenario : pfnFamily()) {
            if (name == scenario.szName)
                return &scenario;
        }
    }
    return nullptr;
}
