// Attributes and distinguished names: the string codec by kind and tag, the text form with
// its deliberate gaps (no escapes, case-sensitive keywords, a first character dropped on the
// unregistered path), the equality operators that never hold, and every name of the corpus.
#include "pki/name.h"
#include "support/testsupport.h"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <map>
#include <stdexcept>

using namespace Quorvane;
using namespace Quorvane::ASN1;
using testsupport::hexOf;
using testsupport::thrownHr;

namespace {

CBlob der(const std::string& h) { return testsupport::blobOf(testsupport::hex(h)); }
std::wstring repeat(size_t n) { return std::wstring(n, L'x'); }
std::string squeeze(std::string s) {
    s.erase(std::remove(s.begin(), s.end(), ' '), s.end());
    return s;
}
// The hex of the blob f gives, or "!" and the HRESULT it throws.
template <class F>
std::string outcome(F f) {
    try {
        return hexOf(f());
    } catch (const ATL::CAtlException& e) {
        char text[16];
        std::snprintf(text, sizeof text, "!%08X", static_cast<unsigned>(e.m_hr));
        return text;
    }
}
const HRESULT kInternal = CRYPT_E_ASN1_INTERNAL, kInvalid = E_INVALIDARG;

TEST(NameRegister, TwentyRowsInTableOrder) {
    std::wstring rows;
    for (const CATAVRegister& r : CATAVRegister::registered_)
        rows += r.keyword + L"=" + towstring(r.oid.c_str()) + L"/" + towstring(r.stringType) + L" ";
    EXPECT_EQ(rows, L"CN=2.5.4.3/1 C=2.5.4.6/2 L=2.5.4.7/1 ST=2.5.4.8/1 E=1.2.840.113549.1.9.1/5 O=2.5.4.10/1 "
                    L"OU=2.5.4.11/1 T=2.5.4.12/1 GN=2.5.4.42/1 I=2.5.4.43/1 SN=2.5.4.4/1 PS=2.5.4.65/1 "
                    L"OGRN=1.2.643.100.1/1 OGRNIP=1.2.643.100.5/1 SNILS=1.2.643.100.3/1 INN=1.2.643.3.131.1.1/1 "
                    L"STREET=2.5.4.9/1 DC=0.9.2342.19200300.100.1.25/5 UnstructuredName=1.2.840.113549.1.9.2/1 "
                    L"PostalCode=2.5.4.17/1 ");
    for (const CATAVRegister& r : CATAVRegister::registered_)
        EXPECT_EQ(r.maxLength, 32768u);
    EXPECT_EQ(CATAVRegister::find(L"cn"), CATAVRegister::registered_.end()) << "keywords are case-sensitive";
    EXPECT_EQ(CATAVRegister::find("2.5.4.3 "), CATAVRegister::registered_.end());
    EXPECT_EQ(CATAVRegister::typeToStr("1.2.3"), L"1.2.3");
    EXPECT_EQ(CATAVRegister::typeFromStr(L"Cn"), "Cn");
}

// What a wide text becomes in each kind: the narrow kinds take UTF-8 bytes with no check of
// their alphabet, BMP and Universal keep only the low sixteen bits of a character.
TEST(CharString, EncodeByKind) {
    const struct {
        const wchar_t* text;
        StringType type;
        const char* expected;
    } rows[] = {
        {L"a", StringTypeUTF8, "0C0161"},
        {L"\u00C4\u20AC", StringTypeUTF8, "0C05C384E282AC"},
        {L"", StringTypeUTF8, "0C00"},
        {L"RU", StringTypePrintable, "13025255"},
        {L"a@b_", StringTypePrintable, "1304614062 5F"},
        {L"x", StringTypeTeletex, "140178"},
        {L"x", StringTypeIA5, "160178"},
        {L"Ab", StringTypeBMP, "1E0400410062"},
        {L"\U0001F600", StringTypeBMP, "1E02F600"},
        {L"", StringTypeBMP, "1E00"},
        {L"A", StringTypeUniversal, "1C0400000041"},
        {L"\U0001F600", StringTypeUniversal, "1C040000F600"},
        {L"a", StringTypeDefault, "!80093101"},
        {L"a", static_cast<StringType>(7), "!80093101"},
        {L"\u00C4", StringTypePrintable, "!8007007A"},  // one byte per character is too little
        {L"\u00C4", StringTypeIA5, "!8007007A"},
        {L"a\x80000000", StringTypeUTF8, "!80093101"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(outcome([&] { return encodeCharString(row.text, row.type); }), squeeze(row.expected))
            << row.type << " " << row.expected;
}

TEST(CharString, DecodeByTag) {
    const struct {
        const char* hex;
        const wchar_t* text;  // null: CRYPT_E_ASN1_INTERNAL
    } rows[] = {
        {"0C0161", L"a"},
        {"0C05C384E282AC", L"\u00C4\u20AC"},
        {"0C00", L""},
        {"2C80040161040162 0000", L"ab"},  // constructed, indefinite, in OCTET STRING segments
        {"1203313233", L"123"},              // NumericString reads, though no kind writes it
        {"13025255", L"RU"},
        {"1401E9", L"\uFFFD"},  // Teletex bytes are taken as UTF-8
        {"160178", L"x"},
        {"1E03004100", L"A"},                      // a trailing odd octet is ignored
        {"1E04D83DDE00", L"\xD83D\xDE00"},         // no surrogate pairing
        {"1C080001F60000000041", L"A"},            // characters above 0xFFFF are dropped
        {"170D3234303130313030303030305A", nullptr},  // UTCTime
        {"8C0161", nullptr},
        {"0C01FF", nullptr},
        {"0C01C3", nullptr},
        {"0C0261", nullptr},
        {"", nullptr},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.hex);
        if (row.text != nullptr)
            EXPECT_EQ(std::wstring(decodeCharString(der(row.hex)).c_str()), row.text);
        else
            EXPECT_EQ(thrownHr([&] { decodeCharString(der(row.hex)); }), kInternal);
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
        {L"DC=x", "160178", L"DC=x", "300F060A0992268993F22C640119160178"},
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
        EXPECT_EQ(std::wstring(atav.toString().c_str()), row.back);
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
    EXPECT_EQ(CAttributeTypeAndValue(L"CN=x", StringTypeDefault), CAttributeTypeAndValue("2.5.4.3", der("0C0178")));

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
    EXPECT_EQ(std::wstring(atav.toString().c_str()), L"O=y");
    atav.put_value(der("170D3234303130313030303030305A"));
    EXPECT_EQ(thrownHr([&] { atav.toString(); }), kInternal) << "a registered type whose value has tag 23";
    atav.put_type_str(L"1.2.3");
    EXPECT_EQ(std::wstring(atav.get_value_str().c_str()), L"#170D3234303130313030303030305A");

    CAttributeTypeAndValue decoded;
    decoded.decode(der("300806035504030C0178"));
    EXPECT_EQ(std::wstring(decoded.toString().c_str()), L"CN=x");
    EXPECT_EQ(thrownHr([&] { decoded.decode(der("300806035504060C0178")); }), kInternal);
    EXPECT_EQ(std::wstring(decoded.toString().c_str()), L"CN=x") << "a failed decode leaves the value";
}

// Names from text: order as given, "," between RDNs and "+" inside one, no escapes, and
// what a failure leaves behind.
TEST(Name, TextForm) {
    const struct {
        const wchar_t* text;
        const char* encoded;  // null: the constructor throws E_INVALIDARG
        const wchar_t* back;  // after decoding the encoding
    } rows[] = {
        {L"CN=a,O=b", "3018310A300806035504030C0161310A300806035504 0A0C0162", L"CN=a,O=b"},
        {L"O=b,CN=a", "3018310A300806035504 0A0C0162310A300806035504030C0161", L"O=b,CN=a"},
        {L"CN=a+O=b", "30163114300806035504030C0161300806035504 0A0C0162", L"CN=a+O=b"},
        {L"O=b+CN=a", "30163114300806035504030C0161300806035504 0A0C0162", L"CN=a+O=b"},  // DER sorts the SET
        {L"CN=a,b", nullptr, nullptr},
        {L"CN=a\\,O=b", "3019310B300906035504030C0261 5C310A300806035504 0A0C0162", L"CN=a\\,O=b"},
        {L"CN=\"a,b\"", nullptr, nullptr},
        {L"", nullptr, nullptr},
        {L"CN=a,", nullptr, nullptr},
        {L"CN=a+", nullptr, nullptr},
        {L",CN=a", nullptr, nullptr},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        if (row.encoded == nullptr) {
            EXPECT_EQ(thrownHr([&] { CName name(row.text); }), kInvalid);
            continue;
        }
        const CName name(row.text);
        EXPECT_EQ(std::wstring(name.toString().c_str()), row.text);
        EXPECT_EQ(hexOf(name.encode()), hexOf(der(row.encoded)));
        CName back(L"L=old");
        back.decode(name.encode());
        EXPECT_EQ(std::wstring(back.toString().c_str()), row.back) << "decode replaces";
    }
    EXPECT_EQ(CName(L"CN=a+O=b").size(), 1u);
    EXPECT_EQ(CName(L"CN=a+O=b").front().size(), 2u);
    EXPECT_EQ(hexOf(CName().encode()), "3000");

    // A value holding a separator is written as it stands and does not come back.
    CAttributeTypeAndValue comma(L"CN=x", StringTypeDefault);
    comma.put_value_str(L"x,y", StringTypeDefault);
    CName joined;
    joined.push_back(CRelativeDistinguishedName());
    joined.back().push_back(comma);
    EXPECT_EQ(std::wstring(joined.toString().c_str()), L"CN=x,y");
    EXPECT_EQ(thrownHr([&] { CName again(joined.toString().c_str()); }), kInvalid);

    // fromString appends; a failure keeps what was appended before it.
    CName name(L"CN=a");
    EXPECT_EQ(thrownHr([&] { name.fromString(L"O=b,OU=c+x,L=d"); }), kInvalid);
    EXPECT_EQ(std::wstring(name.toString().c_str()), L"CN=a,O=b");
    CRelativeDistinguishedName rdn;
    EXPECT_EQ(thrownHr([&] { rdn.fromString(L"CN=a+O=b+"); }), kInvalid);
    EXPECT_EQ(std::wstring(rdn.toString().c_str()), L"CN=a+O=b");
    const std::wstring wide = L"L=x";
    fromString(rdn, reinterpret_cast<const unsigned short*>(wide.c_str()));
    fromString(name, reinterpret_cast<const unsigned short*>(wide.c_str()));
    EXPECT_EQ(std::wstring(rdn.toString().c_str()), L"CN=a+O=b+L=x");
    EXPECT_EQ(std::wstring(name.toString().c_str()), L"CN=a,O=b,L=x");
    EXPECT_EQ(hexOf(rdn.encode()).substr(0, 4), "311E");
    EXPECT_EQ(thrownHr([&] { name.decode(der("3100")); }), kInternal);
    EXPECT_EQ(thrownHr([&] { name.decode(CBlob()); }), kInternal);
    EXPECT_EQ(std::wstring(name.toString().c_str()), L"CN=a,O=b,L=x");
}

TEST(Equality, ListsNeverEqual) {
    const CBlob v = der("0C0161");
    const CRelativeDistinguishedName rdn(L"CN=a");
    const CAttributeTypeAndValueSet set(rdn.begin(), rdn.end()), none;
    const CAttrValueList values{CAttrValue("1.2.3", v)}, noValues;
    CAttribute attribute("1.2.3");
    attribute.add(v);
    const struct {
        const char* what;
        bool equal, unequal;
    } rows[] = {
        {"RDN and itself", rdn == rdn, rdn != rdn},
        {"empty RDNs", CRelativeDistinguishedName() == CRelativeDistinguishedName(),
         CRelativeDistinguishedName() != CRelativeDistinguishedName()},
        {"component set", set == set, set != set},
        {"empty sets", none == none, none != none},
        {"value list", values == values, values != values},
        {"empty value lists", noValues == noValues, noValues != noValues},
        {"attribute and itself", attribute == attribute, attribute != attribute},
        {"empty attributes", CAttribute() == CAttribute(), CAttribute() != CAttribute()},
        {"attribute value", CAttrValue("1.2.3", v) == CAttrValue("1.2.3", v), CAttrValue("1.2.3", v) != CAttrValue("1.2.3", v)},
        {"other value", CAttrValue("1.2.3", v) == CAttrValue("1.2.4", v), CAttrValue("1.2.3", v) != CAttrValue("1.2.4", v)},
    };
    const char* expected[][3] = {{"0", "1"}, {"0", "1"}, {"0", "0"}, {"0", "0"}, {"0", "0"},
                                 {"0", "0"}, {"0", "1"}, {"0", "1"}, {"1", "0"}, {"0", "1"}};
    for (size_t i = 0; i < sizeof rows / sizeof rows[0]; ++i)
        EXPECT_EQ(std::to_string(rows[i].equal) + std::to_string(rows[i].unequal),
                  std::string(expected[i][0]) + expected[i][1])
            << rows[i].what;
}

TEST(Attribute, EncodeDecodeAndLists) {
    const char* kContentType = "1.2.840.113549.1.9.3";
    CAttribute attribute(kContentType);
    attribute.add(der("06092A864886F70D010701"));
    attribute.add(CAttrValue("9.9", der("06092A864886F70D010702")));
    EXPECT_EQ(attribute.size(), 2u);
    EXPECT_STREQ(std::next(attribute.begin())->get_oid(), "9.9") << "kept as it stands";
    const CBlob encoded = attribute.encode();
    EXPECT_EQ(hexOf(encoded), hexOf(der("302306092A864886F70D010903 3116 06092A864886F70D010701 06092A864886F70D010702")))
        << "only the attribute's identifier reaches the wire";
    CAttribute back;
    back.decode(encoded);
    EXPECT_STREQ(back.get_oid(), kContentType);
    EXPECT_STREQ(std::next(back.begin())->get_oid(), kContentType);
    back.erase(back.begin());
    EXPECT_EQ(hexOf(back.begin()->get_value()), "06092A864886F70D010702");
    EXPECT_EQ(back.size(), 1u);

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
    const struct {
        CAttrValue value;
        const char *oid, *hex;
    } rows[] = {
        {CAttrCommonName("a"), "2.5.4.3", "0C0161"},         {CAttrSurname("a"), "2.5.4.4", "0C0161"},
        {CAttrCountry("RU"), "2.5.4.6", "13025255"},         {CAttrLocality("a"), "2.5.4.7", "0C0161"},
        {CAttrStateOrProvinceName("a"), "2.5.4.8", "0C0161"}, {CAttrOrganizationName("a"), "2.5.4.10", "0C0161"},
        {CAttrOrganizationalUnitName("a"), "2.5.4.11", "0C0161"}, {CAttrTitle("a"), "2.5.4.12", "0C0161"},
        {CAttrGivenName("a"), "2.5.4.42", "0C0161"},          {CAttrInitials("a"), "2.5.4.43", "0C0161"},
        {CAttrPseudonym("a"), "2.5.4.65", "0C0161"},          {CAttrEmailAddress("a@b"), "1.2.840.113549.1.9.1", "1603614062"},
        {CAttrStringValue("2.5.4.3", L"\u00C4"), "2.5.4.3", "0C02C384"},
        {CAttrStringValue("2.5.4.3", "\xC3\x84"), "2.5.4.3", "0C02C384"},
        {CAttrStringValue("1.2.3", "#0500"), "1.2.3", "0500"},
    };
    for (const auto& row : rows) {
        EXPECT_STREQ(row.value.get_oid(), row.oid);
        EXPECT_EQ(hexOf(row.value.get_value()), row.hex) << row.oid;
    }
    EXPECT_EQ(std::wstring(CAttributeTypeAndValue(CAttrCountry("RU")).toString().c_str()), L"C=RU");
}

// The two sides of a certificate's TBS, as their bytes stand in the file.
bool issuerAndSubject(const std::vector<uint8_t>& cert, CBlob& issuer, CBlob& subject) {
    ctxt_handle h;
    bool ok = h.init() && xd_setp(h.get(), cert.data(), static_cast<int>(cert.size()), nullptr, nullptr) == 0;
    ASN1CTXT* c = h.get();
    ASN1TAG tag = 0;
    int len = 0;
    ok = ok && xd_tag_len(c, &tag, &len, RT_MATCH_ADVANCE) == 0 && xd_tag_len(c, &tag, &len, RT_MATCH_ADVANCE) == 0 &&
         xd_tag_len(c, &tag, &len, 0) == 0 && (tag != 0xA0000000u || xd_NextElement(c) == 0) &&
         xd_NextElement(c) == 0 && xd_NextElement(c) == 0;
    const ASN1UINT issuerAt = c->bufIndex;
    ok = ok && xd_NextElement(c) == 0;
    const ASN1UINT validityAt = c->bufIndex;
    ok = ok && xd_NextElement(c) == 0;
    const ASN1UINT subjectAt = c->bufIndex;
    ok = ok && xd_NextElement(c) == 0 && c->bufIndex <= cert.size();
    if (ok) {
        issuer.assign(cert.data() + issuerAt, validityAt - issuerAt);
        subject.assign(cert.data() + subjectAt, c->bufIndex - subjectAt);
    }
    h.release();
    return ok;
}

// Why a decoded name is not held to a byte-exact round trip, or "" when it is.
std::string skipReason(const CName& name) {
    for (const CRelativeDistinguishedName& rdn : name)
        for (const CAttributeTypeAndValue& atav : rdn) {
            if (CATAVRegister::find(atav.get_type()) == CATAVRegister::registered_.end())
                return std::string("unregistered attribute ") + atav.get_type();
            const CBlob v = atav.get_value();
            const int tag = v.cbData() != 0 ? v.pbData()[0] : -1;
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
        CBlob sides[2];
        if (!issuerAndSubject(testsupport::readFile(path), sides[0], sides[1])) {
            ++skipped["certificate not walked"];
            continue;
        }
        for (const CBlob& bytes : sides) {
            ++names;
            CName name;
            try {
                name.decode(bytes);
            } catch (const ATL::CAtlException&) {
                ++skipped["refused by the decoder"];
                continue;
            }
            const std::string why = skipReason(name);
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
