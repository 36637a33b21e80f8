// Whole certificates of the corpus decoded through ASN1BERDecodeBuffer into a tree of
// runtime values (each primitive read by its own xd_ decoder, children kept in
// ASN1CSeqOfList lists) and written back through ASN1BEREncodeBuffer with the matching
// xe_ encoders: the bytes must come out as they went in.  The validity times are read
// by the time parsers and classes on the way.
#include "asn1rt/asn1time.h"
#include "asn1rt/ber.h"
#include "asn1rt/bitstr.h"
#include "asn1rt/oid.h"
#include "asn1rt/seqoflist.h"

#include <gtest/gtest.h>

#include <string.h>

#include <algorithm>
#include <new>
#include <string>
#include <vector>

#include "support/testsupport.h"

namespace {

enum Kind { kRaw, kConstructed, kBool, kInt, kBits, kOctets, kNull, kOid, kText, kBmp, kUniversal };

struct Node {
    ASN1TAG tag;
    Kind kind;
    ASN1BOOL boolean;
    const char* text;
    const ASN1OCTET* data;
    ASN1UINT count;
    ASN1OBJID oid;
    Asn116BitCharString bmp;
    Asn132BitCharString ucs;
    ASN1TSeqOfList children;
};

const int kMaxDepth = 40;

// Counts what the walk met, so a test can tell it really read typed values.
struct Census {
    int nodes = 0, integers = 0, oids = 0, bitStrings = 0, times = 0, texts = 0, raw = 0;
};

bool isTextTag(ASN1TAG tag) {
    switch (tag) {
        case ASN_ID_UTF8String:
        case ASN_ID_NumericString:
        case ASN_ID_PrintableString:
        case ASN_ID_T61String:
        case ASN_ID_IA5String:
        case ASN_ID_UTCTime:
        case ASN_ID_GeneralTime:
        case ASN_ID_VisibleString:
            return true;
        default:
            return false;
    }
}

// An OBJECT IDENTIFIER the 32-bit arcs of ASN1OBJID cannot hold (an arc past 32 bits,
// a combined first pair past 32 bits, or more than 128 arcs) travels raw.
bool oidFitsRecord(ASN1CTXT* ctxt) {
    RtBufferState slot;
    xu_SaveBufferState(ctxt, &slot);
    ASN1TAG tag;
    int len = 0;
    bool fits = false;
    if (xd_tag_len(ctxt, &tag, &len, RT_MATCH_ADVANCE) == 0 && len > 0) {
        const ASN1OCTET* p = ctxt->bufData + ctxt->bufIndex;
        unsigned long long arc = 0;
        int arcs = 1;  // the first octet group carries two arcs
        fits = true;
        for (int i = 0; i < len && fits; ++i) {
            arc = (arc << 7) | (p[i] & 0x7F);
            if (arc > 0xFFFFFFFFull) fits = false;
            if (!(p[i] & 0x80)) {
                arc = 0;
                ++arcs;
            }
        }
        if (arcs > 128) fits = false;
    }
    xu_RestoreBufferState(ctxt, &slot);
    return fits;
}

// Content of the element at the cursor holds a zero octet (C text cannot carry it).
bool contentHasZero(ASN1CTXT* ctxt) {
    RtBufferState slot;
    xu_SaveBufferState(ctxt, &slot);
    ASN1TAG tag;
    int len = 0;
    bool zero = true;
    if (xd_tag_len(ctxt, &tag, &len, RT_MATCH_ADVANCE) == 0 && len >= 0)
        zero = memchr(ctxt->bufData + ctxt->bufIndex, 0, (size_t)len) != nullptr;
    xu_RestoreBufferState(ctxt, &slot);
    return zero;
}

class CertTree : public ASN1CType {
public:
    explicit CertTree(ASN1MessageBufferIF& buf) : ASN1CType(buf) {}
    Node* root = nullptr;
    Census census;
    std::vector<std::string> utcTimes, generalizedTimes;

    int DecodeFrom(ASN1MessageBufferIF& buf) override {
        setMsgBuf(buf);
        buf.init();
        ASN1CTXT* ctxt = buf.getCtxtPtr();
        root = newNode(ctxt);
        if (!root) return rtErrSetData(&ctxt->errInfo, RT_E_NO_MEMORY);
        int st = decode(buf, ctxt, root, 0);
        return st < 0 ? rtErrSetData(&ctxt->errInfo, st) : 0;
    }

