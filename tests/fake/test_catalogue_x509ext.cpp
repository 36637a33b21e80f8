// The extension and X.400 types of the catalogue: their quirks on hex vectors.
#include "asn1data/catalogue.h"
#include "ber_test_util.h"

#include <gtest/gtest.h>

using namespace asn1data;
using testsupport::hex;
using testsupport::toHex;

namespace {

struct Decoded {
    explicit Decoded(const char* type, const std::string& in) : dec(in) {
        info = typeRegistry().find(type);
        value = rtMemHeapAllocZ(&dec.c.typeHeap, (int)info->size);
        status = info->decode(&dec.c, value, ASN1EXPL, 0);
    }
    template <class T>
    T& as() { return *static_cast<T*>(value); }
    bertest::Dec dec;
    const TypeInfo* info;
    void* value;
    int status;
};

std::string tlv(const std::string& tagHex, const std::string& contentHex) {
    const size_t n = contentHex.size() / 2;
    char len[32];
    if (n < 128)
        std::snprintf(len, sizeof len, "%02zx", n);
    else if (n < 256)
        std::snprintf(len, sizeof len, "81%02zx", n);
    else
        std::snprintf(len, sizeof len, "82%04zx", n);
    return tagHex + len + contentHex;
}

std::string repeat(const std::string& unit, size_t n) {
    std::string s;
    for (size_t i = 0; i < n; ++i) s += unit;
    return s;
}

TEST(CatalogueX509Ext, Quirks) {
    const std::string party1 = tlv("30", tlv("a1", tlv("0c", "61")));
    struct Row {
        const char* type;
        std::string in;
        int status;
        const char* why;
    } rows[] = {
        {"GeneralName", "8901ff", RT_E_BAD_CHOICE, "no alternative [9]"},
        {"GeneralName", tlv("a0", tlv("06", "2a0304") + tlv("a0", "0500")), 0, "otherName writes its own [0]"},
        {"GeneralName", tlv("a4", "3000"), 0, "directoryName: [4] around a whole Name"},
        {"EDIPartyName", party1, 0, "a party name of one character"},
        {"EDIPartyName", tlv("30", tlv("a1", "0c00")), RT_E_CONSTRAINT, "the empty party name fails"},
        {"EDIPartyName", tlv("30", tlv("a1", tlv("0c", repeat("61", 32768)))), 0, "32768 characters"},
        {"EDIPartyName", tlv("30", tlv("a1", tlv("0c", repeat("61", 32769)))), RT_E_CONSTRAINT, "32769 characters"},
        {"QTDisplayText", tlv("1a", repeat("41", 200)), 0, "200 characters"},
        {"QTDisplayText", tlv("1a", repeat("41", 201)), RT_E_CONSTRAINT, "201 characters"},
        {"QTDisplayText", tlv("16", "41"), 0, "ia5String, an alternative more than DisplayText"},
        {"BasicConstraintsSyntax", "3003020105", 0, "pathLenConstraint alone"},
        {"GeneralSubtree", "300982016180010181010a", 0, "minimum off its default"},
        {"CRLReason", "0a0107", 0, "unassigned 7 is in range"},
        {"CRLReason", "0a010b", RT_E_BAD_ENUM, "11 is not"},
        {"CountryName", tlv("61", tlv("13", "4445")), RT_E_CONSTRAINT, "every ordinary country code fails"},
        {"PersonalName", tlv("31", tlv("a0", tlv("13", "41"))), 0, "surname"},
        {"PersonalName", tlv("31", tlv("a0", tlv("13", "41")) + tlv("a0", tlv("13", "42"))), RT_E_SET_DUPLICATE, "surname twice"},
        {"PersonalName", tlv("31", tlv("a1", tlv("13", "41"))), RT_E_MISSING_ELEMENT, "no surname"},
        {"PersonalName", tlv("31", tlv("a0", tlv("13", "41")) + tlv("a4", tlv("13", "42"))), RT_E_SET_UNKNOWN_TAG, "[4] is no field"},
        {"OrganizationalUnitNames", tlv("30", repeat("130141", 4)), 0, "four units"},
        {"OrganizationalUnitNames", tlv("30", repeat("130141", 5)), RT_E_CONSTRAINT, "five units: pvalue->n"},
        {"UnformattedPostalAddress", tlv("31", tlv("30", repeat("130141", 7))), RT_E_CONSTRAINT, "seven address lines"},
        {"PresentationAddress", tlv("30", tlv("a3", tlv("31", "040102040101"))), 0, "nAddresses, sorted on encoding"},
        {"ExtensionAttribute", tlv("30", "80020101" + tlv("a1", "0500")), RT_E_CONSTRAINT, "type 257 is beyond 256"},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(std::string(r.type) + ": " + r.why);
        Decoded d(r.type, r.in);
        EXPECT_EQ(d.status, r.status);
    }
}

TEST(CatalogueX509Ext, DefaultsAndTheNameConstraintIdentifier) {
    // cA is cleared by the decoder, whatever the record held.
    Decoded bc("BasicConstraintsSyntax", "3000");
    bc.as<ASN1T_BasicConstraintsSyntax>().cA = 1;
    bc.dec.c.bufIndex = 0;
    ASSERT_EQ(bc.info->decode(&bc.dec.c, bc.value, ASN1EXPL, 0), 0);
    EXPECT_EQ(bc.as<ASN1T_BasicConstraintsSyntax>().cA, 0);
    // minimum is DEFAULT 0 without a presence bit: written only when not 0.
    Decoded gs("GeneralSubtree", "300982016180010081010a");
    ASSERT_EQ(gs.status, 0);
    EXPECT_EQ(gs.as<ASN1T_GeneralSubtree>().minimum, 0u);
    EXPECT_EQ(gs.as<ASN1T_GeneralSubtree>().m.maximumPresent, 1u);
    bertest::Enc enc;
    const int len = asn1E_GeneralSubtree(&enc.c, &gs.as<ASN1T_GeneralSubtree>(), ASN1EXPL);
    EXPECT_EQ(toHex(xe_getp(&enc.c), (size_t)len), "300682016181010A");
    // 2.5.29.30.1 is the name-constraints object; the published 2.5.29.30 stays raw.
    const std::string value = tlv("04", "3000");
    Decoded known("Extension", tlv("30", "0604551d1e01" + value));
    Decoded raw("Extension", tlv("30", "0603551d1e" + value));
    ASSERT_EQ(known.status, 0);
    ASSERT_EQ(raw.status, 0);
    EXPECT_NE(known.as<ASN1T_Extension>().extnValueObj.decoded, nullptr);
    EXPECT_EQ(raw.as<ASN1T_Extension>().extnValueObj.decoded, nullptr);
    // An unknown policy qualifier stays raw; a known one decodes.
    Decoded pq("PolicyQualifierInfo", "300a06032a0304" + tlv("16", "41"));
    Decoded cps("PolicyQualifierInfo", "300b06082b06010505070201" + tlv("16", "41"));
    EXPECT_EQ(pq.as<ASN1T_PolicyQualifierInfo>().qualifier.decoded, nullptr);
    ASSERT_EQ(cps.status, 0);
    EXPECT_STREQ(*(const char**)cps.as<ASN1T_PolicyQualifierInfo>().qualifier.decoded, "A");
}

}  // namespace
