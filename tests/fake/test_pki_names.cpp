// Attributes and distinguished names: the string codec by kind and tag, the text form with
// its deliberate gaps (no escapes, case-sensitive keywords, a first character dropped on the
// unregistered path), the equality operators that never hold, and every name of the corpus.
#include "pki/name.h"
#include "pki_test_util.h"

#include <iostream>

using namespace Quorvane;
using namespace Quorvane::ASN1;
using testsupport::hexOf;
using testsupport::thrownHr;

namespace {

using pkitest::der;
using pkitest::outcome;
std::wstring repeat(size_t n) { return std::wstring(n, L'x'); }
std::wstring ws(const CWStringProxy& text) { return text.c_str(); }
std::string squeeze(std::string s) {
    s.erase(std::remove(s.begin(), s.end(), ' '), s.end());
    return s;
}
const HRESULT kInternal = CRYPT_E_ASN1_INTERNAL, kInvalid = E_INVALIDARG;

TEST(NameRegister, TwentyRowsInTableOrder) {
    std::wstring rows;
    for (const CATAVRegister& r : CATAVRegister::registered_)
        rows += r.keyword + L"=" + towstring(r.oid.c_str()) + L"/" + towstring(r.stringType) +
                (r.maxLength == 32768 ? L" " : L"/" + towstring(static_cast<int>(r.maxLength)) + L" ");
    EXPECT_EQ(rows, L"CN=2.5.4.3/1 C=2.5.4.6/2 L=2.5.4.7/1 ST=2.5.4.8/1 E=1.2.840.113549.1.9.1/5 O=2.5.4.10/1 "
                    L"OU=2.5.4.11/1 T=2.5.4.12/1 GN=2.5.4.42/1 I=2.5.4.43/1 SN=2.5.4.4/1 PS=2.5.4.65/1 "
                    L"OGRN=1.2.643.100.1/1 OGRNIP=1.2.643.100.5/1 SNILS=1.2.643.100.3/1 INN=1.2.643.3.131.1.1/1 "
                    L"STREET=2.5.4.9/1 DC=0.9.2342.19200300.100.1.25/5 UnstructuredName=1.2.840.113549.1.9.2/1 "
                    L"PostalCode=2.5.4.17/1 ");
    EXPECT_EQ(CATAVRegister::find(L"cn"), CATAVRegister::registered_.end()) << "keywords are case-sensitive";
}

// A wide text in each kind and back: the narrow kinds take UTF-8 bytes with no check of
// their alphabet, BMP and Universal keep the low sixteen bits of a character. Rows without
// a text are read only; a null text read back means CRYPT_E_ASN1_INTERNAL.
TEST(CharString, EncodeAndDecode) {
    const struct {
        const wchar_t* text;
        StringType type;
        const char* encoded;
        const wchar_t* back;
    } rows[] = {
        {L"a", StringTypeUTF8, "0C0161", L"a"},
        {L"\u00C4\u20AC", StringTypeUTF8, "0C05C384E282AC", L"\u00C4\u20AC"},
        {L"", StringTypeUTF8, "0C00", L""},
        {L"RU", StringTypePrintable, "13025255", L"RU"},
        {L"a@b_", StringTypePrintable, "1304614062 5F", L"a@b_"},
        {L"x", StringTypeTeletex, "140178", L"x"},
        {L"x", StringTypeIA5, "160178", L"x"},
        {L"Ab", StringTypeBMP, "1E0400410062", L"Ab"},
        {L"\U0001F600", StringTypeBMP, "1E02F600", L"\xF600"},
        {L"", StringTypeBMP, "1E00", L""},
        {L"A", StringTypeUniversal, "1C0400000041", L"A"},
        {L"\U0001F600", StringTypeUniversal, "1C040000F600", L"\xF600"},
        {L"a", StringTypeDefault, "!80093101", nullptr},
        {L"a", static_cast<StringType>(7), "!80093101", nullptr},
        {L"\u00C4", StringTypePrintable, "!8007007A", nullptr},  // one byte per character is too little
        {L"\u00C4", StringTypeIA5, "!8007007A", nullptr},
        {L"a\x80000000", StringTypeUTF8, "!80093101", nullptr},
        {nullptr, StringTypeDefault, "2C80040161040162 0000", L"ab"},  // constructed, indefinite
        {nullptr, StringTypeDefault, "1203313233", L"123"},  // NumericString reads, no kind writes it
        {nullptr, StringTypeDefault, "1401E9", L"\uFFFD"},    // Teletex bytes are taken as UTF-8
        {nullptr, StringTypeDefault, "1E03004100", L"A"},     // a trailing odd octet is ignored
        {nullptr, StringTypeDefault, "1E04D83DDE00", L"\xD83D\xDE00"},  // no surrogate pairing
        {nullptr, StringTypeDefault, "1C080001F60000000041", L"A"},      // above 0xFFFF: dropped
        {nullptr, StringTypeDefault, "170D3234303130313030303030305A", nullptr},  // UTCTime
        {nullptr, StringTypeDefault, "8C0161", nullptr},
        {nullptr, StringTypeDefault, "0C01FF", nullptr},
        {nullptr, StringTypeDefault, "0C01C3", nullptr},
        {nullptr, StringTypeDefault, "0C0261", nullptr},
        {nullptr, StringTypeDefault, "", nullptr},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.encoded);
        if (row.text != nullptr) {
            EXPECT_EQ(outcome([&] { return encodeCharString(row.text, row.type); }), squeeze(row.encoded));
        }
        if (row.encoded[0] == '!')
            continue;
        if (row.back != nullptr) {
            EXPECT_EQ(ws(decodeCharString(der(row.encoded))), row.back);
        } else {
            EXPECT_EQ(thrownHr([&] { decodeCharString(der(row.encoded)); }), kInternal);
        }
    }
}