    int EncodeTo(ASN1MessageBufferIF& buf) override {
        setMsgBuf(buf);
        buf.init();
        ASN1CTXT* ctxt = buf.getCtxtPtr();
        int len = root ? encode(ctxt, root) : 0;
        return len < 0 ? rtErrSetData(&ctxt->errInfo, len) : len;
    }

private:
    static Node* newNode(ASN1CTXT* ctxt) {
        void* mem = rtMemHeapAllocZ(&ctxt->typeHeap, (int)sizeof(Node));
        if (!mem) return nullptr;
        Node* n = new (mem) Node();
        n->kind = kRaw;
        return n;
    }

    int decode(ASN1MessageBufferIF& buf, ASN1CTXT* ctxt, Node* node, int depth) {
        ++census.nodes;
        ASN1TAG tag = 0;
        int len = 0;
        int st = xd_tag_len(ctxt, &tag, &len, 0);
        if (st != 0) return st;
        node->tag = tag;
        if (len == RT_INDEFINITE_LENGTH || depth > kMaxDepth) return raw(ctxt, node);
        if (tag & TM_CONS) {
            node->kind = kConstructed;
            if ((st = xd_tag_len(ctxt, &tag, &len, RT_MATCH_ADVANCE)) != 0) return st;
            ASN1UINT end = ctxt->bufIndex + (ASN1UINT)len;
            ASN1CSeqOfList list(buf, node->children, 1);
            while (ctxt->bufIndex < end) {
                Node* child = newNode(ctxt);
                if (!child) return RT_E_NO_MEMORY;
                if ((st = decode(buf, ctxt, child, depth + 1)) != 0) return st;
                list.append(child);
            }
            return ctxt->bufIndex == end ? 0 : RT_E_BAD_LENGTH;
        }
        if ((tag & TM_CLASS_MASK) != TM_UNIV) return raw(ctxt, node);
        switch (tag) {
            case ASN_ID_BOOL:
                node->kind = kBool;
                return xd_boolean(ctxt, &node->boolean, 1, 0);
            case ASN_ID_INT:
                node->kind = kInt;
                ++census.integers;
                return xd_bigint(ctxt, &node->text, 1, 0);
            case ASN_ID_BITSTR: {
                node->kind = kBits;
                ++census.bitStrings;
                st = xd_bitstr(ctxt, &node->data, &node->count, 1, 0);
                if (st == 0) checkBitView(node);
                return st;
            }
            case ASN_ID_OCTSTR:
                node->kind = kOctets;
                return xd_octstr(ctxt, &node->data, &node->count, 1, 0);
            case ASN_ID_NULL:
                node->kind = kNull;
                return xd_null(ctxt, 1);
            case ASN_ID_OBJID:
                if (!oidFitsRecord(ctxt)) return raw(ctxt, node);
                node->kind = kOid;
                ++census.oids;
                return xd_objid(ctxt, &node->oid, 1, 0);
            case ASN_ID_BMPString:
                node->kind = kBmp;
                ++census.texts;
                return xd_16BitCharStr(ctxt, &node->bmp, 1, tag, 0);
            case ASN_ID_UniversalString:
                node->kind = kUniversal;
                ++census.texts;
                return xd_32BitCharStr(ctxt, &node->ucs, 1, tag, 0);
            default:
                break;
        }
        if (!isTextTag(tag) || contentHasZero(ctxt)) return raw(ctxt, node);
        node->kind = kText;
        ++census.texts;
        st = xd_charstr(ctxt, &node->text, 1, tag, 0);
        if (st == 0 && tag == ASN_ID_UTCTime) utcTimes.push_back(node->text);
        if (st == 0 && tag == ASN_ID_GeneralTime) generalizedTimes.push_back(node->text);
        return st;
    }

    int raw(ASN1CTXT* ctxt, Node* node) {
        ++census.raw;
        node->kind = kRaw;
        return xd_OpenType(ctxt, &node->data, &node->count);
    }

    // A bit-string view over a copy of the value sees the same bits.
    void checkBitView(const Node* node) {
        ASN1TDynBitStr value;
        value.numbits = node->count;
        std::vector<ASN1OCTET> copy(node->data, node->data + (node->count + 7) / 8);
        value.data = copy.data();
        ASN1CBitStr view(*getContext().get(), value);
        for (ASN1UINT i = 0; i < node->count && i < 64; ++i) {
            bool expected = (node->data[i / 8] & (0x80u >> (i % 8))) != 0;
            // The view drops the lowest bit of the last octet; every other bit stands.
            if (i / 8 + 1 == (node->count + 7) / 8 && i % 8 == 7) continue;
            EXPECT_EQ(expected, view.get(i)) << "bit " << i;
        }
    }

