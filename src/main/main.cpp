#include "main/orvane_main.hpp"
#include "main/secure_shm.hpp"
#include "utils/platform/production.hpp"

int main()
{
    orvane::platform::installProduction();
    orvane::OrvaneMain(orvane::secureShmName);
}
