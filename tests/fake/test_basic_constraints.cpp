// The basic-constraints policy on hand-made contexts over the fake platform.
#include "policies/chain_policies.h"
#include "qvfake.h"
#include "support/testsupport.h"

using namespace testsupport;

namespace {

const DWORD kSentinel = 0x0BADF00Du;
const char* kBC2 = "2.5.29.19";
const char* kBC1 = "2.5.29.10";

std::vector<uint8_t> bcValue(bool ca) { return ca ? hex("30030101FF") : hex("3000"); }

struct Outcome {
    BOOL result;
    DWORD dwError;
    LONG chainIndex;
    LONG elementIndex;
    DWORD lastError;
};

Outcome runPolicy(PCCERT_CHAIN_CONTEXT chain, PCERT_CHAIN_POLICY_PARA para,
                  PCERT_CHAIN_POLICY_STATUS status = nullptr) {
    CERT_CHAIN_POLICY_STATUS local{sizeof local, 0x11, 0x22, 0x33, nullptr};
    if (status == nullptr)
        status = &local;
    SetLastError(kSentinel);
    BOOL r = CertDllVerifyBasicConstraintsCertificateChainPolicy(CERT_CHAIN_POLICY_BASIC_CONSTRAINTS,
                                                                 chain, para, status);
    return {r, status->dwError, status->lChainIndex, status->lElementIndex, GetLastError()};
}

class BasicConstraints : public ::testing::Test {
protected:
    void SetUp() override { qvfake_reset(); }
    void TearDown() override { qvfake_reset(); }
};

// One row per line of the policy's outcome table.
struct Row {
    const char* name;
    DWORD flags;
    bool hasPara;
    int extension;  // -1 none, 0 cA FALSE, 1 cA TRUE, 2 undecodable
    DWORD elements;
    DWORD trust;
    Outcome expected;
};

const DWORD kTrustE = 0x80096019u;

const Row kRows[] = {
    {"ca flag, cA true", 0x80000000u, true, 1, 1, 0, {TRUE, 0, -1, -1, kSentinel}},
    {"ca flag, cA true, longer chain", 0x80000000u, true, 1, 3, 0, {TRUE, 0, -1, -1, kSentinel}},
    {"ca flag, no extension, self-signed root", 0x80000000u, true, -1, 1, 0, {TRUE, 0, -1, -1, kSentinel}},
    {"ca flag, no extension, two elements", 0x80000000u, true, -1, 2, 0, {TRUE, kTrustE, 0, 0, kSentinel}},
    {"ca flag, no extension, partial chain", 0x80000000u, true, -1, 1, CERT_TRUST_IS_PARTIAL_CHAIN,
     {TRUE, kTrustE, 0, 0, kSentinel}},
    {"ca flag, cA false", 0x80000000u, true, 0, 2, 0, {TRUE, kTrustE, 0, 0, kSentinel}},
    {"ca flag, cA false, self-signed root", 0x80000000u, true, 0, 1, 0, {TRUE, kTrustE, 0, 0, kSentinel}},
    {"ca flag, undecodable value", 0x80000000u, true, 2, 1, 0, {FALSE, kTrustE, 0, 0, 0x8009310Bu}},
    {"end-entity flag alone", 0x40000000u, true, 1, 1, 0, {FALSE, kTrustE, 0, 0, 0x80004001u}},
    {"neither flag", 0, true, 0, 2, 0, {TRUE, 0, -1, -1, kSentinel}},
    {"both flags", 0xC0000000u, true, 0, 2, 0, {TRUE, 0, -1, -1, kSentinel}},
    {"no pPolicyPara", 0x80000000u, false, 0, 2, 0, {TRUE, 0, -1, -1, kSentinel}},
    {"other bits beside the ca flag", 0x80000001u, true, 0, 2, 0, {TRUE, kTrustE, 0, 0, kSentinel}},
    {"other bits beside the ca flag, cA true", 0x8000FFFFu, true, 1, 2, 0, {TRUE, 0, -1, -1, kSentinel}},
    {"other bits beside the end-entity flag", 0x40000010u, true, 1, 2, 0, {FALSE, kTrustE, 0, 0, 0x80004001u}},
    {"other bits only", 0x3FFFFFFFu, true, 0, 2, 0, {TRUE, 0, -1, -1, kSentinel}},
};

TEST_F(BasicConstraints, OutcomeTable) {
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.name);
        FakeCert end, issuer, root;
        if (row.extension == 0 || row.extension == 1)
            end.addExtension(kBC2, bcValue(row.extension == 1));
        else if (row.extension == 2)
            end.addExtension(kBC2, hex("0403010203"));
        std::vector<PCCERT_CONTEXT> certs{end.context(), issuer.context(), root.context()};
        certs.resize(row.elements);
        FakeChain chain(certs, row.trust);
        CERT_CHAIN_POLICY_PARA para{sizeof para, row.flags, nullptr};
        Outcome got = runPolicy(chain.get(), row.hasPara ? &para : nullptr);
        EXPECT_EQ(got.result, row.expected.result);
        EXPECT_EQ(got.dwError, row.expected.dwError);
        EXPECT_EQ(got.chainIndex, row.expected.chainIndex);
        EXPECT_EQ(got.elementIndex, row.expected.elementIndex);
        EXPECT_EQ(got.lastError, row.expected.lastError);
    }
}

