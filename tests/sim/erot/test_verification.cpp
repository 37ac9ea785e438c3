// Image verification with real signatures: what passes, what doesn't and
// how anti-rollback moves the line.

#include "erot_harness.hpp"

#include "erot/fw_components.hpp"
#include "erot/image_signer.hpp"
#include "erot/image_verifier.hpp"
#include "erot/sha384.hpp"
#include "erot/signature_block.hpp"

#include <functional>

#include <gtest/gtest.h>

namespace ubbsim::erot::test
{
namespace
{

using Kind = ErotImageMark::Kind;

constexpr uint8_t refused = status::verifyFailed;

class Verification : public ErotTest
{
  protected:
    SignedImage ubbFpga(uint32_t svn)
    {
        AhdrFields fields;
        fields.componentId = 0x0400;
        fields.version = 0x02000000 + svn;
        fields.svn = svn;
        return signImage(fields, generatedPayload(0x0400, svn, 4096),
                         keys().trusted, trustedKeyIndex);
    }

    // The status of verifying `ahdr` for `component` with a given hash.
    int verifyAs(uint16_t component, const Digest& hash, const uint8_t* ahdr)
    {
        EXPECT_EQ(::erot::ErotImageVerify(0, component, hash.data(), ahdrSize,
                                          ahdr, &status),
                  0);
        return status;
    }
};

TEST_F(Verification, EverySignedPairOfAHealthyBoardPasses)
{
    ErotScenario dual;
    dual.dualRetimers = true;
    boot(dual);
    for (const FwComponent& component : fwComponents)
    {
        if (!component.hasAhdr || component.id == retimerId)
        {
            continue;
        }
        EXPECT_EQ(verify(0, std::string(component.stem)), 0) << component.name;
        EXPECT_EQ(verify(1, std::string(component.stem)), 0) << component.name;
    }
    EXPECT_TRUE(traces("IVFL").empty());
}

// Each spoilt image is refused for its own reason, which the trace log
// keeps; the other side of the same component still passes.
TEST_F(Verification, SpoiltImagesAreRefusedWithTheirReason)
{
    ErotScenario scenario;
    scenario.images = {{"IFWI", 0, Kind::tampered},
                       {"VR", 1, Kind::revokedKey},
                       {"RM", 0, Kind::unknownKey},
                       {"UBB_FPGA", 0, Kind::lowSvn}};
    boot(scenario);
    EXPECT_EQ(verify(0, "ifwi"), refused);
    EXPECT_EQ(verify(1, "vr"), refused);
    EXPECT_EQ(verify(0, "rm"), refused);
    EXPECT_EQ(verify(0, "ubb-fpga"), refused);
    EXPECT_EQ(verify(1, "ifwi"), 0);
    EXPECT_EQ(verify(0, "vr"), 0);
    auto failed = traces("IVFL");
    ASSERT_EQ(failed.size(), 4U);
    EXPECT_EQ(failed[0].data2, static_cast<uint32_t>(Verdict::digestMismatch));
    EXPECT_EQ(failed[1].data2, static_cast<uint32_t>(Verdict::revokedKey));
    EXPECT_EQ(failed[2].data2, static_cast<uint32_t>(Verdict::unknownKey));
    EXPECT_EQ(failed[3].data2, static_cast<uint32_t>(Verdict::rollback));
    EXPECT_EQ(failed[0].severity, 4);
}

// Every forgery that a check of fewer bytes would let through is refused
// for its own reason; the reason travels in the trace log.
TEST_F(Verification, EachForgeryIsRefusedForItsOwnReason)
{
    boot();
    constexpr size_t block = signatureBlockOffset;
    struct Forgery
    {
        const char* what;
        std::function<void(SignedImage&)> spoil;
        Verdict reason;
    };
    auto flip = [](size_t at) {
        return [at](SignedImage& image) { image.ahdr[at] ^= 1; };
    };
    const std::vector<Forgery> forgeries = {
        {"image changed, digest rewritten to match",
         [](SignedImage& image) {
             image.payload[7] ^= 1;
             Digest digest = sha384(image.payload);
             std::copy(digest.begin(), digest.end(),
                       image.ahdr.begin() + block + 4);
         },
         Verdict::badSignature},
        {"r corrupted", flip(block + 60), Verdict::badSignature},
        {"s corrupted", flip(block + 120), Verdict::badSignature},
        {"SVN changed", flip(16), Verdict::badSignature},
        {"details edited", flip(40), Verdict::badSignature},
        {"full size edited", flip(29), Verdict::badSignature},
        {"verifiable size edited", flip(33), Verdict::badSignature},
        {"format changed", flip(block), Verdict::badFormat},
        {"reserved before the digest", flip(block + 2), Verdict::reservedSet},
        {"reserved after the signature", flip(ahdrSize - 1),
         Verdict::reservedSet},
        {"header names another key, signed anyway",
         [](SignedImage& image) {
             image.ahdr[20] = 3;
             signAhdr(image.ahdr, image.digest, keys().trusted, 0);
         },
         Verdict::keyMismatch},
    };
    SignedImage signedOne = ubbFpga(1);
    ASSERT_EQ(verify(signedOne), 0);
    for (const Forgery& forgery : forgeries)
    {
        SignedImage image = signedOne;
        forgery.spoil(image);
        size_t before = traces("IVFL").size();
        EXPECT_EQ(verify(image), refused) << forgery.what;
        auto failed = traces("IVFL");
        ASSERT_EQ(failed.size(), before + 1) << forgery.what;
        EXPECT_EQ(verdictName(static_cast<Verdict>(failed.back().data2)),
                  verdictName(forgery.reason))
            << forgery.what;
    }
    // Another component than the header's; the bundle's header covers no
    // image, so it passes with no hash while any other image needs its own.
    EXPECT_EQ(
        verifyAs(0x0500, sha384(signedOne.payload), signedOne.ahdr.data()),
        refused);
    EXPECT_EQ(traces("IVFL").back().data2,
              static_cast<uint32_t>(Verdict::wrongComponent));
    EXPECT_EQ(verify(0, "fwbundle"), 0);
    EXPECT_EQ(verifyAs(0x0500, Digest{}, file(0, "ifwi.ahdr").data()), refused);
    EXPECT_EQ(traces("IVFL").back().data2,
              static_cast<uint32_t>(Verdict::digestMismatch));
}

// An explicit commit raises the minimum to the running SVN; boot success
// commits only at stage 0 with automatic commit on.
TEST_F(Verification, CommitRaisesTheMinimumToTheRunningSvn)
{
    ErotScenario scenario;
    scenario.components["UBB_FPGA"].svn = 2;
    boot(scenario);
    EXPECT_EQ(verify(ubbFpga(1)), 0);
    ASSERT_EQ(::erot::ErotARBCommit(&status), 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(verify(ubbFpga(1)), refused);
    EXPECT_EQ(verify(ubbFpga(2)), 0);
    EXPECT_EQ(verify(0, "ubb-fpga"), 0);
    boot(scenario);
    ASSERT_EQ(::erot::ErotSignalBootSuccess(0, &status), 0);
    EXPECT_EQ(verify(ubbFpga(1)), 0) << "auto commit is off";
    ASSERT_EQ(::erot::ErotSetAutoARBCommit(1, &status), 0);
    ASSERT_EQ(::erot::ErotSignalBootSuccess(1, &status), 0);
    EXPECT_EQ(verify(ubbFpga(1)), 0) << "commit deferred";
    ASSERT_EQ(::erot::ErotSignalBootSuccess(0, &status), 0);
    EXPECT_EQ(verify(ubbFpga(1)), refused);
}

} // namespace
} // namespace ubbsim::erot::test
