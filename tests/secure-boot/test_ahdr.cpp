#include "image_files.hpp"

#include "fakes/console_capture.hpp"
#include "fakes/fake_platform.hpp"
#include "secure-boot/ahdr.hpp"

#include <optional>

#include <gmock/gmock.h>

namespace orvane::test
{
namespace
{

using ::testing::HasSubstr;
using ::testing::Not;

const std::string path = "/var/lib/images/A/retimer.ahdr";

// The dump's lines of SampleAhdr, in order.
const std::vector<std::string> sampleDump = {
    "Dump AHDR [" + path + "]:",
    "Header Magic Value=[\"AHDR\"]",
    "Header Version=[0x00010002]",
    "Flags=[0x0a0b]",
    "Component ID=[0x0600]",
    "Current SW Version Number=[0x01020304]",
    "Security Version Number=[0x00000007]",
    "Signing Key ID=[0x11223344]",
    "Customer ID=[0x5566]",
    "Variant ID=[0x7788]",
    "Full Payload Size=[0x00002000(8192)]",
    "Verifiable Payload Size=[0x00001000(4096)]",
};

// Each file is refused at its own step; a bad magic only after the dump,
// so that the header can still be read in the log.
TEST(AhdrReader, RefusesAtTheRightStepAndDumpsBeforeTheMagicCheck)
{
    struct Case
    {
        const char* name;
        std::optional<size_t> size; // none: no file
        uint32_t magic;
        bool result;
        const char* failure;
        bool dumped;
    };
    const Case cases[] = {
        {"good", ahdrSize, ahdrMagic, true, nullptr, true},
        {"missing", std::nullopt, ahdrMagic, false, "Failed to open AHDR image",
         false},
        {"one short", ahdrSize - 1, ahdrMagic, false,
         "Unexpected AHDR size [577 != 578]", false},
        {"one long", ahdrSize + 1, ahdrMagic, false,
         "Unexpected AHDR size [579 != 578]", false},
        {"bad magic", ahdrSize, 0x52444842, false,
         "Header Magic Value check failed", true},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.name);
        FakePlatform fake;
        AhdrHeader header = SampleAhdr(0x0600, 4096);
        header.magic = c.magic;
        if (c.size)
        {
            Bytes bytes = AhdrBytes(header);
            bytes.resize(*c.size, 0xee);
            WriteBoardFile(path, bytes);
        }
        AhdrHeader read;
        std::memset(&read, 0x5a, sizeof(read));
        const std::string out =
            console([&] { EXPECT_EQ(ReadAhdr(path, read), c.result); });
        EXPECT_EQ(out.find("Read 578 bytes from AHDR") != std::string::npos,
                  c.dumped)
            << "a wrong size is refused before any read";
        std::vector<std::string> dump = sampleDump;
        dump[1] = "Header Magic Value=[\"" +
                  std::string(reinterpret_cast<const char*>(&c.magic), 4) +
                  "\"]";
        size_t at = 0;
        for (const std::string& line : dump)
        {
            at = out.find(line, at);
            EXPECT_EQ(at != std::string::npos, c.dumped) << line;
            at = at == std::string::npos ? 0 : at;
        }
        if (c.failure != nullptr)
        {
            EXPECT_GT(out.find(c.failure), at) << out;
        }
        if (c.dumped)
        {
            EXPECT_EQ(std::memcmp(&read, &header, sizeof(header)), 0)
                << "the buffer keeps what was read";
        }
    }
}

// The plain voice of the UBB FPGA and bundle readers.
TEST(AhdrReader, PlainVoicePrintsItsOwnTexts)
{
    FakePlatform fake;
    AhdrHeader header = SampleAhdr();
    header.magic = 0;
    WriteBoardFile(path, AhdrBytes(header));
    AhdrHeader read;
    const std::string out = console([&] {
        EXPECT_TRUE(LoadAhdr(path, read, AhdrVoice::plain));
        EXPECT_FALSE(CheckAhdrMagic(read, AhdrVoice::plain));
    });
    EXPECT_THAT(out, HasSubstr("Read active AHDR [" + path + "]\n"));
    EXPECT_THAT(out, HasSubstr("AHDR Header Magic Value check failed"));
}

TEST(AhdrReader, ComponentDetailsRenderToTheFirstNulWithSubstitutes)
{
    struct Case
    {
        const char* name;
        std::vector<std::pair<size_t, uint8_t>> bytes; // over all 'a'
        std::string expected;
    };
    const std::string full(ahdrDetailsSize, 'a');
    const Case cases[] = {
        {"250 printable, no NUL", {}, full},
        {"non-printable bytes",
         {{0, 0x1f}, {3, 0x7f}, {249, 0xff}},
         "?aa?" + std::string(245, 'a') + "?"},
        {"NUL ends it", {{5, 0}, {6, 0x01}}, "aaaaa"},
        {"NUL first", {{0, 0}}, ""},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.name);
        AhdrHeader header{};
        std::memset(header.componentDetails, 'a', ahdrDetailsSize);
        // The byte after the field must not leak into the text.
        header.signatureBlock[0] = 'Z';
        for (auto [at, value] : c.bytes)
        {
            header.componentDetails[at] = value;
        }
        EXPECT_EQ(RenderComponentDetails(header), c.expected);
    }
}

} // namespace
} // namespace orvane::test
