// Object identifiers of the runtime: dotted text in and out, copies, comparison and the
// class forms.
#include "asn1rt/charstr.h"
#include "asn1rt/oid.h"
#include "rt_der_walk.h"
#include "support/testsupport.h"

#include <cstring>
#include <set>
#include <string>
#include <vector>

namespace {

ASN1OBJID makeOid(std::initializer_list<ASN1UINT> arcs) {
    ASN1OBJID v{};
    for (ASN1UINT a : arcs)
        v.subid[v.numids++] = a;
    return v;
}

std::vector<ASN1UINT> arcsOf(const ASN1OBJID& v) {
    return std::vector<ASN1UINT>(v.subid, v.subid + (v.numids < 128 ? v.numids : 128));
}

std::string dotted(size_t count, ASN1UINT arc) {
    std::string s;
    for (size_t i = 0; i < count; ++i)
        s += (i ? "." : "") + std::to_string(arc + i);
    return s;
}

struct StrToOidCase {
    const char* text;
    int result;
    std::vector<ASN1UINT> arcs;
};

TEST(RtStrToOid, TextToArcsTable) {
    const StrToOidCase cases[] = {
        {"1.2.840", 1, {1, 2, 840}},
        {"1.2.840.113549.1.1.11", 1, {1, 2, 840, 113549, 1, 1, 11}},
        {"2.5.29.19", 1, {2, 5, 29, 19}},
        // A trailing dot reads one more arc, empty and so 0.
        {"1.2.", 1, {1, 2, 0}},
        {"1..2", 1, {1, 0, 2}},
        {"1.x", 0, {1, 0}},
        {"1.2 ", 0, {1, 2}},
        {"1,2", 0, {1}},
        {"", 1, {0}},
        {"7", 1, {7}},
        // The C library's conversion skips white space and takes a sign.
        {" 1. 2", 1, {1, 2}},
        {"1.+3", 1, {1, 3}},
        {"1.-1", 1, {1, 0xFFFFFFFFu}},
        // Arcs are kept in 32 bits: the largest fits, the next wraps to 0.
        {"1.4294967295", 1, {1, 0xFFFFFFFFu}},
        {"1.4294967296", 1, {1, 0}},
        {"1.4294967297", 1, {1, 1}},
        {"1.99999999999999999999999", 1, {1, 0xFFFFFFFFu}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        ASN1OBJID v;
        memset(&v, 0xAB, sizeof v);
        EXPECT_EQ(c.result, rtStrToOid(c.text, &v));
        EXPECT_EQ(c.arcs, arcsOf(v));
    }
}

TEST(RtStrToOid, OneHundredTwentyEightArcsFitTheNextDoesNot) {
    ASN1OBJID v{};
    EXPECT_EQ(1, rtStrToOid(dotted(128, 1).c_str(), &v));
    ASSERT_EQ(128u, v.numids);
    EXPECT_EQ(128u, v.subid[127]);

    EXPECT_EQ(0, rtStrToOid(dotted(129, 1).c_str(), &v));
    EXPECT_EQ(128u, v.numids);
    EXPECT_EQ(128u, v.subid[127]);
}

// The runtime stands on the C library alone: its failures never reach the thread's last
// error of the platform layer.
TEST(RtStrToOid, FailuresLeaveTheLastErrorAlone) {
    SetLastError(1234);
    ASN1OBJID v{};
    EXPECT_EQ(0, rtStrToOid("1.x", &v));
    char buf[2];
    EXPECT_EQ(0, rtOidToStr(&v, buf, 1));
    EXPECT_EQ(1234u, GetLastError());
}

TEST(RtStrToOid, NullArgumentsFail) {
    ASN1OBJID v{};
    EXPECT_EQ(0, rtStrToOid(nullptr, &v));
    EXPECT_EQ(0, rtStrToOid("1.2", nullptr));
}

struct OidToStrCase {
    ASN1OBJID value;
    size_t capacity;
    int result;
    const char* text;
};

TEST(RtOidToStr, CapacityTable) {
    const ASN1OBJID rsa = makeOid({1, 2, 840});
    const OidToStrCase cases[] = {
        {rsa, 64, 1, "1.2.840"},
        {rsa, 7, 1, "1.2.840"},  // exactly the characters; the terminator goes one past
        {rsa, 6, 0, "1.2"},
        {rsa, 3, 0, "1.2"},
        {rsa, 2, 0, "1"},
        {rsa, 1, 0, "1"},
        {rsa, 0, 0, ""},
        {makeOid({}), 0, 1, ""},
        {makeOid({0}), 1, 1, "0"},
        {makeOid({4294967295u, 0}), 12, 1, "4294967295.0"},
        {makeOid({4294967295u, 0}), 11, 0, "4294967295"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.text) + " capacity " + std::to_string(c.capacity));
        std::vector<char> buf(c.capacity + 8, '#');
        EXPECT_EQ(c.result, rtOidToStr(&c.value, buf.data(), c.capacity));
        EXPECT_STREQ(c.text, buf.data());
        // Nothing is written past the capacity plus the terminator's one place.
        for (size_t i = c.capacity + 1; i < buf.size(); ++i)
            EXPECT_EQ('#', buf[i]) << "at " << i;
    }
}

TEST(RtOidToStr, MoreArcsThanTheArrayStopAtTheArray) {
    ASN1OBJID v{};
    ASSERT_EQ(1, rtStrToOid(dotted(128, 0).c_str(), &v));
    v.numids = 200;
    std::vector<char> buf(4096, '#');
    EXPECT_EQ(0, rtOidToStr(&v, buf.data(), buf.size()));
    EXPECT_EQ(dotted(128, 0), std::string(buf.data()));
}

TEST(RtOidToStrLen, CountsDigitsAndDots) {
    const ASN1OBJID rsa = makeOid({1, 2, 840});
    EXPECT_EQ(7u, rtOidToStrLen(&rsa));
    const ASN1OBJID empty = makeOid({});
    EXPECT_EQ(0u, rtOidToStrLen(&empty));
    const ASN1OBJID zero = makeOid({0});
    EXPECT_EQ(1u, rtOidToStrLen(&zero));
    const ASN1OBJID wide = makeOid({4294967295u, 0, 10});
    EXPECT_EQ(15u, rtOidToStrLen(&wide));
    EXPECT_EQ(0u, rtOidToStrLen(nullptr));
}

TEST(RtOidText, RoundTripOfTheLongestValue) {
    ASN1OBJID v{};
    for (ASN1UINT i = 0; i < 128; ++i)
        v.subid[i] = 0xFFFFFFFFu - i * 7919u;
    v.numids = 128;
    const size_t len = rtOidToStrLen(&v);
    std::vector<char> buf(len + 1);
    ASSERT_EQ(1, rtOidToStr(&v, buf.data(), len));
    EXPECT_EQ(len, strlen(buf.data()));
    ASN1OBJID back{};
    ASSERT_EQ(1, rtStrToOid(buf.data(), &back));
    EXPECT_TRUE(back == v);
}

TEST(RtSetOID, ReturnsOneForEmptyCountUpTo128And129Above) {
    struct Case {
        ASN1UINT count;
        int result;
    } cases[] = {{0, 1}, {1, 1}, {3, 3}, {128, 128}, {129, 129}, {0xFFFFFFFFu, 129}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.count);
        ASN1OBJID from{};
        for (ASN1UINT i = 0; i < 128; ++i)
            from.subid[i] = i + 100;
        from.numids = c.count;
        ASN1OBJID to;
        memset(&to, 0xEE, sizeof to);
        EXPECT_EQ(c.result, rtSetOID(&to, &from));
        EXPECT_EQ(c.count, to.numids);
        const ASN1UINT copied = c.count < 128 ? c.count : 128;
        for (ASN1UINT i = 0; i < 128; ++i)
            EXPECT_EQ(i < copied ? i + 100 : 0xEEEEEEEEu, to.subid[i]) << i;
    }
}

