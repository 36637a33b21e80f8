// Typed signed attributes: DER vectors, the value left stale by put_policies on the ESS
// attributes and not on the ETSI one, the time kind by year, bare octet strings; and the
// signed attributes of the corpus's signed messages and time-stamp tokens read and
// written back.
#include "pki/signed_attrs.h"
#include "pki_test_util.h"

#include <cstring>

using namespace Quorvane;
using namespace Quorvane::ASN1;
using testsupport::hexOf;

namespace {

using pkitest::der;
using pkitest::outcome;
using pkitest::tlv;
CDateTime at(unsigned year, unsigned month = 1, unsigned day = 1, unsigned h = 0, unsigned m = 0, unsigned s = 0) {
    return CDateTime(year, month, day, h, m, s, 0, 0);
}
template <class A> CBlob valueOf(A a) { return a.get_value(); }
const std::string kCerts = "300630040402AABB", kPolicies = "300A3008060667810C010201";  // hash AABB; 2.23.140.1.2.1
const CPolicyInformationList kPolicyList{CPolicyInformation("2.23.140.1.2.1")};

TEST(PkiSignedAttrs, EncodeAndDecodeVectors) {
    const struct { std::function<CBlob()> f; std::string wire; } rows[] = {
        {[] { return valueOf(CAttrSigningCertificate(CESSCertIDList{CESSCertID(der("AABB"))})); }, "3008" + kCerts},
        {[] { return valueOf(CAttrSigningCertificateV2(CESSCertIDv2List{CESSCertIDv2(der("AABB"))})); }, "3008" + kCerts},
        {[] { return valueOf(CAttrOtherSigningCertificate(COtherCertIDList{COtherCertID(der("AABB"))})); }, "3008" + kCerts},
        {[] { CAttrSigningCertificate a(der("3008" + kCerts)); const CPolicyInformationList none; a.put_policies(&none); a.encode(); return valueOf(a); }, "3008" + kCerts},  // empty: left out
        {[] { return valueOf(CAttrSigningCertificate(der("3002"))); }, "!80093101"},
        {[] { return valueOf(CAttrContentType("1.2.840.113549.1.7.1")); }, "06092A864886F70D010701"},
        {[] { return valueOf(CAttrContentType("1..2")); }, "!80070057"},
        {[] { CAttrMessageDigest d; d.put_messageDigest(der("AABB")); return valueOf(d); }, "0402AABB"},
        {[] { return CAttrMessageDigest(der("0402AABB")).get_messageDigest(); }, "AABB"},
        {[] { return CAttrMessageDigest(der("0500")).get_messageDigest(); }, "!80093101"},
        {[] { return fromOctetString(der("0402AABB00")); }, "AABB"},  // what follows is not looked at
        {[] { return fromOctetString(der("0403AABB")); }, "!80093101"},
        {[] { return fromOctetString(CBlob()); }, "!80093101"},
        {[] { return fromOctetString(der("24060401AA0401BB")); }, "!80093101"},  // the constructed form is refused
        {[] { return valueOf(CAttrSigningTime(at(2049, 12, 31, 23, 59, 59))); }, tlv("17", "491231235959Z")},
        {[] { return valueOf(CAttrSigningTime(at(2050))); }, tlv("18", "20500101000000Z")},
        {[] { CAttrSigningTime t(der(tlv("18", "20300101000000Z"))); t.encode(); return valueOf(t); }, tlv("17", "300101000000Z")},
        {[] { return valueOf(CAttrSigningTime(der("0500"))); }, "!80093101"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(outcome(row.f), row.wire) << &row - rows;
}

TEST(PkiSignedAttrs, StaleValuesAndCopies) {
    CAttrSigningCertificateV2 v2(der("3014" + kCerts + kPolicies));
    EXPECT_TRUE(v2.get_policies() && *v2.get_policies() == kPolicyList && hexOf(v2.get_value()) == "3008" + kCerts);
    v2.encode();
    v2.put_policies(nullptr);
    EXPECT_TRUE(!v2.get_policies() && hexOf(v2.get_value()) == "3014" + kCerts + kPolicies) << "stale until encode()";
    CAttrOtherSigningCertificate other(COtherCertIDList{COtherCertID(der("AABB"))});
    other.put_policies(&kPolicyList);
    EXPECT_EQ(hexOf(other.get_value()), "3014" + kCerts + kPolicies) << "written at once";
    // A failed encoding leaves the value; the list put stays.
    const CESSCertIDv2List unnamed{CESSCertIDv2(der("AA"), CAlgorithmIdentifier())};
    EXPECT_EQ(testsupport::thrownHr([&] { v2.put_certs(unnamed); }), HRESULT(0x80093101));
    EXPECT_TRUE(hexOf(v2.get_value()) == "3014" + kCerts + kPolicies && v2.get_certs() == unnamed);
    CAttrSigningCertificate a(der("3014" + kCerts + kPolicies)), b;
    b = a;
    a.put_policies(nullptr);
    EXPECT_TRUE(b.get_policies() && b.get_value() == a.get_value()) << "copies are deep";
    CAttrSigningTime t(at(2010)), u(at(2060));
    u = t;
    t.put_time(at(2070));
    EXPECT_EQ(u.get_time().year(), 2010u);
}

// A signed attribute's value through its typed class and back.
template <class Attr>
CBlob again(const CBlob& raw) { Attr attr(raw); attr.encode(); return attr.get_value(); }

// The certs list of a decoded signingCertificate(V2), through the list traits and back: its
// encoding stands verbatim in the attribute value, right after the value's own header.
typedef ASN1T_ESSCertIDList_traits ESSCertIDs;
typedef ASN1T_ESSCertIDv2List_traits ESSCertIDv2s;
template <class Traits, class Attribute>
bool certsGoBack(const asn1data::Asn1TObject& value) {
    typename Traits::List list;
    asn1Decode<Traits, typename Traits::List>(asn1EncodeT<Traits>(static_cast<const Attribute*>(value.decoded)->certs), list);
    const CBlob back = asn1Encode<Traits, typename Traits::List>(list);
    return std::search(value.data, value.data + value.numocts, back.pbData(), back.pbData() + back.cbData()) ==
           value.data + 2 + (value.data[1] & 0x80 ? value.data[1] & 0x7F : 0);
}

TEST(PkiSignedAttrsCorpus, SignedAttributesGoBackUnchanged) {
    CHAINVET_SKIP_WITHOUT_CORPUS();
    const std::map<std::string, std::pair<const char*, CBlob (*)(const CBlob&)>> kinds = {
        {"1.2.840.113549.1.9.16.2.12", {"signingCertificate", again<CAttrSigningCertificate>}},
        {"1.2.840.113549.1.9.16.2.47", {"signingCertificateV2", again<CAttrSigningCertificateV2>}},
        {"1.2.840.113549.1.9.16.2.19", {"otherSigningCertificate", again<CAttrOtherSigningCertificate>}},
        {"1.2.840.113549.1.9.5", {"signingTime", again<CAttrSigningTime>}},
        {"1.2.840.113549.1.9.3", {"contentType", again<CAttrContentType>}},
        {"1.2.840.113549.1.9.4", {"messageDigest", again<CAttrMessageDigest>}},
    };
    std::map<std::string, int> counts;
    for (const char* kind : {"cms-signed", "tsp-response"}) {
        for (const std::string& path : testsupport::corpusByKind(kind)) {
            const std::vector<uint8_t> bytes = testsupport::readFile(path);
            ASN1BERDecodeBuffer buffer(bytes.data(), static_cast<int>(bytes.size()));
            asn1data::ASN1T_TimeStampResp resp;  // a signed message goes straight into its token
            const bool cms = std::strcmp(kind, "cms-signed") == 0;
            const int stat = cms ? asn1data::ASN1C_ContentInfo(buffer, resp.timeStampToken).Decode()
                                 : asn1data::ASN1C_TimeStampResp(buffer, resp).Decode();
            if (stat < 0 || (!cms && !resp.m.timeStampTokenPresent) ||
                std::strcmp(toOID(resp.timeStampToken.contentType).c_str(), "1.2.840.113549.1.7.2") != 0) {
                ++counts["messages refused by the catalogue or without signed data"];
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
                        const std::string wire = testsupport::toHex(value.data, value.numocts);
                        const std::string got = outcome([&] { return k->second.second(der(wire)); });
                        EXPECT_EQ(got, wire) << path << " " << k->second.first;
                        ++counts[k->second.first + std::string(got == wire ? ", same bytes" : ", changed")];
                        // Their certs lists also go through the list traits on their own.
                        const std::string name = k->second.first;
                        if (name == "signingCertificate" || name == "signingCertificateV2") {
                            const bool back = name == "signingCertificate"
                                                  ? certsGoBack<ESSCertIDs, asn1data::ASN1T_SigningCertificate>(value)
                                                  : certsGoBack<ESSCertIDv2s, asn1data::ASN1T_SigningCertificateV2>(value);
                            EXPECT_TRUE(back) << path;
                        }
                    }
                }
            }
        }
    }
    pkitest::printCounts("signed attributes", counts);
    for (const char* name : {"signingCertificate", "signingCertificateV2", "signingTime", "contentType", "messageDigest"})
        EXPECT_GT(counts[std::string(name) + ", same bytes"], 0) << name;
}

}  // namespace
