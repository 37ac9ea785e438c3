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

// Read, change and, when the change asks for it, write back; false when
// the read was bad.
bool ChangeHeld(SecureBootService& service,
                const std::function<bool(erot::SmcPersistRecord&)>& change)
{
    std::lock_guard<std::mutex> hold(service.persistLock);
    erot::SmcPersistRecord record{};
    if (!ReadHeld(service, record))
    {
        return false;
    }
    if (change(*service.persist))
    {
        ErotSMCPersistSet(
            *service.criticalSection,
            reinterpret_cast<const uint8_t*>(service.persist.get()),
            sizeof(record));
    }
    return true;
}

void reportBadRead(const std::string& name)
{
    ConsoleLog(logging::level::ERR)
        << name << " Get_SMC_Persist process error.";
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
    return ChangeHeld(service, [&](erot::SmcPersistRecord& record) {
        change(record);
        return true;
    });
}

void UpdatePersist(SecureBootService& service, const std::string& name,
                   const std::function<void(erot::SmcPersistRecord&)>& change)
{
    if (!ChangePersist(service, change))
    {
        reportBadRead(name);
    }
}

bool UpdatePersistIf(SecureBootService& service, const std::string& name,
                     const std::function<bool(erot::SmcPersistRecord&)>& change)
{
    if (!ChangeHeld(service, change))
    {
        reportBadRead(name);
        return false;
    }
    return true;
}

} // namespace orvane