// One component from "keyword=value" text with the default kind: the value as encoded, the
// text it gives back, and its DER; or the HRESULT of the constructor or of encode().
TEST(AttributeTypeAndValue, TextForms) {
    const struct {
        const wchar_t* text;
        const char* value;
        const wchar_t* back;
        const char* encoded;
    } rows[] = {
        {L"CN=a=b", "0C03613D62", L"CN=a=b", "300A06035504030C03613D62"},
        {L"2.5.4.3=x", "0C0178", L"CN=x", "300806035504030C0178"},
        {L"1.2.3=#0C0161", "0C0161", L"1.2.3=#0C0161", "300706022A030C0161"},
        {L"1.2.3=abc", "BC", L"1.2.3=#BC", "!80093101"},  // first character dropped; BC is no element
        {L"1.2.3=#0c0178", "0C0178", L"1.2.3=#0C0178", "300706022A030C0178"},
        {L"cn=x", "", L"cn=#", "!80070057"},
        {L"C=RU", "13025255", L"C=RU", "3009060355040613025255"},
        {L"E=x", "160178", L"E=x", "300E06092A864886F70D010901160178"},
        {L"CN=", "0C00", L"CN=", "300706035504030C00"},
        {L"CN=#41", "0C03233431", L"CN=#41", "300A06035504030C03233431"},
        {L"2.5.4.6=#13", "1303233133", L"C=#13", "300A06035504061303233133"},
        {L"CN= a ", "0C03206120", L"CN= a ", "300A06035504030C03206120"},
        {L" CN=a", "", L" CN=#", "!80070057"},
        {L"OGRN=1", "0C0131", L"OGRN=1", "300A06052A850364010C0131"},
        {L"1.2.3=#", "", L"1.2.3=#", "300406022A03"},  // no value, and no element for it
    };
    for (const auto& row : rows) {
        const CAttributeTypeAndValue atav(row.text, StringTypeDefault);
        EXPECT_EQ(hexOf(atav.get_value()), row.value) << row.encoded;
        EXPECT_EQ(ws(atav.toString()), row.back);
        EXPECT_EQ(outcome([&] { return atav.encode(); }), squeeze(row.encoded));
    }
    EXPECT_EQ(thrownHr([] { CAttributeTypeAndValue(L"CN", StringTypeDefault); }), kInvalid);
    EXPECT_THROW(CAttributeTypeAndValue(L"1.2.3=", StringTypeDefault), std::out_of_range);
}

