#include "image_files.hpp"

#include "fakes/console_capture.hpp"
#include "fakes/fake_platform.hpp"
#include "secure-boot/hash_file.hpp"

#include <gmock/gmock.h>

namespace orvane::test
{
namespace
{

using ::testing::HasSubstr;
using ::testing::Not;

const std::string path = "/var/lib/images/A/vr.bin";

TEST(HashFile, PrintsSizesAndTheDigestTable)
{
    FakePlatform fake;
    WriteBoardFile(path, {'a', 'b', 'c'});
    std::array<uint8_t, 48> digest{};
    const std::string out =
        console([&] { EXPECT_TRUE(HashFile(path, 3, digest)); });
    EXPECT_EQ(out, "Real file size: [3]\n"
                   "Total 3 bytes read from file\n"
                   "Dump 48 bytes SHA-384 hash:\n"
                   "------------------------------------------------------"
                   "---------------------\n"
                   " Offset   00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E "
                   "0F  0123456789ABCDEF\n"
                   "--------  -----------------------------------------------"
                   "  ----------------\n"
                   "00000000  cb 00 75 3f 45 a3 5e 8b b5 a0 3d 69 9a c6 50 "
                   "07  ..u?E.^...=i..P.\n"
                   "00000010  27 2c 32 ab 0e de d1 63 1a 8b 60 5a 43 ff 5b "
                   "ed  ',2....c..`ZC.[.\n"
                   "00000020  80 86 07 2b a1 e7 cc 23 58 ba ec a1 34 c8 25 "
                   "a7  ...+...#X...4.%.\n"
                   "------------------------------------------------------"
                   "---------------------\n");
}

// All three forms stream the whole file, across block boundaries, and
// agree with a digest taken in one call.
TEST(HashFile, EveryFormCoversTheWholeFile)
{
    FakePlatform fake;
    const Bytes content = Pattern(3 * 4096 + 17);
    WriteBoardFile(path, content);
    std::array<uint8_t, 48> loud{};
    std::array<uint8_t, 48> quiet{};
    std::string text;
    console([&] {
        EXPECT_TRUE(HashFile(path, 4096, loud));
        EXPECT_TRUE(HashFileQuiet(path, quiet));
        EXPECT_TRUE(HashFileSha256(path, text));
    });
    const auto sha384 = OneShotDigest<48>(EVP_sha384(), content);
    EXPECT_EQ(loud, sha384);
    EXPECT_EQ(quiet, sha384);
    EXPECT_EQ(text, Sha256Text(content.data(), content.size()));
    EXPECT_EQ(
        Sha256Text(reinterpret_cast<const uint8_t*>("abc"), 3),
        "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST(HashFile, FailsOnMissingShortAndEmptyFiles)
{
    struct Case
    {
        const char* name;
        bool exists;
        size_t size;
        uint32_t minimum;
        const char* line;
    };
    const Case cases[] = {
        {"missing", false, 0, 0,
         "Failed to open file [/var/lib/images/A/vr.bin]\n"},
        {"below the minimum", true, 10, 20, "Unexpected file size [10 < 20]\n"},
        {"empty", true, 0, 0, "Total 0 bytes read from file\n"},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.name);
        FakePlatform fake;
        if (c.exists)
        {
            WriteBoardFile(path, Pattern(c.size));
        }
        std::array<uint8_t, 48> digest{};
        const std::string out =
            console([&] { EXPECT_FALSE(HashFile(path, c.minimum, digest)); });
        EXPECT_THAT(out, HasSubstr(c.line));
        EXPECT_THAT(out, Not(HasSubstr("SHA-384 hash:")));
        // The other forms know no minimum: only a file with bytes hashes.
        const bool hashes = c.exists && c.size > 0;
        std::string text;
        EXPECT_EQ(
            console([&] { EXPECT_EQ(HashFileQuiet(path, digest), hashes); }),
            "");
        console([&] { EXPECT_EQ(HashFileSha256(path, text), hashes); });
    }
}

} // namespace
} // namespace orvane::test
