#include "secure-boot/persist_update.hpp"

#include "logging/log_line.hpp"
#include "secure-boot/erot_calls.hpp"
#include "secure-boot/secure_boot_service.hpp"

namespace orvane
{

namespace
{

// With persistLock held.
bool readLocked(SecureBootService& service, const std::string& name)
{
    // Read beside the working copy, so that a bad read leaves it as it was.
    erot::SmcPersistRecord record{};
    uint16_t length = 0;
    const int status = ErotSMCPersistGet(*service.criticalSection,
                                         reinterpret_cast<uint8_t*>(&record),
                                         sizeof(record), &length);
    if (status != 0 || length != sizeof(record))
    {
        ConsoleLog(logging::level::ERR)
            << name << " Get_SMC_Persist process error.";
        return false;
    }
    *service.persist = record;
    return true;
}

} // namespace

bool ReadPersist(SecureBootService& service, const std::string& name)
{
    std::lock_guard<std::mutex> hold(service.persistLock);
    return readLocked(service, name);
}

void UpdatePersist(SecureBootService& service, const std::string& name,
                   const std::function<void(erot::SmcPersistRecord&)>& change)
{
    std::lock_guard<std::mutex> hold(service.persistLock);
    if (!readLocked(service, name))
    {
        return;
    }
    change(*service.persist);
    ErotSMCPersistSet(*service.criticalSection,
                      reinterpret_cast<const uint8_t*>(service.persist.get()),
                      sizeof(erot::SmcPersistRecord));
}

} // namespace orvane