TEST_F(BasicConstraints, CurrentExtensionWinsOverTheOldOneInEitherOrder) {
    FakeCert a;
    a.addExtension(kBC1, bcValue(true)).addExtension(kBC2, bcValue(false));
    FakeCert b;
    b.addExtension(kBC2, bcValue(false)).addExtension(kBC1, bcValue(true));
    for (FakeCert* c : {&a, &b}) {
        FakeChain chain({c->context()});
        CERT_CHAIN_POLICY_PARA para{sizeof para, 0x80000000u, nullptr};
        Outcome got = runPolicy(chain.get(), &para);
        EXPECT_EQ(got.result, TRUE);
        EXPECT_EQ(got.dwError, kTrustE);
    }
}

struct DecodeCall {
    DWORD encoding = 0;
    std::string type;
    DWORD flags = 99;
    DWORD sizeIn = 0;
    std::vector<uint8_t> bytes;
    bool zeroed = false;
    int calls = 0;
    bool fail = false;
    DWORD failWith = 0;
};

BOOL recordingDecoder(void* user, DWORD enc, LPCSTR type, const BYTE* pb, DWORD cb, DWORD flags,
                      void* out, DWORD* pcb) {
    auto* rec = static_cast<DecodeCall*>(user);
    ++rec->calls;
    rec->encoding = enc;
    rec->type = type;
    rec->flags = flags;
    rec->sizeIn = *pcb;
    rec->bytes.assign(pb, pb + cb);
    auto* info = static_cast<CERT_BASIC_CONSTRAINTS2_INFO*>(out);
    rec->zeroed = info->fCA == 0 && info->fPathLenConstraint == 0 && info->dwPathLenConstraint == 0;
    if (rec->fail) {
        SetLastError(rec->failWith);
        return FALSE;
    }
    info->fCA = TRUE;
    *pcb = sizeof *info;
    return TRUE;
}

TEST_F(BasicConstraints, OldExtensionIsDecodedByTheCurrentRule) {
    DecodeCall rec;
    qvfake_set_decode_hook(recordingDecoder, &rec);
    FakeCert c;
    c.addExtension(kBC1, hex("30050303060780"));
    FakeChain chain({c.context()});
    CERT_CHAIN_POLICY_PARA para{sizeof para, 0x80000000u, nullptr};
    Outcome got = runPolicy(chain.get(), &para);
    EXPECT_EQ(got.result, TRUE);
    EXPECT_EQ(got.dwError, 0u);
    EXPECT_EQ(rec.calls, 1);
    EXPECT_EQ(rec.encoding, 0x10001u);
    EXPECT_EQ(rec.type, "2.5.29.19");
    EXPECT_EQ(rec.flags, 0u);
    EXPECT_EQ(rec.sizeIn, 12u);
    EXPECT_TRUE(rec.zeroed);
    EXPECT_EQ(rec.bytes, hex("30050303060780"));
}

