// The codec frame and the leaf values of the object model: traits on hex vectors, the
// conversions of identifiers and big integers with their deliberate quirks.
#include "pki/algorithm.h"
#include "support/testsupport.h"

#include <cstring>

using namespace Quorvane;
using namespace Quorvane::ASN1;
using testsupport::hex;
using testsupport::toHex;

namespace {

std::string hexOf(const CBlob& b) { return toHex(b.pbData(), b.cbData()); }
CBlob blobOf(const std::string& h) {
    const std::vector<uint8_t> v = hex(h);
    return CBlob(v.data(), v.size());
}
HRESULT hrOf(void (*f)()) {
    try {
        f();
    } catch (const ATL::CAtlException& e) {
        return e.m_hr;
    }
    return 0;
}

TEST(Str2Oid, AcceptsAndRefuses) {
    const struct {
        const char* text;
        int result;
        const char* back;
    } rows[] = {
        {"1.2.840", 0, "1.2.840"},
        {" 1 . 2", 0, "1.2"},
        {"2.5.29.15 ", 0, "2.5.29.15"},
        {"4294967295.1", 0, "4294967295.1"},
        {"5.99", 0, "5.99"},
        {"7", 0, "7"},
        {"", 1, nullptr},
        {"1.", 1, nullptr},
        {".1", 1, nullptr},
        {"1..2", 1, nullptr},
        {"1.2x", 1, nullptr},
        {"1 x.2", 1, nullptr},
        {"1.4294967295", 1, nullptr},
        {"1.2\xC3", 1, nullptr},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        ASN1OBJID oid;
        ASSERT_EQ(str2oid(row.text, &oid), row.result);
        if (row.back) {
            CBlob text;
            EXPECT_EQ(oid2str(text, &oid), 1u);
            EXPECT_STREQ(reinterpret_cast<const char*>(text.pbData()), row.back);
            EXPECT_EQ(text.cbData(), std::strlen(row.back) + 1);
        }
    }
    std::string many = "1";
    for (int i = 0; i < 128; ++i)
        many += ".1";
    ASN1OBJID oid;
    EXPECT_EQ(str2oid(many.c_str(), &oid), 1) << "129 arcs do not fit the record";
    oid.numids = 0;
    CBlob text;
    oid2str(text, &oid);
    EXPECT_EQ(hexOf(text), "00");
    EXPECT_EQ(hrOf([] { toASN1OBJID("1..2"); }), E_INVALIDARG);
}

TEST(BigIntegerText, Conversions) {
    for (const char* bad : {"", "0x", "0", "12", "1x00"}) {
        SCOPED_TRACE(bad);
        CBigInteger v;
        try {
            StringToBigInteger(bad, v);
            ADD_FAILURE();
        } catch (const ATL::CAtlException& e) {
            EXPECT_EQ(static_cast<DWORD>(e.m_hr), 0x80093101u);
        }
    }
    const struct {
        const char* text;
        const char* bytes;
    } rows[] = {{"0x012", "0012"}, {"0x080", "0080"}, {"0x0", "00"}, {"0xFF00", "FF00"}, {"0x7f", "7F"}};
    for (const auto& row : rows) {
        CBigInteger v;
        StringToBigInteger(row.text, v);
        EXPECT_EQ(hexOf(v), row.bytes) << row.text;
    }
    CBlob text;
    BigIntegerToString(CBigInteger(), text);
    EXPECT_STREQ(reinterpret_cast<const char*>(text.pbData()), "0x");

    ASN1BERDecodeBuffer scratch;
    EXPECT_STREQ(DWORDToASN1BigInteger(scratch.getCtxtPtr(), 0x80000001u), "0x80000001");
    EXPECT_STREQ(DWORDToASN1BigInteger(scratch.getCtxtPtr(), 5), "0x00000005");
    // The fold multiplies by 11: only one byte comes back as itself.
    EXPECT_EQ(ASN1BigIntegerToDWORD("0x05"), 5u);
    EXPECT_EQ(ASN1BigIntegerToDWORD("0x0102"), 13u);
    EXPECT_EQ(ASN1BigIntegerToDWORD("0x00000005"), 5u);
    EXPECT_EQ(ASN1BigIntegerToDWORD(DWORDToASN1BigInteger(scratch.getCtxtPtr(), 256)), 11u);
    EXPECT_EQ(hrOf([] { ASN1BigIntegerToDWORD("0x0102030405"); }), E_INVALIDARG);
}

TEST(BigInteger, CompareAndArithmetic) {
    const struct {
        const char* a;
        const char* b;
        int sign;
    } rows[] = {
        {"007F", "7F", 0},  {"7F", "80", 1},    {"FF00", "FF", 1},  {"FFFF", "FF", 0}, {"", "", 0},
        {"80", "", -1},     {"", "80", 1},      {"01", "", 1},      {"0100", "FF", 1}, {"0001", "02", -1},
        {"000080", "0081", -1},
    };
    for (const auto& row : rows) {
        const CBlob a = blobOf(row.a), b = blobOf(row.b);
        const int c = CBigInteger(a.pbData(), a.cbData()).compare(CBigInteger(b.pbData(), b.cbData()));
        EXPECT_EQ((c > 0) - (c < 0), row.sign) << row.a << " vs " << row.b;
    }
    const CBlob raw = blobOf("01FF");
    CBigInteger v(raw.pbData(), raw.cbData());
    v.increment(-1);
    EXPECT_EQ(hexOf(v), "0200");
    v = CBigInteger(raw.pbData(), raw.cbData());
    v.increment(0);
    EXPECT_EQ(hexOf(v), "0100") << "the carry stops at the stop index";
    const CBlob ones = blobOf("FFFF");
    CBigInteger w(ones.pbData(), ones.cbData());
    EXPECT_EQ(hexOf(w++), "FFFF");
    EXPECT_EQ(hexOf(w), "0000") << "wraps without growing";
    CBigInteger x(ones.pbData(), ones.cbData());
    const CBlob one = blobOf("0001");
    EXPECT_EQ(x.add(CBigInteger(one.pbData(), one.cbData())), 1);
    EXPECT_EQ(hexOf(x), "0000");
    EXPECT_EQ(hrOf([] { CBigInteger(2).add(CBigInteger(3)); }), E_INVALIDARG);
    EXPECT_EQ(hexOf(CBigInteger(ones.pbData(), ones.cbData()).abs()), "7FFF") << "the sign bit only";
}

TEST(BigInteger, EncodeDecode) {
    const struct {
        const char* value;
        const char* der;
    } rows[] = {{"05", "020105"}, {"0080", "02020080"}, {"FF", "0201FF"}, {"00", "020100"},
                {"67C19515A744F3C5", "020867C19515A744F3C5"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.value);
        const CBlob raw = blobOf(row.value);
        EXPECT_EQ(hexOf(CBigInteger(raw.pbData(), raw.cbData()).encode()), row.der);
        CBigInteger back;
        back.decode(blobOf(row.der));
        EXPECT_EQ(hexOf(back), row.value);
    }
    CBigInteger v;
    v.decode(blobOf("0203000080"));
    EXPECT_EQ(hexOf(v), "0080") << "the runtime's text drops redundant zeros";
    CBigInteger kept = v;
    EXPECT_THROW(kept.decode(blobOf("0401FF")), ATL::CAtlException);
    EXPECT_EQ(hexOf(kept), "0080");
}

TEST(AlgorithmIdentifier, EncodeDecodeAndCache) {
    const CAlgorithmIdentifier sha1("1.3.14.3.2.26");
    EXPECT_EQ(hexOf(sha1.encode()), "300706052B0E03021A") << "empty parameters are absent";
    CAlgorithmIdentifier withNull("1.3.14.3.2.26");
    withNull.put_parameters(blobOf("0500"));
    EXPECT_EQ(hexOf(withNull.encode()), "300906052B0E03021A0500");
    EXPECT_NE(sha1, withNull);

    CAlgorithmIdentifierEx decoded("2.5.29.15");
    decoded.put_algId(0x8004);
    decoded.decode(blobOf("300906052B0E03021A0500"));
    EXPECT_STREQ(decoded.get_algorithm(), "1.3.14.3.2.26");
    EXPECT_EQ(decoded.get_algId(), 0u) << "the decode goes through the virtual put_algorithm";
    EXPECT_EQ(static_cast<const CAlgorithmIdentifier&>(decoded), withNull);
    decoded.put_algId(0x8004);
    decoded.put_algorithm("1.3.14.3.2.26");
    EXPECT_EQ(decoded.get_algId(), 0x8004u) << "the same text keeps the cache";

    CAlgorithmIdentifier kept("1.2.3");
    EXPECT_THROW(kept.decode(blobOf("3003020101")), ATL::CAtlException);
    EXPECT_STREQ(kept.get_algorithm(), "1.2.3");
    EXPECT_EQ(hrOf([] { CAlgorithmIdentifier("1..2").encode(); }), CRYPT_E_ASN1_INTERNAL);
    // Parameters that break their own information object fail at encode().
    EXPECT_EQ(hrOf([] {
                  CAlgorithmIdentifier bad("1.3.14.3.2.26");
                  bad.put_parameters(blobOf("020100"));
                  bad.encode();
              }),
              CRYPT_E_ASN1_INTERNAL);
}

TEST(CodecFrame, LeafTraits) {
    EXPECT_EQ(hexOf(asn1Encode<ASN1TObjId_traits, const char*>("2.5.29.15")), "0603551D0F");
    CStringProxy oid;
    asn1Decode<ASN1TObjId_traits, CStringProxy>(blobOf("0603551D0F"), oid);
    EXPECT_STREQ(oid.c_str(), "2.5.29.15");

    const CDateTime t(2024u, 5, 1, 12, 30, 15, 999, 0);
    const CBlob der = asn1Encode<ASN1GeneralizedTime_traits, CDateTime>(t);
    EXPECT_EQ(hexOf(der), "180F32303234303530313132333031355A") << "the fraction is cut off";
    CDateTime back(0L, 0u);
    asn1Decode<ASN1GeneralizedTime_traits, CDateTime>(der, back);
    EXPECT_EQ(back, CDateTime(2024u, 5, 1, 12, 30, 15, 0, 0));

    ctxt_handle h;
    ASSERT_TRUE(h.init());
    ASN1TDynBitStr bits{12, hex("ABC0").data()};
    CBlob bytes;
    ASN1TDynBitStr_traits::get(bits, bytes);
    EXPECT_EQ(bytes.cbData(), 2u);
    ASN1TDynBitStr_traits::set(h.get(), bits, bytes);
    EXPECT_EQ(bits.numbits, 16u) << "an odd bit count is lost";

    const char* source = "text";
    const char* copy = nullptr;
    ASN1IA5String_traits::copy(h.get(), source, copy);
    EXPECT_EQ(copy, source) << "the copy aliases its source";

    const char* utf8 = nullptr;
    ASN1UTF8String_traits::set(h.get(), utf8, L"Gr\u00FC\u00DFe \u20AC");
    EXPECT_EQ(toHex(reinterpret_cast<const uint8_t*>(utf8), std::strlen(utf8)), "4772C3BCC39F6520E282AC");
    CWStringProxy wide;
    ASN1UTF8String_traits::get(utf8, wide);
    EXPECT_STREQ(wide.c_str(), L"Gr\u00FC\u00DFe \u20AC");
    h.release();
}

// Certificates through the list traits and the bridge: decoded on set, re-encoded on get,
// in order; an empty list is an empty SET OF.
typedef ASN1TSeqOfList_traits<asn1data::ASN1T_Certificate, ASN1T_Certificate_traits, CBlob, CBlobList> CertsTraits;

template <class T, class C, void (*Copy)(ASN1CTXT*, T*, T*)>
struct WholeList {
    typedef T ASN1_T;
    typedef C ASN1_C;
    static void copy(ASN1CTXT* c, const T& s, T& d) { Copy(c, const_cast<T*>(&s), &d); }
};

template <class W>
std::string throughList(const CBlobList& in, CBlobList& out) {
    ASN1BERDecodeBuffer scratch;
    typename W::ASN1_T list;
    CertsTraits::set(scratch.getCtxtPtr(), list, in);
    const CBlob der = asn1EncodeT<W>(list);
    CertsTraits::get(list, out);
    return hexOf(der);
}

TEST(CodecFrame, CertificateListTraits) {
    CBlobList certs;
    std::string all;
    for (const char* name : {"leaf", "intermediate", "root"}) {
        CBlob c;
        c.readFromFile((std::string(CHAINVET_FIXTURES_DIR) + "/pki/" + name + ".der").c_str());
        certs.push_back(c);
        all += hexOf(c);
    }
    CBlobList back{CBlob(3)};
    const std::string der = throughList<WholeList<asn1data::ASN1T_Certificates, asn1data::ASN1C_Certificates,
                                                  asn1data::asn1Copy_Certificates>>(certs, back);
    EXPECT_EQ(der.substr(0, 4), "3082");
    EXPECT_EQ(der.substr(8), all) << "wire order is list order";
    EXPECT_EQ(back, certs);
    back.assign(1, CBlob(3));
    EXPECT_EQ((throughList<WholeList<asn1data::ASN1T_CrossCertificates, asn1data::ASN1C_CrossCertificates,
                                     asn1data::asn1Copy_CrossCertificates>>(CBlobList(), back)),
              "3100");
    EXPECT_TRUE(back.empty()) << "a decoded list replaces what was there";
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
TEST(CodecFrame, CopyToAutoPtr) {
    std::auto_ptr<CBlob> dst(new CBlob(2));
    const CBlob src = blobOf("0102");
    copy_to_auto_ptr(dst, &src);
    ASSERT_NE(dst.get(), &src);
    EXPECT_EQ(*dst, src);
    copy_to_auto_ptr<CBlob>(dst, nullptr);
    EXPECT_EQ(dst.get(), nullptr);
}
#pragma GCC diagnostic pop

}  // namespace
