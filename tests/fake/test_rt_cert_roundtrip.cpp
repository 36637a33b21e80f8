// Whole certificates of the corpus decoded through ASN1BERDecodeBuffer into a tree whose
// constructed elements keep their children in ASN1CSeqOfList lists (primitives travel as
// open types), and written back through ASN1BEREncodeBuffer: the bytes must come out as
// they went in. The validity times met on the way go through the time parsers and classes.
#include "asn1rt/asn1time.h"
#include "asn1rt/ber.h"
#include "asn1rt/seqoflist.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <new>
#include <string>
#include <vector>

#include "support/testsupport.h"

namespace {

struct Node {
    ASN1TAG tag;
    bool constructed;
    const ASN1OCTET* data;  // the whole element, for a primitive one
    ASN1UINT count;
    ASN1TSeqOfList children;
};

class CertTree : public ASN1CType {
public:
    explicit CertTree(ASN1MessageBufferIF& buf) : ASN1CType(buf) {}
    Node* root = nullptr;
    std::vector<std::string> utcTimes, generalizedTimes;

    int DecodeFrom(ASN1MessageBufferIF& buf) override {
        setMsgBuf(buf);
        buf.init();
        ASN1CTXT* ctxt = buf.getCtxtPtr();
        root = newNode(ctxt);
        int st = root ? decode(buf, ctxt, root, 0) : RT_E_NO_MEMORY;
        return st < 0 ? rtErrSetData(&ctxt->errInfo, st) : 0;
    }

    int EncodeTo(ASN1MessageBufferIF& buf) override {
        setMsgBuf(buf);
        buf.init();
        int len = root ? encode(buf.getCtxtPtr(), root) : 0;
        return len < 0 ? rtErrSetData(&buf.getCtxtPtr()->errInfo, len) : len;
    }

private:
    static Node* newNode(ASN1CTXT* ctxt) {
        void* mem = rtMemHeapAllocZ(&ctxt->typeHeap, (int)sizeof(Node));
        return mem ? new (mem) Node() : nullptr;
    }

    int decode(ASN1MessageBufferIF& buf, ASN1CTXT* ctxt, Node* node, int depth) {
        int len = 0, st = xd_tag_len(ctxt, &node->tag, &len, 0);
        if (st != 0)
            return st;
        if ((node->tag & TM_CONS) && len != RT_INDEFINITE_LENGTH && depth < 40) {
            node->constructed = true;
            if ((st = xd_tag_len(ctxt, &node->tag, &len, RT_MATCH_ADVANCE)) != 0)
                return st;
            const ASN1UINT end = ctxt->bufIndex + (ASN1UINT)len;
            ASN1CSeqOfList list(buf, node->children, 1);
            while (ctxt->bufIndex < end) {
                Node* child = newNode(ctxt);
                if (!child)
                    return RT_E_NO_MEMORY;
                if ((st = decode(buf, ctxt, child, depth + 1)) != 0)
                    return st;
                list.append(child);
            }
            return ctxt->bufIndex == end ? 0 : RT_E_BAD_LENGTH;
        }
        if ((st = xd_OpenType(ctxt, &node->data, &node->count)) != 0)
            return st;
        // A time's text behind its two-octet header.
        const std::string text(node->data + std::min<ASN1UINT>(2, node->count), node->data + node->count);
        if (node->tag == ASN_ID_UTCTime)
            utcTimes.push_back(text);
        if (node->tag == ASN_ID_GeneralTime)
            generalizedTimes.push_back(text);
        return 0;
    }

