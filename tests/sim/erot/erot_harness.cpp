#include "erot_harness.hpp"

#include "erot/sha384.hpp"

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iterator>

namespace ubbsim::erot::test
{

namespace
{

ErotEndpoint* active = nullptr;

// The transport to the endpoint, addressed as the bus call addresses it:
// lost replies and a dead link are asked again up to five times as on the
// bus, and end in -EIO.
int inProcessTransport(const uint8_t* request, size_t requestLength,
                       uint8_t* response, size_t capacity, uint32_t timeoutMs,
                       size_t* pReceivedLength)
{
    MctpCall call{100, 0x94, static_cast<uint16_t>(timeoutMs)};
    for (int attempt = 0; attempt < ::erot::transportAttempts; ++attempt)
    {
        Delivery delivery = active->exchange(call, {request, requestLength});
        if (delivery.kind != Delivery::Kind::reply)
        {
            continue;
        }
        if (delivery.frame.size() > capacity)
        {
            return -EIO;
        }
        std::copy(delivery.frame.begin(), delivery.frame.end(), response);
        *pReceivedLength = delivery.frame.size();
        return 0;
    }
    return -EIO;
}

template <typename Entry, typename Read>
std::vector<Entry> readAll(Read read)
{
    uint32_t count = 0;
    Entry* raw = nullptr;
    EXPECT_EQ(read(&count, &raw), 0);
    ::erot::Owned<Entry> owned(raw);
    return raw == nullptr ? std::vector<Entry>{}
                          : std::vector<Entry>(raw, raw + count);
}

} // namespace

ErotFault fault(std::string kind, int opcode, int value, int count)
{
    ErotFault made;
    made.kind = std::move(kind);
    made.opcode = opcode;
    made.value = value;
    made.count = count;
    return made;
}

const BoardKeys& ErotTest::keys()
{
    static const BoardKeys made = generateBoardKeys();
    return made;
}

ErotTest::ErotTest() : previous(::erot::ErotSetTransport(&inProcessTransport))
{}

ErotTest::~ErotTest()
{
    ::erot::ErotSetTransport(previous);
    active = nullptr;
}

void ErotTest::boot(const ErotScenario& scenario)
{
    // Both sides' UBB FPGA image files, so that every pair can be judged.
    ErotScenario staged = scenario;
    staged.stagedUbbFpga = {0, 1};
    boot(setUpBoardErot(staged, root, keys()), scenario.faults);
}

void ErotTest::boot(ErotState state, std::vector<ErotFault> faults)
{
    endpoint = std::make_unique<ErotEndpoint>(
        std::move(state), std::move(faults), [this] { return now; });
    active = endpoint.get();
}

void ErotTest::bootWith(std::vector<ErotFault> faults)
{
    ErotScenario scenario;
    scenario.faults = std::move(faults);
    boot(scenario);
}

std::vector<uint8_t> ErotTest::file(int side, const std::string& name) const
{
    std::ifstream in(root / "var/lib/images" / (side == 0 ? "A" : "B") / name,
                     std::ios::binary);
    return {std::istreambuf_iterator<char>(in),
            std::istreambuf_iterator<char>()};
}

int ErotTest::verify(int side, const std::string& stem)
{
    SignedImage image;
    image.payload = file(side, stem + ".bin");
    std::vector<uint8_t> ahdr = file(side, stem + ".ahdr");
    EXPECT_EQ(ahdr.size(), ahdrSize) << stem;
    std::copy_n(ahdr.begin(), std::min(ahdr.size(), ahdrSize),
                image.ahdr.begin());
    return verify(image);
}

int ErotTest::verify(const SignedImage& image)
{
    // The SMC hashes every image but the bundle, whose hash stays zero.
    Digest hash{};
    auto fields = parseAhdr(image.ahdr);
    if (fields && fields->verifiablePayloadSize != 0)
    {
        hash = sha384(image.payload);
    }
    uint8_t verdict = 0;
    int result = ::erot::ErotImageVerify(0, fields ? fields->componentId : 0,
                                         hash.data(), ahdrSize,
                                         image.ahdr.data(), &verdict);
    return result == 0 ? verdict : -1;
}

std::vector<TraceRecord> ErotTest::traces(const std::string& tag) const
{
    std::vector<TraceRecord> found;
    for (const TraceRecord& record : endpoint->state().traceLog)
    {
        if (std::string(record.tag.begin(), record.tag.end()) == tag)
        {
            found.push_back(record);
        }
    }
    return found;
}

std::vector<::erot::BootPartitionRecord> ErotTest::bootPartitions()
{
    return readAll<::erot::BootPartitionRecord>([this](auto* n, auto** raw) {
        return ::erot::ErotBPRRead(n, raw, &status);
    });
}

std::vector<::erot::ComponentInfo> ErotTest::componentInfo(uint8_t version)
{
    return readAll<::erot::ComponentInfo>([&](auto* n, auto** raw) {
        return ::erot::ErotGetComponentInfo(version, n, raw, &status);
    });
}

} // namespace ubbsim::erot::test