    int encode(ASN1CTXT* ctxt, Node* node) {
        switch (node->kind) {
            case kConstructed: {
                int sum = 0;
                ASN1CSeqOfList list(*getMsgBuf(), node->children);
                ASN1CSeqOfListIterator* it = list.iteratorFromLast();
                if (!it) return RT_E_NO_MEMORY;
                for (void* child = it->prev(); child; child = it->prev()) {
                    int len = encode(ctxt, (Node*)child);
                    if (len < 0) return len;
                    sum += len;
                }
                return xe_tag_len(ctxt, node->tag, sum);
            }
            case kBool:
                return xe_boolean(ctxt, &node->boolean, 1);
            case kInt:
                return xe_bigint(ctxt, node->text, 1);
            case kBits:
                return xe_bitstr(ctxt, node->data, node->count, 1);
            case kOctets:
                return xe_octstr(ctxt, node->data, node->count, 1);
            case kNull:
                return xe_null(ctxt, 1);
            case kOid:
                return xe_objid(ctxt, &node->oid, 1);
            case kText:
                return xe_charstr(ctxt, node->text, 1, node->tag);
            case kBmp:
                return xe_16BitCharStr(ctxt, &node->bmp, 1, node->tag);
            case kUniversal:
                return xe_32BitCharStr(ctxt, &node->ucs, 1, node->tag);
            case kRaw:
            default:
                return xe_OpenType(ctxt, node->data, node->count);
        }
    }
};

struct RoundTrip {
    int status = 0;
    std::vector<uint8_t> out;
    Census census;
    std::vector<std::string> utcTimes, generalizedTimes;
};

// Decodes the message over a decode buffer and writes it back over an encode buffer.
RoundTrip roundTrip(const std::vector<uint8_t>& der) {
    RoundTrip r;
    ASN1BEREncodeBuffer enc;
    CertTree* tree = nullptr;
    {
        ASN1BERDecodeBuffer dec(der.data(), (int)der.size());
        tree = new CertTree(dec);
        try {
            dec >> *tree;
        } catch (const ASN1RTLException& e) {
            r.status = e.getStatus();
        }
    }  // the tree outlives its buffer: the context stays with the control
    if (r.status == 0) {
        int len = tree->EncodeTo(enc);
        if (len < 0) {
            r.status = len;
        } else {
            const ASN1OCTET* p = enc.getMsgPtr();
            r.out.assign(p, p + len);
        }
    }
    r.census = tree->census;
    r.utcTimes = tree->utcTimes;
    r.generalizedTimes = tree->generalizedTimes;
    delete tree;
    return r;
}

bool digits(const std::string& t, size_t from, size_t n) {
    if (t.size() < from + n) return false;
    return std::all_of(t.begin() + from, t.begin() + from + n, [](char c) { return c >= '0' && c <= '9'; });
}

// Ten or twelve digits, then "Z" or a sign and four digits.
bool wellFormedUtc(const std::string& t) {
    for (size_t n : {10u, 12u}) {
        if (!digits(t, 0, n)) continue;
        if (t.size() == n + 1 && t[n] == 'Z') return true;
        if (t.size() == n + 5 && (t[n] == '+' || t[n] == '-') && digits(t, n + 1, 4)) return true;
    }
    return false;
}

bool isBad(const std::string& path) { return path.find("/bad/") != std::string::npos; }

TEST(CertRoundTrip, HandMadeElementComesBackUnchanged) {
    // SEQUENCE { OID 2.5.4.3, PrintableString "ab", BOOLEAN TRUE, INTEGER -129,
    //            BIT STRING 9 bits, [0] IMPLICIT 01 02, UTCTime, NULL, BMPString "A" }
    const std::vector<uint8_t> der = testsupport::hex(
        "302e" "0603550403" "13026162" "0101ff" "0202ff7f" "030307c080" "80020102"
        "170d3234303232393132333435325a" "0500" "1e020041");
    RoundTrip r = roundTrip(der);
    ASSERT_EQ(0, r.status);
    EXPECT_EQ(testsupport::toHex(der.data(), der.size()), testsupport::toHex(r.out.data(), r.out.size()));
    EXPECT_EQ(1, r.census.oids);
    EXPECT_EQ(1, r.census.integers);
    EXPECT_EQ(1, r.census.raw) << "only the context-specific element travels raw";
    ASSERT_EQ(1u, r.utcTimes.size());
    EXPECT_EQ("240229123452Z", r.utcTimes[0]);
}

TEST(CertRoundTrip, BrokenElementFailsWithAStatus) {
    // The second INTEGER claims two octets where one is left: a short length is taken
    // as it stands, and the INTEGER reader runs into the end.
    const std::vector<uint8_t> der = testsupport::hex("3006020105020205");
    RoundTrip r = roundTrip(der);
    EXPECT_EQ(-2, r.status);
    EXPECT_LT(roundTrip(testsupport::hex("30")).status, 0);
}

TEST(CertRoundTrip, CorpusCertificatesComeBackByteForByte) {
    CHAINVET_SKIP_WITHOUT_CORPUS();
    SetLastError(55);
    int done = 0;
    for (const std::string& path : testsupport::corpusFiles("cert")) {
        if (isBad(path)) continue;
        SCOPED_TRACE(path);
        const std::vector<uint8_t> der = testsupport::readFile(path);
        ASSERT_FALSE(der.empty());
        if (der[0] != 0x30) continue;  // not DER (a text form kept as it was)
        RoundTrip r = roundTrip(der);
        ASSERT_EQ(0, r.status);
        ASSERT_EQ(der.size(), r.out.size());
        EXPECT_TRUE(der == r.out) << "first difference at "
                                  << (std::mismatch(der.begin(), der.end(), r.out.begin()).first -
                                      der.begin());
        EXPECT_GE(r.census.oids, 3);
        EXPECT_GE(r.census.integers, 1);
        EXPECT_GE(r.census.bitStrings, 1) << "at least the key and the signature";
        EXPECT_GE(r.utcTimes.size() + r.generalizedTimes.size(), 2u) << "notBefore and notAfter";
        ++done;
    }
    EXPECT_GT(done, 50);
    EXPECT_EQ(55u, GetLastError()) << "the runtime never touches the thread's last error";
}

TEST(CertRoundTrip, CorpusValidityTimesParse) {
    CHAINVET_SKIP_WITHOUT_CORPUS();
    int utc = 0, generalized = 0, refused = 0;
    for (const std::string& path : testsupport::corpusFiles("cert")) {
        if (isBad(path)) continue;
        const std::vector<uint8_t> der = testsupport::readFile(path);
        if (der.empty() || der[0] != 0x30) continue;
        SCOPED_TRACE(path);
        RoundTrip r = roundTrip(der);
        ASSERT_EQ(0, r.status);
        for (const std::string& t : r.utcTimes) {
            SCOPED_TRACE(t);
            ASN1CTXT ctxt;
            ASSERT_EQ(0, rtInitContext(&ctxt, nullptr));
            RtTimeFields f;
            if (!wellFormedUtc(t)) {
                EXPECT_EQ(-31, rtParseUTCTime(&ctxt, t.c_str(), &f));
                rtFreeContext(&ctxt);
                ++refused;
                continue;
            }
            ASSERT_EQ(0, rtParseUTCTime(&ctxt, t.c_str(), &f));
            EXPECT_TRUE(f.year >= 1950 && f.year <= 2049);
            char* made = nullptr;
            ASSERT_EQ(0, rtMakeGeneralizedTime(&ctxt, &f, &made, 0));
            if (t.size() == 13 && t[12] == 'Z') {
                EXPECT_EQ((f.year < 2000 ? "19" : "20") + t, std::string(made));
            }

            const char* text = t.c_str();
            ASN1CUTCTime c(text, f.utc);
            EXPECT_EQ(f.year, c.getYear());
            EXPECT_EQ(f.second, c.getSecond());
            EXPECT_EQ(f.diffHour * 60 + f.diffMin, c.getDiff());
            EXPECT_EQ(0, c.setMonth(f.month)) << "a set rebuilds the text";
            if (t.size() == 13 || t.size() == 17) {
                EXPECT_EQ(t, std::string(text));
            }
            rtFreeContext(&ctxt);
            ++utc;
        }
        for (const std::string& t : r.generalizedTimes) {
            SCOPED_TRACE(t);
            ASN1CTXT ctxt;
            ASSERT_EQ(0, rtInitContext(&ctxt, nullptr));
            RtTimeFields f;
            ASSERT_EQ(0, rtParseGeneralizedTime(&ctxt, t.c_str(), &f));
            char* made = nullptr;
            ASSERT_EQ(0, rtMakeGeneralizedTime(&ctxt, &f, &made, 0));
            EXPECT_EQ(t, std::string(made));
            const char* text = t.c_str();
            ASN1CGeneralizedTime c(text, 1);
            EXPECT_EQ(f.year, c.getYear());
            rtFreeContext(&ctxt);
            ++generalized;
        }
    }
    EXPECT_GT(utc, 50);
    EXPECT_GT(generalized, 0) << "dates from 2050 on are GeneralizedTime";
    EXPECT_GT(refused, 0) << "the corpus holds a time with non-digits";
}

}  // namespace
