#pragma once

#include <semaphore.h>

namespace orvane
{

// What all secure boot code shares. The semaphore of the Boot Critical
// Section comes first: a halt must be able to release the waiter with
// nothing else of the record.
struct BootContext
{
    sem_t* criticalSection = nullptr;
};

} // namespace orvane
