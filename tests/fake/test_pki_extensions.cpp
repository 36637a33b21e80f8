// Extensions: one through the object of its identifier, the list with its in-place insert,
// the typed values on DER vectors with the time forms the parser lets through, and the
// extensions of every certificate of the corpus.
#include "pki/extension.h"
#include "pki_test_util.h"

#include <set>

using namespace Quorvane;
using namespace Quorvane::ASN1;
using testsupport::hexOf;

namespace {

using pkitest::der;
// A GeneralizedTime, bare or with tag 80 or 81 as a field of PrivateKeyUsagePeriod.
std::string gt(const std::string& text, const char* tag = "18") { return pkitest::tlv(tag, text); }
using pkitest::outcome;
CExtension ext(const char* oid, const char* value, bool critical = false) {
    return CExtension(CExtValue(oid, der(value)), critical);
}
std::string dateOf(const CExtInvalidityDate& d) { return d.get_invalidityDate().getGeneralizedTime().c_str(); }

TEST(PkiExtension, EncodeAndDecode) {
    const struct {
        CExtension in;
        const char* out;
    } rows[] = {
        {ext("1.2.3.4", "0500"), "300906032A030404020500"},                          // unknown: raw
        {ext("2.5.29.19", "30030101FF", true), "300F0603551D130101FF040530030101FF"},
        {ext("2.5.29.15", ""), "30070603551D0F0400"},                                // empty: raw
        {ext("2.5.29.21", "0A810101"), "300A0603551D1504030A0101"},                  // rewritten as DER
        {ext("2.5.29.19", "0500"), "!80093101"},                                     // not its type
        {ext("1..2", "0500"), "!80070057"},
    };
    for (const auto& r : rows)
        EXPECT_EQ(outcome([&] { return hexOf(r.in.encode()); }), r.out) << r.in.get_extnID();
    CExtension e;
    e.decode(der("300C0603551D1301010004023000"));  // FALSE written out
    EXPECT_EQ(e, ext("2.5.29.19", "3000"));
    e.decode(der("300D06032A03040101010403020100"));  // TRUE as 01
    EXPECT_EQ(e, ext("1.2.3.4", "020100", true));
    EXPECT_EQ(testsupport::thrownHr([&] { e.decode(der("3003020100")); }), CRYPT_E_ASN1_INTERNAL);
    EXPECT_EQ(e, ext("1.2.3.4", "020100", true)) << "a failed decode leaves the object";
    EXPECT_NE(e, ext("1.2.3.4", "020100"));
}

TEST(PkiExtensions, InsertFindEraseAndOrder) {
    CExtensions list;
    for (const CExtension& e : {ext("2.5.29.19", "3000"), ext("2.5.29.15", "03020780"), ext("1.2.3.4", "05"),
                                ext("2.5.29.15", "03020204", true)})
        list.insert(e);  // the fourth overwrites the second where it stands
    const CBlob bytes = list.encode();
    EXPECT_EQ(hexOf(bytes), hexOf(der("3025 30090603551D1304023000 300E0603551D0F0101FF040403020204 "
                                      "300806032A0304040105")));
    EXPECT_EQ(*list.find("2.5.29.15"), ext("2.5.29.15", "03020204", true));
    EXPECT_EQ(static_cast<const CExtensions&>(list).find("2.5.29.17"), list.end());
    CExtensions other(list);
    other.splice(other.end(), other, other.begin());
    EXPECT_NE(other, list) << "the order counts";
    other.decode(bytes);
    EXPECT_EQ(other, list) << "a decoded list replaces what was there";
    other.decode(der("3013 300706032A03040400 300806032A0304040105"));  // duplicates stay
    other.erase("1.2.3.4");
    other.erase("7.7");
    ASSERT_EQ(other.size(), 1u);
    EXPECT_EQ(hexOf(other.front().get_extnValue()), "05") << "the first match only";
    EXPECT_EQ(testsupport::thrownHr([] { CExtensions().encode(); }), CRYPT_E_ASN1_INTERNAL) << "SIZE (1..MAX)";
}

// Each typed value under its fixed identifier. A reason is checked only by the encoder's
// range (7 passes, 11 not); dates lose their milliseconds.
TEST(PkiExtTyped, EncodedForms) {
    CGeneralName dns;
    dns.put_dNSName(L"ca.example");
    const CDateTime a(2020, 1, 2, 3, 4, 5, 999, 0);
    const std::string ga = gt("20200102030405Z", "80");
    const struct {
        std::function<CExtValue()> make;
        std::string out;
    } rows[] = {
        {[] { return CExtCRLReason(static_cast<CrlReason>(7)); }, "2.5.29.21 0A0107"},
        {[] { return CExtCRLReason(static_cast<CrlReason>(11)); }, "!80093101"},
        {[] { CExtCRLReason e(crlReasonKeyCompromise); e.put_reason(crlReasonRemoveFromCRL); return e; }, "2.5.29.21 0A0108"},
        {[] { return CExtHoldInstructionCode("1.2.840.10040.2.2"); }, "2.5.29.23 06072A8648CE380202"},
        {[] { return CExtHoldInstructionCode("1..2"); }, "!80070057"},
        {[] { CExtHoldInstructionCode e; e.encode(); return e; }, "!80070057"},
        {[&] { return CExtInvalidityDate(a); }, "2.5.29.24 " + gt("20200102030405Z")},
        {[] { return CExtInvalidityDate(); }, "2.5.29.24 "},
        {[&] { return CExtCertificateIssuer(CGeneralNames(1, dns)); }, "2.5.29.29 300C820A63612E6578616D706C65"},
        {[] { CExtCertificateIssuer e; e.encode(); return e; }, "!80093101"},
        {[] { return CExtPrivateKeyUsagePeriod(nullptr, nullptr); }, "2.5.29.16 3000"},
        {[&] { return CExtPrivateKeyUsagePeriod(&a, nullptr); }, "2.5.29.16 3011" + ga},
        {[&] { return CExtPrivateKeyUsagePeriod(&a, &a); }, "2.5.29.16 3022" + ga + gt("20200102030405Z", "81")},
    };
    for (const auto& r : rows)
        EXPECT_EQ(outcome([&] { return std::string(r.make().get_oid()) + " " + hexOf(r.make().get_value()); }), r.out);
}

// Fields are read by position: a missing one is 0, the digits of a zone offset become the
// fraction, a non-digit throws.
TEST(PkiExtTyped, DecodedForms) {
    const struct {
        std::function<std::string()> read;
        std::string out;
    } rows[] = {
        {[] { return std::to_string(CExtCRLReason(der("0A0108")).get_reason()); }, "8"},
        {[] { return std::to_string(CExtCRLReason(der("020101")).get_reason()); }, "!80093101"},
        {[] { return std::string(CExtHoldInstructionCode(der("06072A8648CE380202")).get_code()); }, "1.2.840.10040.2.2"},
        {[] { return std::to_string(CExtCertificateIssuer(der("3006820461626364")).get_issuer().front().get_type()); }, "3"},
        {[] { return dateOf(CExtInvalidityDate()); }, "19700101000000Z"},
        {[] { return dateOf(CExtInvalidityDate(der(gt("20300101000000.5Z")))); }, "20300101000000.5Z"},
        {[] { return dateOf(CExtInvalidityDate(der(gt("203001010000")))); }, "20300101000000Z"},
        {[] { return dateOf(CExtInvalidityDate(der(gt("20300101000000+0100")))); }, "20300101000000.01Z"},
        {[] { return dateOf(CExtInvalidityDate(der(gt("2030010100000xZ")))); }, "!8007076D"},
        {[] { return dateOf(CExtInvalidityDate(der(gt("203001Z")))); }, "!80004005"},
        {[] { return dateOf(CExtInvalidityDate(der("170D3330303130313030303030305A"))); }, "!80093101"},  // UTCTime
        {[] { return hexOf(CExtInvalidityDate(der(gt("2030010100Z"))).get_value()); }, gt("2030010100Z")},  // kept
    };
    for (const auto& r : rows)
        EXPECT_EQ(outcome(r.read), r.out);
}

TEST(PkiExtTyped, PrivateKeyUsagePeriodDatesAreOwned) {
    // Decoding puts each date, and each put re-encodes: the fraction is gone from the bytes.
    CExtPrivateKeyUsagePeriod period(der("3013" + gt("20200102030405.5Z", "80")));
    EXPECT_EQ(period.get_notBefore()->millisecond(), 500u);
    EXPECT_EQ(period.get_notAfter(), nullptr);
    EXPECT_EQ(hexOf(period.get_value()), "3011" + gt("20200102030405Z", "80"));
    period.put_notBefore(period.get_notBefore());
    EXPECT_EQ(period.get_notBefore()->millisecond(), 500u) << "copied before the old one goes";
    CExtPrivateKeyUsagePeriod copy(period);
    copy.put_notBefore(nullptr);
    EXPECT_EQ(hexOf(copy.get_value()), "3000");
    ASSERT_NE(period.get_notBefore(), nullptr) << "copies are deep";
    copy = period;
    EXPECT_NE(copy.get_notBefore(), period.get_notBefore());
}

// As the catalogue writes them and as they stand in the file. What the catalogue refuses
// or changes is listed; its corpus test says why.
TEST(PkiExtensionsCorpus, EveryCertificateRoundTrips) {
    CHAINVET_SKIP_WITHOUT_CORPUS();
    const std::set<std::string> listed = {
        "cert/gnutls/cert-eddsa.der", "cert/gnutls/long-oids.der", "cert/gnutls/x509-with-zero-version.der",
        "cert/asn1crypto/invalid_email_tag.der", "cert/gnutls/certs-interesting/cert4.der",
        "cert/gnutls/certs-interesting/cert7.der", "cert/gnutls/certs-interesting/cert8.der",
        "cert/gnutls/certs-interesting/cert9.der", "cert/rustcrypto/026EDA6FA1EDFA8C253936C75B5EEBD954BFF452.fake.der",
        "gost/gnutls/gost-cert-ca.der", "gost/gnutls/gost-cert-new.der"};
    int certificates = 0, extensions = 0;
    for (const std::string& path : testsupport::corpusByKind("cert")) {
        const std::vector<uint8_t> file = testsupport::readFile(path);
        ASN1BERDecodeBuffer buffer(file.data(), static_cast<int>(file.size()));
        asn1data::ASN1T_Certificate cert;
        if (listed.count(path.substr(testsupport::corpusDir().size() + 1)))
            continue;
        ASSERT_GE(asn1data::ASN1C_Certificate(buffer, cert).Decode(), 0) << path;
        ++certificates;
        if (cert.toBeSigned.extensions.count == 0)
            continue;
        const CBlob bytes = asn1EncodeT<ASN1T_Extensions_traits>(cert.toBeSigned.extensions);
        EXPECT_NE(std::search(file.begin(), file.end(), bytes.pbData(), bytes.pbData() + bytes.cbData()), file.end());
        CExtensions list;
        EXPECT_EQ(outcome([&] { list.decode(bytes); return hexOf(list.encode()); }), hexOf(bytes)) << path;
        extensions += static_cast<int>(list.size());
    }
    std::printf("extensions of the corpus: %d certificates, %d extensions; %zu skipped\n", certificates, extensions,
                listed.size());
    EXPECT_GT(extensions, 500);
}

}  // namespace