TEST_F(BasicConstraints, DecoderErrorComesBackInHresultForm) {
    const struct {
        DWORD lastError;
        DWORD expected;
    } cases[] = {{13, 0x8007000Du}, {87, 0x80070057u}, {0x8009310Bu, 0x8009310Bu}, {0, 0}};
    for (const auto& c : cases) {
        DecodeCall rec;
        rec.fail = true;
        rec.failWith = c.lastError;
        qvfake_set_decode_hook(recordingDecoder, &rec);
        FakeCert cert;
        cert.addExtension(kBC2, bcValue(true));
        FakeChain chain({cert.context()});
        CERT_CHAIN_POLICY_PARA para{sizeof para, 0x80000000u, nullptr};
        Outcome got = runPolicy(chain.get(), &para);
        EXPECT_EQ(got.result, FALSE);
        EXPECT_EQ(got.dwError, kTrustE);
        EXPECT_EQ(got.chainIndex, 0);
        EXPECT_EQ(got.elementIndex, 0);
        EXPECT_EQ(got.lastError, c.expected);
    }
}

TEST_F(BasicConstraints, ExtraStatusIsNeitherCheckedNorInitialised) {
    FakeCert cert;
    cert.addExtension(kBC2, bcValue(false));
    FakeChain chain({cert.context()});
    QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_STATUS extra{3, 0x77, 5, 6};
    CERT_CHAIN_POLICY_STATUS status{sizeof status, 0, 0, 0, &extra};
    CERT_CHAIN_POLICY_PARA para{sizeof para, 0x80000000u, nullptr};
    Outcome got = runPolicy(chain.get(), &para, &status);
    EXPECT_EQ(got.result, TRUE);
    EXPECT_EQ(got.dwError, kTrustE);
    EXPECT_EQ(extra.cbSize, 3u);
    EXPECT_EQ(extra.dwError, 0x77u);
    EXPECT_EQ(extra.lChainIndex, 5);
    EXPECT_EQ(extra.lElementIndex, 6);
}

TEST_F(BasicConstraints, ParaSizeAndExtraParaAreNotLookedAt) {
    FakeCert cert;
    cert.addExtension(kBC2, bcValue(true));
    FakeChain chain({cert.context()});
    int garbage = 12345;
    CERT_CHAIN_POLICY_PARA para{0, 0x80000000u, &garbage};
    Outcome got = runPolicy(chain.get(), &para);
    EXPECT_EQ(got.result, TRUE);
    EXPECT_EQ(got.dwError, 0u);
}

TEST_F(BasicConstraints, WrongStatusSizeLeavesTheStatusUntouched) {
    FakeCert cert;
    FakeChain chain({cert.context()});
    CERT_CHAIN_POLICY_PARA para{sizeof para, 0x80000000u, nullptr};
    for (DWORD size : {DWORD(0), DWORD(sizeof(CERT_CHAIN_POLICY_STATUS) - 1),
                       DWORD(sizeof(CERT_CHAIN_POLICY_STATUS) + 1), DWORD(20), DWORD(24)}) {
        if (size == sizeof(CERT_CHAIN_POLICY_STATUS))
            continue;
        CERT_CHAIN_POLICY_STATUS status{size, 0x11, 0x22, 0x33, nullptr};
        Outcome got = runPolicy(chain.get(), &para, &status);
        EXPECT_EQ(got.result, FALSE);
        EXPECT_EQ(got.lastError, 87u);
        EXPECT_EQ(status.cbSize, size);
        EXPECT_EQ(status.dwError, 0x11u);
        EXPECT_EQ(status.lChainIndex, 0x22);
        EXPECT_EQ(status.lElementIndex, 0x33);
    }
}

}  // namespace
