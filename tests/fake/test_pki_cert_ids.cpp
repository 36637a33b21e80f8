// Certificate identifiers of the ESS and ETSI signing-certificate attributes: DER vectors,
// the dropped default algorithm of ESSCertIDv2, the comparisons and the deep copies. Their
// lists in the corpus's attributes go back unchanged in PkiSignedAttrsCorpus.
#include "pki/ess_cert_id.h"
#include "pki_test_util.h"

using namespace Quorvane;
using namespace Quorvane::ASN1;
using testsupport::hexOf;

namespace {

using pkitest::der;
using pkitest::outcome;
// Decoded from the wire and encoded again.
template <class T>
std::function<CBlob()> again(const std::string& wire) {
    return [wire] { T v; v.decode(der(wire)); return v.encode(); };
}
const std::string kIssuer = "30153010A40E300C310A300806035504030C0161020105";  // CN=a, serial 5
const char* const kSha1 = "1.3.14.3.2.26";
CGeneralName dns(const wchar_t* text) { CGeneralName n; n.put_dNSName(text); return n; }
CIssuerSerial issuer(const CGeneralNames& names, const char* serial = "05") {
    const CBlob s = der(serial);
    return CIssuerSerial(names, CBigInteger(s.pbData(), s.cbData()));
}
template <class T>
T with(T value, const CIssuerSerial& is) { value.put_issuerSerial(&is); return value; }
CAlgorithmIdentifier algorithm(const char* oid, const char* parameters) {
    CAlgorithmIdentifier a(oid);
    a.put_parameters(der(parameters));
    return a;
}

TEST(CertIds, EncodeAndDecodeVectors) {
    CIssuerSerial is;
    is.decode(der(kIssuer));
    const struct {
        std::function<CBlob()> f;
        std::string wire;
    } rows[] = {
        {[] { return CESSCertID(der("AABB")).encode(); }, "30040402AABB"},
        {[&] { return with(CESSCertID(der("AABB")), is).encode(); }, "301B0402AABB" + kIssuer},
        {[] { return CESSCertIDv2(der("AABB"), kSha1).encode(); }, "300D300706052B0E03021A0402AABB"},
        {[&] { return with(CESSCertIDv2(der("AABB")), is).encode(); }, "301B0402AABB" + kIssuer},
        {[] { return COtherHash(der("AABB")).encode(); }, "0402AABB"},
        {[] { return COtherHash().encode(); }, "!80093101"},  // no alternative for the encoder
        {[&] { return with(COtherCertID(der("AABB"), kSha1), is).encode(); }, "3026300D300706052B0E03021A0402AABB" + kIssuer},
        {[] { return COtherCertID().encode(); }, "!80093101"},
        {[] { return CIssuerSerial().encode(); }, "!80093101"},  // GeneralNames has SIZE (1..MAX)
        {[] { return CESSCertIDv2(der("AA"), CAlgorithmIdentifier()).encode(); }, "!80093101"},
        // Decoded and encoded again.
        {again<CIssuerSerial>("3013300D8205616C70686182046265746102020080"), "3013300D8205616C70686182046265746102020080"},
        {again<CESSCertIDv2>("3013300D060960864801650304020105000402AABB"), "30040402AABB"},  // default dropped
        {again<COtherHash>("300D300706052B0E03021A0402AABB"), "300D300706052B0E03021A0402AABB"},
        {again<COtherCertID>("30040402AABB"), "30040402AABB"},
        {again<CIssuerSerial>("30193010A40E300C310A300806035504030C0161020105030200AA"), kIssuer},  // issuerUID lost
        {again<CESSCertID>("0401AA"), "!80093101"},
        {again<CESSCertID>("30180402AABB3012300DA00B06032A0304A0040C026869020105"), "!80070057"},  // otherName
    };
    for (const auto& row : rows)
        EXPECT_EQ(outcome(row.f), row.wire) << &row - rows;
}

TEST(CertIds, DefaultAlgorithmOfV2IsNeverWritten) {
    CESSCertIDv2 fresh, decoded = with(CESSCertIDv2(), issuer({dns(L"x")}));
    EXPECT_STREQ(fresh.get_hashAlgorithm().get_algorithm(), "2.16.840.1.101.3.4.2.1");
    EXPECT_EQ(hexOf(fresh.encode()), "30020400");
    decoded.put_hashAlgorithm(CAlgorithmIdentifier(kSha1));
    decoded.decode(fresh.encode());
    EXPECT_EQ(decoded.get_hashAlgorithm(), CAlgorithmIdentifier("2.16.840.1.101.3.4.2.1")) << "supplied on decoding";
    EXPECT_EQ(decoded, fresh) << "an absent issuer and serial removes the one there was";
    // Parameters on the default go with it.
    const CESSCertIDv2 withNull(der("AABB"), algorithm("2.16.840.1.101.3.4.2.1", "0500"));
    EXPECT_EQ(hexOf(withNull.encode()), "30040402AABB");
    decoded.decode(withNull.encode());
    EXPECT_NE(decoded, withNull);
    EXPECT_EQ(decoded.get_hashAlgorithm().get_parameters().cbData(), 0u);
}

TEST(CertIds, Comparisons) {
    const CGeneralNames ab{dns(L"alpha"), dns(L"beta")}, ba{dns(L"beta"), dns(L"alpha")};
    const CESSCertID hashed(der("AABB"));
    const COtherHashAlgAndValue plain(der("AABB"), CAlgorithmIdentifier(kSha1)), plainNull(der("AABB"), algorithm(kSha1, "0500"));
    const COtherHash sha1(der("AABB")), other(plain), otherNull(COtherHashAlgAndValue(der("AABB"), algorithm(kSha1, "0500")));
    const COtherCertID id(der("AABB"), CAlgorithmIdentifier(kSha1)), idNull(der("AABB"), algorithm(kSha1, "0500"));
    const struct {
        bool got, expected;
        const char* what;
    } rows[] = {
        {issuer(ab) == issuer(ab), true, "same names, same serial"},
        {issuer(ab) != issuer(ba), true, "names in swapped order"},
        {issuer(ab) == issuer({dns(L"apple"), dns(L"bravo")}), true, "names by their first character"},
        {issuer(ab) != issuer({dns(L"alpha")}), true, "one name more"},
        {issuer(ab, "0005") == issuer(ab), true, "serials by value"},
        {issuer(ab, "06") == issuer(ab), false, "another serial"},
        {hashed == with(hashed, issuer(ab)) || !(hashed != with(hashed, issuer(ab))), false, "one side lacks issuer"},
        {with(hashed, issuer(ab)) == with(hashed, issuer(ab)), true, "both with issuer"},
        {hashed == CESSCertID(der("AABC")), false, "another hash"},
        {CESSCertIDv2(der("AA")) == CESSCertIDv2(der("AA"), CAlgorithmIdentifier(kSha1)), false, "v2 by algorithm"},
        {plain == plainNull || !(plain != plainNull), false, "hash and algorithm under other parameters"},
        {plain.compare_hashValue(plainNull), true, "the same, by hash value"},
        {sha1 == other || !(sha1 != other), false, "sha1Hash against otherHash of the same bytes"},
        {sha1.compare_hashValue(other), false, "the same, by hash value"},
        {other == otherNull || !(other != otherNull), false, "otherHash under other parameters"},
        {other.compare_hashValue(otherNull), true, "the same, by hash value"},
        {COtherHash() == COtherHash(), true, "two empty choices"},
        {id == idNull || !(id != idNull), false, "certificate ids under other parameters"},
        {id.compare_noHashParam(idNull), true, "the same, without the parameters"},
        {id.compare_noHashParam(with(idNull, issuer(ab))), false, "the same, one without issuer"},
        {COtherCertID(der("AABB")) == COtherCertID(der("AABB")), true, "sha1Hash ids"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.got, row.expected) << row.what;
}

TEST(CertIds, CopiesAreDeep) {
    const CIssuerSerial is = issuer({dns(L"a.example")});
    CESSCertIDv2 v2 = with(CESSCertIDv2(der("AA")), is), copy(v2);
    const CIssuerSerial* before = v2.get_issuerSerial();
    EXPECT_NE(copy.get_issuerSerial(), before);
    v2 = v2;
    EXPECT_EQ(v2.get_issuerSerial(), before) << "assignment to itself does nothing";
    v2.put_issuerSerial(nullptr);
    EXPECT_TRUE(v2.get_issuerSerial() == nullptr && copy.get_issuerSerial() != nullptr);
    COtherCertID id(der("AABB")), other(der("CC"), CAlgorithmIdentifier(kSha1));
    other = id;
    EXPECT_NE(other.get_otherCertHash().get_sha1Hash(), id.get_otherCertHash().get_sha1Hash()) << "nothing shared";
    EXPECT_EQ(other, id);
    CESSCertIDList list{CESSCertID(der("AA")), with(CESSCertID(der("BB")), is)}, back{CESSCertID()};
    asn1Decode<ASN1T_ESSCertIDList_traits, CESSCertIDList>(asn1Encode<ASN1T_ESSCertIDList_traits, CESSCertIDList>(list), back);
    EXPECT_EQ(back, list) << "a decoded list replaces what was there";
}

}  // namespace
