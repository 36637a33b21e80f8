// Choice values of the object model: the traits singletons and the put step, general names
// with their one-character text form and comparison, the Time choice picked by the year,
// the CMS values; and the signer infos and subjectAltName lists of the corpus.
#include "pki/cert_id.h"
#include "pki/choice.h"
#include "pki/cms_values.h"
#include "pki/general_name.h"
#include "pki_test_util.h"

using namespace Quorvane;
using namespace Quorvane::ASN1;
using testsupport::hexOf;
using testsupport::thrownHr;

namespace {

using pkitest::der;
using pkitest::outcome;
const char* const kNameA = "300C310A300806035504030C0161";  // CN=a
const char* const kNameB = "300C310A300806035504030C0162";  // CN=b

CGeneralName named(int type, const wchar_t* text, const char* hex = "") {
    CGeneralName n;
    if (type == 2) n.put_rfc822Name(text);
    if (type == 3) n.put_dNSName(text);
    if (type == 5) n.put_directoryName(der(hex));
    if (type == 7) n.put_uniformResourceIdentifier(text);
    if (type == 8) n.put_iPAddress(der(hex));
    if (type == 9) n.put_registeredID(text);
    return n;
}

// Each modelled alternative has traits of its own number, every other type the empty
// ones; the stored types are checked by the puts and gets of the tests below.
TEST(ChoiceFramework, FindTraitsOfTheFourClasses) {
    const ChoiceValueTraits* e = &EmptyChoiceTraits::instance;
    CGeneralNameImpl g;
    CTimeChoiceImpl t;
    COtherHashImpl h;
    CDistributionPointNameImpl d;
    const std::pair<const Choice*, unsigned> modelled[] = {{&g, 0x3AC}, {&t, 0x6}, {&h, 0x6}, {&d, 0x2}};  // bit masks
    for (const auto& [impl, mask] : modelled) {
        for (unsigned i = 0; i < 11; ++i) {
            EXPECT_TRUE(impl->findTraits(i)->isType(mask >> i & 1 ? i : 0)) << mask << " " << i;
            EXPECT_EQ(impl->findTraits(i) == e, (mask >> i & 1) == 0) << mask << " " << i;
        }
    }
    // The empty alternative stores a pointer word: made from, copied and freed as one.
    void* word = &g;
    void* made = e->newValue(&word);
    EXPECT_EQ(*static_cast<void**>(made), word);
    e->copyValue(made, &e);
    EXPECT_EQ(*static_cast<const void**>(made), e);
    e->deleteValue(made);
}

// Type 1 records the calls made on it; type 99 has no traits.
std::string g_calls;
struct Probe : ChoiceValueTraits {
    bool isType(unsigned int type) const override { return type == 1; }
    void deleteValue(void* v) const override {
        g_calls += v ? "delete;" : "delete(null);";
        delete static_cast<int*>(v);
    }
    void* newValue(const void* s) const override {
        g_calls += "new;";
        return new int(*static_cast<const int*>(s));
    }
    void copyValue(void*, const void*) const override {}
};
const Probe g_probe{};
struct ProbeImpl : Choice {
    ~ProbeImpl() override { findTraits(m_type)->deleteValue(m_value); }
    const ChoiceValueTraits* findTraits(unsigned int type) const override { return type == 99 ? nullptr : &g_probe; }
};

TEST(ChoiceFramework, PutStepCopyAndAssignment) {
    ProbeImpl impl;
    const int one = 1, two = 2;
    choicePut(impl, 1, &one);
    choicePut(impl, 1, &two);
    EXPECT_EQ(g_calls, "delete(null);new;delete;new;") << "the old value goes before the new one is made";
    EXPECT_EQ(thrownHr([&] { choicePut(impl, 99, &one); }), E_INVALIDARG);
    EXPECT_EQ(*static_cast<int*>(impl.m_value), 2) << "the guard comes before the old value goes";

    CGeneralName a = named(2, L"a@example.org");
    a.put_dNSName(L"example.org");
    EXPECT_EQ(a.get_type(), 3u);
    EXPECT_EQ(a.get_rfc822Name(), nullptr);
    CGeneralName b(a);
    EXPECT_NE(b.get_dNSName(), a.get_dNSName()) << "a deep copy";
    const wchar_t* before = a.get_dNSName();
    a = a;
    EXPECT_EQ(a.get_dNSName(), before) << "assignment to itself does nothing";
    b.clear();
    b = a;
    EXPECT_STREQ(b.get_dNSName(), L"example.org") << "assignment revives a clear()ed object";
    CTimeChoice t, u(CDateTime(2060u, 1, 1, 0, 0, 0, 0, 0));  // a clear() of its own, not the template's
    t.clear();
    t = u;
    EXPECT_EQ(t.get_type(), 2u);
    const CGeneralName empty, copied(empty);  // a copy of an empty choice is empty, not a read through null
    EXPECT_TRUE(copied.get_type() == 0 && copied.get_dNSName() == nullptr);
}

TEST(GeneralName, DecodeAndEncode) {
    const struct {
        const char *wire, *result;  // type and what encode() gives, or "!" and the HRESULT of decode()
    } rows[] = {
        {"81056140622E63", "2 81056140622E63"},
        {"82076578616D706C65", "3 82076578616D706C65"},
        {"A40E300C310A300806035504030C0161", "5 A40E300C310A300806035504030C0161"},
        {"8608687474703A2F2F78", "7 8608687474703A2F2F78"},
        {"88062A864886F70D", "9 88062A864886F70D"},
        {"8704C0A80001", "5 !80093101"},  // the address stored as a directory name
        {"A00B06032A0304A0040C026869", "!80070057"},  // otherName
        {"A506A1040C026869", "!80070057"},            // ediPartyName
        {"0402AABB", "!80093101"},
    };
    for (const auto& row : rows) {
        CGeneralName name = named(7, L"kept");
        EXPECT_EQ(outcome([&] {
                      name.decode(der(row.wire));
                      return std::to_string(name.get_type()) + " " + outcome([&] { return hexOf(name.encode()); });
                  }),
                  row.result);
        if (row.result[0] == '!') {
            EXPECT_STREQ(name.get_uniformResourceIdentifier(), L"kept") << row.wire;
        }
    }
    CGeneralName ip;
    ip.decode(der("8704C0A80001"));
    EXPECT_EQ(hexOf(*ip.get_directoryName()), "C0A80001");
    ip.decode(der("8201FF"));
    EXPECT_STREQ(ip.get_dNSName(), L"\uFFFD") << "bytes that are no UTF-8 are replaced, not refused";

    // Built by hand; a text needing more than one byte a character does not convert.
    const struct {
        CGeneralName name;
        const char* encoded;
    } built[] = {
        {CGeneralName(), "!80070057"},           {named(9, L"abc"), "!80070057"},
        {named(3, L"b\u00FCcher"), "!80070057"}, {named(8, nullptr, "C0A80001"), "8704C0A80001"},
        {named(8, nullptr), "8700"},             {named(3, L""), "8200"},
        {named(5, nullptr, "0401AA"), "!80093101"},
    };
    for (const auto& row : built)
        EXPECT_EQ(outcome([&] { return hexOf(row.name.encode()); }), row.encoded);
    EXPECT_EQ(outcome([] { return hexOf(named(3, nullptr).encode()); }), "!basic_string::_S_construct NULL not valid");
}

TEST(GeneralName, ToStringAndEqualityByFirstCharacter) {
    const struct {
        CGeneralName name;
        const wchar_t* text;
    } rows[] = {
        {named(2, L"user@example.org"), L"rfc822Name: u"},
        {named(3, L"example"), L"dNSName: e"},
        {named(3, L""), L"dNSName: "},
        {named(5, nullptr, kNameA), L"directoryName: CN=a"},
        {named(7, L"http://x"), L"uniformResourceIdentifier: h"},
        {named(8, nullptr, "C0A80001"), L"iPAddress: (to string is not implemented)"},
        {named(9, L"1.2.3"), L"registeredID: 1"},
        {CGeneralName(), L""},
    };
    for (const auto& row : rows)
        EXPECT_STREQ(row.name.toString().c_str(), row.text);
    EXPECT_EQ(thrownHr([] { named(5, nullptr, "C0A80001").toString(); }), CRYPT_E_ASN1_INTERNAL);

    const struct {
        CGeneralName a, b;
        bool equal;
    } pairs[] = {
        {named(3, L"alpha"), named(3, L"apple"), true}, {named(3, L"a"), named(2, L"a"), false},
        {named(7, L""), named(7, L""), true},           {named(2, L""), named(2, L"x"), false},
        {named(5, nullptr, kNameA), named(5, nullptr, kNameA), true},
        {named(5, nullptr, kNameA), named(5, nullptr, kNameB), false},
        {named(8, nullptr, "0A000001"), named(8, nullptr, "0A000002"), false},
        {CGeneralName(), CGeneralName(), true},
    };
    for (const auto& p : pairs) {
        EXPECT_EQ(p.a == p.b, p.equal) << &p - pairs;
        EXPECT_EQ(p.a != p.b, !p.equal) << &p - pairs;
    }
}

TEST(GeneralName, Lists) {
    CGeneralNames names{named(2, L"x@y"), named(8, nullptr, "0A000001")};
    asn1Decode<ASN1T_GeneralNames_traits, CGeneralNames>(der("3009820161820162820163"), names);
    ASSERT_EQ(names.size(), 3u) << "a decoded list replaces what was there";
    EXPECT_STREQ(names.back().get_dNSName(), L"c");
    const CGeneralNames back{named(8, nullptr, "C0A80001"), named(3, L"a.example")};
    EXPECT_EQ(hexOf(asn1Encode<ASN1T_GeneralNames_traits, CGeneralNames>(back)),
              hexOf(der("3011 8704C0A80001 8209612E6578616D706C65")));
    EXPECT_EQ(thrownHr([] { asn1Encode<ASN1T_GeneralNames_traits, CGeneralNames>(CGeneralNames()); }),
              CRYPT_E_ASN1_INTERNAL) << "GeneralNames has SIZE (1..MAX)";
}

TEST(TimeChoice, TheYearPicksTheKind) {
    const struct {
        CDateTime time;
        const char* wire;  // type and encoding
        unsigned backYear;
    } rows[] = {
        {CDateTime(2049u, 12, 31, 23, 59, 59, 0, 0), "1 170D3439313233313233353935395A", 2049},
        {CDateTime(2050u, 1, 1, 0, 0, 0, 0, 0), "2 180F32303530303130313030303030305A", 2050},
        {CDateTime(2024u, 5, 1, 12, 30, 15, 999, 0), "1 170D3234303530313132333031355A", 2024},
        {CDateTime(1949u, 6, 1, 0, 0, 0, 0, 0), "1 170D3439303630313030303030305A", 2049},  // a century on
    };
    for (const auto& row : rows) {
        const CTimeChoice t(row.time);
        EXPECT_EQ(std::to_string(t.get_type()) + " " + hexOf(t.encode()), row.wire);
        CTimeChoice back;
        back.decode(t.encode());
        EXPECT_EQ(back.get_time()->year(), row.backYear);
    }
    EXPECT_EQ(hexOf(CTimeChoice().encode()), "170D3730303130313030303030305A") << "1 January 1970";

    const struct {
        const char *wire, *result;  // type and time, or "!" and the HRESULT
    } decoded[] = {
        {"180F32303330303130313132303030305A", "1 20300101120000Z"},  // the wire's kind is not kept
        {"1811 3230353030313031313230303030 2E355A", "2 20500101120000Z"},
        {"170D3530303130313030303030305A", "1 19500101000000Z"},
        {"180F31353030303130313030303030305A", "!80070057"},  // before 1601
        {"0401AA", "!80093101"},
    };
    for (const auto& row : decoded) {
        CTimeChoice t;
        EXPECT_EQ(outcome([&] {
                      t.decode(der(row.wire));
                      return std::to_string(t.get_type()) + " " + t.get_time()->getGeneralizedTime().c_str();
                  }),
                  row.result);
    }
    // The rows above write both kinds through GetASN1CTimeString; the milliseconds are kept
    // only by the copying path of the GeneralizedTime traits (CodecFrame.LeafTraits cuts them).
    ctxt_handle h;
    ASSERT_TRUE(h.init());
    EXPECT_STREQ(DateToASN1GeneralizedTime(h.get(), rows[2].time, false), "20240501123015.999Z");
    h.release();
}

// version 3, sid [0] 01020304 or issuerAndSerialNumber (CN=a, 5); SHA-256, RSA, AABBCC.
const std::string kAlgs = "300D06096086480165030402010500300D06092A864886F70D01010105000403AABBCC";

TEST(CmsValues, SignerInfoStoresAlgorithmsBeforeTheSignerIdentifier) {
    CSignerInfo si;
    EXPECT_EQ(thrownHr([&] { asn1Decode<ASN1T_SignerInfo_traits, CSignerInfo>(der("302C020103800401020304" + kAlgs), si); }),
              CRYPT_E_ASN1_INTERNAL);
    EXPECT_EQ(si.get_version(), 3u);
    EXPECT_STREQ(si.get_digestAlgorithm().get_algorithm(), "2.16.840.1.101.3.4.2.1");
    EXPECT_STREQ(si.get_signatureAlgorithm().get_algorithm(), "1.2.840.113549.1.1.1");
    EXPECT_EQ(hexOf(si.get_signature()), "AABBCC");
    EXPECT_EQ(si.get_issuer().cbData(), 0u);

    CSignerInfo full;
    asn1Decode<ASN1T_SignerInfo_traits, CSignerInfo>(der("3039020101 3011" + std::string(kNameA) + "020105" + kAlgs), full);
    EXPECT_EQ(hexOf(full.get_issuer()) + " " + hexOf(full.get_serialNumber()), std::string(kNameA) + " 05");
    EXPECT_NE(full, si);
    si = full;
    const CBlob padded = der("0005");
    si.put_serialNumber(CBigInteger(padded.pbData(), padded.cbData()));
    EXPECT_EQ(full, si) << "serial numbers compare by value: 00 05 is 05";
    si.put_issuer(der(kNameB));
    EXPECT_NE(full, si);
}

TEST(CmsValues, ContentInfoCertificateValuesAndOtherHash) {
    const struct {
        const char *type, *content, *wire;
    } rows[] = {
        {"1.2.840.113549.1.7.1", "04026869", "301106092A864886F70D010701A00404026869"},
        {"1.2.840.113549.1.7.1", "020105", "!80093101"},  // not the OCTET STRING of its type
        {"1.2.3.4", "020105", "300A06032A0304A003020105"},
        {"1..2", "0500", "!80070057"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(outcome([&] { return hexOf(CContentInfo(row.type, der(row.content)).encode()); }), row.wire);
    CContentInfo ci;
    ci.decode(der(rows[0].wire));
    EXPECT_EQ(std::string(ci.get_contentType()) + " " + hexOf(ci.get_content()), "1.2.840.113549.1.7.1 04026869");
    ASN1BERDecodeBuffer scratch;
    asn1data::ASN1T_ContentInfo temp;
    ASN1T_ContentInfo_traits::set(scratch.getCtxtPtr(), temp, der("3080 06092A864886F70D010701 A080 04026869 0000 0000"));
    CBlob back;
    ASN1T_ContentInfo_traits::get(temp, back);
    EXPECT_EQ(hexOf(back), rows[0].wire) << "indefinite lengths come back as DER";
    EXPECT_EQ(thrownHr([&] { ASN1T_ContentInfo_traits::set(scratch.getCtxtPtr(), temp, der("0401AA")); }),
              CRYPT_E_ASN1_INTERNAL);

    // Through the certificate list traits: in order, and a decoded list replaces what was there.
    CCertificateValues certs, again;
    std::string all;
    for (const char* name : {"leaf", "intermediate", "root"}) {
        certs.emplace_back();
        certs.back().readFromFile((std::string(CHAINVET_FIXTURES_DIR) + "/pki/" + name + ".der").c_str());
        all += hexOf(certs.back());
    }
    again.push_back(CBlob(2));
    again.decode(certs.encode());
    EXPECT_EQ(hexOf(certs.encode()).substr(8), all);
    EXPECT_TRUE(again == static_cast<CBlobList&>(certs));
    certs.push_back(der("0401AA"));
    EXPECT_EQ(thrownHr([&] { certs.encode(); }), CRYPT_E_ASN1_INTERNAL);

    // Its comparisons are those of COtherHash in CertIds.Comparisons.
    COtherHashAlgAndValue sha1(der("AABB"), CAlgorithmIdentifier("1.3.14.3.2.26")), decoded;
    decoded.decode(sha1.encode());
    EXPECT_EQ(hexOf(decoded.encode()), "300D300706052B0E03021A0402AABB");
}

// Every signer info of the signed messages and time-stamp tokens, each message read as a
// CContentInfo (a token through the bytes bridge), and of the bare SignerInfos fragments;
// the catalogue's refusals are listed by its corpus test.
TEST(PkiChoicesCorpus, SignerInfosOfSignedMessagesAndTokens) {
    CHAINVET_SKIP_WITHOUT_CORPUS();
    std::map<std::string, int> counts;
    for (const std::string kind : {"cms-signed", "tsp-response", "cms-signerinfo-fragment"}) {
        for (const std::string& path : testsupport::corpusByKind(kind)) {
            CBlob message = testsupport::blobOf(testsupport::readFile(path));
            const bool tsp = kind == "tsp-response", fragment = kind == "cms-signerinfo-fragment";
            ASN1BERDecodeBuffer buffer(message.pbData(), static_cast<int>(message.cbData()));
            asn1data::ASN1T_TimeStampResp resp;
            asn1data::ASN1T_SignedData signedData;
            CContentInfo ci;
            if (tsp && (asn1data::ASN1C_TimeStampResp(buffer, resp).Decode() < 0 || !resp.m.timeStampTokenPresent)) {
                ++counts["response refused or without a token"];
                continue;
            }
            if (resp.m.timeStampTokenPresent)
                ASN1T_ContentInfo_traits::get(resp.timeStampToken, message);
            if (!fragment && !outcome([&] { ci.decode(message); return std::string(); }).empty()) {
                ++counts["message the catalogue refuses"];
                continue;
            }
            ASN1BERDecodeBuffer content(ci.get_content().pbData(), static_cast<int>(ci.get_content().cbData()));
            const int stat = !fragment ? asn1data::ASN1C_SignedData(content, signedData).Decode()
                                       : asn1data::ASN1C_SignerInfos(buffer, signedData.signerInfos).Decode();
            ++counts[kind + (stat < 0 ? ", refused by the catalogue" : ", read")];
            EXPECT_STREQ(ci.get_contentType(), !fragment ? "1.2.840.113549.1.7.2" : "") << path;
            for (const Asn1RTDListNode* n = stat < 0 ? nullptr : signedData.signerInfos.head; n; n = n->next) {
                const auto& info = *static_cast<const asn1data::ASN1T_SignerInfo*>(n->data);
                CSignerInfo si;
                const std::string result = outcome([&] {
                    ASN1T_SignerInfo_get(si, info);
                    return "read, issuer " + hexOf(si.get_issuer()).substr(0, 2);
                });
                EXPECT_EQ(result, info.sid.t == 1 ? "read, issuer 30" : "!80093101") << path;
                ++counts["signer info " + (info.sid.t == 1 ? result : "by subjectKeyIdentifier " + result)];
            }
        }
    }
    pkitest::printCounts("signed messages", counts);
    EXPECT_GT(counts["signer info read, issuer 30"], 20);
    // Both fragments are malformed: [0] EXPLICIT around the attributes, a SEQUENCE for the SET.
    EXPECT_EQ(counts["cms-signerinfo-fragment, refused by the catalogue"], 2);
    EXPECT_EQ(counts["cms-signed, refused by the catalogue"] + counts["tsp-response, refused by the catalogue"], 0);
}

// Lists without an unmodelled alternative decode; those without an address go back
// unchanged, those with one fail in the directory-name path.
TEST(PkiChoicesCorpus, SubjectAltNamesOfCertificates) {
    CHAINVET_SKIP_WITHOUT_CORPUS();
    std::map<std::string, int> counts;
    pkitest::forEachExtension("cert", counts, [&](const std::string& path, const std::string& oid, const auto& ext) {
        if (oid != "2.5.29.17")
            return;
        const CBlob wire(ext.extnValue.data, ext.extnValue.numocts);
        std::string expected = hexOf(wire);
        ASN1BERDecodeBuffer raw(wire.pbData(), static_cast<int>(wire.cbData()));
        asn1data::ASN1T_GeneralNames list;
        ASSERT_GE(asn1data::ASN1C_GeneralNames(raw, list).Decode(), 0) << path;
        for (const Asn1RTDListNode* g = list.head; g != nullptr; g = g->next) {
            const unsigned t = static_cast<const asn1data::ASN1T_GeneralName*>(g->data)->t;
            if (t == 8 && expected[0] != '!')
                expected = "!80093101";
            if (t == 1 || t == 4 || t == 6)
                expected = "!80070057 on decoding";
        }
        CGeneralNames names;
        const std::string result = outcome([&] {
            asn1Decode<ASN1T_GeneralNames_traits, CGeneralNames>(wire, names);
            counts["general names"] += static_cast<int>(names.size());
            return outcome([&] { return asn1Encode<ASN1T_GeneralNames_traits, CGeneralNames>(names); });
        });
        EXPECT_EQ(result + (result == "!80070057" ? " on decoding" : ""), expected) << path;
        ++counts[expected[0] != '!'          ? "lists re-encoded identically"
                 : expected == "!80093101" ? "lists with an address, refused by encode"
                                           : "lists with otherName, refused by decode"];
    });
    pkitest::printCounts("subjectAltName", counts);
    EXPECT_GT(counts["lists re-encoded identically"], 20);
}

}  // namespace
