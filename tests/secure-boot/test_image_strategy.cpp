#include "erot_boot_fixture.hpp"
#include "image_files.hpp"

#include "secure-boot/image_paths.hpp"
#include "secure-boot/image_strategy.hpp"
#include "secure-boot/secure_boot_service.hpp"

#include <typeindex>

#include <gmock/gmock.h>

namespace orvane::test
{
namespace
{

using ::testing::HasSubstr;

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

    SecureBootService service{&semaphore, false};
};

TEST_F(StrategyTest, FactoryPicksTheClassAndTheSideOfEveryPath)
{
    struct Case
    {
        FwType id;
        std::type_index type;
        const char* stem;
    };
    const Case cases[] = {
        {FwType::UBB_FPGA, typeid(UbbFpgaImageStrategy), "ubb-fpga"},
        {FwType::IFWI, typeid(IfwiImageStrategy), "ifwi"},
        {FwType::Retimer, typeid(RetimerImageStrategy), "retimer"},
        {FwType::Retimer_1, typeid(RetimerImageStrategy), "retimer-1"},
        {FwType::Retimer_2, typeid(RetimerImageStrategy), "retimer-2"},
        {FwType::VR, typeid(VrImageStrategy), "vr"},
        {FwType::RM, typeid(RmImageStrategy), "rm"},
        {FwType::BUNDLE, typeid(BundleImageStrategy), "fwbundle"},
    };
    for (const Case& c : cases)
    {
        for (uint8_t side : {sideA, sideB})
        {
            SCOPED_TRACE(std::string(c.stem) + " side " + std::to_string(side));
            auto s = make(c.id, side);
            ASSERT_TRUE(s);
            EXPECT_EQ(std::type_index(typeid(*s)), c.type);
            const std::string active = side == sideA ? "/A/" : "/B/";
            const std::string inactive = side == sideA ? "/B/" : "/A/";
            const std::string bin = std::string(c.stem) + ".bin";
            const std::string ahdr = std::string(c.stem) + ".ahdr";
            EXPECT_EQ(s->activeSide, side);
            EXPECT_EQ(s->activeImagePath, "/var/lib/images" + active + bin);
            EXPECT_EQ(s->inactiveImagePath, "/var/lib/images" + inactive + bin);
            EXPECT_EQ(s->activeAhdrPath, "/var/lib/images" + active + ahdr);
            EXPECT_EQ(s->inactiveAhdrPath, "/var/lib/images" + inactive + ahdr);
            EXPECT_EQ(s->activeDumpPath, "/tmp/secure-boot" + active + bin);
            EXPECT_EQ(s->inactiveDumpPath, "/tmp/secure-boot" + inactive + bin);
            EXPECT_EQ(s->ifwiDumpPrefix,
                      "/tmp/secure-boot" + active + "IFWI_Dev_");
        }
    }
    for (uint32_t id : {0x0100U, 0x0104U, 0x0200U, 0x0300U, 0x0603U, 0U})
    {
        EXPECT_FALSE(CreateImageStrategy(service, id)) << std::hex << id;
    }
}

// The digest covers the image to its last byte: the verifiable size in the
// AHDR is only the least the file must hold.
TEST_F(StrategyTest, FetchHashesTheWholeImageAndRefusesAnEmptyOne)
{
    auto s = make(FwType::Retimer, sideB);
    WriteBoardFile(s->activeAhdrPath, AhdrBytes(SampleAhdr(0x0600, 4096)));
    const Bytes image = Pattern(2 * 4096 + 100);
    WriteBoardFile(s->activeImagePath, image);
    std::string out = console([&] { EXPECT_TRUE(s->Fetch()); });
    EXPECT_EQ(s->activeHash, OneShotDigest<48>(EVP_sha384(), image));
    EXPECT_THAT(out, HasSubstr("Calculate hash for FW image: "
                               "[/var/lib/images/B/retimer.bin]"));

    WriteBoardFile(s->activeAhdrPath, AhdrBytes(SampleAhdr(0x0600, 0)));
    WriteBoardFile(s->activeImagePath, {});
    console([&] { EXPECT_FALSE(s->Fetch()); });
}

// The bundle's RMs learn its version even from a header with a bad magic,
// and no failed write fails the fetch.
TEST_F(StrategyTest, BundleFetchWritesTheVersionToEveryOamFirst)
{
    const std::vector<int> buses = {5, 6, 7, 8, 9, 10, 11, 0};
    const Bytes message = {0xF4, 0x0A, 0x01, 0x02, 0x03, 0x04};
    struct Case
    {
        const char* name;
        bool goodMagic;
        bool rmsAnswer;
    };
    for (const Case& c :
         {Case{"bad magic", false, true}, Case{"no RM answers", true, false}})
    {
        SCOPED_TRACE(c.name);
        fake.i2c.clearOperations();
        for (int bus : buses)
        {
            fake.i2c.addBus(bus);
            if (c.rmsAnswer)
            {
                fake.i2c.addDevice(bus, 0x56);
            }
            else
            {
                fake.i2c.removeDevice(bus, 0x56);
            }
        }
        auto s = make(FwType::BUNDLE);
        AhdrHeader header = SampleAhdr(0x0900);
        header.magic = c.goodMagic ? ahdrMagic : 0;
        WriteBoardFile(s->activeAhdrPath, AhdrBytes(header));
        const std::string out =
            console([&] { EXPECT_EQ(s->Fetch(), c.goodMagic); });

        std::vector<std::pair<int, Bytes>> writes;
        for (const I2cOp& op : fake.i2c.operations(I2cOp::Kind::write))
        {
            EXPECT_EQ(op.address, 0x56);
            writes.emplace_back(op.bus, op.bytes);
        }
        std::vector<std::pair<int, Bytes>> expected;
        for (int bus : buses)
        {
            expected.emplace_back(bus, message);
        }
        EXPECT_EQ(writes, expected);
        for (int oam = 0; oam < 8; ++oam)
        {
            const std::string n = std::to_string(oam);
            EXPECT_THAT(
                out,
                HasSubstr(c.rmsAnswer
                              ? "Successfully write bundle version into "
                                "RM register on OAM " +
                                    n + ". Bundle version:0x01 0x02 0x03 0x04"
                              : "Failed to write bundle version into RM "
                                "register on OAM " +
                                    n + "."));
        }
        EXPECT_EQ(out.find("AHDR Header Magic Value check failed") !=
                      std::string::npos,
                  !c.goodMagic);
        EXPECT_EQ(s->activeHash, Sha384{}) << "the bundle takes no digest";
    }
}

TEST_F(StrategyTest, VerifyGradesTheDevicesStatus)
{
    struct Case
    {
        uint8_t status;
        bool result;
        const char* line;
    };
    const Case cases[] = {
        {0x00, true, "Verify pass!!"},
        {0x80, false, "Verify failed!!"},
        {0x42, false, "Other crash on mctp command to RoT, error code: 42"},
    };
    auto s = make(FwType::VR);
    s->activeAhdr = SampleAhdr(0x0700);
    s->activeHash.fill(0xab);
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.line);
        device.sent.clear();
        device.reply(erot::test::response(0x02, c.status));
        const std::string out =
            console([&] { EXPECT_EQ(s->Verify(), c.result); });
        EXPECT_THAT(out, HasSubstr(c.line));
        ASSERT_EQ(device.sent.size(), 1U);
        const Bytes& request = device.sent[0].request;
        const Bytes ahdr = AhdrBytes(s->activeAhdr);
        EXPECT_NE(std::search(request.begin(), request.end(),
                              s->activeHash.begin(), s->activeHash.end()),
                  request.end());
        EXPECT_NE(std::search(request.begin(), request.end(), ahdr.begin(),
                              ahdr.end()),
                  request.end());
    }
}

} // namespace
} // namespace orvane::test
