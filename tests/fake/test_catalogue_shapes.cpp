// The generated code of every shape, on hex vectors: statuses, what the decoders leave,
// and what the encoders write back. The types come from tests/asn1/shapes.asn, compiled
// by the same generator as the catalogue.
#include "asn1test/shapes.h"
#include "d2_decoded.h"

using namespace asn1test;
using bertest::Dec;
using testsupport::hex;

namespace {

// A decode of a shape by its name.
struct Decoding : d2test::Decoded {
    Decoding(const char* type, const std::string& in) : Decoded(typeRegistry().find(type), in) {}
};

struct Row {
    const char *type, *in;
    int status;
    const char* out = "";  // re-encoding when decoded: "" for the input itself
};

// The shared rules of the decoders and encoders, shape by shape.
const Row kRows[] = {
    // SEQUENCE: a primitive tag passes xd_match1; defaults are not written back; -3 inside an optional
    // record is swallowed without restoring the cursor, the rest reads as extra (and leaves nothing behind);
    // a required [0] is counted though absent and written empty; the extension marker keeps what follows.
    {"Seq", "3003020105", 0}, {"Seq", "1003020105", 0, "3003020105"}, {"Seq", "3006020105800100", 0, "3003020105"},
    {"Seq", "30060201058001ff", 0}, {"Seq", "3008020105a103020107", 0}, {"Seq", "3006020105820105", 0, "3003020105"},
    {"Seq", "3006020105820106", 0}, {"Seq", "30080201050c03616263", 0},
    {"Seq", "300a0201050c056162636465", RT_E_CONSTRAINT}, {"Seq", "3006020105020106", RT_E_EXTRA_ELEMENT},
    {"Seq", "3000", RT_E_MISSING_ELEMENT}, {"Seq", "300d0201053006020101020102", RT_E_EXTRA_ELEMENT},
    {"ReqCtx", "3003020105", 0, "3006800100020105"}, {"ReqCtx", "3000", RT_E_MISSING_ELEMENT},
    {"Ext", "3006020101020102", 0}, {"Ext", "300b0201010201020403010203", 0},
    // SET with named fields: written in the order of definition; the bound is checked before the duplicate.
    {"NamedSet", "3103800141", 0}, {"NamedSet", "3106160141800142", 0, "3106800142160141"},
    {"NamedSet", "3106800141800142", RT_E_SET_DUPLICATE}, {"NamedSet", "3106800141830100", RT_E_SET_UNKNOWN_TAG},
    {"NamedSet", "3103810101", RT_E_MISSING_ELEMENT}, {"NamedSet", "310e8001418009313233343536373839", RT_E_CONSTRAINT},
    // CHOICE: a constructed tag of a string alternative is taken; records and identifiers through a pointer;
    // [APPLICATION 1] reads its own tag first; an absent optional CHOICE is looked at, not read.
    {"Alt", "020105", 0}, {"Alt", "130141", 0}, {"Alt", "3303040141", 0, "130141"}, {"Alt", "a006020101040100", 0},
    {"Alt", "81022a03", 0}, {"Alt", "a203800101", 0}, {"Alt", "a303020101", RT_E_BAD_CHOICE},
    {"Alt", "0500", RT_E_BAD_CHOICE}, {"Tagged", "6103020105", 0}, {"Tagged", "020105", RT_E_TAG_MISMATCH},
    {"OptChoice", "3003020107", 0}, {"OptChoice", "3006800101020107", 0},
    // SEQUENCE OF and SET OF: SIZE (1..MAX), sorting on encoding, the SEQUENCE tag on a SET OF.
    {"IntList", "3003020101", 0}, {"IntList", "3000", RT_E_CONSTRAINT}, {"IntSet", "3106020103020105", 0},
    {"IntSet", "3106020105020103", 0, "3106020103020105"}, {"IntSet", "3100", 0}, {"IntArray", "3006020101020102", 0},
    {"IntArray", "3000", RT_E_CONSTRAINT}, {"OidSet", "300806022a0306022a01", 0, "300806022a0106022a03"},
    {"OidSet", "310806022a0306022a01", RT_E_TAG_MISMATCH}, {"StrArray", "30050c03616263", 0},
    {"StrArray", "30060c0461626364", RT_E_CONSTRAINT},
    // Strings held inline, named bits (nine: their room), ranges, enumerations (unnamed values in range
    // pass), BMPString sizes by characters, big and 16-bit integers, an alias.
    {"Iv", "04080102030405060708", 0}, {"Iv", "040701020304050607", RT_E_CONSTRAINT}, {"Mac", "040101", 0},
    {"Mac", "0400", RT_E_CONSTRAINT}, {"Flags", "03020780", 0}, {"Flags", "0303070180", 0}, {"Millis", "020203e7", 0},
    {"Millis", "020100", RT_E_CONSTRAINT}, {"Millis", "020203e8", RT_E_CONSTRAINT}, {"Reason", "0a0107", 0},
    {"Reason", "0a010b", RT_E_BAD_ENUM}, {"Form", "0a0101", 0}, {"Form", "0a0100", RT_E_BAD_ENUM},
    {"Form", "0a0109", RT_E_BAD_ENUM}, {"Wide", "1e020041", 0}, {"Wide", "1e00", RT_E_CONSTRAINT},
    {"Wide", "1e06004100420043", RT_E_CONSTRAINT}, {"Big", "020a01000000000000000000", 0}, {"Small", "02020100", 0},
    {"Alias", "3006020101040100", 0},
    // End-of-contents: an annotated type eats its EXPLICIT tag's markers and its own; outside, the
    // marker stays and the next step fails on it.
    {"Wrapped", "3080020101a080300602010204010000000000", 0, "300d020101a0083006020102040100"},
    {"Outer", "30163080020101a080300602010204010000000000020105", RT_E_EXTRA_ELEMENT},
    // Table constraints: known identifiers decode through their object (a malformed value fails it all),
    // unknown ones, empty OCTET STRINGs and absent values stay raw; critical FALSE goes; values sorted.
    {"Holder", "300706022a03020105", 0}, {"Holder", "300806022a0302020100", RT_E_CONSTRAINT},
    {"Holder", "300706022a09020105", 0}, {"Holder", "300406022a03", 0},
    {"Holder", "300706022a04020105", RT_E_TAG_MISMATCH}, {"Holder", "300606022a050500", 0},
    {"Wrapper", "300906022a030403020164", 0}, {"Wrapper", "300606022a030400", 0},
    {"Wrapper", "300c06022a030101000403020164", 0, "300906022a030403020164"},
    {"Values", "300c06022a033106020102020101", 0, "300c06022a033106020101020102"},
};

TEST(CatalogueShapes, DecodeAndEncodeBack) {
    for (const Row& r : kRows) {
        Decoding d(r.type, r.in);
        SCOPED_TRACE(std::string(r.type) + " " + r.in);
        EXPECT_EQ(d.status, r.status);
        EXPECT_EQ(d.dec.recorded(), r.status) << "the status is also the first one recorded";
        EXPECT_EQ(r.status == 0 ? d.reencoded() : "", r.status == 0 ? (*r.out ? r.out : r.in) : "");
    }
}

// Where the cursor stands after a decode: inside a failed record, past end-of-contents markers.
TEST(CatalogueShapes, CursorAndOpenTypesAfterDecoding) {
    const std::string eoc = "3080020101a080300602010204010000000000";
    const struct { const char* type; std::string in; int status; ASN1UINT at; } rows[] = {
        {"Seq", "300d0201053006020101020102", RT_E_EXTRA_ELEMENT, 10},  // where the inner record failed
        {"Holder", "300806022a0302020100", RT_E_CONSTRAINT, 4},  // inside the open type's value
        {"Wrapped", eoc, 0, 19},                                  // both markers stepped over
        {"Plain", eoc, 0, 15},                                    // the markers stay under the cursor
    };
    for (const auto& r : rows) {
        Decoding d(r.type, r.in);
        EXPECT_EQ(d.status, r.status) << r.type;
        EXPECT_EQ(d.dec.at(), r.at) << r.type;
    }
    // A decoded open type is what goes out; without one the raw octets do.
    Decoding holder("Holder", "300706022a03020105");
    ASSERT_NE(holder.as<ASN1T_Holder>().value.decoded, nullptr);
    *(ASN1INT*)holder.as<ASN1T_Holder>().value.decoded = 7;
    EXPECT_EQ(holder.reencoded(), "300706022a03020107");
    EXPECT_EQ(Decoding("Holder", "300706022a09020105").as<ASN1T_Holder>().value.decoded, nullptr) << "unknown object";
    Decoding wrapper("Wrapper", "300906022a030403020164");
    ASSERT_NE(wrapper.as<ASN1T_Wrapper>().valueObj.decoded, nullptr);
    wrapper.as<ASN1T_Wrapper>().valueObj.decoded = nullptr;
    EXPECT_EQ(wrapper.reencoded(), "300906022a030403020164");
    Decoding values("Values", "300c06022a033106020101020102");
    for (Asn1RTDListNode* n = values.as<ASN1T_Values>().values.head; n; n = n->next)
        EXPECT_NE(((asn1data::Asn1TObject*)n->data)->decoded, nullptr);
}

// Constraints are checked before writing, with the same statuses as on decoding.
TEST(CatalogueShapes, EncoderChecks) {
    bertest::Enc enc;
    ASN1T_Alt alt, past;
    past.t = 6;
    ASN1T_IntList empty;
    ASN1T_Iv iv;
    iv.numocts = 7;
    ASN1T_Reason reason = 11;
    ASN1T_Tagged tagged;
    tagged.t = 1;
    tagged.u.n = 5;
    EXPECT_EQ((std::vector<int>{RT_E_BAD_CHOICE, RT_E_BAD_CHOICE, RT_E_CONSTRAINT, RT_E_CONSTRAINT, RT_E_BAD_ENUM, 3, 5}),
              (std::vector<int>{asn1E_Alt(&enc.c, &alt, ASN1EXPL), asn1E_Alt(&enc.c, &past, ASN1EXPL),
                                asn1E_IntList(&enc.c, &empty, ASN1EXPL), asn1E_Iv(&enc.c, &iv, ASN1EXPL),
                                asn1E_Reason(&enc.c, &reason, ASN1EXPL), asn1E_Tagged(&enc.c, &tagged, ASN1IMPL),
                                asn1E_Tagged(&enc.c, &tagged, ASN1EXPL)}));
    EXPECT_EQ(enc.c.errInfo.status, RT_E_BAD_CHOICE) << "the first failure stays recorded";
    // A record built by hand with an unknown identifier writes its raw octets (a known one must
    // hold its value decoded: the open-type form hands null to the object's encoder).
    const uint8_t raw[] = {0x02, 0x01, 0x05};
    ASN1T_Holder holder;
    holder.id = asn1data::makeOid({1, 2, 9});
    holder.m.valuePresent = 1;
    holder.value.numocts = 3;
    holder.value.data = raw;
    bertest::Enc out;
    EXPECT_EQ(asn1E_Holder(&out.c, &holder, ASN1EXPL), 9);
    EXPECT_EQ(out.out(), "300706022A09020105");
}

// Copies hold all their memory on the destination context; the control classes tie a
// record to a message buffer, and a record copied out of one outlives it.
TEST(CatalogueShapes, CopiesAndControls) {
    const std::string in = "300f020105a103020107040201020c0161";
    std::string copyText;
    ASN1T_Seq* owned = nullptr;
    {
        Decoding d("Seq", in);
        ASN1BEREncodeBuffer buf;
        ASN1T_Seq copy;
        asn1Copy_Seq(buf.getCtxtPtr(), &d.as<ASN1T_Seq>(), &copy);
        ASN1C_Seq control(buf, copy);
        const int len = control.Encode();
        copyText = bertest::lowerHex(buf.getMsgPtr(), len > 0 ? (size_t)len : 0);
        owned = control.newCopy();
    }
    EXPECT_EQ(copyText, in);
    ASSERT_NE(owned, nullptr);
    EXPECT_EQ(std::to_string(owned->c) + owned->g, "7a") << "the copy outlives the buffer and the decoded record";
    delete owned;

    std::vector<uint8_t> der = hex("3006020101020102");
    ASN1BERDecodeBuffer dbuf(der.data(), (int)der.size());
    ASN1T_IntList list;
    ASN1C_IntList lc(dbuf, list);
    ASSERT_EQ(lc.Decode(), 0);
    ASN1T_IntList kept(lc);
    EXPECT_TRUE(kept.count == 2u && kept.mpContext == lc.getContext().get()) << "the copy holds the control's context";
}

}  // namespace
