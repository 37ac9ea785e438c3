#include "main/orvane_main.hpp"
#include "main/power_boot_ops.hpp"
#include "main/secure_shm.hpp"
#include "utils/platform/production.hpp"

int main()
{
    orvane::platform::installProduction();
    static orvane::PowerBootOps ops;
    orvane::OrvaneMain(ops, orvane::secureShmName);
}
