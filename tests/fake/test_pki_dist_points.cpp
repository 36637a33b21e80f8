// Distribution points on DER vectors, and the CRL distribution points, freshest CRL and
// issuing distribution point names of the corpus read and written back.
#include "pki/dist_point.h"
#include "pki_test_util.h"

using namespace Quorvane;
using namespace Quorvane::ASN1;
using testsupport::hexOf;

namespace {

using pkitest::der;
using pkitest::outcome;
using pkitest::again;
CGeneralNames uri(const wchar_t* text) { CGeneralNames list(1); list.front().put_uniformResourceIdentifier(text); return list; }
CDistributionPoint point(const CGeneralNames* full, const CReasonFlags* reasons, const CGeneralNames* issuer) {
    CDistributionPoint dp; if (full) { const CDistributionPointName name(*full); dp.put_distributionPoint(&name); }
    return dp.put_reasons(reasons), dp.put_cRLIssuer(issuer), dp;
}
// A local static: a choice value made before the choice singletons would outlive them.
const CGeneralNames& kC() { static const CGeneralNames c = uri(L"http://c"); return c; }
const CGeneralNames kNone;  // no members
const CReasonFlags kZero(0), kKeyCa(CReasonFlags::keyCompromise | CReasonFlags::cACompromise);
const std::string kFull = "A00A8608687474703A2F2F63", kAll = "301FA00C" + kFull + "810205E0A20B8209612E6578616D706C65";
typedef ASN1T_DistributionPointName_traits Name;

TEST(PkiDistPoints, EncodeAndDecodeVectors) {
    const struct { std::function<CBlob()> f; std::string wire; } rows[] = {
        {[] { return CDistributionPointName(kC()).encode(); }, kFull},
        {[] { return point(&kC(), nullptr, nullptr).encode(); }, "300EA00C" + kFull},
        {[] { return point(nullptr, &kZero, nullptr).encode(); }, "3003810100"},  // zero reasons are written
        {[] { return point(nullptr, &kKeyCa, &kNone).encode(); }, "300481020560"},  // an empty issuer is not
        {[] { return CCRLDistPointsSyntax().encode(); }, "!80093101"},
        {again<CDistributionPoint, ASN1T_DistributionPoint_traits>(kAll), kAll},
        {again<CCRLDistPointsSyntax, ASN1T_CRLDistPointsSyntax_traits>("30123000300EA00C" + kFull), "30123000300EA00C" + kFull},
        {again<CDistributionPointName, Name>("A10A3008060355040313016E"), "!80093101"},  // a relative name is left empty
        {[] { CDistributionPointName n(kC()); n.decode(der("A10A3008060355040313016E")); return n.encode(); }, kFull},
        {[] { CDistributionPoint dp; dp.decode(der("300EA00CA10A3008060355040313016E")); const unsigned char t = (unsigned char)dp.get_distributionPoint()->get_type(); return CBlob(&t, 1); }, "00"},  // a relative name: the point keeps an empty name
        {again<CDistributionPoint, ASN1T_DistributionPoint_traits>("300EA00CA10A3008060355040313016E"), "!80093101"},  // and cannot be written
        {[] { CDistributionPoint dp = point(&kC(), &kZero, &kC()); dp.decode(der("3000")); return dp.encode(); }, "3000"},
        {[] { CDistributionPoint dp = point(&kC(), &kKeyCa, nullptr), copy(dp), back; copy.put_reasons(nullptr), back.clear(), back = dp; return back.encode(); },
         "3012A00C" + kFull + "81020560"},  // copies are deep, and an assignment revives a cleared point
    };
    for (const auto& row : rows) EXPECT_EQ(outcome(row.f), row.wire) << &row - rows;
}

TEST(PkiDistPoints, Comparisons) {
    const CGeneralNames other = uri(L"https://x"), two(2, kC().front());
    EXPECT_TRUE(point(&kC(), &kZero, &kC()) == point(&other, &kZero, &other)) << "first characters only";
    EXPECT_TRUE(point(&kC(), nullptr, nullptr) != point(&two, nullptr, nullptr)) << "the lists end together";
    EXPECT_TRUE(point(nullptr, &kZero, nullptr) != CDistributionPoint() && point(nullptr, nullptr, &kNone) != CDistributionPoint()) << "absent against present";
    EXPECT_TRUE(CDistributionPointName() == CDistributionPointName() && CDistributionPointName() != CDistributionPointName(kNone));
}

// Also the names of the issuing distribution points of the CRLs.
TEST(PkiDistPointsCorpus, ExtensionsGoBackUnchanged) {
    CHAINVET_SKIP_WITHOUT_CORPUS();
    std::map<std::string, int> counts;
    const auto check = [&](const std::string& path, const std::string& oid, const asn1data::ASN1T_Extension& ext) {
        const std::string wire = testsupport::toHex(ext.extnValue.data, ext.extnValue.numocts);
        ASN1BERDecodeBuffer in(ext.extnValue.data, static_cast<int>(ext.extnValue.numocts));
        asn1data::ASN1T_CRLDistPointsSyntax points;
        asn1data::ASN1T_IssuingDistPointSyntax idp;
        const bool listOfPoints = oid == "2.5.29.31" || oid == "2.5.29.46";  // CRL distribution points, freshest CRL
        if (listOfPoints && asn1data::ASN1C_CRLDistPointsSyntax(in, points).Decode() >= 0) {
            bool relative = false;  // it would be read through a null value: not supported
            for (const Asn1RTDListNode* p = points.head; p; p = p->next)
                relative |= static_cast<asn1data::ASN1T_DistributionPoint*>(p->data)->distributionPoint.t == 2;
            CCRLDistPointsSyntax v;
            if (!relative) {
                EXPECT_EQ(outcome([&] { v.decode(der(wire)); return v.encode(); }), wire) << path;
            }
            ++counts[(relative ? "skipped, a relative name: " : "") + oid];
        } else if (oid == "2.5.29.28" && asn1data::ASN1C_IssuingDistPointSyntax(in, idp).Decode() >= 0 &&
                   idp.m.distributionPointPresent) {
            const std::string name = hexOf(asn1EncodeT<Name>(idp.distributionPoint));  // a relative name is left empty
            const bool full = idp.distributionPoint.t == 1;
            EXPECT_EQ(outcome(again<CDistributionPointName, Name>(name)), full ? name : "!80093101") << path;
            ++counts[oid + (full ? " full names" : " relative names")];
        }
    };
    pkitest::forEachExtension("cert", counts, check);
    pkitest::forEachExtension("crl", counts, check);
    pkitest::printCounts("distribution points", counts);
    EXPECT_TRUE(counts["2.5.29.31"] > 40 && counts["2.5.29.28 full names"] > 4);
}

}  // namespace
