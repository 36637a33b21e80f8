// Access descriptions and policy information: DER vectors, the qualifiers that reading
// drops, the weak equality of locations; and the certificate policies and authority
// information access extensions of the corpus's certificates read and written back.
#include "pki/policy_access.h"
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
template <class T>
std::function<CBlob()> again(const std::string& wire) {
    return [wire] { T v; v.decode(der(wire)); return v.encode(); };
}
CGeneralName uri(const wchar_t* text) { CGeneralName n; n.put_uniformResourceIdentifier(text); return n; }
const char* const kOcsp = "1.3.6.1.5.5.7.48.1";
const std::string kAd = "301406082B060105050730018608687474703A2F2F6F";  // ocsp, URI http://o
const std::string kAdCa = "301B06082B06010505073002860F687474703A2F2F692F63612E637274";
const std::string kPolicy = "3008060667810C010201";  // 2.23.140.1.2.1
const std::string kPolicyCps = "3020060667810C0102013016301406082B060105050702011608687474703A2F2F63";

TEST(PkiPolicyAccess, EncodeAndDecodeVectors) {
    const struct {
        std::function<CBlob()> f;
        std::string wire;
    } rows[] = {
        {[] { return CPolicyInformation("2.5.29.32.0").encode(); }, "30060604551D2000"},
        {[] { return CPolicyInformation("1..2").encode(); }, "!80070057"},
        {[] { return CPolicyInformation().encode(); }, "!80070057"},
        {again<CPolicyInformation>(kPolicyCps), kPolicy},  // the CPS qualifier is gone
        {again<CPolicyInformation>("30020500"), "!80093101"},
        {[] { return asn1Encode<ASN1T_CertificatePoliciesSyntax_traits>(CPolicyInformationList()); }, "!80093101"},
        {[] {
             CPolicyInformationList list;
             asn1Decode<ASN1T_CertificatePoliciesSyntax_traits>(der("302A30060604551D2000" + kPolicyCps), list);
             return asn1Encode<ASN1T_CertificatePoliciesSyntax_traits>(list);
         },
         "301230060604551D2000" + kPolicy},
        {[] { return CAccessDescription(kOcsp, uri(L"http://o")).encode(); }, kAd},
        {[] { CAccessDescription ad; ad.put_accessMethod(kOcsp); return ad.encode(); }, "!80070057"},  // no location
        {[] { return CAccessDescription("ocsp", uri(L"http://o")).encode(); }, "!80070057"},
        {again<CAccessDescription>("301A06082B06010505073001A40E300C310A300806035504030C0161"),
         "301A06082B06010505073001A40E300C310A300806035504030C0161"},
        {again<CAccessDescription>("301606082B06010505073001A00A06022A03A0040C026869"), "!80070057"},  // otherName
        // An address comes back as a directory name holding its four bytes, which no Name parses.
        {again<CAccessDescription>("301006082B0601050507300187040A000001"), "!80093101"},
        {again<CAccessDescription>("0401AA"), "!80093101"},
        {again<CAuthorityInfoAccessSyntax>("3033" + kAd + kAdCa), "3033" + kAd + kAdCa},
        {[] { return CAuthorityInfoAccessSyntax().encode(); }, "!80093101"},  // SIZE (1..MAX)
    };
    for (const auto& row : rows)
        EXPECT_EQ(outcome(row.f), row.wire) << &row - rows;
}

