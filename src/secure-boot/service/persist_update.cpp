#include "secure-boot/persist_update.hpp"

#include "logging/log_line.hpp"
#include "secure-boot/erot_calls.hpp"
#include "secure-boot/secure_boot_service.hpp"

namespace orvane
{

namespace
{

// The read itself, under the caller's hold of persistLock.
bool ReadHeld(SecureBootService& service, erot::SmcPersistRecord& record)
{
    // Read beside the working copy, so that a bad read leaves it as it was.
    erot::SmcPersistRecord read{};
    uint16_t length = 0;
    const int status = ErotSMCPersistGet(*service.criticalSection,
                                         reinterpret_cast<uint8_t*>(&read),
                                         sizeof(read), &length);
    if (status != 0 || length != sizeof(read))
    {
        return false;
    }
    *service.persist = read;
    record = read;
    return true;
}

} // namespace

bool ReadPersist(SecureBootService& service, erot::SmcPersistRecord& record)
{
    std::lock_guard<std::mutex> hold(service.persistLock);
    return ReadHeld(service, record);
}

bool ChangePersist(SecureBootService& service,
                   const std::function<void(erot::SmcPersistRecord&)>& change)
{
    UpdatePersistIf(service, name, [&](erot::SmcPersistRecord& record) {
        change(record);
        return true;
    });
}

bool UpdatePersistIf(SecureBootService& service, const std::string& name,
                     const std::function<bool(erot::SmcPersistRecord&)>& change)
{
    std::lock_guard<std::mutex> hold(service.persistLock);
    erot::SmcPersistRecord record{};
    if (!ReadHeld(service, record))
    {
<<<<<<< HEAD
        return false;
    }
    change(*service.persist);
    ErotSMCPersistSet(*service.criticalSection,
                      reinterpret_cast<const uint8_t*>(service.persist.get()),
                      sizeof(record));
    return true;
}

void UpdatePersist(SecureBootService& service, const std::string& name,
                   const std::function<void(erot::SmcPersistRecord&)>& change)
{
    if (!ChangePersist(service, change))
    {
        ConsoleLog(logging::level::ERR)
            << name << " Get_SMC_Persist process error.";
    }
=======
        ConsoleLog(logging::level::ERR)
            << name << " Get_SMC_Persist process error.";
        return false;
    }
    *service.persist = record;
    if (change(*service.persist))
    {
        ErotSMCPersistSet(
            *service.criticalSection,
            reinterpret_cast<const uint8_t*>(service.persist.get()),
            sizeof(record));
    }
    return true;
>>>>>>> comp
}

} // namespace orvane
