// Runtime object identifiers: dotted text both ways, copies, comparison, class forms.
#include "asn1rt/oid.h"
#include "ber_test_util.h"

#include <cstring>
#include <set>

namespace {

// `count` arcs from `arc` up, each `step` above the one before, as arcs and as text.
std::vector<ASN1UINT> counting(size_t count, ASN1UINT arc, ASN1UINT step = 1) {
    std::vector<ASN1UINT> v;
    for (ASN1UINT k = 0; v.size() < count; ++k) v.push_back(arc + k * step);
    return v;
}
std::string dotted(const std::vector<ASN1UINT>& arcs) {
    std::string s;
    for (ASN1UINT a : arcs) s += (s.empty() ? "" : ".") + std::to_string(a);
    return s;
}
ASN1OBJID makeOid(const std::vector<ASN1UINT>& arcs) {
    ASN1OBJID v{};
    for (ASN1UINT a : arcs) v.subid[v.numids++] = a;
    return v;
}
std::vector<ASN1UINT> arcsOf(const ASN1OBJID& v, size_t n = 0) {
    return std::vector<ASN1UINT>(v.subid, v.subid + (n ? n : v.numids < 128 ? v.numids : 128));
}

TEST(RtOidText, TextToArcsAndBack) {
    bertest::LastErrorUntouched platformState;  // failures report by result alone
    const std::vector<ASN1UINT> longest = counting(128, 0xFFFFFFFFu, 0u - 7919u);
    const struct { std::string text; int result; std::vector<ASN1UINT> arcs; } cases[] = {
        {"1.2.840", 1, {1, 2, 840}}, {"1.2.840.113549.1.1.11", 1, {1, 2, 840, 113549, 1, 1, 11}},
        // A trailing dot reads one more arc, empty and so 0.
        {"1.2.", 1, {1, 2, 0}}, {"1..2", 1, {1, 0, 2}}, {"", 1, {0}}, {"7", 1, {7}},
        {"1.x", 0, {1, 0}}, {"1.2 ", 0, {1, 2}}, {"1,2", 0, {1}},
        // The C library's conversion skips white space and takes a sign.
        {" 1. 2", 1, {1, 2}}, {"1.+3", 1, {1, 3}}, {"1.-1", 1, {1, 0xFFFFFFFFu}},
        // Arcs are kept in 32 bits: the largest fits, the next wraps to 0.
        {"1.4294967295", 1, {1, 0xFFFFFFFFu}}, {"1.4294967296", 1, {1, 0}}, {"1.4294967297", 1, {1, 1}},
        {"1.99999999999999999999999", 1, {1, 0xFFFFFFFFu}},
        // 128 arcs fit, the longest text among them too; a 129th is refused, the count staying at 128.
        {dotted(counting(128, 1)), 1, counting(128, 1)}, {dotted(longest), 1, longest},
        {dotted(counting(129, 1)), 0, counting(128, 1)},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text.substr(0, 40));
        ASN1OBJID v;
        memset(&v, 0xAB, sizeof v);
        EXPECT_EQ(c.result, rtStrToOid(c.text.c_str(), &v));
        EXPECT_EQ(c.arcs, arcsOf(v));
        // Back to text with exactly the room it needs; the terminator may go one past.
        std::vector<char> buf(rtOidToStrLen(&v) + 1, '#');
        EXPECT_EQ(1, rtOidToStr(&v, buf.data(), buf.size() - 1));
        EXPECT_EQ(dotted(arcsOf(v)), buf.data());
    }
    ASN1OBJID none{};
    EXPECT_EQ(0, rtStrToOid(nullptr, &none) + rtStrToOid("1.2", nullptr) + (int)rtOidToStrLen(nullptr));

    // Arcs to text by capacity.
    const ASN1OBJID rsa = makeOid({1, 2, 840}), wide = makeOid({4294967295u, 0, 10});
    const struct { ASN1OBJID value; size_t capacity; int result; const char* text; } byCapacity[] = {
        {rsa, 64, 1, "1.2.840"}, {rsa, 7, 1, "1.2.840"}, {rsa, 6, 0, "1.2"}, {rsa, 3, 0, "1.2"}, {rsa, 2, 0, "1"},
        {rsa, 1, 0, "1"}, {rsa, 0, 0, ""}, {makeOid({}), 0, 1, ""}, {makeOid({0}), 1, 1, "0"},
        {wide, 15, 1, "4294967295.0.10"}, {wide, 11, 0, "4294967295"},
    };
    for (const auto& c : byCapacity) {
        SCOPED_TRACE(std::string(c.text) + " capacity " + std::to_string(c.capacity));
        std::vector<char> buf(c.capacity + 8, '#');
        EXPECT_EQ(c.result, rtOidToStr(&c.value, buf.data(), c.capacity));
        EXPECT_STREQ(c.text, buf.data());
        // Nothing is written past the capacity plus the terminator's one place.
        EXPECT_EQ(std::string(7, '#'), std::string(buf.begin() + c.capacity + 1, buf.end()));
        EXPECT_TRUE(c.result == 0 || strlen(c.text) == rtOidToStrLen(&c.value));
    }
    // More arcs than the array holds stop at the array.
    ASN1OBJID v = makeOid(counting(128, 0));
    v.numids = 200;
    std::vector<char> buf(4096, '#');
    EXPECT_EQ(0, rtOidToStr(&v, buf.data(), buf.size()));
    EXPECT_EQ(dotted(counting(128, 0)), buf.data());
}

