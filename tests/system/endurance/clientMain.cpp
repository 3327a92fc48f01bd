/// enduranceclient: one client of the endurance run.

#include "client.h"
#include "rhuneClient.h"

#include <CLI/CLI.hpp>
#include <csignal>
#include <exception>
#include <fmt/format.h>
#include <sys/prctl.h>
#include <unistd.h>

using namespace Endurance;

int main(int argc, char** argv)
{
    CLI::App app("One client of the endurance run; started by it.", "enduranceclient");
    std::string ledgerPath;
    bool isRhune = false;
    ClientSettings settings;
    app.add_option("--ledger", ledgerPath, "The file that the run's programs share")->required();
    app.add_option("--slot", settings.slot, "Its place in that file")->check(CLI::Range(Ledger::maxSlots - 1));
    app.add_option("--seed", settings.seed, "Of what it does at random");
    app.add_option("--pause", settings.pause, "Between its bursts of requests, milliseconds, on average");
    app.add_flag("--stays", settings.stays, "It goes when it is told to, and at no other time");
    app.add_flag("--rhune", isRhune, "It is a client of the unit, which tells faults");
    CLI11_PARSE(app, argc, argv);

    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    std::signal(SIGTERM, [](int) { isToldToGo = 1; });
    settings.name = fmt::format("endurance{}_{}", settings.slot, ::getpid());
    try {
        const auto ledger = openLedger(ledgerPath);
        if (isRhune) {
            RhuneClient(*ledger, settings.name, settings.seed).run();
        } else {
            Client(*ledger, settings).run();
        }
        return 0;
    } catch (const std::exception& error) {
        fmt::print(stderr, "enduranceclient: {}\n", error.what());
        return 1;
    }
}