TEST(AttributeTypeAndValue, KindsLimitsAndPuts) {
    // The kind asked for is used as given; the information object of countryName then
    // refuses a UTF8String at encode().
    const CAttributeTypeAndValue utf8Country(L"C", L"RU", StringTypeUTF8), bmpName(L"CN", L"x", StringTypeBMP);
    EXPECT_EQ(hexOf(utf8Country.get_value()), "0C025255");
    EXPECT_EQ(thrownHr([&] { utf8Country.encode(); }), kInternal);
    EXPECT_EQ(hexOf(bmpName.encode()), "300906035504031E020078");
    EXPECT_NE(bmpName, CAttributeTypeAndValue(L"CN=x", StringTypeDefault)) << "same text, other kind";

    CAttributeTypeAndValue atav;
    atav.fromString(L"CN=x", StringTypeBMP);
    EXPECT_EQ(hexOf(atav.get_value()), "0C0178") << "fromString ignores its kind";
    EXPECT_EQ(hexOf(CAttributeTypeAndValue((L"CN=" + repeat(32768)).c_str(), StringTypeDefault).encode()).substr(0, 26),
              "3082800906035504030C828000");
    EXPECT_EQ(thrownHr([] { CAttributeTypeAndValue((L"CN=" + repeat(32769)).c_str(), StringTypeDefault); }), kInvalid);
    EXPECT_EQ(thrownHr([&] { atav.put_value_str(repeat(32769).c_str(), StringTypeUTF8); }), kInvalid);
    EXPECT_EQ(hexOf(atav.get_value()), "0C0178") << "a failed put_value_str keeps the value";
    atav.put_type_str(L"O");
    atav.put_value_str(L"y", StringTypeIA5);
    EXPECT_STREQ(atav.get_type(), "2.5.4.10");
    EXPECT_EQ(ws(atav.toString()), L"O=y");
    atav.put_value(der("170D3234303130313030303030305A"));
    EXPECT_EQ(thrownHr([&] { atav.toString(); }), kInternal) << "a registered type whose value has tag 23";
    atav.put_type_str(L"1.2.3");
    EXPECT_EQ(ws(atav.get_value_str()), L"#170D3234303130313030303030305A");

    CAttributeTypeAndValue decoded;
    decoded.decode(der("300806035504030C0178"));
    EXPECT_EQ(ws(decoded.toString()), L"CN=x");
    EXPECT_EQ(thrownHr([&] { decoded.decode(der("300806035504060C0178")); }), kInternal);
    EXPECT_EQ(ws(decoded.toString()), L"CN=x") << "a failed decode leaves the value";
}

