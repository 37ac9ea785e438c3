// Every command of the emulated eRoT, read and written through the client
// library as the daemon and the tools use it.

#include "erot_harness.hpp"

#include "erot/opcodes.hpp"

#include <openssl/x509.h>

#include <algorithm>
#include <cstring>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace ubbsim::erot::test
{
namespace
{

using ::testing::ElementsAreArray;

class DeviceCommands : public ErotTest
{
  protected:
    void SetUp() override
    {
        boot();
    }
    uint8_t status = 0xEE;
};

TEST_F(DeviceCommands, FlashSidesRecordsAndManifestDescribeTheBoard)
{
    uint32_t active = 9;
    uint32_t pending = 9;
    bool update = true;
    ASSERT_EQ(
        ::erot::ErotActiveFlashConfigRead(&active, &pending, &update, &status),
        0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(active, 0U);
    EXPECT_EQ(pending, 0U);
    EXPECT_FALSE(update);

    uint32_t count = 0;
    ::erot::BootPartitionRecord* records = nullptr;
    ASSERT_EQ(::erot::ErotBPRRead(&count, &records, &status), 0);
    ::erot::Owned<::erot::BootPartitionRecord> bpr(records);
    // Twelve components less the retimer pair of a single-image board.
    ASSERT_EQ(count, 10U);
    EXPECT_EQ(uint16_t{records[3].componentId}, 0x0300);

    ::erot::BkcManifestEntry* entries = nullptr;
    ASSERT_EQ(::erot::ErotGetBKCManifest(&count, &entries, &status), 0);
    ::erot::Owned<::erot::BkcManifestEntry> manifest(entries);
    ASSERT_EQ(count, 10U);
    EXPECT_EQ(uint16_t{entries[4].componentId}, 0x0400);
    EXPECT_EQ(uint32_t{entries[4].version}, 0x01000400U);
}

TEST_F(DeviceCommands, WrittenValuesReadBack)
{
    uint8_t record[16] = {0x04, 0, 0, 0, 1};
    ASSERT_EQ(::erot::ErotSMCPersistSet(record, sizeof(record), &status), 0);
    uint8_t persist[16] = {};
    uint16_t length = 0;
    ASSERT_EQ(
        ::erot::ErotSMCPersistGet(persist, sizeof(persist), &length, &status),
        0);
    EXPECT_THAT(persist, ElementsAreArray(record));

    bool enabled = false;
    ASSERT_EQ(::erot::ErotSetAutoARBCommit(1, &status), 0);
    ASSERT_EQ(::erot::ErotGetAutoARBCommit(&enabled, &status), 0);
    EXPECT_TRUE(enabled);

    uint32_t reason = 0;
    ASSERT_EQ(::erot::ErotSetResetReason(3, &status), 0);
    ASSERT_EQ(::erot::ErotGetResetReason(&reason, &status), 0);
    EXPECT_EQ(reason, 3U);

    uint8_t mine[48] = {1, 2, 3};
    uint8_t back[48] = {};
    bool present = false;
    ASSERT_EQ(::erot::ErotRecordSet(mine, sizeof(mine), &status), 0);
    ASSERT_EQ(::erot::ErotRecordGet(&present, back, &status), 0);
    EXPECT_TRUE(present);
    EXPECT_THAT(back, ElementsAreArray(mine));
    ASSERT_EQ(::erot::ErotRecordClear(&status), 0);
    ASSERT_EQ(::erot::ErotRecordGet(&present, back, &status), 0);
    EXPECT_FALSE(present);
}

TEST_F(DeviceCommands, TokenInstallReadAndErase)
{
    std::vector<uint8_t> token(::erot::tokenSize, 0x11);
    token[0] = 0x2A;
    ASSERT_EQ(::erot::ErotTokenInstall(token.data(), token.size(), &status), 0);
    uint32_t settings = 0;
    bool present = false;
    uint32_t tokenSettings = 0;
    ASSERT_EQ(::erot::ErotGetSecuritySettings(&settings, &present,
                                              &tokenSettings, &status),
              0);
    EXPECT_TRUE(present);
    EXPECT_EQ(tokenSettings, 0x1111112AU);

    uint8_t* read = nullptr;
    size_t length = 0;
    ASSERT_EQ(::erot::ErotTokenRead(&read, &length, &status), 0);
    ::erot::Owned<uint8_t> owned(read);
    ASSERT_EQ(length, token.size());
    EXPECT_EQ(std::memcmp(read, token.data(), length), 0);

    ASSERT_EQ(::erot::ErotTokenErase(&status), 0);
    ASSERT_EQ(::erot::ErotTokenRead(&read, &length, &status), 0);
    EXPECT_EQ(read, nullptr);
}

// Identity, device id and the certificate of the identity key agree.
TEST_F(DeviceCommands, IdentityAndCertificateChain)
{
    char* text = nullptr;
    ASSERT_EQ(::erot::ErotGetIdentityHex(&text, &status), 0);
    ::erot::Owned<char> identity(text);
    EXPECT_EQ(std::strlen(text), 96U);

    uint8_t* raw = nullptr;
    ASSERT_EQ(::erot::ErotGetCertificationChain(&raw, &status), 0);
    ::erot::Owned<uint8_t> chain(raw);
    size_t total = raw[0] | raw[1] << 8;
    const unsigned char* der = raw + 52;
    X509* certificate = d2i_X509(nullptr, &der, static_cast<long>(total - 52));
    ASSERT_NE(certificate, nullptr);
    EVP_PKEY* key = X509_get0_pubkey(certificate);
    EXPECT_EQ(EVP_PKEY_eq(key, keys().identity.get()), 1);
    X509_free(certificate);
}

TEST_F(DeviceCommands, RevocationReads)
{
    uint8_t bits[12] = {};
    uint16_t length = 0;
    ASSERT_EQ(
        ::erot::ErotKeyRevokeBitsGet(bits, sizeof(bits), &length, &status), 0);
    EXPECT_EQ(bits[0], 1U << revokedKeyIndex);
    uint8_t svns[58] = {};
    ASSERT_EQ(::erot::ErotSvnRevokeBitsGet(svns, &length, &status), 0);
    EXPECT_EQ(svns[4], 1) << "UBB_FPGA's committed minimum";
    EXPECT_EQ(svns[7], 0) << "no Retimer_1 on this board";
}

// The plain commands answer with exactly the lengths the client expects.
TEST_F(DeviceCommands, PlainCommandsAnswer)
{
    uint8_t value = 0xEE;
    uint8_t health[2] = {};
    uint8_t id[49] = {};
    EXPECT_EQ(::erot::ErotGetOneByte(&value, &status), 0);
    EXPECT_EQ(::erot::ErotHealthStatusPoll(health, &status), 0);
    EXPECT_EQ(health[0], healthReady);
    EXPECT_EQ(::erot::ErotGetDeviceId(id, sizeof(id), &status), 0);
    EXPECT_EQ(::erot::ErotSetManageabilityFeature(31, 1, &status), 0);
    EXPECT_EQ(endpoint->state().manageability, 1U << 31);
    EXPECT_EQ(::erot::ErotCommand19(&status), 0);
    EXPECT_EQ(::erot::ErotCommand1A(&status), 0);
    EXPECT_EQ(::erot::ErotCommandF0(&status), 0);
    EXPECT_EQ(::erot::ErotCommandF1(0xCAFE, &status), 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(endpoint->state().commandF1Value, 0xCAFEU);
}

// Frames that the client never sends are refused, not misread.
TEST_F(DeviceCommands, MalformedRequestsAreRefused)
{
    uint8_t request[16] = {};
    uint8_t response[9] = {};
    auto send = [&](uint8_t opcode, size_t length) {
        EXPECT_EQ(::erot::ErotTransact(opcode, request, length, response,
                                       sizeof(response), nullptr, &status),
                  0);
        return status;
    };
    EXPECT_EQ(send(0x03, 8), status::unknownCommand);
    EXPECT_EQ(send(op::arbCommit, 9), status::badLength);
    request[8] = 2; // no side 2
    EXPECT_EQ(send(op::selectActiveFlash, 10), status::invalidArgument);
    EXPECT_EQ(send(op::systemReset, 13), status::invalidArgument)
        << "no guard word";
    request[8] = 1; // continuation without a first page
    EXPECT_EQ(send(op::traceLog, 11), status::invalidArgument);
}

} // namespace
} // namespace ubbsim::erot::test
