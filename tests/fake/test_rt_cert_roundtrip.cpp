// Certificates decoded through ASN1BERDecodeBuffer into a tree whose constructed elements keep their children
// in ASN1CSeqOfList lists (primitives as open types), written back through ASN1BEREncodeBuffer byte for byte;
// the buffer's element search finds their validity times, which go through the time parsers and classes.
#include "asn1rt/asn1time.h"
#include "asn1rt/ber.h"
#include "asn1rt/seqoflist.h"

#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <string>
#include <vector>

#include "support/testsupport.h"

namespace {

// A primitive element keeps its whole encoding (data, count), a constructed one its children.
struct Node { ASN1TAG tag; bool constructed; const ASN1OCTET* data; ASN1UINT count; ASN1TSeqOfList children; };

class CertTree : public ASN1CType {
public:
    explicit CertTree(ASN1MessageBufferIF& buf) : ASN1CType(buf) {}
    Node* root = nullptr;
    std::vector<std::string> times[2];  // the texts of UTCTime and GeneralizedTime

    int DecodeFrom(ASN1MessageBufferIF& buf) override {
        setMsgBuf(buf);
        buf.init();
        const int st = (root = newNode(buf.getCtxtPtr())) ? decode(buf, buf.getCtxtPtr(), root, 0) : RT_E_NO_MEMORY;
        return st < 0 ? rtErrSetData(&buf.getCtxtPtr()->errInfo, st) : 0;
    }
    int EncodeTo(ASN1MessageBufferIF& buf) override {
        setMsgBuf(buf);
        buf.init();
        const int len = root ? encode(buf.getCtxtPtr(), root) : 0;
        return len < 0 ? rtErrSetData(&buf.getCtxtPtr()->errInfo, len) : len;
    }

private:
    static Node* newNode(ASN1CTXT* ctxt) {
        void* mem = rtMemHeapAllocZ(&ctxt->typeHeap, (int)sizeof(Node));
        return mem ? new (mem) Node() : nullptr;
    }
    int decode(ASN1MessageBufferIF& buf, ASN1CTXT* ctxt, Node* node, int depth) {
        int len = 0, st = xd_tag_len(ctxt, &node->tag, &len, 0);
        if (st == 0 && (node->tag & TM_CONS) && len != RT_INDEFINITE_LENGTH && depth < 40) {
            node->constructed = true;
            if ((st = xd_tag_len(ctxt, &node->tag, &len, RT_MATCH_ADVANCE)) != 0)
                return st;
            const ASN1UINT end = ctxt->bufIndex + (ASN1UINT)len;
            ASN1CSeqOfList list(buf, node->children, 1);
            while (st == 0 && ctxt->bufIndex < end) {
                Node* child = newNode(ctxt);
                if ((st = !child ? RT_E_NO_MEMORY : decode(buf, ctxt, child, depth + 1)) == 0)
                    list.append(child);
            }
            return st ? st : ctxt->bufIndex == end ? 0 : RT_E_BAD_LENGTH;
        }
        if (st != 0 || (st = xd_OpenType(ctxt, &node->data, &node->count)) != 0)
            return st;
        if ((node->tag == ASN_ID_UTCTime || node->tag == ASN_ID_GeneralTime) && node->count > 2)
            times[node->tag == ASN_ID_GeneralTime].emplace_back(node->data + 2, node->data + node->count);
        return 0;
    }
    int encode(ASN1CTXT* ctxt, Node* node) {
        if (!node->constructed)
            return xe_OpenType(ctxt, node->data, node->count);
        int sum = 0, len = 0;
        ASN1CSeqOfList list(*getMsgBuf(), node->children);
        ASN1CSeqOfListIterator* it = list.iteratorFromLast();
        for (void* child = it ? it->prev() : nullptr; child && len >= 0; child = it->prev())
            sum += (len = encode(ctxt, (Node*)child));
        return !it ? RT_E_NO_MEMORY : len < 0 ? len : xe_tag_len(ctxt, node->tag, sum);
    }
};

struct RoundTrip { int status = 0; std::string out; std::vector<std::string> times[2]; };

RoundTrip roundTrip(const std::vector<uint8_t>& der) {
    RoundTrip r;
    ASN1BEREncodeBuffer enc;
    std::unique_ptr<CertTree> tree;
    {
        ASN1BERDecodeBuffer dec(der.data(), (int)der.size());
        tree.reset(new CertTree(dec));
        try {
            dec >> *tree;
        } catch (const ASN1RTLException& e) {
            r.status = e.getStatus();
        }
    }  // the tree outlives its buffer: the context stays with the control
    const int len = r.status ? r.status : tree->EncodeTo(enc);
    r.status = len < 0 ? len : 0;
    r.out = len > 0 ? testsupport::toHex(enc.getMsgPtr(), (size_t)len) : "";
    r.times[0] = tree->times[0], r.times[1] = tree->times[1];
    return r;
}

TEST(CertRoundTrip, HandMadeElements) {
    // SEQUENCE { OID, PrintableString, [0] { BOOLEAN, INTEGER -129 }, BIT STRING, UTCTime, NULL, BMPString }
    const std::string der = "302C060355040313026162A0070101FF0202FF7F030307C080170D3234303232393132333435325A05001E020041";
    RoundTrip r = roundTrip(testsupport::hex(der));
    EXPECT_EQ(0, r.status);
    EXPECT_EQ(der, r.out);
    EXPECT_EQ(std::vector<std::string>{"240229123452Z"}, r.times[0]);
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
            continue;  // malformed, or a text form
        SCOPED_TRACE(path);
        RoundTrip r = roundTrip(der);
        ASSERT_EQ(0, r.status);
        EXPECT_EQ(testsupport::toHex(der.data(), der.size()), r.out);
        EXPECT_GE(r.times[0].size() + r.times[1].size(), 2u) << "notBefore and notAfter";
        ++done;
        // The decode buffer's own search: the outer element spans the file, then notBefore and notAfter are
        // found (past 2049 the latter is a GeneralizedTime).
        ASN1BERDecodeBuffer dec(der.data(), (int)der.size());
        int len = 0;
        ASSERT_EQ(der.data(), dec.findElement(0x20000010u, len, 1));
        EXPECT_EQ(der.size(), size_t((der[1] < 0x80 ? 2 : 2 + (der[1] & 0x7F)) + len));
        const ASN1TAG kind = r.times[0].empty() ? ASN_ID_GeneralTime : ASN_ID_UTCTime;
        const ASN1OCTET *first = dec.findElement(kind, len, 1), *second = dec.findElement(kind, len, 0);
        if (!second && kind == ASN_ID_UTCTime)
            second = dec.findElement(ASN_ID_GeneralTime, len, 1);
        ASSERT_TRUE(first != nullptr && second > first);
        EXPECT_EQ(std::string(first + 2, first + 2 + first[1]), r.times[kind == ASN_ID_GeneralTime][0]);
        // UTCTime: ten or twelve digits, then Z or an offset; a well-formed one lies in 1950..2049 and
        // goes back as GeneralizedTime, the class reading the same fields and rebuilding the text.
        for (const std::string& t : r.times[0]) {
            RtTimeFields f;
            char* made = nullptr;
            const size_t n = t.find_first_not_of("0123456789"), m = t.find_first_not_of("0123456789", n + 1);
            const bool good = (n == 10 || n == 12) && (t.substr(n) == "Z" || (t.size() == n + 5 && t.find_first_of("+-", n) == n && m == std::string::npos));
            rtErrReset(&ctxt.errInfo);
            const int st = rtParseUTCTime(&ctxt, t.c_str(), &f);
            ++(st ? refused : utc);
            EXPECT_EQ(good ? 0 : -31, st) << t;
            if (st != 0)
                continue;
            const char* text = t.c_str();
            ASN1CUTCTime c(text, f.utc);
            ASSERT_EQ(0, rtMakeGeneralizedTime(&ctxt, &f, &made, 0));
            EXPECT_TRUE(f.year >= 1950 && f.year <= 2049 && (t.size() != 13 || (f.year < 2000 ? "19" : "20") + t == made)) << t;
            EXPECT_EQ((std::vector<int>{f.year, f.second, f.diffHour * 60 + f.diffMin, 0}),
                      (std::vector<int>{c.getYear(), c.getSecond(), c.getDiff(), c.setMonth(f.month)}));
            EXPECT_TRUE((t.size() != 13 && t.size() != 17) || t == text) << t;
        }
        // GeneralizedTime (2050 on) goes through the fields and back unchanged.
        for (const std::string& t : r.times[1]) {
            RtTimeFields f;
            char* made = nullptr;
            const char* text = t.c_str();
            ASSERT_EQ(0, rtParseGeneralizedTime(&ctxt, t.c_str(), &f)) << t;
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