TEST(PkiPolicyAccess, ComparisonsAndDecodedState) {
    CGeneralName dns;
    dns.put_dNSName(L"http://o");
    const CAccessDescription ad(kOcsp, uri(L"http://o"));
    const struct {
        bool got, expected;
        const char* what;
    } rows[] = {
        {ad == CAccessDescription(kOcsp, uri(L"https://other")), true, "locations by their first character"},
        {ad != CAccessDescription("1.3.6.1.5.5.7.48.2", uri(L"http://o")), true, "another method"},
        {ad == CAccessDescription(kOcsp, dns), false, "the same text as another type"},
        {CPolicyInformation("2.5.29.32.0") == CPolicyInformation("2.5.29.32.0"), true, "same identifier"},
        {CPolicyInformation("2.5.29.32.0") != CPolicyInformation("2.5.29.32.00"), true, "identifiers as text"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.got, row.expected) << row.what;

    CAuthorityInfoAccessSyntax aia;
    aia.push_back(ad);
    aia.decode(der("3033" + kAdCa + kAd));
    ASSERT_EQ(aia.size(), 2u) << "a decoded list replaces what was there";
    EXPECT_STREQ(aia.front().get_accessMethod(), "1.3.6.1.5.5.7.48.2");
    EXPECT_STREQ(aia.back().get_accessLocation().get_uniformResourceIdentifier(), L"http://o");

    CAccessDescription ip;
    ip.decode(der("301006082B0601050507300187040A000001"));
    EXPECT_EQ(ip.get_accessLocation().get_type(), unsigned(CGeneralName::directoryName));
    EXPECT_EQ(hexOf(*ip.get_accessLocation().get_directoryName()), "0A000001");

    CPolicyInformation policy("1.2.3");
    EXPECT_THROW(policy.decode(der("30020500")), ATL::CAtlException);
    EXPECT_STREQ(policy.get_policyIdentifier(), "1.2.3") << "a failed decode leaves the object as it was";
}

// The value of an extension through the object model and back: "same", "without qualifiers"
// when only the dropped qualifiers differ, else the failure.
template <class Traits, class Value>
std::string roundTrip(const CBlob& bytes, const CBlob& expected) {
    const std::string got = outcome([&] {
        Value value;
        asn1Decode<Traits, Value>(bytes, value);
        return asn1Encode<Traits, Value>(value);
    });
    if (got == hexOf(bytes))
        return "same bytes";
    return got == hexOf(expected) ? "same bytes without qualifiers" : "changed: " + got;
}

// Every certificate policies and authority information access extension of the corpus's
// certificates. What the catalogue refuses as a whole is counted and left out; its own
// corpus test says why.
TEST(PkiPolicyAccessCorpus, ExtensionsGoBackUnchanged) {
    CHAINVET_SKIP_WITHOUT_CORPUS();
    std::map<std::string, int> counts;
    for (const std::string& path : testsupport::corpusByKind("cert")) {
        const std::vector<uint8_t> file = testsupport::readFile(path);
        ASN1BERDecodeBuffer buffer(file.data(), static_cast<int>(file.size()));
        asn1data::ASN1T_Certificate cert;
        if (asn1data::ASN1C_Certificate(buffer, cert).Decode() < 0) {
            ++counts["certificates the catalogue refuses"];
            continue;
        }
        for (const Asn1RTDListNode* n = cert.toBeSigned.extensions.head; n != nullptr; n = n->next) {
            const auto& ext = *static_cast<const asn1data::ASN1T_Extension*>(n->data);
            const std::string oid = toOID(ext.extnID).c_str();
            const CBlob bytes(ext.extnValue.data, ext.extnValue.numocts);
            std::string result;
            if (oid == "2.5.29.32") {
                // What the value is without its qualifiers, written by the catalogue.
                ASN1BERDecodeBuffer in(bytes.pbData(), static_cast<int>(bytes.cbData()));
                asn1data::ASN1T_CertificatePoliciesSyntax policies;
                ASSERT_GE(asn1data::ASN1C_CertificatePoliciesSyntax(in, policies).Decode(), 0) << path;
                for (const Asn1RTDListNode* p = policies.head; p != nullptr; p = p->next)
                    static_cast<asn1data::ASN1T_PolicyInformation*>(p->data)->m.policyQualifiersPresent = 0;
                const CBlob bare = asn1EncodeT<ASN1T_CertificatePoliciesSyntax_traits>(policies);
                result = "policies, " + roundTrip<ASN1T_CertificatePoliciesSyntax_traits, CPolicyInformationList>(bytes, bare);
                EXPECT_EQ(result.find("changed"), std::string::npos) << path << " " << result;
            } else if (oid == "1.3.6.1.5.5.7.1.1") {
                result = "access, " + roundTrip<ASN1T_AuthorityInfoAccessSyntax_traits, CAuthorityInfoAccessSyntax>(bytes, CBlob());
                EXPECT_EQ(result, "access, same bytes") << path;
            } else {
                continue;
            }
            ++counts[result];
        }
    }
    for (const auto& c : counts)
        std::printf("policies and access of the corpus: %-45s %d\n", c.first.c_str(), c.second);
    EXPECT_GT(counts["policies, same bytes"] + counts["policies, same bytes without qualifiers"], 40);
    EXPECT_GT(counts["access, same bytes"], 40);
}

}  // namespace
