#include "tests/hostile_client/scenarios.h"

#include <cstdio>
#include <cstdlib>

namespace {

constexpr int kUsage = 2;

int Usage()
{
    fprintf(stderr, "usage: kova_hostile_client HOST PORT URI SCENARIO [COUNT [HOLD_MS]]\n"
                    "       kova_hostile_client HOST PORT URI all [COUNT [HOLD_MS]]\n"
                    "       kova_hostile_client HOST PORT URI list\n"
                    "HOST is dotted. The exit status is 1 when a scenario could not be carried\n"
                    "out or the server does not answer afterwards.\n");
    return kUsage;
}

int List()
{
    for (const KovaHostileScenario &scenario : KovaHostileScenarios())
        printf("%-24s%s\n", scenario.szName, scenario.szWhat);
    return EXIT_SUCCESS;
}

bool Run(const KovaHostileScenario &scenario, const KovaHostileTarget &target)
{
    const bool bDone = scenario.pfnRun(target);
    const bool bAnswers = KovaHostileServerAnswers(target);
    printf("%-24s%s, %s\n", scenario.szName, bDone ? "done" : "could not be carried out",
           bAnswers ? "the server answers" : "THE SERVER DOES NOT ANSWER");
    return bDone && bAnswers;
}

} // namespace

int main(int nArguments, char **ppArguments)
{
    setvbuf(stdout, nullptr, _IOLBF, 0);
    if (nArguments < 5 || nArguments > 7)
        return Usage();
    KovaHostileTarget target;
    target.host = ppArguments[1];
    target.nPort = static_cast<uint16_t>(std::atoi(ppArguments[2]));
    target.uri = ppArguments[3];
    if (nArguments > 5)
        target.nCount = static_cast<unsigned>(std::atoi(ppArguments[5]));
    if (nArguments > 6)
        target.nHoldMilliseconds = static_cast<unsigned>(std::atoi(ppArguments[6]));
    const std::string name = ppArguments[4];
    if (name == "list")
        return List();
    if (name == "all") {
        bool bGood = true;
        for (const KovaHostileScenario &scenario : KovaHostileScenarios())
            bGood = Run(scenario, target) && bGood;
        return bGood ? EXIT_SUCCESS : EXIT_FAILURE;
    }
    const KovaHostileScenario *pScenario = KovaHostileFind(name);
    if (pScenario == nullptr) {
        fprintf(stderr, "no scenario is named '%s'; 'list' names them\n", name.c_str());
        return kUsage;
    }
    return Run(*pScenario, target) ? EXIT_SUCCESS : EXIT_FAILURE;
}
