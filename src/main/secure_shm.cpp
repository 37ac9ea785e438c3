#include "main/secure_shm.hpp"

#include "logging/log_line.hpp"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

namespace orvane
{

using logging::level::CRITICAL;

// Other processes map the object at the target's size: its semaphore must
// fit exactly, whatever the width of time_t.
static_assert(sizeof(void*) != 4 || sizeof(sem_t) == secureShmSize);

sem_t* OpenSecureShm(const char* name)
{
    int fd = shm_open(name, O_RDWR | O_CREAT, 0700);
    if (fd < 0)
    {
        ConsoleLog(CRITICAL) << "Share memory open failed.";
        std::exit(1);
    }
    if (ftruncate(fd, secureShmSize) < 0)
    {
        ConsoleLog(CRITICAL) << "Share memory truncate failed.";
        std::exit(1);
    }
    // A host semaphore may be larger than the target's; map enough for it.
    size_t length = std::max<size_t>(secureShmSize, sizeof(sem_t));
    void* memory =
        mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (memory == MAP_FAILED)
    {
        ConsoleLog(CRITICAL) << "Memory Map to share memory failed.";
        std::exit(1);
    }
    auto* semaphore = static_cast<sem_t*>(memory);
    if (sem_init(semaphore, 1, 1) < 0)
    {
        // This one failure ends with status 0.
        ConsoleLog(CRITICAL) << "Semaphore Init failed.";
        std::exit(0);
    }
    return semaphore;
}

} // namespace orvane
