#include "erot_boot_fixture.hpp"
#include "image_files.hpp"

#include "secure-boot/hash_file.hpp"
#include "secure-boot/image_paths.hpp"
#include "secure-boot/image_strategy.hpp"
#include "secure-boot/secure_boot_service.hpp"

#include <gmock/gmock.h>

namespace orvane::test
{
namespace
{

using ::testing::HasSubstr;
using ::testing::Not;

class StrategyTest : public ErotBootTest
{
  protected:
    std::shared_ptr<ImageProcessStrategy> make(FwType id, uint8_t side = sideA)
    {
        service.activeSide = side;
        auto strategy = CreateImageStrategy(service, static_cast<uint32_t>(id));
        if (strategy)
        {
            strategy->bootContext = &context;
        }
        return strategy;
    }

    SecureBootService service{&semaphore, false, SecureBootService::recordOnly};
};

TEST_F(StrategyTest, PathsFollowTheActiveSideAndOnlyImagePairsHaveOne)
{
    EXPECT_EQ(make(FwType::VR)->activeImagePath, "/var/lib/images/A/vr.bin");
    auto b = make(FwType::Retimer_1, sideB);
    EXPECT_EQ(b->activeImagePath, "/var/lib/images/B/retimer-1.bin");
    EXPECT_EQ(b->inactiveImagePath, "/var/lib/images/A/retimer-1.bin");
    EXPECT_EQ(b->activeAhdrPath, "/var/lib/images/B/retimer-1.ahdr");
    EXPECT_EQ(b->inactiveDumpPath, "/tmp/secure-boot/A/retimer-1.bin");
    EXPECT_EQ(b->ifwiDumpPrefix, "/tmp/secure-boot/B/IFWI_Dev_");
    for (uint32_t id : {0x0100U, 0x0104U, 0x0200U, 0x0300U, 0x0603U})
    {
        EXPECT_FALSE(CreateImageStrategy(service, id)) << std::hex << id;
    }
}

// The digest covers the image to its last byte, past the verifiable size
// in the AHDR, which is only the least the file must hold.
TEST_F(StrategyTest, FetchHashesTheWholeImage)
{
    auto s = make(FwType::VR);
    auto fetch = [&](uint32_t verifiable, const Bytes& image, bool result) {
        WriteBoardFile(s->activeAhdrPath,
                       AhdrBytes(SampleAhdr(0x0700, verifiable)));
        WriteBoardFile(s->activeImagePath, image);
        return console([&] { EXPECT_EQ(s->Fetch(), result); });
    };
    const std::string rule(75, '-');
    EXPECT_THAT(fetch(2, {'a', 'b', 'c'}, true),
                HasSubstr("Real file size: [3]\n"
                          "Total 3 bytes read from file\n"
                          "Dump 48 bytes SHA-384 hash:\n" +
                          rule +
                          "\n Offset   00 01 02 03 04 05 06 07 08 09 0A 0B "
                          "0C 0D 0E 0F  0123456789ABCDEF\n"
                          "--------  ------------------------------------------"
                          "-----  ----------------\n"
                          "00000000  cb 00 75 3f 45 a3 5e 8b b5 a0 3d 69 9a c6 "
                          "50 07  ..u?E.^...=i..P.\n"
                          "00000010  27 2c 32 ab 0e de d1 63 1a 8b 60 5a 43 ff "
                          "5b ed  ',2....c..`ZC.[.\n"
                          "00000020  80 86 07 2b a1 e7 cc 23 58 ba ec a1 34 c8 "
                          "25 a7  ...+...#X...4.%.\n" +
                          rule + "\n"));

    Bytes image(3 * 4096 + 17);
    for (size_t i = 0; i < image.size(); ++i)
    {
        image[i] = static_cast<uint8_t>(i * 7 + i / 4096);
    }
    fetch(4096, image, true);
    EXPECT_EQ(s->activeHash, Sha384Of(image));
    Sha384 quiet{};
    std::string text;
    EXPECT_TRUE(HashFileQuiet(s->activeImagePath, quiet));
    EXPECT_EQ(quiet, Sha384Of(image));
    console([&] { EXPECT_TRUE(HashFileSha256(s->activeImagePath, text)); });
    EXPECT_EQ(text, Sha256Text(image.data(), image.size()));

    EXPECT_THAT(fetch(20, Bytes(10), false),
                HasSubstr("Unexpected file size [10 < 20]\n"));
    EXPECT_THAT(fetch(0, {}, false), Not(HasSubstr("SHA-384 hash")));
}

// The RMs learn the bundle's version even from a header with a bad magic,
// and no failed write fails the fetch.
TEST_F(StrategyTest, BundleFetchWritesTheVersionToEveryOamFirst)
{
    auto s = make(FwType::BUNDLE);
    for (bool rmsAnswer : {true, false})
    {
        fake.i2c.clearOperations();
        std::vector<std::pair<int, Bytes>> writes, expected;
        for (int bus : {5, 6, 7, 8, 9, 10, 11, 0})
        {
            fake.i2c.addBus(bus);
            rmsAnswer ? fake.i2c.addDevice(bus, 0x56)
                      : fake.i2c.removeDevice(bus, 0x56);
            expected.push_back({bus, {0xF4, 0x0A, 0x01, 0x02, 0x03, 0x04}});
        }
        AhdrHeader header = SampleAhdr(0x0900, 0);
        header.magic = rmsAnswer ? 0 : ahdrMagic;
        WriteBoardFile(s->activeAhdrPath, AhdrBytes(header));
        const std::string out =
            console([&] { EXPECT_EQ(s->Fetch(), !rmsAnswer); });
        for (const I2cOp& op : fake.i2c.operations(I2cOp::Kind::write))
        {
            EXPECT_EQ(op.address, 0x56);
            writes.emplace_back(op.bus, op.bytes);
        }
        EXPECT_EQ(writes, expected);
        EXPECT_EQ(occurrences(out, rmsAnswer
                                       ? "Successfully write bundle "
                                         "version into RM register on OAM "
                                       : "Failed to write bundle version "
                                         "into RM register on OAM "),
                  8U);
        EXPECT_THAT(out, HasSubstr(rmsAnswer ? "OAM 7. Bundle version:0x01 "
                                               "0x02 0x03 0x04"
                                             : "OAM 7."));
    }
}

TEST_F(StrategyTest, VerifyGradesTheDevicesStatus)
{
    const std::tuple<uint8_t, bool, const char*> cases[] = {
        {0x00, true, "Verify pass!!"},
        {0x80, false, "Verify failed!!"},
        {0x42, false, "Other crash on mctp command to RoT, error code: 42"},
    };
    auto s = make(FwType::VR);
    s->activeAhdr = SampleAhdr(0x0700, 0);
    for (const auto& [status, result, line] : cases)
    {
        device.sent.clear();
        device.reply(erot::test::response(0x02, status));
        EXPECT_THAT(console([&] { EXPECT_EQ(s->Verify(), result); }),
                    HasSubstr(line));
        ASSERT_EQ(device.sent.size(), 1U);
    }
}

} // namespace
} // namespace orvane::test
