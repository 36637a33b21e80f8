// The types of the catalogue (X.509 core and extensions, X.400, CMS, signature attributes,
// OCSP, time stamps, DVCS, CMP, GOST): their quirks on hex vectors, and its size.
#include "asn1data/catalogue.h"
#include "d2_decoded.h"

#include <cstdio>

using namespace asn1data;

namespace {

std::string tlv(const std::string& tagHex, const std::string& content) {
    const size_t n = content.size() / 2;
    char len[16];
    std::snprintf(len, sizeof len, n < 128 ? "%02zx" : n < 256 ? "81%02zx" : "82%04zx", n);
    return tagHex + len + content;
}
std::string repeat(const std::string& unit, size_t n) {
    std::string s;
    while (n--) s += unit;
    return s;
}
std::string octets(size_t n) { return tlv("04", repeat("aa", n)); }

// A decode of a catalogue type by its name.
struct Decoded : d2test::Decoded {
    Decoded(const char* type, const std::string& in) : d2test::Decoded(typeRegistry().find(type), in) {}
};

const std::string kAlg = "300906052b0e03021a0500";  // SHA-1 with NULL parameters
const std::string kName = "300f310d300b0603550403130441424344";
const std::string kTime = "180f32303236313132333132303030305a";

TEST(CatalogueTypes, Quirks) {
    const std::string issuerSerial = tlv("30", kName + "020101"), dvcsInfo = tlv("30", "0a0101020107");
    struct Row {
        const char* type;
        std::string in;
        int status;
        std::string out = "";   // re-encoding when decoded: "" for the input itself
        ASN1UINT selector = 0;  // of a CHOICE the generator numbers in its own way
    } rows[] = {
        // X.509 core: Name has only rdnSequence, r and s of Dss-Sig-Value are 32-bit, countryName has no size
        // check, unknown attributes and extensions stay raw.
        {"Name", "3000", 0}, {"Name", "3100", RT_E_BAD_CHOICE}, {"RelativeDistinguishedName", "3100", RT_E_CONSTRAINT},
        {"Dss_Sig_Value", "3009020401020304020101", 0}, {"Dss_Sig_Value", "300a02050102030405020101", RT_E_INT_TOO_BIG},
        {"Time", "170d3530303130313030303030305a", 0}, {"Time", kTime, 0}, {"Time", "0401ff", RT_E_BAD_CHOICE},
        {"AttributeTypeAndValue", "300906035504060c024445", RT_E_TAG_MISMATCH},
        {"AttributeTypeAndValue", "3009060355040613024445", 0},
        {"AttributeTypeAndValue", "300a06032a03040c03616263", 0},
        {"AlgorithmIdentifier", "300d06092a864886f70d0101010500", 0},
        {"AlgorithmIdentifier", "300b06072a8648ce380401020101", RT_E_TAG_MISMATCH},
        {"Extension", "300906032a030404020500", 0},
        // Extensions and X.400: otherName writes its own [0], directoryName is [4] around a whole Name, QTDisplayText
        // has an ia5String more than DisplayText, GeneralSubtree.minimum DEFAULT 0 has no presence bit, unassigned
        // CRL reason 7 is in range, every ordinary country code fails, address sets are sorted on encoding.
        {"GeneralName", "8901ff", RT_E_BAD_CHOICE},
        {"GeneralName", tlv("a0", tlv("06", "2a0304") + tlv("a0", "0500")), 0}, {"GeneralName", tlv("a4", "3000"), 0},
        {"EDIPartyName", tlv("30", tlv("a1", "0c0161")), 0},
        {"EDIPartyName", tlv("30", tlv("a1", "0c00")), RT_E_CONSTRAINT},
        {"EDIPartyName", tlv("30", tlv("a1", tlv("0c", repeat("61", 32768)))), 0},
        {"EDIPartyName", tlv("30", tlv("a1", tlv("0c", repeat("61", 32769)))), RT_E_CONSTRAINT},
        {"QTDisplayText", tlv("1a", repeat("41", 200)), 0},
        {"QTDisplayText", tlv("1a", repeat("41", 201)), RT_E_CONSTRAINT}, {"QTDisplayText", "160141", 0},
        {"BasicConstraintsSyntax", "3003020105", 0}, {"GeneralSubtree", "300982016180010181010a", 0},
        {"GeneralSubtree", "300982016180010081010a", 0, "300682016181010a"}, {"CRLReason", "0a0107", 0},
        {"CRLReason", "0a010b", RT_E_BAD_ENUM}, {"CountryName", tlv("61", "13024445"), RT_E_CONSTRAINT},
        {"PersonalName", tlv("31", "a003130141"), 0},
        {"PersonalName", tlv("31", "a003130141a003130142"), RT_E_SET_DUPLICATE},
        {"PersonalName", tlv("31", "a103130141"), RT_E_MISSING_ELEMENT},
        {"PersonalName", tlv("31", "a003130141a403130142"), RT_E_SET_UNKNOWN_TAG},
        {"OrganizationalUnitNames", tlv("30", repeat("130141", 4)), 0},
        {"OrganizationalUnitNames", tlv("30", repeat("130141", 5)), RT_E_CONSTRAINT},
        {"UnformattedPostalAddress", tlv("31", tlv("30", repeat("130141", 7))), RT_E_CONSTRAINT},
        {"PresentationAddress", tlv("30", tlv("a3", tlv("31", "040102040101"))), 0, tlv("30", tlv("a3", tlv("31", "040101040102")))},
        {"ExtensionAttribute", tlv("30", "80020101" + tlv("a1", "0500")), RT_E_CONSTRAINT},
        // CMS and signature attributes: a content past the end of the input reads as empty, -2 and no read beyond
        // (fuzz finding); issuerAndSerialNumber on the whole SEQUENCE tag; no hashAlgorithm default put in.
        {"SignedAttributes", "3100", RT_E_CONSTRAINT},
        {"ContentInfo", "308006092a864886f70d010702a030", RT_E_END_OF_BUFFER}, {"SignerIdentifier", issuerSerial, 0},
        {"SignerIdentifier", "1000", RT_E_BAD_CHOICE}, {"SignerIdentifier", "800101", 0}, {"Accuracy", "3003800101", 0},
        {"Accuracy", "3004810203e7", 0}, {"Accuracy", "3003800100", RT_E_CONSTRAINT},
        {"Accuracy", "3004800203e8", RT_E_CONSTRAINT}, {"Accuracy", "3003020105", 0},
        {"RevocationValues", "3004a0023000", 0}, {"RevocationValues", "3008a0023000a2023000", RT_E_EXTRA_ELEMENT},
        {"ESSCertIDv2", tlv("30", octets(20)), 0}, {"DisplayText", tlv("1a", repeat("34", 200)), 0},
        {"DisplayText", tlv("1a", repeat("34", 201)), RT_E_CONSTRAINT},
        {"PBKDF2_params", tlv("30", octets(8) + "020100"), RT_E_CONSTRAINT}, {"AES_IV", octets(16), 0},
        {"AES_IV", octets(15), RT_E_CONSTRAINT},
        // Time stamps and DVCS: tsa is a whole GeneralName inside its [0]; DVCS version 1 is the default, left out.
        {"ServiceType", "0a0100", RT_E_BAD_ENUM}, {"ServiceType", "0a0101", 0}, {"ServiceType", "0a0104", 0},
        {"ServiceType", "0a0105", RT_E_BAD_ENUM},
        {"TSTInfo", tlv("30", "020101" "06032a0304" + tlv("30", kAlg + octets(20)) + "020101" + kTime + "a0038201" "61"), 0},
        {"DVCSRequestInformation", tlv("30", "0201010a0101"), 0, tlv("30", "0a0101")},
        {"DVCSRequestInformation", tlv("30", "0201020a0101"), 0},
        {"DVCSRequest", tlv("30", dvcsInfo + "040568656c6c6f"), 0},
        {"DVCSResponse", tlv("30", dvcsInfo + tlv("30", kAlg + octets(20)) + "020105" + kTime), 0, "", 1},
        // OCSP: 8 is the last status; byName under an EXPLICIT [1]; an unknown response type stays raw.
        {"OCSPResponseStatus", "0a0108", 0}, {"OCSPResponseStatus", "0a0109", RT_E_BAD_ENUM}, {"CertStatus", "8000", 0},
        {"CertStatus", "8300", RT_E_BAD_CHOICE}, {"ResponderID", tlv("a1", kName), 0},
        {"ResponseBytes", tlv("30", "06032a0304" + tlv("04", "3000")), 0},
        // CMP: conf [19] is selector 20, one above its tag. Selectors of the other CHOICEs.
        {"PKIBody", "b3020500", 0, "", 20}, {"SignaturePolicy", "0500", 0, "", 1}, {"_gost2001PubKey_Type", "0500", 0, "", 1},
        {"DVCSTime", kTime, 0, "", 2}, {"DVCSResponse", tlv("a0", "3003020102"), 0, "", 2},
        {"PKIBody", tlv("b8", "3000"), RT_E_BAD_CHOICE}, {"PKIAuditType", "0a0120", RT_E_BAD_ENUM},
        // GOST sizes, both lengths of a key, the MAC of a wrapped key (5 does not fit its room), elements after
        // the parameter set kept.
        {"Gost28147_89_IV", octets(8), 0}, {"Gost28147_89_IV", octets(7), RT_E_CONSTRAINT},
        {"Gost28147_89_Key", octets(32), 0}, {"Gost28147_89_Key", octets(64), 0},
        {"Gost28147_89_Key", octets(33), RT_E_CONSTRAINT}, {"Gost28147_89_MAC", octets(1), 0},
        {"Gost28147_89_MAC", octets(5), RT_E_TOO_LONG},
        {"Gost28147_89_EncryptedKey", tlv("30", octets(32) + octets(4)), 0},
        {"Gost28147_89_EncryptedKey", tlv("30", octets(32) + octets(3)), RT_E_CONSTRAINT},
        {"GostR3410_2001_PublicKey", octets(64), 0}, {"GostR3410_2012_512_PublicKey", octets(128), 0},
        {"GostR3410_2012_512_PublicKey", octets(64), RT_E_CONSTRAINT},
        {"GostR3410_2001_CertificateSignature", tlv("03", "00" + repeat("bb", 32)), 0},
        {"GostR3410_2001_CertificateSignature", tlv("03", "01" + repeat("bb", 32)), RT_E_CONSTRAINT},
        {"Gost28147_89_BlobParameters", tlv("30", "06032a030402010105000401ff"), 0},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(std::string(r.type) + " " + r.in.substr(0, 80));
        ASSERT_NE(typeRegistry().find(r.type), nullptr);
        Decoded d(r.type, r.in);
        EXPECT_EQ(d.status, r.status);
        EXPECT_EQ(r.selector ? *(const ASN1UINT*)((const char*)d.value + d.info->mOffset) : 0u, r.selector);
        EXPECT_EQ(r.status == 0 ? d.reencoded() : "", r.status == 0 ? (r.out.empty() ? r.in : r.out) : "");
    }
}

// Open types whose identifier names an object are decoded, others left raw. Defaults: DVCS
// version "1" is put in as text, PKIAudit.flag DEFAULT TRUE is preset to 1 and written only
// when not 1, and BasicConstraints' cA is cleared whatever the record held.
TEST(CatalogueTypes, OpenTypesAndDefaults) {
    // 2.5.29.30.1 is the name-constraints object; the published 2.5.29.30 stays raw.
    EXPECT_NE(Decoded("Extension", tlv("30", "0604551d1e01" "04023000")).as<ASN1T_Extension>().extnValueObj.decoded, nullptr);
    EXPECT_EQ(Decoded("Extension", tlv("30", "0603551d1e" "04023000")).as<ASN1T_Extension>().extnValueObj.decoded, nullptr);
    EXPECT_EQ(Decoded("PolicyQualifierInfo", "300a06032a0304160141").as<ASN1T_PolicyQualifierInfo>().qualifier.decoded, nullptr);
    Decoded cps("PolicyQualifierInfo", "300b06082b06010505070201160141");
    ASSERT_NE(cps.as<ASN1T_PolicyQualifierInfo>().qualifier.decoded, nullptr);
    EXPECT_STREQ(*(const char**)cps.as<ASN1T_PolicyQualifierInfo>().qualifier.decoded, "A");
    Decoded dvcs("DVCSRequest", "300e30060a0104020107040568656c6c6f");
    EXPECT_STREQ(dvcs.as<ASN1T_DVCSRequest>().requestInformation.version, "1");
    Decoded audit("PKIAudit", "30090a0101020102020103");
    EXPECT_EQ(audit.as<ASN1T_PKIAudit>().flag, 1);
    audit.as<ASN1T_PKIAudit>().flag = 0;
    EXPECT_EQ(audit.reencoded(), "300c0a0101020102020103010100");
    Decoded bc("BasicConstraintsSyntax", "3000");
    bc.as<ASN1T_BasicConstraintsSyntax>().cA = 1;
    bc.dec.c.bufIndex = 0;
    ASSERT_EQ(bc.info->decode(&bc.dec.c, bc.value, ASN1EXPL, 0), 0);
    EXPECT_EQ(bc.as<ASN1T_BasicConstraintsSyntax>().cA, 0);
}

// About five hundred types, the 145 information objects in nine sets, the identifier
// constants of the tables and the one filled at start-up; each set holds its class's objects.
TEST(CatalogueTypes, TheCatalogueIsComplete) {
    const TypeRegistry& reg = typeRegistry();
    EXPECT_TRUE(reg.ntypes >= 490u && reg.ntypes <= 510u) << reg.ntypes;
    unsigned inSets = 0, withValue = 0;  // all objects have a value type but dsaSHA_1
    for (const ObjectInfo* o = reg.objects; o < reg.objects + reg.nobjects; ++o)
        inSets += o->set != nullptr, withValue += o->value != nullptr;
    EXPECT_EQ((std::vector<ASN1UINT>{145, 347, 35 + 44 + 20 + 6 + 8 + 17 + 2 + 1, 144, 35, 44, 20, 17, 0}),
              (std::vector<ASN1UINT>{reg.nobjects, reg.noids, inSets, withValue, ExtensionSet::instance(nullptr)->mCount,
                                     SupportedAttributes::instance(nullptr)->mCount, SupportedAlgorithms::instance(nullptr)->mCount,
                                     SupportedInfos::instance(nullptr)->mCount, SupportedSigPolicyQualifiers::instance(nullptr)->mCount}));
    EXPECT_TRUE(id_Quorvane_algorithms == id_Quorvane);
    EXPECT_FALSE(makeOid({2, 5, 29, 30}) == id_ce_nameConstraint);
}

}  // namespace