TEST(RtOidValue, CopiesAndComparison) {
    // rtSetOID: 1 for an empty value, the count up to 128, 129 above; only 128 arcs are copied.
    for (ASN1UINT count : {0u, 1u, 3u, 128u, 129u, 0xFFFFFFFFu}) {
        SCOPED_TRACE(count);
        ASN1OBJID from = makeOid(counting(128, 100)), to;
        from.numids = count;
        memset(&to, 0xEE, sizeof to);
        EXPECT_EQ(count == 0 ? 1 : count > 128 ? 129 : (int)count, rtSetOID(&to, &from));
        EXPECT_EQ(count, to.numids);
        std::vector<ASN1UINT> want = counting(count < 128 ? count : 128, 100);
        want.resize(128, 0xEEEEEEEEu);
        EXPECT_EQ(want, arcsOf(to, 128));
    }
    ASN1OBJID from = makeOid({1, 3, 6, 1, 5, 5, 7}), to;
    memset(&to, 0x11, sizeof to);
    EXPECT_EQ(1, rtCopyOID(nullptr, &from, &to) + rtCopyOID(nullptr, nullptr, &to) + rtCopyOID(nullptr, &from, nullptr));
    EXPECT_EQ((std::vector<ASN1UINT>{1, 3, 6, 1, 5, 5, 7, 0x11111111u}), arcsOf(to, 8));

    // Equal: 1, the result untouched; unequal: 0, and 0 stored. Arcs past the count do not count.
    const ASN1OBJID a = makeOid({1, 2, 840, 113549});
    ASN1OBJID same = a, empty = makeOid({});
    same.subid[10] = 99;
    empty.subid[0] = 7;
    const struct { ASN1OBJID a, b; bool equal; } cases[] = {
        {a, same, true}, {a, makeOid({1, 2, 840}), false}, {a, makeOid({1, 2, 840, 113550}), false},
        {makeOid({}), empty, true},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.equal, c.a == c.b);
        for (auto fn : {rtCmpOID, rtCmpOIDValue}) {
            ASN1OCTET result = 0x55;
            EXPECT_EQ(c.equal ? 1 : 0, fn(nullptr, &c.a, &c.b, &result));  // the context is not used
            EXPECT_EQ(c.equal ? 0x55 : 0, result);
        }
    }

    // The class forms: assignment leaves the slots behind the new count as they were.
    const ASN1UINT arcs[] = {1, 2, 643, 2, 2};
    const ASN1TObjId gost(5, arcs);
    ASN1TObjId target(makeOid({9, 9, 9, 9, 9}));
    target = makeOid({1, 3});
    EXPECT_EQ((std::vector<ASN1UINT>{1, 3, 9, 9, 9}), arcsOf(target, 5));
    EXPECT_EQ(2u + ASN1TObjId().numids, target.numids);
    target = gost;
    EXPECT_TRUE(target == gost && ASN1TObjId(gost) == makeOid({1, 2, 643, 2, 2}));

    const long long arcs64[] = {2, 25, 0x1234567890LL, -1};
    const ASN1TObjId64 v(4, arcs64);
    ASN1TObjId64 copy(v);
    EXPECT_EQ((std::vector<long long>{4, 2, 25, 0x1234567890LL, -1}),
              (std::vector<long long>{copy.numids, copy.subid[0], copy.subid[1], copy.subid[2], copy.subid[3]}));
    const ASN1OID64 plain{1, {5}};
    copy = plain;
    EXPECT_EQ((std::vector<long long>{1, 5, 25, 5}),
              (std::vector<long long>{copy.numids, copy.subid[0], copy.subid[1], ASN1TObjId64(plain).subid[0]}));
}

TEST(RtOidCorpus, IdentifiersOfRealCertificatesRoundTripThroughText) {
    CHAINVET_SKIP_WITHOUT_CORPUS();
    std::set<std::string> seen;
    size_t checked = 0;
    for (const auto& path : testsupport::corpusFiles("cert")) {
        bertest::forEachPrimitive(testsupport::readFile(path), [&](ASN1TAG tag, const uint8_t* data, size_t size) {
            if (tag != ASN_ID_OBJID)
                return;
            // The arcs as the BER reader gives them; values of more than 128 arcs are left out.
            ASN1OBJID v{}, back;
            bertest::Dec d(testsupport::toHex(data, size));
            if (xd_objid(&d.c, &v, 0, (int)size) != 0)
                return;
            std::vector<char> text(rtOidToStrLen(&v) + 1, '#');
            memset(&back, 0x5A, sizeof back);
            ASSERT_EQ(2, rtOidToStr(&v, text.data(), text.size() - 1) + rtStrToOid(text.data(), &back)) << path;
            ASSERT_TRUE(back == v && text.size() - 1 == strlen(text.data())) << path << " " << text.data();
            seen.insert(text.data());
            ++checked;
        });
    }
    ASSERT_GT(checked, 1000u);
    // Identifiers every certificate collection of this size carries.
    for (const char* oid : {"2.5.4.3", "2.5.29.19", "2.5.29.15", "1.2.840.113549.1.1.1", "1.2.840.113549.1.1.11"})
        EXPECT_TRUE(seen.count(oid)) << oid;
}

}  // namespace