    int encode(ASN1CTXT* ctxt, Node* node) {
        if (!node->constructed)
            return xe_OpenType(ctxt, node->data, node->count);
        int sum = 0;
        ASN1CSeqOfList list(*getMsgBuf(), node->children);
        ASN1CSeqOfListIterator* it = list.iteratorFromLast();
        if (!it)
            return RT_E_NO_MEMORY;
        for (void* child = it->prev(); child; child = it->prev()) {
            int len = encode(ctxt, (Node*)child);
            if (len < 0)
                return len;
            sum += len;
        }
        return xe_tag_len(ctxt, node->tag, sum);
    }
};

struct RoundTrip {
    int status = 0;
    std::vector<uint8_t> out;
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
    const int len = r.status == 0 ? tree->EncodeTo(enc) : 0;
    r.status = len < 0 ? len : r.status;
    if (len > 0)
        r.out.assign(enc.getMsgPtr(), enc.getMsgPtr() + len);
    r.utcTimes = tree->utcTimes;
    r.generalizedTimes = tree->generalizedTimes;
    delete tree;
    return r;
}

// Ten or twelve digits, then "Z" or a sign and four digits.
bool wellFormedUtc(const std::string& t) {
    const char* digits = "0123456789";
    const size_t n = t.find_first_not_of(digits);
    return (n == 10 || n == 12) && (t.substr(n) == "Z" || (t.size() == n + 5 && (t[n] == '+' || t[n] == '-') &&
                                                          t.find_first_not_of(digits, n + 1) == std::string::npos));
}

TEST(CertRoundTrip, HandMadeElements) {
    // SEQUENCE { OID 2.5.4.3, PrintableString "ab", [0] { BOOLEAN TRUE, INTEGER -129 },
    //            BIT STRING 9 bits, UTCTime, NULL, BMPString "A" }
    const std::vector<uint8_t> der = testsupport::hex(
        "302c" "0603550403" "13026162" "a0070101ff0202ff7f" "030307c080" "170d3234303232393132333435325a" "0500"
        "1e020041");
    RoundTrip r = roundTrip(der);
    ASSERT_EQ(0, r.status);
    EXPECT_EQ(testsupport::toHex(der.data(), der.size()), testsupport::toHex(r.out.data(), r.out.size()));
    EXPECT_EQ(std::vector<std::string>{"240229123452Z"}, r.utcTimes);
    // The second INTEGER claims two octets where one is left: a bad element.
    EXPECT_EQ(RT_E_BAD_VALUE, roundTrip(testsupport::hex("3006020105020205")).status);
    EXPECT_LT(roundTrip(testsupport::hex("30")).status, 0);
}

TEST(CertRoundTrip, CorpusCertificatesAndTheirValidityTimes) {
    CHAINVET_SKIP_WITHOUT_CORPUS();
    SetLastError(55);
    int done = 0, utc = 0, generalized = 0, refused = 0;
    ASN1CTXT ctxt;
    ASSERT_EQ(0, rtInitContext(&ctxt, nullptr));
    for (const std::string& path : testsupport::corpusFiles("cert")) {
        const std::vector<uint8_t> der = testsupport::readFile(path);
        if (path.find("/bad/") != std::string::npos || der.empty() || der[0] != 0x30)
            continue;  // malformed, or not DER (a text form kept as it was)
        SCOPED_TRACE(path);
        RoundTrip r = roundTrip(der);
        ASSERT_EQ(0, r.status);
        ASSERT_EQ(der.size(), r.out.size());
        EXPECT_TRUE(der == r.out) << "first difference at "
                                  << (std::mismatch(der.begin(), der.end(), r.out.begin()).first - der.begin());
        EXPECT_GE(r.utcTimes.size() + r.generalizedTimes.size(), 2u) << "notBefore and notAfter";
        ++done;
        // UTCTime: well formed texts parse to 1950..2049 and back as GeneralizedTime; the
        // class reads the same fields and rebuilds the text after a set.
        for (const std::string& t : r.utcTimes) {
            SCOPED_TRACE(t);
            RtTimeFields f;
            char* made = nullptr;
            rtErrReset(&ctxt.errInfo);
            const int st = rtParseUTCTime(&ctxt, t.c_str(), &f);
            ++(st ? refused : utc);
            if (!wellFormedUtc(t) || st != 0) {
                EXPECT_EQ(wellFormedUtc(t) ? 0 : -31, st);
                continue;
            }
            EXPECT_TRUE(f.year >= 1950 && f.year <= 2049);
            ASSERT_EQ(0, rtMakeGeneralizedTime(&ctxt, &f, &made, 0));
            if (t.size() == 13) {
                EXPECT_EQ((f.year < 2000 ? "19" : "20") + t, std::string(made));
            }
            const char* text = t.c_str();
            ASN1CUTCTime c(text, f.utc);
            EXPECT_EQ((std::vector<int>{f.year, f.second, f.diffHour * 60 + f.diffMin}),
                      (std::vector<int>{c.getYear(), c.getSecond(), c.getDiff()}));
            EXPECT_EQ(0, c.setMonth(f.month));
            if (t.size() == 13 || t.size() == 17) {
                EXPECT_EQ(t, std::string(text));
            }
        }
        // GeneralizedTime (2050 on) goes through the fields and back unchanged.
        for (const std::string& t : r.generalizedTimes) {
            SCOPED_TRACE(t);
            RtTimeFields f;
            char* made = nullptr;
            const char* text = t.c_str();
            ASSERT_EQ(0, rtParseGeneralizedTime(&ctxt, t.c_str(), &f));
            ASSERT_EQ(0, rtMakeGeneralizedTime(&ctxt, &f, &made, 0));
            EXPECT_EQ(t, std::string(made));
            EXPECT_EQ(f.year, ASN1CGeneralizedTime(text, 1).getYear());
            ++generalized;
        }
    }
    rtFreeContext(&ctxt);
    EXPECT_GT(done, 50);
    EXPECT_GT(utc, 50);
    EXPECT_GT(generalized, 0);
    EXPECT_GT(refused, 0) << "the corpus holds a time with non-digits";
    EXPECT_EQ(55u, GetLastError()) << "the runtime never touches the thread's last error";
}

}  // namespace