// Names from text: order as given, "," between RDNs and "+" inside one, no escapes, and
// what a failure leaves behind.
TEST(Name, TextForm) {
    const struct {
        const wchar_t* text;
        const char* encoded;
        const wchar_t* back;  // after decoding the encoding
    } rows[] = {
        {L"CN=a,O=b", "3018310A300806035504030C0161310A300806035504 0A0C0162", L"CN=a,O=b"},
        {L"O=b,CN=a", "3018310A300806035504 0A0C0162310A300806035504030C0161", L"O=b,CN=a"},
        {L"CN=a+O=b", "30163114300806035504030C0161300806035504 0A0C0162", L"CN=a+O=b"},
        {L"O=b+CN=a", "30163114300806035504030C0161300806035504 0A0C0162", L"CN=a+O=b"},  // DER sorts the SET
        {L"CN=a\\,O=b", "3019310B300906035504030C0261 5C310A300806035504 0A0C0162", L"CN=a\\,O=b"},
    };
    for (const auto& row : rows) {
        const CName name(row.text);
        EXPECT_EQ(ws(name.toString()), row.text);
        EXPECT_EQ(hexOf(name.encode()), squeeze(row.encoded));
        CName back(L"L=old");
        back.decode(name.encode());
        EXPECT_EQ(ws(back.toString()), row.back) << "decode replaces";
    }
    for (const wchar_t* bad : {L"CN=a,b", L"CN=\"a,b\"", L"", L"CN=a,", L"CN=a+", L",CN=a"})
        EXPECT_EQ(thrownHr([&] { CName name(bad); }), kInvalid) << bad;
    EXPECT_EQ(hexOf(CName().encode()), "3000");

    // A value holding a separator is written as it stands and does not come back.
    CName joined(L"CN=x");
    joined.front().front().put_value_str(L"x,y", StringTypeDefault);
    EXPECT_EQ(ws(joined.toString()), L"CN=x,y");
    EXPECT_EQ(thrownHr([&] { CName again(joined.toString().c_str()); }), kInvalid);

    // fromString appends; a failure keeps what was appended before it.
    CName name(L"CN=a");
    EXPECT_EQ(thrownHr([&] { name.fromString(L"O=b,OU=c+x,L=d"); }), kInvalid);
    EXPECT_EQ(ws(name.toString()), L"CN=a,O=b");
    CRelativeDistinguishedName rdn;
    EXPECT_EQ(thrownHr([&] { rdn.fromString(L"CN=a+O=b+"); }), kInvalid);
    EXPECT_EQ(ws(rdn.toString()), L"CN=a+O=b");
    const std::wstring wide = L"L=x";
    fromString(rdn, reinterpret_cast<const unsigned short*>(wide.c_str()));
    fromString(name, reinterpret_cast<const unsigned short*>(wide.c_str()));
    EXPECT_EQ(ws(rdn.toString()) + L" " + ws(name.toString()), L"CN=a+O=b+L=x CN=a,O=b,L=x");
    EXPECT_EQ(hexOf(rdn.encode()).substr(0, 4), "311E");
    EXPECT_EQ(thrownHr([&] { name.decode(der("3100")); }), kInternal);
    EXPECT_EQ(thrownHr([&] { name.decode(CBlob()); }), kInternal);
    EXPECT_EQ(ws(name.toString()), L"CN=a,O=b,L=x");

    // Over CBlob the traits decode into the structure and write it again.
    ASN1BERDecodeBuffer scratch;
    asn1data::ASN1T_Name structure;
    ASN1T_Name_traits::set(scratch.getCtxtPtr(), structure, der(rows[0].encoded));
    CBlob again;
    ASN1T_Name_traits::get(structure, again);
    EXPECT_EQ(hexOf(again), squeeze(rows[0].encoded));
    EXPECT_EQ(thrownHr([&] { ASN1T_Name_traits::set(scratch.getCtxtPtr(), structure, der("3100")); }), kInternal);
}

// "==" then "!=" as two digits.
template <class T>
std::string equality(const T& a, const T& b) {
    return std::string(a == b ? "1" : "0") + (a != b ? "1" : "0");
}

