#include "main/orvane_main.hpp"
#include "main/secure_shm.hpp"
#include "utils/platform/production.hpp"

#include <cstdio>

int main(int argc, char** /*argv*/)
{
    // The daemon takes no arguments: one typed by a person (--help) must
    // not start a boot on a running board.
    if (argc > 1)
    {
        std::fputs("usage: orvane (no arguments; the SMC's power and secure "
                   "boot daemon, started once at boot)\n",
                   stderr);
        return 2;
    }
    orvane::platform::installProduction();
    orvane::OrvaneMain(orvane::secureShmName);
}