TEST(RtCmpOID, EqualLeavesTheResultUnequalStoresZero) {
    ASN1CTXT* noContext = nullptr;  // the context is not used
    ASN1OBJID a = makeOid({1, 2, 840, 113549});
    ASN1OBJID b = makeOid({1, 2, 840, 113549});
    b.subid[10] = 99;  // beyond the count: not compared
    for (auto fn : {rtCmpOID, rtCmpOIDValue}) {
        ASN1OCTET result = 0x55;
        EXPECT_EQ(1, fn(noContext, &a, &b, &result));
        EXPECT_EQ(0x55, result);

        ASN1OBJID shorter = makeOid({1, 2, 840});
        result = 0x55;
        EXPECT_EQ(0, fn(noContext, &a, &shorter, &result));
        EXPECT_EQ(0, result);

        ASN1OBJID other = makeOid({1, 2, 840, 113550});
        result = 0x55;
        EXPECT_EQ(0, fn(noContext, &a, &other, &result));
        EXPECT_EQ(0, result);

        ASN1OBJID e1 = makeOid({}), e2 = makeOid({});
        e2.subid[0] = 7;
        result = 0x55;
        EXPECT_EQ(1, fn(noContext, &e1, &e2, &result));
        EXPECT_EQ(0x55, result);
    }
}

TEST(RtOidEquality, CountAndArcsDecide) {
    ASN1OBJID a = makeOid({2, 5, 4, 3});
    ASN1OBJID b = makeOid({2, 5, 4, 3});
    b.subid[5] = 1;
    EXPECT_TRUE(a == b);
    EXPECT_FALSE(a == makeOid({2, 5, 4}));
    EXPECT_FALSE(a == makeOid({2, 5, 4, 4}));
    EXPECT_TRUE(makeOid({}) == makeOid({}));
}