TEST(Equality, ListsNeverEqual) {
    const CBlob v = der("0C0161");
    const CRelativeDistinguishedName rdn(L"CN=a"), empty;
    const CAttributeTypeAndValueSet set(rdn.begin(), rdn.end()), none;
    const CAttrValueList values{CAttrValue("1.2.3", v)}, noValues;
    CAttribute attribute("1.2.3");
    attribute.add(v);
    const struct {
        const char* what;
        std::string got, expected;
    } rows[] = {
        {"RDN and itself", equality(rdn, rdn), "01"},
        {"empty RDNs", equality(empty, empty), "01"},
        {"component set and itself", equality(set, set), "00"},
        {"empty component sets", equality(none, none), "00"},
        {"value list and itself", equality(values, values), "00"},
        {"empty value lists", equality(noValues, noValues), "00"},
        {"attribute and itself", equality(attribute, attribute), "01"},
        {"empty attributes", equality(CAttribute(), CAttribute()), "01"},
        {"attribute values alike", equality(CAttrValue("1.2.3", v), CAttrValue("1.2.3", v)), "10"},
        {"other identifier", equality(CAttrValue("1.2.3", v), CAttrValue("1.2.4", v)), "01"},
        {"components alike", equality(rdn.front(), CAttributeTypeAndValue("2.5.4.3", v)), "10"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.got, row.expected) << row.what;
}

TEST(Attribute, EncodeDecodeAndLists) {
    const char* kContentType = "1.2.840.113549.1.9.3";
    CAttribute attribute(kContentType);
    attribute.add(der("06092A864886F70D010701"));
    attribute.add(CAttrValue("9.9", der("06092A864886F70D010702")));
    EXPECT_STREQ(std::next(attribute.begin())->get_oid(), "9.9") << "kept as it stands";
    const CBlob encoded = attribute.encode();
    EXPECT_EQ(hexOf(encoded), squeeze("302306092A864886F70D010903 3116 06092A864886F70D010701 06092A864886F70D010702"))
        << "only the attribute's identifier reaches the wire";
    CAttribute back;
    back.decode(encoded);
    back.erase(back.begin());
    EXPECT_EQ(std::string(back.get_oid()) + " " + back.begin()->get_oid() + " " + hexOf(back.begin()->get_value()),
              std::string(kContentType) + " " + kContentType + " 06092A864886F70D010702");

    EXPECT_EQ(thrownHr([&] { CAttribute(kContentType).encode(); }), kInternal) << "SIZE (1..MAX)";
    CAttribute wrong(kContentType), unknown("1.2.3");
    wrong.add(der("020101"));
    unknown.add(der("020101"));
    EXPECT_EQ(thrownHr([&] { wrong.encode(); }), kInternal) << "a value of the wrong type";
    EXPECT_EQ(hexOf(unknown.encode()), "300906022A033103020101");
    EXPECT_EQ(thrownHr([] { CAttribute("1..2").encode(); }), kInvalid);

    CAttributes attributes;
    attributes.push_back(unknown);
    attributes.push_back(attribute);
    CAttribute second("1.2.3");
    second.add(der("0500"));
    attributes.push_back(second);
    EXPECT_EQ(attributes.find("1.2.3")->size(), 1u);
    EXPECT_EQ(static_cast<const CAttributes&>(attributes).find("1.2.4"), attributes.cend());
    CAttributes decoded;
    decoded.push_back(second);
    decoded.decode(attributes.encode());
    EXPECT_EQ(decoded.size(), 3u) << "decode replaces";
    attributes.erase("1.2.3");
    attributes.erase("7.7");
    ASSERT_EQ(attributes.size(), 2u);
    EXPECT_EQ(hexOf(attributes.back().begin()->get_value()), "0500") << "only the first of an identifier goes";
    EXPECT_EQ(thrownHr([] { CAttributes().encode(); }), kInternal);
}

TEST(NameAttributes, FixedTypes) {
    std::string got;
    for (const CAttrValue& v :
         {CAttrValue(CAttrCommonName("a")), CAttrValue(CAttrSurname("a")), CAttrValue(CAttrCountry("RU")),
          CAttrValue(CAttrLocality("a")), CAttrValue(CAttrStateOrProvinceName("a")), CAttrValue(CAttrOrganizationName("a")),
          CAttrValue(CAttrOrganizationalUnitName("a")), CAttrValue(CAttrTitle("a")), CAttrValue(CAttrGivenName("a")),
          CAttrValue(CAttrInitials("a")), CAttrValue(CAttrPseudonym("a")), CAttrValue(CAttrEmailAddress("a@b")),
          CAttrValue(CAttrStringValue("2.5.4.3", L"\u00C4")), CAttrValue(CAttrStringValue("2.5.4.3", "\xC3\x84")),
          CAttrValue(CAttrStringValue("1.2.3", "#0500"))})
        got += std::string(v.get_oid()) + "=" + hexOf(v.get_value()) + " ";
    EXPECT_EQ(got, "2.5.4.3=0C0161 2.5.4.4=0C0161 2.5.4.6=13025255 2.5.4.7=0C0161 2.5.4.8=0C0161 2.5.4.10=0C0161 "
                   "2.5.4.11=0C0161 2.5.4.12=0C0161 2.5.4.42=0C0161 2.5.4.43=0C0161 2.5.4.65=0C0161 "
                   "1.2.840.113549.1.9.1=1603614062 2.5.4.3=0C02C384 2.5.4.3=0C02C384 1.2.3=0500 ");
    EXPECT_EQ(ws(CAttributeTypeAndValue(CAttrCountry("RU")).toString()), L"C=RU");
}

// The first elements of a certificate's TBS as their bytes stand in the file.
std::vector<CBlob> tbsElements(const std::vector<uint8_t>& cert) {
    std::vector<CBlob> out;
    ctxt_handle h;
    ASN1CTXT* c = h.get();
    ASN1TAG tag = 0;
    int len = 0;
    bool ok = h.init() && xd_setp(c, cert.data(), static_cast<int>(cert.size()), &tag, &len) == 0 &&
              len != RT_INDEFINITE_LENGTH && xd_tag_len(c, &tag, &len, RT_MATCH_ADVANCE) == 0 &&
              xd_tag_len(c, &tag, &len, RT_MATCH_ADVANCE) == 0;
    for (ASN1UINT at = c->bufIndex; ok && out.size() < 6; at = c->bufIndex)
        if ((ok = xd_NextElement(c) == 0 && c->bufIndex <= cert.size()))
            out.push_back(CBlob(cert.data() + at, c->bufIndex - at));
    h.release();
    return out;
}

// Why a name is not held to a byte-exact round trip, or "" when it is.
std::string skipReason(const CBlob& bytes, CName& name) {
    try {
        name.decode(bytes);
    } catch (const ATL::CAtlException&) {
        return "refused by the decoder";
    }
    for (const CRelativeDistinguishedName& rdn : name)
        for (const CAttributeTypeAndValue& atav : rdn) {
            if (CATAVRegister::find(atav.get_type()) == CATAVRegister::registered_.end())
                return std::string("unregistered attribute ") + atav.get_type();
            const int tag = atav.get_value().cbData() != 0 ? atav.get_value().pbData()[0] : -1;
            if (tag != 0x0C && tag != 0x13 && tag != 0x14 && tag != 0x16 && tag != 0x1C && tag != 0x1E)
                return "string tag " + std::to_string(tag);
        }
    return "";
}

TEST(NameCorpus, SubjectsAndIssuersRoundTrip) {
    CHAINVET_SKIP_WITHOUT_CORPUS();
    std::map<std::string, int> skipped;
    int names = 0, roundTrips = 0;
    for (const std::string& path : testsupport::corpusByKind("cert")) {
        const std::vector<CBlob> tbs = tbsElements(testsupport::readFile(path));
        const size_t first = !tbs.empty() && tbs[0].pbData()[0] == 0xA0 ? 1 : 0;  // [0] version
        if (tbs.size() < first + 5) {
            ++skipped["certificate not walked"];
            continue;
        }
        for (const CBlob& bytes : {tbs[first + 2], tbs[first + 4]}) {
            ++names;
            CName name;
            const std::string why = skipReason(bytes, name);
            if (!why.empty()) {
                ++skipped[why];
                continue;
            }
            EXPECT_NO_THROW(name.toString()) << path;
            EXPECT_EQ(hexOf(name.encode()), hexOf(bytes)) << path;
            ++roundTrips;
        }
    }
    std::string report;
    for (const auto& s : skipped)
        report += "  " + std::to_string(s.second) + " " + s.first + "\n";
    std::cout << names << " names, " << roundTrips << " round trips, skipped:\n" << report;
    EXPECT_GT(roundTrips, names / 2);
}

}  // namespace
