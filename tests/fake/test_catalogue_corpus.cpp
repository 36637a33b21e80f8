// The X.509 core types of the catalogue over every certificate, revocation list and
// certification request of the public corpus: each decodes to its end through its type
// (the extensions and attributes through their sets), and DER ones encode back byte for
// byte. The few that cannot are listed with the reason the catalogue gives.
#include "asn1data/catalogue.h"
#include "ber_test_util.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>

using namespace asn1data;
using testsupport::hex;

namespace {

// Corpus files that do not come back byte for byte, or do not decode, and why.
const std::map<std::string, std::pair<int, const char*>> kExpected = {
    {"cert/gnutls/cert-eddsa.der", {0, "critical FALSE written out is decoded and left out on encoding"}},
    {"cert/gnutls/long-oids.der", {0, "identifier arcs are 32 bits wide"}},
    {"cert/gnutls/x509-with-zero-version.der", {0, "a version of -1 reads as a 32-bit unsigned number"}},
    {"cert/asn1crypto/invalid_email_tag.der",
     {RT_E_TAG_MISMATCH, "emailAddress as UTF8String: a known attribute with a malformed value fails"}},
    // A known extension that does not parse fails the whole certificate or list.
    {"cert/gnutls/certs-interesting/cert4.der", {RT_E_TAG_MISMATCH, "a policy identifier written as GraphicString"}},
    {"cert/gnutls/certs-interesting/cert7.der", {RT_E_TAG_MISMATCH, "authority information access under tag 0x53"}},
    {"cert/gnutls/certs-interesting/cert8.der", {RT_E_EXTRA_ELEMENT, "notice numbers in a SET; the -3 deep inside is swallowed"}},
    {"cert/gnutls/certs-interesting/cert9.der", {RT_E_BAD_OBJID, "a URL under the registeredID tag"}},
    {"cert/rustcrypto/026EDA6FA1EDFA8C253936C75B5EEBD954BFF452.fake.der",
     {RT_E_CONSTRAINT, "a user notice of 224 characters; QTDisplayText takes 1..200"}},
    {"crl/pyhanko/attribute-certs/basic-aa/role-aa-some-revoked.crl",
     {RT_E_EXTRA_ELEMENT, "onlyContainsAttributeCerts [5]: the issuing distribution point has fields [0] to [4]"}},
};

struct Outcome {
    int status = 0;
    ASN1UINT consumed = 0;
    bool same = false;
};

// Decodes the file as `type`, encodes the value back on the same context, compares.
Outcome roundTrip(const TypeInfo& type, const std::vector<uint8_t>& der) {
    bertest::Dec dec(testsupport::toHex(der.data(), der.size()));
    Outcome o;
    void* value = rtMemHeapAllocZ(&dec.c.typeHeap, (int)type.size);
    o.status = type.decode(&dec.c, value, ASN1EXPL, 0);
    o.consumed = dec.c.bufIndex;
    if (o.status != 0) return o;
    int len = xe_setp(&dec.c, nullptr, 0);
    if (len == 0) len = type.encode(&dec.c, value, ASN1EXPL);
    o.same = len == (int)der.size() && std::memcmp(xe_getp(&dec.c), der.data(), der.size()) == 0;
    return o;
}

TEST(CatalogueCorpus, CertificatesListsAndRequestsDecodeAndEncodeBack) {
    CHAINVET_SKIP_WITHOUT_CORPUS();
    const struct {
        const char* kind;
        const char* type;
    } kKinds[] = {{"cert", "Certificate"}, {"crl", "CertificateList"}, {"csr", "CertificationRequest"}};
    const std::string root = testsupport::corpusDir() + "/";
    int decoded = 0, identical = 0, listed = 0;
    for (const auto& k : kKinds) {
        const TypeInfo* type = typeRegistry().find(k.type);
        ASSERT_NE(type, nullptr);
        for (const std::string& path : testsupport::corpusByKind(k.kind)) {
            const std::string name = path.substr(root.size());
            const std::vector<uint8_t> der = testsupport::readFile(path);
            const Outcome o = roundTrip(*type, der);
            auto expected = kExpected.find(name);
            if (expected != kExpected.end()) {
                ++listed;
                EXPECT_EQ(o.status, expected->second.first) << name << ": " << expected->second.second;
                EXPECT_FALSE(o.status == 0 && o.same) << name << " now comes back unchanged";
                continue;
            }
            EXPECT_EQ(o.status, 0) << name;
            EXPECT_EQ(o.consumed, der.size()) << name << ": decoded to its end";
            EXPECT_TRUE(o.same) << name << ": encoded back byte for byte";
            decoded += o.status == 0;
            identical += o.same;
        }
    }
    EXPECT_GT(decoded, 150);
    std::printf("catalogue corpus: %d decoded, %d identical, %d listed\n", decoded, identical, listed);
}

// Malformed objects end in a status or a value, never in a crash or a read past the end.
TEST(CatalogueCorpus, MalformedObjectsEndInAStatus) {
    CHAINVET_SKIP_WITHOUT_CORPUS();
    const TypeInfo* cert = typeRegistry().find("Certificate");
    int refused = 0;
    for (const char* kind : {"cert", "csr", "crl"})
        for (const std::string& path : testsupport::corpusByKind(kind, true))
            if (path.find("/bad/") != std::string::npos)
                refused += roundTrip(*cert, testsupport::readFile(path)).status != 0;
    EXPECT_GT(refused, 0);
}

// The X.509 core as written: an absent version stays absent, Name has only rdnSequence,
// r and s of Dss-Sig-Value are 32-bit, the sets decode known values and keep unknown ones.
TEST(CatalogueCorpus, X509CoreQuirks) {
    struct Row {
        const char* type;
        const char* in;
        int status;
        const char* why;
    } rows[] = {
        {"Name", "3000", 0, "an empty rdnSequence"},
        {"Name", "3100", RT_E_BAD_CHOICE, "only rdnSequence"},
        {"RelativeDistinguishedName", "3100", RT_E_CONSTRAINT, "an RDN needs an attribute"},
        {"Dss_Sig_Value", "3009020401020304020101", 0, "r of 32 bits"},
        {"Dss_Sig_Value", "300a0205010203040502010 1", RT_E_INT_TOO_BIG, "r of 40 bits"},
        {"Time", "170d3530303130313030303030305a", 0, "UTCTime"},
        {"Time", "180f32303530303130313030303030305a", 0, "GeneralizedTime"},
        {"Time", "0401ff", RT_E_BAD_CHOICE, "any other tag"},
        {"AttributeTypeAndValue", "300906035504060c024445", RT_E_TAG_MISMATCH, "countryName must be PrintableString"},
        {"AttributeTypeAndValue", "300906035504061302444 5", 0, "countryName, no size check"},
        {"AttributeTypeAndValue", "300a06032a03040c03616263", 0, "an unknown attribute stays raw"},
        {"AlgorithmIdentifier", "300d06092a864886f70d0101010500", 0, "rsaEncryption with NULL"},
        {"AlgorithmIdentifier", "300b06072a8648ce380401020101", RT_E_TAG_MISMATCH, "id-dsa with broken parameters"},
        {"Extension", "300906032a030404020500", 0, "an unknown extension stays raw"},
    };
    for (const Row& r : rows) {
        std::string in;
        for (const char* p = r.in; *p; ++p)
            if (*p != ' ') in += *p;
        SCOPED_TRACE(std::string(r.type) + " " + in + ": " + r.why);
        const TypeInfo* type = typeRegistry().find(r.type);
        ASSERT_NE(type, nullptr);
        const std::vector<uint8_t> der = hex(in);
        const Outcome o = roundTrip(*type, der);
        EXPECT_EQ(o.status, r.status);
        if (r.status == 0) {
            EXPECT_TRUE(o.same);
        }
    }

    // A version 1 certificate: no version decoded, none written back (the corpus round
    // trip shows the second half).
    if (testsupport::corpusPresent()) {
        const std::vector<uint8_t> der = testsupport::readFile(testsupport::corpusDir() + "/cert/gnutls/x509-v1-with-sid.der");
        bertest::Dec dec(testsupport::toHex(der.data(), der.size()));
        ASN1T_Certificate cert;
        ASSERT_EQ(asn1D_Certificate(&dec.c, &cert, ASN1EXPL, 0), 0);
        EXPECT_EQ(cert.toBeSigned.m.versionPresent, 0u);
        EXPECT_EQ(cert.toBeSigned.version, 0u);
        EXPECT_EQ(cert.toBeSigned.m.subjectUniqueIdentifierPresent, 1u);
    }

    // The start-up identifier and the one-arc-longer name-constraint identifier.
    EXPECT_TRUE(id_Quorvane_algorithms == id_Quorvane);
    ASN1OBJID nc = makeOid({2, 5, 29, 30});
    EXPECT_FALSE(nc == id_ce_nameConstraint);
}

}  // namespace
