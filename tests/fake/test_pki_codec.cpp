// The codec frame and the leaf values of the object model: traits on hex vectors, the
// conversions of identifiers and big integers with their deliberate quirks. The list traits
// are checked through the lists of the value classes (CmsValues, GeneralName.Lists, Name).
#include "pki/algorithm.h"
#include "support/testsupport.h"

#include <cstring>

using namespace Quorvane;
using namespace Quorvane::ASN1;
using testsupport::hexOf;
using testsupport::thrownHr;
using testsupport::toHex;

namespace {

CBigInteger big(const std::string& h) {
    const std::vector<uint8_t> v = testsupport::hex(h);
    return CBigInteger(v.data(), v.size());
}

TEST(Str2Oid, AcceptsAndRefuses) {
    const std::pair<const char*, const char*> rows[] = {  // second null: refused
        {"1.2.840", "1.2.840"}, {" 1 . 2", "1.2"}, {"2.5.29.15 ", "2.5.29.15"}, {"4294967295.1", "4294967295.1"},
        {"5.99", "5.99"}, {"7", "7"}, {"1.4294967296", "1.0"},  // cut to 32 bits on both widths
        {"", nullptr}, {"1.", nullptr}, {".1", nullptr}, {"1..2", nullptr}, {"1.2x", nullptr}, {"1 x.2", nullptr},
        {"1.4294967295", nullptr}, {"1.2\xC3", nullptr}};
    ASN1OBJID oid;
    for (const auto& [text, back] : rows) {
        SCOPED_TRACE(text);
        ASSERT_EQ(str2oid(text, &oid), back ? 0 : 1);
        CBlob printed;
        if (back && oid2str(printed, &oid) == 1) {
            EXPECT_EQ(std::string(reinterpret_cast<const char*>(printed.pbData()), printed.cbData()),
                      std::string(back) + '\0');
        }
    }
    std::string many = "1";
    for (int i = 0; i < 128; ++i)
        many += ".1";
    EXPECT_EQ(str2oid(many.c_str(), &oid), 1) << "129 arcs do not fit the record";
    EXPECT_EQ(thrownHr([] { toASN1OBJID("1..2"); }), E_INVALIDARG);
}

TEST(BigInteger, TextCompareArithmeticAndCodec) {
    for (const char* bad : {"", "0x", "0", "12", "1x00"}) {
        CBigInteger v;
        EXPECT_EQ(thrownHr([&] { StringToBigInteger(bad, v); }), CRYPT_E_ASN1_INTERNAL) << bad;
    }
    for (const auto& [text, value] : {std::make_pair("0x012", "0012"), {"0x080", "0080"}, {"0x0", "00"},
                                      {"0xFF00", "FF00"}, {"0x7f", "7F"}}) {
        CBigInteger v;
        StringToBigInteger(text, v);
        EXPECT_EQ(hexOf(v), value) << text;
    }
    ASN1BERDecodeBuffer scratch;
    EXPECT_STREQ(DWORDToASN1BigInteger(scratch.getCtxtPtr(), 0x80000001u), "0x80000001");
    EXPECT_STREQ(BigIntegerToASN1String(scratch.getCtxtPtr(), CBigInteger()), "0x");
    // The fold multiplies by 11: only one byte comes back as itself.
    EXPECT_EQ(std::make_tuple(ASN1BigIntegerToDWORD("0x05"), ASN1BigIntegerToDWORD("0x0102"),
                              ASN1BigIntegerToDWORD(DWORDToASN1BigInteger(scratch.getCtxtPtr(), 256))),
              std::make_tuple(5u, 13u, 11u));
    EXPECT_EQ(thrownHr([] { ASN1BigIntegerToDWORD("0x0102030405"); }), E_INVALIDARG);

    const std::tuple<const char*, const char*, int> order[] = {
        {"007F", "7F", 0}, {"7F", "80", 1}, {"FF00", "FF", 1}, {"FFFF", "FF", 0},  {"", "", 0},
        {"80", "", -1},    {"", "80", 1},   {"01", "", 1},     {"0100", "FF", 1}, {"000080", "0081", -1}};
    for (const auto& [a, b, sign] : order) {
        const int c = big(a).compare(big(b));
        EXPECT_EQ((c > 0) - (c < 0), sign) << a << " vs " << b;
    }
    CBigInteger up = big("01FF"), stop = big("01FF"), wrap = big("FFFF"), sum = big("FFFF");
    up.increment(-1);
    stop.increment(0);  // the carry stops at the stop index
    const std::string before = hexOf(wrap++);
    EXPECT_EQ(sum.add(big("0001")), 1);
    EXPECT_EQ(hexOf(up) + hexOf(stop) + before + hexOf(wrap) + hexOf(sum) + hexOf(big("FFFF").abs()),
              "0200" "0100" "FFFF" "0000" "0000" "7FFF");  // wraps without growing; abs clears the sign bit only
    EXPECT_EQ(thrownHr([] { CBigInteger(2).add(CBigInteger(3)); }), E_INVALIDARG);

    for (const auto& [value, der] : {std::make_pair("05", "020105"), {"0080", "02020080"}, {"FF", "0201FF"},
                                     {"00", "020100"}, {"67C19515A744F3C5", "020867C19515A744F3C5"}}) {
        CBigInteger back;
        back.decode(big(der));
        EXPECT_EQ(hexOf(big(value).encode()) + "/" + hexOf(back), std::string(der) + "/" + value);
    }
    CBigInteger v;
    v.decode(big("0203000080"));  // the runtime's text drops redundant zeros
    EXPECT_THROW(v.decode(big("0401FF")), ATL::CAtlException);
    EXPECT_EQ(hexOf(v), "0080") << "a failed decode leaves the value";
}

TEST(AlgorithmIdentifier, EncodeDecodeAndCache) {
    CAlgorithmIdentifier sha1("1.3.14.3.2.26"), withNull(sha1);
    withNull.put_parameters(big("0500"));
    EXPECT_EQ(hexOf(sha1.encode()) + "/" + hexOf(withNull.encode()), "300706052B0E03021A/300906052B0E03021A0500")
        << "empty parameters are absent";
    EXPECT_NE(sha1, withNull);
    CAlgorithmIdentifierEx decoded("2.5.29.15");
    decoded.put_algId(0x8004);
    decoded.decode(big("300906052B0E03021A0500"));
    EXPECT_EQ(static_cast<const CAlgorithmIdentifier&>(decoded), withNull);
    EXPECT_EQ(decoded.get_algId(), 0u) << "the decode goes through the virtual put_algorithm";
    decoded.put_algId(0x8004);
    decoded.put_algorithm("1.3.14.3.2.26");
    EXPECT_EQ(decoded.get_algId(), 0x8004u) << "the same text keeps the cache";
    EXPECT_THROW(sha1.decode(big("3003020101")), ATL::CAtlException);
    EXPECT_STREQ(sha1.get_algorithm(), "1.3.14.3.2.26");
    EXPECT_EQ(thrownHr([] { CAlgorithmIdentifier("1..2").encode(); }), CRYPT_E_ASN1_INTERNAL);
    // Parameters that break their own information object fail at encode().
    CAlgorithmIdentifier bad("1.3.14.3.2.26");
    bad.put_parameters(big("020100"));
    EXPECT_EQ(thrownHr([&] { bad.encode(); }), CRYPT_E_ASN1_INTERNAL);
}

TEST(CodecFrame, LeafTraits) {
    CStringProxy oid;
    CrlReason reason = crlReasonUnspecified;
    CDateTime back(0L, 0u);
    const CBlob der = asn1Encode<ASN1GeneralizedTime_traits, CDateTime>(CDateTime(2024u, 5, 1, 12, 30, 15, 999, 0));
    asn1Decode<ASN1TObjId_traits, CStringProxy>(big("0603551D0F"), oid);
    asn1Decode<ASN1T_CRLReason_traits, CrlReason>(big("0A0108"), reason);
    asn1Decode<ASN1GeneralizedTime_traits, CDateTime>(der, back);
    EXPECT_EQ(hexOf(asn1Encode<ASN1TObjId_traits, const char*>("2.5.29.15")) + "/" +
                  hexOf(asn1Encode<ASN1T_CRLReason_traits, CrlReason>(crlReasonKeyCompromise)) + "/" + hexOf(der) +
                  "/" + oid.c_str(),
              "0603551D0F/0A0101/180F32303234303530313132333031355A/2.5.29.15");  // the fraction is cut, not rounded
    EXPECT_EQ(reason, crlReasonRemoveFromCRL);
    EXPECT_EQ(back, CDateTime(2024u, 5, 1, 12, 30, 15, 0, 0));

    ctxt_handle h;
    ASSERT_TRUE(h.init());
    const uint8_t twelve[] = {0xAB, 0xC0};
    ASN1TDynBitStr bits{12, twelve};
    CBlob bytes;
    ASN1TDynBitStr_traits::get(bits, bytes);
    ASN1TDynBitStr_traits::set(h.get(), bits, bytes);
    EXPECT_EQ(bits.numbits, 16u) << "twelve bits are two bytes, and two bytes sixteen bits";
    const char *source = "text", *copy = nullptr, *utf8 = nullptr;
    ASN1IA5String_traits::copy(h.get(), source, copy);
    EXPECT_EQ(copy, source) << "the copy aliases its source";
    ASN1UTF8String_traits::set(h.get(), utf8, L"Gr\u00FC\u00DFe \u20AC");
    EXPECT_EQ(toHex(reinterpret_cast<const uint8_t*>(utf8), std::strlen(utf8)), "4772C3BCC39F6520E282AC");
    CWStringProxy wide;
    ASN1UTF8String_traits::get(utf8, wide);
    EXPECT_STREQ(wide.c_str(), L"Gr\u00FC\u00DFe \u20AC");
    h.release();
}

}  // namespace
