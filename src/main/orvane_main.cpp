#include "main/orvane_main.hpp"

#include "main/boot_driver.hpp"
#include "main/secure_shm.hpp"
#include "secure-boot/hash_file.hpp"

namespace orvane
{

void OrvaneMain(const char* shmName)
{
    sem_t* semaphore = OpenSecureShm(shmName);
    PrepareDigests();
    // On this stack for the life of the process, which never returns from
    // here: the D-Bus thread and the power monitor hold references to it.
    OrvaneSvcState state;
    RunBoot(state, semaphore);
    EnterEndState();
}

} // namespace orvane
