#include "main/boot_ops.hpp"
#include "main/orvane_main.hpp"
#include "main/secure_shm.hpp"
#include "utils/platform/production.hpp"

int main()
{
    orvane::platform::installProduction();
    static orvane::PlaceholderBootOps ops;
    orvane::OrvaneMain(ops, orvane::secureShmName);
}