TEST(ASN1TObjId, ConstructorsAndAssignmentCopyOnlyTheCountedArcs) {
    const ASN1UINT arcs[] = {1, 2, 643, 2, 2};
    ASN1TObjId gost(5, arcs);
    EXPECT_EQ(5u, gost.numids);
    EXPECT_EQ((std::vector<ASN1UINT>{1, 2, 643, 2, 2}), arcsOf(gost));

    ASN1TObjId copy(gost);
    EXPECT_TRUE(copy == gost);
    ASN1TObjId fromPlain(makeOid({2, 5, 29, 15}));
    EXPECT_TRUE(fromPlain == makeOid({2, 5, 29, 15}));

    // Assignment leaves the slots behind the new count as they were.
    ASN1TObjId target(makeOid({9, 9, 9, 9, 9}));
    target = makeOid({1, 3});
    EXPECT_EQ(2u, target.numids);
    EXPECT_EQ(9u, target.subid[2]);
    EXPECT_EQ(9u, target.subid[4]);
    target = gost;
    EXPECT_TRUE(target == gost);

    ASN1TObjId empty;
    EXPECT_EQ(0u, empty.numids);
}

TEST(ASN1TObjId64, HoldsArcsBeyond32Bits) {
    const long long arcs[] = {2, 25, 0x1234567890LL, -1};
    ASN1TObjId64 v(4, arcs);
    EXPECT_EQ(4u, v.numids);
    EXPECT_EQ(0x1234567890LL, v.subid[2]);
    EXPECT_EQ(-1LL, v.subid[3]);
    ASN1TObjId64 copy(v);
    EXPECT_EQ(0x1234567890LL, copy.subid[2]);
    ASN1OID64 plain{};
    plain.numids = 1;
    plain.subid[0] = 5;
    copy = plain;
    EXPECT_EQ(1u, copy.numids);
    EXPECT_EQ(5, copy.subid[0]);
    EXPECT_EQ(25, copy.subid[1]);  // untouched behind the count
    ASN1TObjId64 fromPlain(plain);
    EXPECT_EQ(5, fromPlain.subid[0]);
}

TEST(RtCopyOID, CopiesCountAndArcsWithoutTheHeap) {
    ASN1OBJID from = makeOid({1, 3, 6, 1, 5, 5, 7});
    ASN1OBJID to;
    memset(&to, 0x11, sizeof to);
    EXPECT_EQ(1, rtCopyOID(nullptr, &from, &to));
    EXPECT_TRUE(to == from);
    EXPECT_EQ(0x11111111u, to.subid[7]);
    EXPECT_EQ(0, rtCopyOID(nullptr, nullptr, &to));
    EXPECT_EQ(0, rtCopyOID(nullptr, &from, nullptr));
}

// Arcs of the contents of a DER OBJECT IDENTIFIER, decoded here independently of the
// runtime; false for what does not fit 32-bit arcs.
bool decodeArcs(const uint8_t* p, size_t n, std::vector<ASN1UINT>& arcs) {
    arcs.clear();
    unsigned long long v = 0;
    for (size_t i = 0; i < n; ++i) {
        v = (v << 7) | (p[i] & 0x7f);
        if (v > 0xFFFFFFFFull + 80)
            return false;
        if (p[i] & 0x80)
            continue;
        if (arcs.empty()) {
            arcs.push_back(v < 80 ? static_cast<ASN1UINT>(v / 40) : 2);
            unsigned long long second = v < 80 ? v % 40 : v - 80;
            if (second > 0xFFFFFFFFull)
                return false;
            arcs.push_back(static_cast<ASN1UINT>(second));
        } else {
            if (v > 0xFFFFFFFFull)
                return false;
            arcs.push_back(static_cast<ASN1UINT>(v));
        }
        v = 0;
    }
    return n > 0 && !(p[n - 1] & 0x80) && arcs.size() <= 128;
}

TEST(RtOidCorpus, IdentifiersOfRealCertificatesRoundTripThroughText) {
    CHAINVET_SKIP_WITHOUT_CORPUS();
    std::set<std::string> seen;
    size_t checked = 0;
    for (const auto& path : testsupport::corpusFiles("cert")) {
        const auto der = testsupport::readFile(path);
        rtwalk::walk(der, [&](const rtwalk::Element& e) {
            std::vector<ASN1UINT> arcs;
            if (e.tagOctet != 0x06 || !decodeArcs(e.data, e.size, arcs))
                return;
            ASN1OBJID v{};
            for (ASN1UINT a : arcs)
                v.subid[v.numids++] = a;
            const size_t len = rtOidToStrLen(&v);
            std::vector<char> text(len + 1, '#');
            ASSERT_EQ(1, rtOidToStr(&v, text.data(), len)) << path;
            ASSERT_EQ(len, strlen(text.data())) << path;
            ASN1OBJID back;
            memset(&back, 0x5A, sizeof back);
            ASSERT_EQ(1, rtStrToOid(text.data(), &back)) << path << " " << text.data();
            ASSERT_TRUE(back == v) << path << " " << text.data();
            seen.insert(text.data());
            ++checked;
        });
    }
    ASSERT_GT(checked, 1000u);
    // Identifiers every certificate collection of this size carries.
    for (const char* oid : {"2.5.4.3", "2.5.29.19", "2.5.29.15", "1.2.840.113549.1.1.1",
                            "1.2.840.113549.1.1.11"})
        EXPECT_TRUE(seen.count(oid)) << oid;
}

}  // namespace
