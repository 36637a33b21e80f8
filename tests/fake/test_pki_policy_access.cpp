// Access descriptions and policy information on DER vectors, and the policies and access
// extensions of the corpus's certificates read and written back.
#include "pki/policy_access.h"
#include "pki_test_util.h"

using namespace Quorvane;
using namespace Quorvane::ASN1;
using testsupport::hexOf;

namespace {

using pkitest::der;
using pkitest::outcome;
using pkitest::again;
CGeneralName uri(const wchar_t* text) { CGeneralName n; n.put_uniformResourceIdentifier(text); return n; }
const char* const kOcsp = "1.3.6.1.5.5.7.48.1";
const std::string kAd = "301406082B060105050730018608687474703A2F2F6F", kAdCa = "301B06082B06010505073002860F687474703A2F2F692F63612E637274";
const std::string kPolicy = "3008060667810C010201", kCps = "3016301406082B060105050702011608687474703A2F2F63";
typedef ASN1T_CertificatePoliciesSyntax_traits Policies;
typedef ASN1T_AuthorityInfoAccessSyntax_traits Access;

TEST(PkiPolicyAccess, EncodeAndDecodeVectors) {
    const struct { std::function<CBlob()> f; std::string wire; } rows[] = {
        {[] { return CPolicyInformation("2.5.29.32.0").encode(); }, "30060604551D2000"},
        {[] { return CPolicyInformation("1..2").encode(); }, "!80070057"},
        {again<CPolicyInformation, ASN1T_PolicyInformation_traits>("3020060667810C010201" + kCps), kPolicy},  // qualifier lost
        {again<CPolicyInformationList, Policies>("302A30060604551D20003020060667810C010201" + kCps), "301230060604551D2000" + kPolicy},
        {[] { return CAccessDescription(kOcsp, uri(L"http://o")).encode(); }, kAd},
        {[] { CAccessDescription ad; ad.put_accessMethod(kOcsp); return ad.encode(); }, "!80070057"},  // no location
        {[] { return CAccessDescription("ocsp", uri(L"http://o")).encode(); }, "!80070057"},
        {again<CAccessDescription, ASN1T_AccessDescription_traits>("301606082B06010505073001A00A06022A03A0040C026869"), "!80070057"},  // otherName
        // An address comes back as a directory name of its four bytes, which no Name parses.
        {again<CAccessDescription, ASN1T_AccessDescription_traits>("301006082B0601050507300187040A000001"), "!80093101"},
        {again<CAuthorityInfoAccessSyntax, Access>("3033" + kAd + kAdCa), "3033" + kAd + kAdCa},
        {[] { return CAuthorityInfoAccessSyntax().encode(); }, "!80093101"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(outcome(row.f), row.wire) << &row - rows;
}

TEST(PkiPolicyAccess, ComparisonsAndDecodedState) {
    CGeneralName dns;
    dns.put_dNSName(L"http://o");
    const CAccessDescription ad(kOcsp, uri(L"http://o"));
    EXPECT_EQ(ad, CAccessDescription(kOcsp, uri(L"https://other"))) << "locations by their first character";
    EXPECT_NE(ad, CAccessDescription("1.3.6.1.5.5.7.48.2", uri(L"http://o")));
    EXPECT_NE(ad, CAccessDescription(kOcsp, dns));
    EXPECT_NE(CPolicyInformation("2.5.29.32.0"), CPolicyInformation("2.5.29.32.00")) << "identifiers as text";
}

// Policies come back as the catalogue writes them without their qualifiers.
TEST(PkiPolicyAccessCorpus, ExtensionsGoBackUnchanged) {
    CHAINVET_SKIP_WITHOUT_CORPUS();
    std::map<std::string, int> counts;
    pkitest::forEachExtension("cert", counts, [&](const std::string& path, const std::string& oid, const auto& ext) {
        const std::string wire = testsupport::toHex(ext.extnValue.data, ext.extnValue.numocts);
        if (oid == "1.3.6.1.5.5.7.1.1") {
            EXPECT_EQ(outcome(again<CAuthorityInfoAccessSyntax, Access>(wire)), wire) << path;
            ++counts["authority information access"];
        } else if (oid == "2.5.29.32") {
            ASN1BERDecodeBuffer in(ext.extnValue.data, static_cast<int>(ext.extnValue.numocts));
            asn1data::ASN1T_CertificatePoliciesSyntax policies;
            ASSERT_GE(asn1data::ASN1C_CertificatePoliciesSyntax(in, policies).Decode(), 0) << path;
            for (const Asn1RTDListNode* p = policies.head; p != nullptr; p = p->next)
                static_cast<asn1data::ASN1T_PolicyInformation*>(p->data)->m.policyQualifiersPresent = 0;
            const std::string bare = hexOf(asn1EncodeT<Policies>(policies));
            EXPECT_EQ(outcome(again<CPolicyInformationList, Policies>(wire)), bare) << path;
            ++counts[bare == wire ? "certificate policies" : "certificate policies with qualifiers"];
        }
    });
    pkitest::printCounts("policies and access", counts);
    EXPECT_GT(counts["certificate policies"] + counts["certificate policies with qualifiers"], 40);
    EXPECT_GT(counts["authority information access"], 40);
}

}  // namespace
