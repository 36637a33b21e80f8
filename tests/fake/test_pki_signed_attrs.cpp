// Typed signed attributes: DER vectors, the value left stale by put_policies on the ESS
// attributes and not on the ETSI one, the time kind by year, bare octet strings; and the
// signed attributes of the corpus's signed messages and time-stamp tokens read and
// written back.
#include "pki/signed_attrs.h"
#include "support/testsupport.h"

#include <cstdio>
#include <cstring>
#include <functional>
#include <map>

using namespace Quorvane;
using namespace Quorvane::ASN1;
using testsupport::hexOf;

namespace {

CBlob der(const std::string& h) { return testsupport::blobOf(testsupport::hex(h)); }
// The hex that f gives, or "!" and the HRESULT it throws.
std::string outcome(const std::function<CBlob()>& f) {
    try {
        return hexOf(f());
    } catch (const ATL::CAtlException& e) {
        char text[16];
        std::snprintf(text, sizeof text, "!%08X", static_cast<unsigned>(e.m_hr));
        return text;
    }
}
// A time element of tag 17 or 18 over its text.
std::string timeDer(const char* tag, const std::string& text) {
    const uint8_t len = static_cast<uint8_t>(text.size());
    return tag + testsupport::toHex(&len, 1) + testsupport::toHex(reinterpret_cast<const uint8_t*>(text.data()), len);
}
CDateTime at(unsigned year, unsigned month = 1, unsigned day = 1, unsigned h = 0, unsigned m = 0, unsigned s = 0) {
    return CDateTime(year, month, day, h, m, s, 0, 0);
}
const std::string kCerts = "300630040402AABB";             // one identifier, hash AABB
const std::string kPolicies = "300A3008060667810C010201";  // 2.23.140.1.2.1
const CPolicyInformationList kPolicyList{CPolicyInformation("2.23.140.1.2.1")};

TEST(PkiSignedAttrs, EncodeAndDecodeVectors) {
    const CESSCertIDList v1{CESSCertID(der("AABB"))};
    const struct {
        std::function<CBlob()> f;
        std::string wire;
    } rows[] = {
        {[&] { return CAttrSigningCertificate(v1).get_value(); }, "3008" + kCerts},
        {[] { return CAttrSigningCertificateV2(CESSCertIDv2List{CESSCertIDv2(der("AABB"))}).get_value(); }, "3008" + kCerts},
        {[] { return CAttrOtherSigningCertificate(COtherCertIDList{COtherCertID(der("AABB"))}).get_value(); }, "3008" + kCerts},
        {[] { return CAttrSigningCertificate(CESSCertIDList()).get_value(); }, "30023000"},
        {[&] {
             CAttrSigningCertificate a(v1);
             const CPolicyInformationList none;
             a.put_policies(&none);  // an empty list is left out
             a.encode();
             return a.get_value();
         },
         "3008" + kCerts},
        {[] { return CAttrSigningCertificate(der("3014" + kCerts + kPolicies)).get_value(); }, "3008" + kCerts},
        {[] { return CAttrOtherSigningCertificate(der("3014" + kCerts + kPolicies)).get_value(); }, "3014" + kCerts + kPolicies},
        {[] { return CAttrSigningCertificate(der("3002")).get_value(); }, "!80093101"},
        {[] { return CAttrContentType("1.2.840.113549.1.7.1").get_value(); }, "06092A864886F70D010701"},
        {[] { return CAttrContentType("1..2").get_value(); }, "!80070057"},
        {[] { return CAttrContentType(der("0500")).get_value(); }, "!80093101"},
        {[] { CAttrMessageDigest d; d.encode(); return d.get_value(); }, "0400"},
        {[] { CAttrMessageDigest d; d.put_messageDigest(der("AABB")); return d.get_value(); }, "0402AABB"},
        {[] { return CAttrMessageDigest(der("0402AABB")).get_messageDigest(); }, "AABB"},
        {[] { return CAttrMessageDigest(der("0500")).get_messageDigest(); }, "!80093101"},
        {[] { return toOctetString(CBlob(200)); }, "0481C8" + std::string(400, '0')},
        {[] { return fromOctetString(der("0402AABB00")); }, "AABB"},  // what follows is not looked at
        {[] { return fromOctetString(der("0400")); }, ""},
        {[] { return fromOctetString(der("0403AABB")); }, "!80093101"},
        {[] { return fromOctetString(der("04")); }, "!80093101"},
        {[] { return fromOctetString(CBlob()); }, "!80093101"},
        {[] { return fromOctetString(der("24060401AA0401BB")); }, "!80093101"},  // the constructed form is refused
        {[] { return CAttrSigningTime(at(2049, 12, 31, 23, 59, 59)).get_value(); }, timeDer("17", "491231235959Z")},
        {[] { return CAttrSigningTime(at(2050)).get_value(); }, timeDer("18", "20500101000000Z")},
        {[] { return CAttrSigningTime(CDateTime(at(2020, 5, 6, 7, 8, 9).getTime(), 999999u)).get_value(); },
         timeDer("17", "200506070809Z")},  // whole seconds
        // The wire's kind is not kept: the year chooses again.
        {[] { CAttrSigningTime t(der(timeDer("18", "20300101000000Z"))); t.encode(); return t.get_value(); },
         timeDer("17", "300101000000Z")},
        {[] { return CAttrSigningTime(der("0500")).get_value(); }, "!80093101"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(outcome(row.f), row.wire) << &row - rows;
}

TEST(PkiSignedAttrs, PoliciesAndStaleValues) {
    // Decoding writes the value from put_certs before the policies arrive: the ESS
    // attributes keep a value without them, the ETSI one writes it again.
    CAttrSigningCertificateV2 v2(der("3014" + kCerts + kPolicies));
    ASSERT_NE(v2.get_policies(), nullptr);
    EXPECT_EQ(*v2.get_policies(), kPolicyList);
    EXPECT_EQ(hexOf(v2.get_value()), "3008" + kCerts);
    v2.encode();
    EXPECT_EQ(hexOf(v2.get_value()), "3014" + kCerts + kPolicies);
    v2.put_policies(nullptr);
    EXPECT_EQ(v2.get_policies(), nullptr);
    EXPECT_EQ(hexOf(v2.get_value()), "3014" + kCerts + kPolicies) << "stale until encode()";
    v2.encode();
    EXPECT_EQ(hexOf(v2.get_value()), "3008" + kCerts);

    CAttrOtherSigningCertificate other(COtherCertIDList{COtherCertID(der("AABB"))});
    other.put_policies(&kPolicyList);
    EXPECT_EQ(hexOf(other.get_value()), "3014" + kCerts + kPolicies) << "written at once";

    // A failed encoding leaves the value; the list put stays.
    CAttrSigningCertificateV2 bad(CESSCertIDv2List{CESSCertIDv2(der("AABB"))});
    const CESSCertIDv2List unnamed{CESSCertIDv2(der("AA"), CAlgorithmIdentifier())};
    EXPECT_EQ(testsupport::thrownHr([&] { bad.put_certs(unnamed); }), HRESULT(0x80093101));
    EXPECT_EQ(hexOf(bad.get_value()), "3008" + kCerts);
    EXPECT_EQ(bad.get_certs(), unnamed);

    // Copies are deep and keep both views.
    CAttrSigningCertificate a(der("3014" + kCerts + kPolicies)), b;
    b = a;
    a.put_policies(nullptr);
    ASSERT_NE(b.get_policies(), nullptr);
    EXPECT_NE(b.get_policies(), CAttrSigningCertificate(a).get_policies());
    EXPECT_EQ(b.get_value(), a.get_value());
    EXPECT_STREQ(b.get_oid(), "1.2.840.113549.1.9.16.2.12");

    CAttrSigningTime t(at(2010)), u(at(2060));
    u = t;
    t.put_time(at(2070));
    EXPECT_EQ(u.get_time().year(), 2010u);
    EXPECT_EQ(CAttrSigningTime(CAttrSigningTime(at(1949, 6, 1)).get_value()).get_time().year(), 2049u)
        << "UTCTime has no year before 1950";
}

// A signed attribute's value through its typed class and back.
template <class Attr>
bool same(const CBlob& raw) {
    Attr attr(raw);
    attr.encode();
    return attr.get_value() == raw;
}

// Every signing certificate (v1, v2, other), signing time, content type and message digest
// in the signed attributes of the corpus's signed messages and time-stamp tokens.
TEST(PkiSignedAttrsCorpus, SignedAttributesGoBackUnchanged) {
    CHAINVET_SKIP_WITHOUT_CORPUS();
    const std::map<std::string, std::pair<const char*, bool (*)(const CBlob&)>> kinds = {
        {"1.2.840.113549.1.9.16.2.12", {"signingCertificate", same<CAttrSigningCertificate>}},
        {"1.2.840.113549.1.9.16.2.47", {"signingCertificateV2", same<CAttrSigningCertificateV2>}},
        {"1.2.840.113549.1.9.16.2.19", {"otherSigningCertificate", same<CAttrOtherSigningCertificate>}},
        {"1.2.840.113549.1.9.5", {"signingTime", same<CAttrSigningTime>}},
        {"1.2.840.113549.1.9.3", {"contentType", same<CAttrContentType>}},
        {"1.2.840.113549.1.9.4", {"messageDigest", same<CAttrMessageDigest>}},
    };
    std::map<std::string, int> counts;
    for (const char* kind : {"cms-signed", "tsp-response"}) {
        for (const std::string& path : testsupport::corpusByKind(kind)) {
            const std::vector<uint8_t> bytes = testsupport::readFile(path);
            ASN1BERDecodeBuffer buffer(bytes.data(), static_cast<int>(bytes.size()));
            asn1data::ASN1T_TimeStampResp resp;
            const bool cms = std::strcmp(kind, "cms-signed") == 0;
            const int stat = cms ? asn1data::ASN1C_ContentInfo(buffer, resp.timeStampToken).Decode()
                                 : asn1data::ASN1C_TimeStampResp(buffer, resp).Decode();
            if (stat < 0 || (!cms && !resp.m.timeStampTokenPresent) ||
                std::strcmp(toOID(resp.timeStampToken.contentType).c_str(), "1.2.840.113549.1.7.2") != 0) {
                ++counts[stat < 0 ? "messages the catalogue refuses" : "messages without signed data"];
                continue;
            }
            const auto* sd = static_cast<const asn1data::ASN1T_SignedData*>(resp.timeStampToken.content.decoded);
            for (const Asn1RTDListNode* n = sd->signerInfos.head; n != nullptr; n = n->next) {
                const auto& info = *static_cast<const asn1data::ASN1T_SignerInfo*>(n->data);
                for (const Asn1RTDListNode* a = info.signedAttrs.head; info.m.signedAttrsPresent && a; a = a->next) {
                    const auto& attr = *static_cast<const asn1data::ASN1T_Attribute*>(a->data);
                    const auto k = kinds.find(toOID(attr.type).c_str());
                    for (const Asn1RTDListNode* v = attr.values.head; k != kinds.end() && v != nullptr; v = v->next) {
                        const auto& value = *static_cast<const asn1data::Asn1TObject*>(v->data);
                        const CBlob raw(value.data, value.numocts);
                        std::string result;
                        try {
                            result = k->second.second(raw) ? ", same bytes" : ", changed";
                        } catch (const ATL::CAtlException&) {
                            result = ", refused";
                        }
                        EXPECT_EQ(result, ", same bytes") << path << " " << k->second.first;
                        ++counts[k->second.first + result];
                    }
                }
            }
        }
    }
    for (const auto& c : counts)
        std::printf("signed attributes of the corpus: %-45s %d\n", c.first.c_str(), c.second);
    for (const char* name : {"signingCertificate", "signingCertificateV2", "signingTime", "contentType", "messageDigest"})
        EXPECT_GT(counts[std::string(name) + ", same bytes"], 0) << name;
}

}  // namespace
