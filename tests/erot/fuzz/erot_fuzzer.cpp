// Feeds arbitrary replies to every eRoT command through a replaced
// transport. Input layout:
//   byte 0      which command
//   bytes 1-4   argument bits
//   then        replies, each a 16-bit little-endian length and that many
//               bytes; length 0xFFFF is a lost reply. Length 0xFFFE is a
//               long reply: a 32-bit length, a fill byte, a 16-bit head
//               length and the head; the head is followed by the fill byte
//               up to the length, so that a few bytes reach the bounds of
//               the paged reads (100 Component Info entries, 20,000 trace
//               records). When the input runs out every further exchange
//               is lost as well.
#include "erotlib/erot.hpp"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace
{

using namespace erot;

struct Input
{
    const uint8_t* data = nullptr;
    size_t size = 0;
};

Input replies;

constexpr uint16_t lostReply = 0xFFFF;
constexpr uint16_t longReply = 0xFFFE;

uint32_t take(size_t bytes)
{
    uint32_t value = 0;
    for (size_t i = 0; i < bytes && replies.size > 0; ++i)
    {
        value |= static_cast<uint32_t>(replies.data[0]) << (8 * i);
        ++replies.data;
        --replies.size;
    }
    return value;
}

int fuzzTransport(const uint8_t* request, size_t requestLength,
                  uint8_t* response, size_t responseCapacity,
                  uint32_t timeoutMs, size_t* pReceivedLength)
{
    // The library must always hand over a whole frame and sane sizes.
    if (request == nullptr || requestLength < frameHeaderSize ||
        request[0] != 0x7F || timeoutMs != commandTimeoutMs ||
        pReceivedLength == nullptr)
    {
        __builtin_trap();
    }
    if (replies.size < 2)
    {
        return -EIO;
    }
    auto length = static_cast<uint16_t>(take(2));
    if (length == lostReply)
    {
        return -EIO;
    }
    bool isLong = length == longReply;
    size_t total = isLong ? take(4) : 0;
    auto fill = static_cast<uint8_t>(isLong ? take(1) : 0);
    size_t taken = isLong ? take(2) : length;
    taken = taken < replies.size ? taken : replies.size;
    const uint8_t* bytes = replies.data;
    replies.data += taken;
    replies.size -= taken;
    total = isLong ? total : taken;
    // As the bus transport: too large a reply is refused, never cut.
    if (total > responseCapacity)
    {
        return -EIO;
    }
    taken = taken < total ? taken : total;
    std::memcpy(response, bytes, taken);
    std::memset(response + taken, fill, total - taken);
    *pReceivedLength = total;
    return 0;
}

struct Args
{
    std::array<uint8_t, 4> bits;

    uint8_t byte(size_t i) const
    {
        return bits[i % bits.size()];
    }
    uint32_t word() const
    {
        return static_cast<uint32_t>(bits[0] | (bits[1] << 8) |
                                     (bits[2] << 16) | (bits[3] << 24));
    }
    // Mostly the right length, sometimes not.
    size_t lengthNear(size_t right) const
    {
        return (bits[3] & 0x0F) == 0 ? right + bits[2] % 3 - 1 : right;
    }
};

void check(bool condition)
{
    if (!condition)
    {
        __builtin_trap();
    }
}

// Takes ownership of an array a command handed out and checks its bounds.
template <typename T>
Owned<T[]> takeArray(int r, uint32_t count, T* entries, size_t limit)
{
    Owned<T[]> held(entries);
    check(count <= limit);
    check(r == 0 || entries == nullptr);
    if (entries != nullptr && count > 0)
    {
        // Touch the last entry so that ASan sees the size handed out.
        volatile uint8_t last =
            reinterpret_cast<const uint8_t*>(&entries[count - 1])[0];
        (void)last;
    }
    return held;
}

int runComponentInfo(const Args& args, uint8_t* status)
{
    uint32_t count = 0;
    ComponentInfo* entries = nullptr;
    int r = ErotGetComponentInfo(args.byte(0) % 6, &count, &entries, status);
    takeArray(r, count, entries, componentInfoMaxEntries);
    return r;
}

int runTraceLog(const Args& args, uint8_t* status)
{
    uint32_t count = 0;
    TraceLogEntry* entries = nullptr;
    bool overflowed = false;
    int r = (args.byte(0) & 1) != 0
                ? ErotGetTraceLog(&count, &entries, &overflowed, status)
                : ErotGetTraceLogBasic(&count, &entries, &overflowed, status);
    auto held = takeArray(r, count, entries, traceLogMaxEntries);
    for (uint32_t i = 0; entries != nullptr && i < count; ++i)
    {
        check(entries[i].severity != 6);
    }
    return r;
}

int runBpr(const Args&, uint8_t* status)
{
    uint32_t count = 0;
    BootPartitionRecord* entries = nullptr;
    int r = ErotBPRRead(&count, &entries, status);
    takeArray(r, count, entries, 255);
    return r;
}

int runBkc(const Args&, uint8_t* status)
{
    uint32_t count = 0;
    BkcManifestEntry* entries = nullptr;
    int r = ErotGetBKCManifest(&count, &entries, status);
    takeArray(r, count, entries, 20);
    return r;
}

int runChain(const Args&, uint8_t* status)
{
    uint8_t* chain = nullptr;
    int r = ErotGetCertificationChain(&chain, status);
    Owned<uint8_t[]> held(chain);
    check((r == 0) == (chain != nullptr) || (r == 0 && *status != 0));
    if (chain != nullptr)
    {
        check(chain[certificationChainBufferSize - 1] == 0);
    }
    return r;
}

int runTokenRead(const Args&, uint8_t* status)
{
    uint8_t* token = nullptr;
    size_t length = 0;
    int r = ErotTokenRead(&token, &length, status);
    Owned<uint8_t[]> held(token);
    check(token == nullptr ? length == 0 : length == tokenSize);
    return r;
}

int runIdentity(const Args&, uint8_t* status)
{
    char* text = nullptr;
    int r = ErotGetIdentityHex(&text, status);
    Owned<char[]> held(text);
    check(text == nullptr || std::strlen(text) == 2 * deviceIdSize);
    return r;
}

int runFlashConfig(const Args& args, uint8_t* status)
{
    uint32_t active = 0;
    uint32_t pending = 0;
    bool update = false;
    int r = ErotActiveFlashConfigRead(
        &active, &pending, args.byte(0) & 1 ? &update : nullptr, status);
    check(active <= 0xFF && pending <= 0xFF);
    return r;
}

int runImageVerify(const Args& args, uint8_t* status)
{
    // Room for the lengths around the real one.
    static const std::array<uint8_t, 580> ahdr{};
    static const std::array<uint8_t, imageDigestSize> digest{};
    auto length = static_cast<uint16_t>(args.lengthNear(578));
    return ErotImageVerify(args.byte(0), static_cast<uint16_t>(args.word()),
                           digest.data(), length, ahdr.data(), status);
}

int runSecuritySettings(const Args& args, uint8_t* status)
{
    uint32_t settings = 0;
    bool present = false;
    uint32_t tokenSettings = 0;
    uint8_t which = args.byte(0);
    return ErotGetSecuritySettings(
        which & 1 ? &settings : nullptr, which & 2 ? &present : nullptr,
        which & 4 ? &tokenSettings : nullptr, status);
}

int runTokenInstall(const Args& args, uint8_t* status)
{
    static const std::array<uint8_t, tokenSize + 1> token{};
    return ErotTokenInstall(token.data(), args.lengthNear(tokenSize), status);
}

int runDeviceId(const Args& args, uint8_t* status)
{
    std::array<uint8_t, 64> buffer{};
    return ErotGetDeviceId(buffer.data(),
                           args.lengthNear(deviceIdSize + 1) % 65, status);
}

int runPersist(const Args& args, uint8_t* status)
{
    std::array<uint8_t, smcPersistSize + 1> buffer{};
    uint16_t length = 0;
    size_t asked = args.lengthNear(smcPersistSize);
    if ((args.byte(0) & 1) != 0)
    {
        return ErotSMCPersistSet(buffer.data(), asked, status);
    }
    int r = ErotSMCPersistGet(buffer.data(), asked, &length, status);
    check(r != 0 || length == smcPersistSize);
    return r;
}

int runRevokeBits(const Args& args, uint8_t* status)
{
    std::array<uint8_t, svnRevokeBitsSize> buffer{};
    uint16_t length = 0;
    if ((args.byte(0) & 1) != 0)
    {
        return ErotSvnRevokeBitsGet(buffer.data(), &length, status);
    }
    return ErotKeyRevokeBitsGet(
        buffer.data(), args.lengthNear(keyRevokeBitsSize), &length, status);
}

int runRecord(const Args& args, uint8_t* status)
{
    std::array<uint8_t, recordSize> record{};
    bool present = false;
    switch (args.byte(0) % 3)
    {
        case 0:
            return ErotRecordSet(record.data(), args.lengthNear(recordSize),
                                 status);
        case 1:
            return ErotRecordClear(status);
        default:
            return ErotRecordGet(&present, record.data(), status);
    }
}

int runSmallReads(const Args& args, uint8_t* status)
{
    bool flag = false;
    uint8_t value = 0;
    uint32_t word = 0;
    std::array<uint8_t, 2> health{};
    switch (args.byte(1) % 4)
    {
        case 0:
            return ErotGetAutoARBCommit(&flag, status);
        case 1:
            return ErotGetOneByte(&value, status);
        case 2:
            return ErotGetResetReason(&word, status);
        default:
        {
            int r = ErotHealthStatusPoll(health.data(), status);
            check(health[1] == 0 || health[1] == 0xFF);
            return r;
        }
    }
}

// Commands whose arguments are checked before they send; the ones that
// only send a fixed frame take the path that runTransact covers.
int runWrites(const Args& args, uint8_t* status)
{
    uint8_t b = args.byte(2);
    switch (args.byte(1) % 4)
    {
        case 0:
            return ErotSetManageabilityFeature(b % 40, b, status);
        case 1:
            return ErotSelectActiveFlash(b % 3, b, status);
        case 2:
            return ErotSystemReset(b, status);
        default:
            return ErotSignalBootSuccess(b, status);
    }
}

int runTransact(const Args& args, uint8_t* status)
{
    std::array<uint8_t, 64> request{};
    std::array<uint8_t, 64> response{};
    size_t length = 0;
    size_t requestLength = 8 + args.byte(1) % 57;
    size_t responseSize = args.byte(2) % 65;
    return ErotTransact(args.byte(0), request.data(), requestLength,
                        response.data(), responseSize,
                        (args.byte(3) & 1) != 0 ? &length : nullptr, status);
}

using Runner = int (*)(const Args&, uint8_t*);

constexpr std::array<Runner, 21> runners = {
    runComponentInfo, runTraceLog,         runBpr,           runBkc,
    runChain,         runTokenRead,        runIdentity,      runFlashConfig,
    runImageVerify,   runSecuritySettings, runTokenInstall,  runDeviceId,
    runPersist,       runRevokeBits,       runRecord,        runSmallReads,
    runWrites,        runTransact,         runComponentInfo, runTraceLog,
    runChain,
};

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    ErotSetTransport(&fuzzTransport);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 5)
    {
        return 0;
    }
    Args args{{data[1], data[2], data[3], data[4]}};
    replies = {data + 5, size - 5};
    uint8_t status = 0;
    int r = runners[data[0] % runners.size()](args, &status);
    check(r <= 0);
    if (r != 0 && status == 0xFF)
    {
        // A lost link is the transport's own code, never a protocol one.
        check(r != -EPROTO && r != -EPROTONOSUPPORT);
    }
    return 0;
}
