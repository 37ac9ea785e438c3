#include "image_files.hpp"

#include "fakes/console_capture.hpp"
#include "fakes/fake_platform.hpp"

#include <gtest/gtest.h>

namespace orvane::test
{
namespace
{

// A wrong size is refused before any read; a bad magic only after the
// whole dump, so that the header can still be read in the log.
TEST(AhdrReader, RefusesAtTheRightStep)
{
    const std::tuple<size_t, uint32_t, std::string> cases[] = {
        {ahdrSize, ahdrMagic, ""},
        {ahdrSize - 1, ahdrMagic, "Unexpected AHDR size [577 != 578]"},
        {ahdrSize + 1, ahdrMagic, "Unexpected AHDR size [579 != 578]"},
        {ahdrSize, 0x52444842, "Header Magic Value check failed"},
    };
    FakePlatform fake;
    for (const auto& [size, magic, failure] : cases)
    {
        AhdrHeader header = SampleAhdr(0x0700, 4096);
        header.magic = magic;
        Bytes bytes = AhdrBytes(header);
        bytes.resize(size);
        WriteBoardFile("/a.ahdr", bytes);
        AhdrHeader read;
        const std::string out = console(
            [&] { EXPECT_EQ(ReadAhdr("/a.ahdr", read), failure.empty()); });
        const size_t dumpEnd =
            out.find("Verifiable Payload Size=[0x00001000(4096)]");
        EXPECT_EQ(dumpEnd != std::string::npos, size == ahdrSize) << size;
        EXPECT_NE(out.find(failure, size == ahdrSize ? dumpEnd : 0),
                  std::string::npos)
            << out;
    }
}

TEST(AhdrReader, DetailsRenderToTheFirstNulWithSubstitutes)
{
    const std::pair<std::vector<std::pair<size_t, uint8_t>>, std::string>
        cases[] = {
            {{}, std::string(ahdrDetailsSize, 'a')},
            {{{0, 0x1f}, {3, 0x7f}, {249, 0xff}},
             "?aa?" + std::string(245, 'a') + "?"},
            {{{5, 0}, {6, 0x01}}, "aaaaa"},
        };
    for (const auto& [bytes, expected] : cases)
    {
        AhdrHeader header{};
        std::memset(header.componentDetails, 'a', ahdrDetailsSize);
        header.signatureBlock[0] = 'Z'; // must not leak into the text
        for (auto [at, value] : bytes)
        {
            header.componentDetails[at] = value;
        }
        EXPECT_EQ(RenderComponentDetails(header), expected);
    }
}

} // namespace
} // namespace orvane::test
