// The message types of the catalogue (CMS, signature attributes, OCSP, time stamps, DVCS,
// CMP, GOST): their quirks on hex vectors, DVCS requests and responses built by hand, and
// the size of the whole catalogue.
#include "asn1data/catalogue.h"
#include "ber_test_util.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>

using namespace asn1data;
using testsupport::toHex;

namespace {

std::string tlv(const std::string& tagHex, const std::string& content) {
    const size_t n = content.size() / 2;
    char len[32];
    if (n < 128)
        std::snprintf(len, sizeof len, "%02zx", n);
    else
        std::snprintf(len, sizeof len, "81%02zx", n);
    return tagHex + len + content;
}

std::string octets(size_t n) { return tlv("04", std::string(n * 2, 'a')); }

struct Decoded {
    Decoded(const char* type, const std::string& in) : dec(in) {
        info = typeRegistry().find(type);
        value = rtMemHeapAllocZ(&dec.c.typeHeap, (int)info->size);
        status = info->decode(&dec.c, value, ASN1EXPL, 0);
    }
    std::string reencoded() {
        int len = xe_setp(&dec.c, nullptr, 0);
        if (len == 0) len = info->encode(&dec.c, value, ASN1EXPL);
        if (len < 0) return "error " + std::to_string(len);
        std::string h = toHex(xe_getp(&dec.c), (size_t)len);
        for (char& ch : h) ch = (char)std::tolower((unsigned char)ch);
        return h;
    }
    template <class T>
    T& as() { return *static_cast<T*>(value); }
    bertest::Dec dec;
    const TypeInfo* info;
    void* value;
    int status;
};

const std::string kAlg = "300906052b0e03021a0500";  // SHA-1 with NULL parameters
const std::string kName = "300f310d300b0603550403130441424344";
const std::string kIssuerSerial = tlv("30", kName + "020101");

TEST(CatalogueMessages, Quirks) {
    struct Row {
        const char* type;
        std::string in;
        int status;
        const char* why;
    } rows[] = {
        // CMS and signature attributes
        {"SignedAttributes", "3100", RT_E_CONSTRAINT, "an empty SignedAttributes"},
        {"ContentInfo", "30800609" "2a864886f70d010702" "a030", RT_E_END_OF_BUFFER,
         "a content past the end of the input reads as empty: -2, not a read beyond (fuzz finding)"},
        {"SignerIdentifier", kIssuerSerial, 0, "issuerAndSerialNumber on the whole SEQUENCE tag"},
        {"SignerIdentifier", "1000", RT_E_BAD_CHOICE, "a primitive SEQUENCE tag is no alternative"},
        {"SignerIdentifier", "800101", 0, "subjectKeyIdentifier [0]"},
        {"Accuracy", "3003800101", 0, "millis 1"},
        {"Accuracy", "3004810203e7", 0, "micros 999"},
        {"Accuracy", "3003800100", RT_E_CONSTRAINT, "millis 0"},
        {"Accuracy", "3004800203e8", RT_E_CONSTRAINT, "millis 1000"},
        {"Accuracy", "3003020105", 0, "seconds alone, no check"},
        {"RevocationValues", "3004a0023000", 0, "crlVals"},
        {"RevocationValues", "3008a0023000a2023000", RT_E_EXTRA_ELEMENT, "a third field"},
        {"ESSCertIDv2", tlv("30", octets(20)), 0, "no hashAlgorithm, and no default put in"},
        {"SignaturePolicy", "0500", 0, "signaturePolicyImplied"},
        {"DisplayText", tlv("1a", std::string(400, '4')), 0, "200 characters"},
        {"DisplayText", tlv("1a", std::string(402, '4')), RT_E_CONSTRAINT, "201 characters"},
        {"PBKDF2_params", tlv("30", octets(8) + "020100"), RT_E_CONSTRAINT, "iterationCount 0"},
        {"AES_IV", octets(16), 0, "16 octets"},
        {"AES_IV", octets(15), RT_E_CONSTRAINT, "15 octets"},
        // Time stamps and DVCS
        {"ServiceType", "0a0100", RT_E_BAD_ENUM, "0 under 1..4"},
        {"ServiceType", "0a0105", RT_E_BAD_ENUM, "5 over 1..4"},
        {"TSTInfo", tlv("30", "020101" + std::string("06032a0304") + tlv("30", kAlg + octets(20)) + "020101" +
                                  "180f32303236313132333132303030305a" + tlv("a0", tlv("82", "61"))),
         0, "tsa: a whole GeneralName inside its [0]"},
        // OCSP
        {"OCSPResponseStatus", "0a0108", 0, "8 is the last status"},
        {"OCSPResponseStatus", "0a0109", RT_E_BAD_ENUM, "9 is refused"},
        {"CertStatus", "8000", 0, "good"},
        {"CertStatus", "8300", RT_E_BAD_CHOICE, "no alternative [3]"},
        {"ResponderID", tlv("a1", kName), 0, "byName under an EXPLICIT [1]"},
        {"ResponseBytes", tlv("30", "06032a0304" + tlv("04", "3000")), 0, "an unknown response type stays raw"},
        // CMP
        {"PKIBody", tlv("b3", "0500"), 0, "conf [19]"},
        {"PKIBody", tlv("b8", "3000"), RT_E_BAD_CHOICE, "no alternative [24]"},
        {"PKIAuditType", "0a0120", RT_E_BAD_ENUM, "32 is beyond the range"},
        // GOST sizes, both lengths of a key, the MAC of a wrapped key
        {"Gost28147_89_IV", octets(8), 0, "IV of 8"},
        {"Gost28147_89_IV", octets(7), RT_E_CONSTRAINT, "IV of 7"},
        {"Gost28147_89_Key", octets(32), 0, "key of 32"},
        {"Gost28147_89_Key", octets(64), 0, "key of 64"},
        {"Gost28147_89_Key", octets(33), RT_E_CONSTRAINT, "key of 33"},
        {"Gost28147_89_MAC", octets(1), 0, "MAC of 1"},
        {"Gost28147_89_MAC", octets(5), RT_E_TOO_LONG, "MAC of 5 does not fit its room"},
        {"Gost28147_89_EncryptedKey", tlv("30", octets(32) + octets(4)), 0, "macKey of 4"},
        {"Gost28147_89_EncryptedKey", tlv("30", octets(32) + octets(3)), RT_E_CONSTRAINT, "macKey of 3"},
        {"GostR3410_2001_PublicKey", octets(64), 0, "public key of 64"},
        {"GostR3410_2012_512_PublicKey", octets(128), 0, "public key of 128"},
        {"GostR3410_2012_512_PublicKey", octets(64), RT_E_CONSTRAINT, "public key of 64 for 512 bits"},
        {"GostR3410_2001_CertificateSignature", tlv("03", "00" + std::string(64, 'b')), 0, "256 bits"},
        {"GostR3410_2001_CertificateSignature", tlv("03", "01" + std::string(64, 'b')), RT_E_CONSTRAINT, "255 bits"},
        {"_gost2001PubKey_Type", "0500", 0, "NULL parameters"},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(std::string(r.type) + ": " + r.why);
        ASSERT_NE(typeRegistry().find(r.type), nullptr);
        Decoded d(r.type, r.in);
        EXPECT_EQ(d.status, r.status);
        if (r.status == 0) {
            EXPECT_EQ(d.reencoded(), r.in);
        }
    }
}

TEST(CatalogueMessages, SelectorsDefaultsAndExtensions) {
    EXPECT_EQ(Decoded("SignaturePolicy", "0500").as<ASN1T_SignaturePolicy>().t, 1u);
    EXPECT_EQ(Decoded("_gost2001PubKey_Type", "0500").as<ASN1T__gost2001PubKey_Type>().t, 1u);
    EXPECT_EQ(Decoded("PKIBody", tlv("b3", "0500")).as<ASN1T_PKIBody>().t, 20u) << "conf: selector one above its tag";
    // DVCSTime: the token is alternative 1, the time 2.
    Decoded time("DVCSTime", "180f32303236313132333132303030305a");
    ASSERT_EQ(time.status, 0);
    EXPECT_EQ(time.as<ASN1T_DVCSTime>().t, 2u);
    // PKIAudit.flag DEFAULT TRUE: preset to 1, written only when not 1.
    Decoded audit("PKIAudit", "30090a0101020102020103");
    ASSERT_EQ(audit.status, 0);
    EXPECT_EQ(audit.as<ASN1T_PKIAudit>().flag, 1);
    audit.as<ASN1T_PKIAudit>().flag = 0;
    EXPECT_EQ(audit.reencoded(), "300c0a01010201020201030101" "00");
    // Three elements after the parameter set are kept and written back after it.
    const std::string blob = tlv("30", "06032a0304" + std::string("020101") + "0500" + "0401ff");
    Decoded b("Gost28147_89_BlobParameters", blob);
    ASSERT_EQ(b.status, 0);
    EXPECT_EQ(b.as<ASN1T_Gost28147_89_BlobParameters>().extElem1.count, 3u);
    EXPECT_EQ(b.reencoded(), blob);
    // The basic response under id-pkix-ocsp-basic is decoded with the response bytes.
    if (testsupport::fileExists(std::string(CHAINVET_FIXTURES_DIR) + "/pki/ocsp-response.der")) {
        const std::vector<uint8_t> der = testsupport::readFile(std::string(CHAINVET_FIXTURES_DIR) + "/pki/ocsp-response.der");
        Decoded r("OCSPResponse", testsupport::toHex(der.data(), der.size()));
        ASSERT_EQ(r.status, 0);
        EXPECT_NE(r.as<ASN1T_OCSPResponse>().responseBytes.responseObj.decoded, nullptr);
    }
}

// DVCS has no public samples: a request and a response of each service type, built from
// the published module, decode and encode back; version "1" is the default, left out.
TEST(CatalogueMessages, DvcsByHand) {
    const std::string message = tlv("04", "68656c6c6f");
    for (int service = 1; service <= 4; ++service) {
        SCOPED_TRACE("service " + std::to_string(service));
        const std::string info = tlv("30", "0a010" + std::to_string(service) + "020107");
        const std::string request = tlv("30", info + message);
        Decoded d("DVCSRequest", request);
        ASSERT_EQ(d.status, 0);
        const ASN1T_DVCSRequestInformation& ri = d.as<ASN1T_DVCSRequest>().requestInformation;
        EXPECT_STREQ(ri.version, "1") << "the pointer to the default's text";
        EXPECT_EQ(ri.service, (ASN1UINT)service);
        EXPECT_EQ(d.reencoded(), request);

        const std::string digest = tlv("30", kAlg + octets(20));
        const std::string certInfo = tlv("30", info + digest + "020105" + "180f32303236313132333132303030305a");
        Decoded r("DVCSResponse", certInfo);
        ASSERT_EQ(r.status, 0);
        EXPECT_EQ(r.as<ASN1T_DVCSResponse>().t, 1u);
        EXPECT_EQ(r.reencoded(), certInfo);
    }
    // A version written out as 1 is dropped; 2 is kept.
    Decoded v1("DVCSRequestInformation", tlv("30", "0201010a0101"));
    EXPECT_EQ(v1.reencoded(), tlv("30", "0a0101"));
    Decoded v2("DVCSRequestInformation", tlv("30", "0201020a0101"));
    EXPECT_EQ(v2.reencoded(), tlv("30", "0201020a0101"));
    // An error notice is alternative 2 of the response.
    Decoded error("DVCSResponse", tlv("a0", "3003020102"));
    ASSERT_EQ(error.status, 0);
    EXPECT_EQ(error.as<ASN1T_DVCSResponse>().t, 2u);
}

// About five hundred types, the 145 information objects in nine sets, the identifier
// constants of the tables and the one filled at start-up; every object with a value type
// names a type of the catalogue, and each set holds the objects of its class.
TEST(CatalogueMessages, TheCatalogueIsComplete) {
    const TypeRegistry& reg = typeRegistry();
    EXPECT_GE(reg.ntypes, 490u);
    EXPECT_LE(reg.ntypes, 510u);
    EXPECT_EQ(reg.nobjects, 145u);
    EXPECT_EQ(reg.noids, 347u);
    unsigned inSets = 0, withValue = 0;
    for (unsigned i = 0; i < reg.nobjects; ++i) {
        inSets += reg.objects[i].set != nullptr;
        withValue += reg.objects[i].value != nullptr;
    }
    EXPECT_EQ(inSets, 35u + 44u + 20u + 6u + 8u + 17u + 2u + 1u);
    EXPECT_EQ(withValue, 144u) << "all but dsaSHA_1";
    EXPECT_EQ(ExtensionSet::instance(nullptr)->mCount, 35u);
    EXPECT_EQ(SupportedAttributes::instance(nullptr)->mCount, 44u);
    EXPECT_EQ(SupportedAlgorithms::instance(nullptr)->mCount, 20u);
    EXPECT_EQ(SupportedInfos::instance(nullptr)->mCount, 17u);
    EXPECT_EQ(SupportedSigPolicyQualifiers::instance(nullptr)->mCount, 0u);
}

}  // namespace
