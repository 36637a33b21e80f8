// The generated code of every shape, on hex vectors: statuses, what the decoders leave,
// and what the encoders write back. The types come from tests/asn1/shapes.asn, compiled
// by the same generator as the catalogue.
#include "asn1test/shapes.h"
#include "ber_test_util.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cstring>

using namespace asn1test;
using bertest::Dec;
using testsupport::hex;
using testsupport::toHex;

namespace {

// One decode of `type` over an exact-size copy of the input, kept for inspection.
struct Decoding {
    Decoding(const char* type, const std::string& in) : dec(in) {
        info = typeRegistry().find(type);
        EXPECT_NE(info, nullptr) << type;
        value = rtMemHeapAllocZ(&dec.c.typeHeap, (int)info->size);
        status = info->decode(&dec.c, value, ASN1EXPL, 0);
    }
    // The value written back by the encoder, as hex, or "error N".
    std::string reencoded() {
        // On the decoder's own context, where the value's memory lives.
        int len = xe_setp(&dec.c, nullptr, 0);
        if (len == 0) len = info->encode(&dec.c, value, ASN1EXPL);
        if (len < 0) return "error " + std::to_string(len);
        std::string h = toHex(xe_getp(&dec.c), (size_t)len);
        for (char& ch : h) ch = (char)std::tolower((unsigned char)ch);
        return h;
    }
    template <class T>
    T& as() {
        return *static_cast<T*>(value);
    }
    Dec dec;
    const asn1data::TypeInfo* info = nullptr;
    void* value = nullptr;
    int status = 0;
};

struct Row {
    const char* type;
    const char* in;
    int status;
    const char* out;  // re-encoding when decoded: "" for the input itself
    const char* why;
};

// The shared rules of the decoders and encoders, shape by shape.
const Row kRows[] = {
    // SEQUENCE: optional and defaulted fields, tags, extra and missing elements.
    {"Seq", "3003020105", 0, "", "only the required field"},
    {"Seq", "1003020105", 0, "3003020105", "a primitive SEQUENCE tag passes xd_match1"},
    {"Seq", "3006020105800100", 0, "3003020105", "BOOLEAN DEFAULT FALSE written out decodes, is not re-encoded"},
    {"Seq", "30060201058001ff", 0, "", "a TRUE default-FALSE BOOLEAN is written"},
    {"Seq", "3008020105a103020107", 0, "", "EXPLICIT optional field"},
    {"Seq", "3006020105820105", 0, "3003020105", "INTEGER at its DEFAULT is not re-encoded"},
    {"Seq", "3006020105820106", 0, "", "INTEGER off its DEFAULT is"},
    {"Seq", "30080201050c03616263", 0, "", "UTF8String within SIZE (1..4)"},
    {"Seq", "300a0201050c056162636465", RT_E_CONSTRAINT, nullptr, "UTF8String beyond SIZE (1..4)"},
    {"Seq", "3006020105020106", RT_E_EXTRA_ELEMENT, nullptr, "an element after the last field"},
    {"Seq", "3000", RT_E_MISSING_ELEMENT, nullptr, "the required field missing"},
    {"Seq", "300d0201053006020101020102", RT_E_EXTRA_ELEMENT, nullptr,
     "-3 deep inside an optional record is swallowed without restoring the cursor; the rest then reads as extra"},
    {"Seq", "3003020105", 0, "", "repeat: the previous failure leaves nothing behind"},
    {"ReqCtx", "3003020105", 0, "3006800100020105",
     "a required context-tagged field is counted though absent, and written from its empty value"},
    {"ReqCtx", "3000", RT_E_MISSING_ELEMENT, nullptr, "too few required fields by count"},
    {"Ext", "3006020101020102", 0, "", "the extension marker keeps what follows"},
    {"Ext", "300b0201010201020403010203", 0, "", "several elements after the marker"},
    // SET with named fields.
    {"NamedSet", "3103800141", 0, "", "the required field"},
    {"NamedSet", "3106160141800142", 0, "3106800142160141", "written in the order of definition, unsorted"},
    {"NamedSet", "3106800141800142", RT_E_SET_DUPLICATE, nullptr, "a field twice"},
    {"NamedSet", "3106800141830100", RT_E_SET_UNKNOWN_TAG, nullptr, "a tag that is no field"},
    {"NamedSet", "3103810101", RT_E_MISSING_ELEMENT, nullptr, "required field missing"},
    {"NamedSet", "310e80014180093132333435363738 39", RT_E_CONSTRAINT, nullptr,
     "the bound is checked before the duplicate"},
    // CHOICE.
    {"Alt", "020105", 0, "", "INTEGER held in the union"},
    {"Alt", "130141", 0, "", "PrintableString held in the union"},
    {"Alt", "3303040141", 0, "130141", "a constructed-form tag of a string alternative is taken"},
    {"Alt", "a006020101040100", 0, "", "IMPLICIT record alternative through a pointer"},
    {"Alt", "81022a03", 0, "", "identifier alternative through a pointer"},
    {"Alt", "a203800101", 0, "", "CHOICE alternative, EXPLICIT by being a CHOICE"},
    {"Alt", "a303020101", RT_E_BAD_CHOICE, nullptr, "a tag of no alternative"},
    {"Alt", "0500", RT_E_BAD_CHOICE, nullptr, "NULL is no alternative"},
    {"Tagged", "6103020105", 0, "", "[APPLICATION 1] CHOICE reads its own tag first"},
    {"Tagged", "020105", RT_E_TAG_MISMATCH, nullptr, "without its tag"},
    {"OptChoice", "3003020107", 0, "", "an optional CHOICE absent: the next tag is looked at, not read"},
    {"OptChoice", "3006800101020107", 0, "", "an optional CHOICE present"},
    // SEQUENCE OF and SET OF.
    {"IntList", "3003020101", 0, "", "list form"},
    {"IntList", "3000", RT_E_CONSTRAINT, nullptr, "SIZE (1..MAX) refuses the empty list"},
    {"IntSet", "3106020103020105", 0, "", "SET OF in order"},
    {"IntSet", "3106020105020103", 0, "3106020103020105", "SET OF sorted on encoding"},
    {"IntSet", "3100", 0, "", "an empty SET OF"},
    {"IntArray", "3006020101020102", 0, "", "array form"},
    {"IntArray", "3000", RT_E_CONSTRAINT, nullptr, "array form, empty, SIZE (1..MAX)"},
    {"OidSet", "300806022a0306022a01", 0, "300806022a0106022a03", "SEQUENCE tag, SET OF order"},
    {"OidSet", "310806022a0306022a01", RT_E_TAG_MISMATCH, nullptr, "the SET tag is refused"},
    {"StrArray", "30050c03616263", 0, "", "array element within its bound"},
    {"StrArray", "30060c0461626364", RT_E_CONSTRAINT, nullptr, "array element beyond its bound"},
    // Strings held inline, named bits, ranges and enumerations.
    {"Iv", "04080102030405060708", 0, "", "fixed size"},
    {"Iv", "040701020304050607", RT_E_CONSTRAINT, nullptr, "one octet short"},
    {"Mac", "040101", 0, "", "bounded, lower end"},
    {"Mac", "0400", RT_E_CONSTRAINT, nullptr, "bounded, empty"},
    {"Flags", "03020780", 0, "", "one named bit"},
    {"Flags", "0303070180", 0, "", "nine bits, the room of the named bits"},
    {"Millis", "020203e7", 0, "", "999 in 1..999"},
    {"Millis", "020100", RT_E_CONSTRAINT, nullptr, "0 outside 1..999"},
    {"Millis", "020203e8", RT_E_CONSTRAINT, nullptr, "1000 outside 1..999"},
    {"Reason", "0a0107", 0, "", "an unnamed value within the range passes"},
    {"Reason", "0a010b", RT_E_BAD_ENUM, nullptr, "11 beyond the range"},
    {"Form", "0a0101", 0, "", "range 1 to 8"},
    {"Form", "0a0100", RT_E_BAD_ENUM, nullptr, "0 under the range"},
    {"Form", "0a0109", RT_E_BAD_ENUM, nullptr, "9 over the range"},
    {"Wide", "1e020041", 0, "", "BMPString within SIZE (1..2), by characters"},
    {"Wide", "1e00", RT_E_CONSTRAINT, nullptr, "BMPString empty"},
    {"Wide", "1e06004100420043", RT_E_CONSTRAINT, nullptr, "BMPString of three characters"},
    {"Big", "020a01000000000000000000", 0, "", "INTEGER of any size as text"},
    {"Small", "02020100", 0, "", "16-bit unsigned"},
    {"Alias", "3006020101040100", 0, "", "an alias does the work of its type"},
    // End-of-contents.
    {"Wrapped", "3080020101a080300602010204010000000000", 0, "300d020101a00830060201020401 00",
     "an annotated type consumes the markers of its EXPLICIT tag and its own"},
    {"Outer", "30163080020101a080300602010204010000000000020105", RT_E_EXTRA_ELEMENT, nullptr,
     "outside, the marker stays under the cursor and the next step fails on it"},
    // Table constraints.
    {"Holder", "300706022a03020105", 0, "", "a known identifier: the value decoded through its object"},
    {"Holder", "300806022a0302020100", RT_E_CONSTRAINT, nullptr, "a malformed known value fails the whole decode"},
    {"Holder", "300706022a09020105", 0, "", "an unknown identifier: the value stays raw"},
    {"Holder", "300406022a03", 0, "", "no value, no object called"},
    {"Holder", "300706022a04020105", RT_E_TAG_MISMATCH, nullptr, "a value of the wrong type"},
    {"Holder", "300606022a050500", 0, "", "a NULL value"},
    {"Wrapper", "300906022a030403020164", 0, "", "OCTET STRING with its value decoded"},
    {"Wrapper", "300606022a030400", 0, "", "an empty OCTET STRING stays raw"},
    {"Wrapper", "300c06022a030101000403020164", 0, "300906022a030403020164", "critical FALSE written out"},
    {"Values", "300c06022a033106020102020101", 0, "300c06022a033106020101020102", "each value decoded; sorted"},
};

std::string clean(const char* s) {
    std::string out;
    for (const char* p = s; *p; ++p)
        if (*p != ' ') out += *p;
    return out;
}

TEST(CatalogueShapes, DecodeAndEncodeBack) {
    for (const Row& r : kRows) {
        const std::string in = clean(r.in);
        Decoding d(r.type, in);
        SCOPED_TRACE(std::string(r.type) + " " + in + ": " + r.why);
        EXPECT_EQ(d.status, r.status);
        EXPECT_EQ(d.dec.recorded(), r.status) << "the status is also the first one recorded";
        if (r.status != 0 || r.out == nullptr) continue;
        EXPECT_EQ(d.reencoded(), *r.out ? clean(r.out) : in);
    }
}

TEST(CatalogueShapes, DecodedFields) {
    {
        Decoding d("Seq", "3003020105");
        ASN1T_Seq& v = d.as<ASN1T_Seq>();
        EXPECT_EQ(v.a, 5);
        EXPECT_EQ(v.b, 0) << "BOOLEAN DEFAULT FALSE cleared";
        EXPECT_EQ(v.f, 5) << "the DEFAULT put in place";
        EXPECT_EQ(v.m.cPresent + v.m.dPresent + v.m.ePresent + v.m.gPresent, 0u);
    }
    {
        Decoding d("Seq", "300d0201053006020101020102");
        ASN1T_Seq& v = d.as<ASN1T_Seq>();
        EXPECT_EQ(v.m.ePresent, 0u) << "the swallowed record is absent";
        EXPECT_EQ(d.dec.at(), 10u) << "the cursor stopped where the inner record failed";
    }
    {
        Decoding d("Ext", "300b0201010201020403010203");
        EXPECT_EQ(d.as<ASN1T_Ext>().extElem1.count, 2u);
    }
    {
        Decoding d("Alt", "a006020101040100");
        ASN1T_Alt& v = d.as<ASN1T_Alt>();
        ASSERT_EQ(v.t, 3u);
        EXPECT_EQ(v.u.r->x, 1);
    }
    {
        Decoding d("Flags", "03020780");
        EXPECT_EQ(d.as<ASN1T_Flags>().numbits, 1u);
        EXPECT_EQ(Flags::c, 8);
    }
    {
        const std::string in = "3080020101a080300602010204010000000000";
        Decoding d("Wrapped", in);
        EXPECT_EQ(d.dec.at(), 19u) << "both markers stepped over";
        Decoding p("Plain", in);
        EXPECT_EQ(p.status, 0);
        EXPECT_EQ(p.dec.at(), 15u) << "the markers stay under the cursor";
    }
}

TEST(CatalogueShapes, TableConstraints) {
    {
        Decoding d("Holder", "300706022a03020105");
        ASN1T_Holder& v = d.as<ASN1T_Holder>();
        ASSERT_NE(v.value.decoded, nullptr);
        EXPECT_EQ(*(ASN1INT*)v.value.decoded, 5);
        *(ASN1INT*)v.value.decoded = 7;
        EXPECT_EQ(d.reencoded(), "300706022a03020107") << "the decoded value replaces the raw bytes";
    }
    {
        Decoding d("Holder", "300806022a0302020100");
        EXPECT_EQ(d.dec.at(), 4u) << "after a failure the context points into the value";
    }
    {
        Decoding d("Holder", "300706022a09020105");
        EXPECT_EQ(d.as<ASN1T_Holder>().value.decoded, nullptr);
        EXPECT_EQ(d.as<ASN1T_Holder>().value.numocts, 3u);
    }
    {
        Decoding d("Wrapper", "300906022a030403020164");
        ASN1T_Wrapper& v = d.as<ASN1T_Wrapper>();
        ASSERT_NE(v.valueObj.decoded, nullptr);
        EXPECT_EQ(v.valueObj.numocts, 3u) << "the sibling holds the OCTET STRING's contents";
        v.valueObj.decoded = nullptr;
        EXPECT_EQ(d.reencoded(), "300906022a030403020164") << "without a decoded value the raw bytes go out";
    }
    {
        Decoding d("Values", "300c06022a033106020101020102");
        ASN1T_Values& v = d.as<ASN1T_Values>();
        ASSERT_EQ(v.values.count, 2u);
        for (Asn1RTDListNode* n = v.values.head; n; n = n->next)
            EXPECT_NE(((asn1data::Asn1TObject*)n->data)->decoded, nullptr);
    }
}

// Constraints are checked before writing, with the same statuses as on decoding.
TEST(CatalogueShapes, EncoderChecks) {
    bertest::Enc enc;
    ASN1T_Alt alt;
    EXPECT_EQ(asn1E_Alt(&enc.c, &alt, ASN1EXPL), RT_E_BAD_CHOICE) << "selector 0";
    alt.t = 6;
    EXPECT_EQ(asn1E_Alt(&enc.c, &alt, ASN1EXPL), RT_E_BAD_CHOICE) << "selector past the alternatives";
    ASN1T_IntList list;
    EXPECT_EQ(asn1E_IntList(&enc.c, &list, ASN1EXPL), RT_E_CONSTRAINT) << "an empty SIZE (1..MAX) list";
    ASN1T_Iv iv;
    iv.numocts = 7;
    EXPECT_EQ(asn1E_Iv(&enc.c, &iv, ASN1EXPL), RT_E_CONSTRAINT);
    ASN1T_Reason reason = 11;
    EXPECT_EQ(asn1E_Reason(&enc.c, &reason, ASN1EXPL), RT_E_BAD_ENUM);
    ASN1T_Tagged tagged;
    tagged.t = 1;
    tagged.u.n = 5;
    EXPECT_EQ(asn1E_Tagged(&enc.c, &tagged, ASN1IMPL), 3) << "without its own tag";
    EXPECT_EQ(asn1E_Tagged(&enc.c, &tagged, ASN1EXPL), 5);
    EXPECT_EQ(enc.c.errInfo.status, RT_E_BAD_CHOICE) << "the first failure stays recorded";
}

// Copies hold all their memory on the destination context; the control classes tie a
// record to a message buffer, and a record copied out of one outlives it.
TEST(CatalogueShapes, CopiesAndControls) {
    const std::string in = "300f020105a103020107040201020c0161";
    std::string copyText;
    ASN1T_Seq* owned = nullptr;
    {
        Decoding d("Seq", in);
        ASSERT_EQ(d.status, 0);
        ASN1BEREncodeBuffer buf;
        ASN1T_Seq copy;
        asn1Copy_Seq(buf.getCtxtPtr(), &d.as<ASN1T_Seq>(), &copy);
        ASN1C_Seq control(buf, copy);
        const int len = control.Encode();
        ASSERT_GT(len, 0);
        copyText = toHex(buf.getMsgPtr(), (size_t)len);
        for (char& ch : copyText) ch = (char)std::tolower((unsigned char)ch);
        owned = control.newCopy();
    }
    EXPECT_EQ(copyText, in);
    ASSERT_NE(owned, nullptr);
    EXPECT_EQ(owned->c, 7) << "the copy outlives the buffer and the decoded record";
    EXPECT_STREQ(owned->g, "a");
    delete owned;

    std::vector<uint8_t> der = hex("3006020101020102");
    ASN1BERDecodeBuffer dbuf(der.data(), (int)der.size());
    ASN1T_IntList list;
    ASN1C_IntList lc(dbuf, list);
    ASSERT_EQ(lc.Decode(), 0);
    ASN1T_IntList kept(lc);
    EXPECT_EQ(kept.count, 2u);
    EXPECT_EQ(kept.mpContext, lc.getContext().get()) << "the copy holds the control's context";
}

}  // namespace
