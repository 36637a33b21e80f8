// ASN1CBitStr: storage, growth and limits, ranges, bitwise operations and shifts.
#include "asn1rt/bitstr.h"
#include "rt_alloc_counter.h"
#include "support/testsupport.h"

using namespace rttest;
using testsupport::toHex;
using Strs = std::vector<std::string>;  // braced: the calls run left to right

namespace {

// A call's result, then the used octets, the bit count and length(): "0 3FC0 10 10".
std::string after(int result, const ASN1CBitStr& b)
{
    return std::to_string(result) + " " + toHex(b.data(), b.size()) + " " + std::to_string(b.getNumBits()) + " " +
           std::to_string(b.length());
}

struct BitStrTest : ::testing::Test {
    ASN1BEREncodeBuffer buf;
};

TEST_F(BitStrTest, GrowthLimitsRangesValuesBitwiseAndShifts)
{
    ASN1CBitStr b(buf, 0u);  // may grow: room for the bit's octet plus 1024
    EXPECT_EQ(make_tuple(b.getMaxNumBits(), b.getUnitsAllocated()), make_tuple(0xFFFFFFFFu, 0));
    EXPECT_EQ(after(b.set(5), b), "0 04 6 6");
    // Trailing zero octets leave units used; a clear beyond them has no effect.
    EXPECT_EQ((Ints{b.getUnitsAllocated(), b.clear(5), b.size(), b.set(1), b.set(8 * 1100), b.size(),
                    b.getUnitsAllocated(), b.get(1), b.cardinality(), b.clear(8 * 1100), b.unusedBitsInLastUnit()}),
              (Ints{1025, 0, 0, 0, 0, 1101, 2125, 1, 2, 0, 6}));
    EXPECT_EQ((Strs{after(b.clear(100), b), after(b.clear(), b), std::to_string(b.unusedBitsInLastUnit())}),
              (Strs{"0 40 2 2", "0  0 0", "0"}));
    ASN1CBitStr lim(buf, 8u);  // a limit: one octet; bit 8 passes the limit, its octet does not fit
    EXPECT_EQ((Ints{lim.getUnitsAllocated(), lim.set(8), buf.getStatus(), lim.set(9)}), (Ints{1, -5, -5, -29}));
    EXPECT_EQ((Strs{after(lim.set(7), lim), std::to_string(lim.unusedBitsInLastUnit()), std::to_string(lim.get(9))}),
              (Strs{"0 01 8 8", "0", "0"})) << "above the limit reads clear";
    ASN1CBitStr rg(buf, 0u), lim12(buf, 12u), g(buf, 0u);  // ranges; the set family raises the count to its end
    EXPECT_EQ(after(rg.set(2, 10), rg), "0 3FC0 10 10");
    EXPECT_EQ((Ints{rg.cardinality(), rg.set(5, 4), rg.clear(9, 3), rg.set(20, 20), int(rg.getNumBits()), rg.size()}),
              (Ints{8, -24, -24, 0, 20, 3}));
    EXPECT_EQ((Strs{after(rg.clear(3, 9), rg), after(rg.invert(0, 4), rg), after(rg.invert(9), rg)}),
              (Strs{"0 2040 10 10", "0 D040 10 10", "0 D0 4 4"}));
    EXPECT_EQ((Strs{after(lim12.set(0, 13), lim12), after(lim12.set(0, 12), lim12)}), (Strs{"-29  0 0", "0 FFF0 12 12"}));
    ASSERT_EQ(g.set(0) + g.set(3) + g.set(9), 0);
    ASN1OCTET dest[4] = {0xEE, 0xEE, 0xEE, 0xEE}, d2[4] = {0xEE, 0xEE, 0xEE, 0xEE}, d3[4];
    EXPECT_EQ(make_tuple(g.get(0, 9, dest, 1), g.get(3, 40, dest, 4), g.get(5, 4, dest, 4)), make_tuple(-17, -17, -24));
    // Packed from the top, cut at the string's end; getBytes zero-fills the rest.
    EXPECT_EQ(make_tuple(g.get(0, 8, dest, 1), g.getBytes(d2, 4), g.get(3, 35, d3, 4), g.getBytes(dest + 1, 1)),
              make_tuple(0, 0, 0, -5));
    EXPECT_EQ(toHex(dest, 1) + " " + toHex(d2, 4) + " " + toHex(d3, 4), "90 90400000 82000000");
    ASN1OCTET data[4] = {0xFF, 0xFF, 0xAA, 0xAA}, more[3] = {0x80, 0x55, 0x55};  // caller's octets, values and copies
    ASN1UINT count = 20, n = 3;
    ASN1CBitStr callers(buf, data, count, 12);  // the count clamped, bits past it cleared, nothing beyond
    EXPECT_EQ(make_tuple(count, callers.size(), callers.getUnitsAllocated(), toHex(data, 4)), make_tuple(12u, 2, 2, "FFF0AAAA"));
    EXPECT_EQ(callers.clear(0), 0);
    EXPECT_EQ(make_tuple(data[0], count, callers.set(13)), make_tuple(0x7F, 12u, -29)) << "works on the caller's octets";
    ASN1CBitStr tail(buf, more, n, 24);
    EXPECT_EQ(make_tuple(tail.getUnitsAllocated(), toHex(more, 3)), make_tuple(3, "800000")) << "octets behind zeroed";
    ASN1CBitStr rebound(buf);  // init(pointer, count, limit) multiplies both by 8, as written
    EXPECT_EQ(make_tuple(rebound.getMaxNumBits(), rebound.set(0)), make_tuple(0u, -5)) << "no storage and a limit of 0";
    ASN1UINT two = 2;
    rebound.init(data, two, 16);
    EXPECT_EQ(make_tuple(rebound.size(), rebound.getUnitsAllocated(), rebound.getMaxNumBits()), make_tuple(16, 128, 16u));

    ASN1Context* ctxt = new ASN1Context;
    ctxt->_ref();
    ASN1OCTET* heap = (ASN1OCTET*)rtMemHeapAlloc(&ctxt->GetPtr()->typeHeap, 2);
    heap[0] = heap[1] = 0xFF;
    ASN1TDynBitStr value{16, heap}, empty{0, nullptr};
    {
        ASN1CBitStr v(*ctxt, value);  // may grow; the lowest bit of the last octet goes
        EXPECT_EQ(make_tuple(v.getMaxNumBits(), v.size(), heap[1]), make_tuple(0xFFFFFFFFu, 2, 0xFE));
        ASSERT_EQ(v.set(40), 0);  // the value follows the new storage
        EXPECT_EQ(make_tuple(value.data != heap, value.numbits, toHex(value.data, 6)), make_tuple(true, 41u, "FFFE00000080"));
        ASN1TDynBitStr view = v;
        ASN1TDynBitStr* copy = v;
        ASSERT_NE(copy, nullptr);
        EXPECT_EQ(make_tuple(view.numbits, view.data, copy->numbits, copy->data != value.data, toHex(copy->data, 6)),
                  make_tuple(41u, value.data, 41u, true, "FFFE00000080"));
        ASN1CBitStr sized(*ctxt, 16u);  // a limit over the context's heap, as over a buffer's
        EXPECT_EQ((Strs{after(sized.set(15), sized), std::to_string(sized.set(17))}), (Strs{"0 0001 16 16", "-29"}));
    }
    ctxt->_unref();
    ASN1CBitStr e(buf, empty);
    EXPECT_EQ((Ints{e.size(), e.set(3), int(empty.numbits), empty.data[0]}), (Ints{0, 0, 4, 0x10}));

    ASN1CBitStr a(buf, 16u);
    ASSERT_EQ(a.set(3), 0);
    ASN1CBitStr same(a);  // its own storage of the same size and limit
    EXPECT_EQ(make_tuple(same.getUnitsAllocated(), same.getMaxNumBits(), after(0, same), a.data() != same.data(),
                         same.set(16)), make_tuple(2, 16u, "0 10 4 4", true, -5));
    ASN1CBitStr ext(a, 1);  // extendable: 1024 more and no limit
    EXPECT_EQ(make_tuple(ext.getUnitsAllocated(), ext.getMaxNumBits(), ext.set(100), a.get(100)),
              make_tuple(1025, 0xFFFFFFFFu, 0, false));
    ASN1CBitStr own;  // a context of its own
    ASN1OCTET one[1] = {0};
    ASN1UINT none = 0;
    ASN1CBitStr o(one, none, 8);
    EXPECT_EQ(make_tuple(own.getCtxtPtr() != nullptr, o.set(2), none, one[0]), make_tuple(true, 0, 3u, 0x20));
    rtErrReset(&buf.getCtxtPtr()->errInfo);  // bitwise operations
    ASN1CBitStr ops(buf, 0u), opsLim(buf, 12u);
    ASSERT_EQ(ops.set(0, 16), 0);
    const ASN1OCTET mask[] = {0x3C}, high[] = {0x80, 0xFF}, ones[] = {0xFF}, wide[] = {0xFF, 0xFF, 0xFF};
    EXPECT_EQ(after(ops.doAnd(mask, 8), ops), "0 3C 6 6");
    EXPECT_EQ((Ints{ops.doAnd(nullptr, 8), ops.doAnd(ops.data(), 8), buf.getStatus()}), (Ints{-30, -30, -30}));
    // Operand bits past its count do not count; setting all of a string with no limit is refused.
    EXPECT_EQ((Strs{after(ops.doOr(high, 9), ops), after(ops.doOr(high, 0), ops), after(ops.doXor(high, 16), ops),
                    after(ops.doXor(high, 0), ops), after(ops.doAndNot(high, 16), ops), after(ops.doAndNot(high, 0), ops),
                    after(ops.doXor(ops.data(), 8), ops), after(ops.doAnd(mask, 0), ops)}),
              (Strs{"0 BC80 9 9", "-30 BC80 9 9", "0 3C7F 16 16", "0 3C7F 16 16", "0 3C 6 6", "0 3C 6 6", "0  0 0",
                    "0  0 0"}));
    ASSERT_EQ(ops.set(0, 16), 0);  // AND takes whole octets of the operand as they stand; AND NOT clears only counted bits
    EXPECT_EQ((Strs{after(ops.doAnd(ones, 4), ops), after(ops.doAndNot(ones, 4), ops), after(ops.doOr(ones, 2), ops)}),
              (Strs{"0 FF 8 8", "0 0F 8 8", "0 CF 8 8"}));
    // With a limit, OR of nothing sets every bit up to it, and the operands are limited to it.
    EXPECT_EQ((Strs{after(opsLim.doOr(high, 0), opsLim), after(opsLim.clear(), opsLim), after(opsLim.doOr(wide, 24), opsLim),
                    after(opsLim.doXor(wide, 24), opsLim)}),
              (Strs{"0 FFF0 12 12", "0  0 0", "0 FFF0 12 12", "0  0 0"}));
    ASN1CBitStr sh(buf, 0u), shLim(buf, 8u);  // shifts
    EXPECT_EQ(sh.shiftLeft(3) + sh.shiftRight(3), 0) << "empty";
    ASSERT_EQ(sh.set(1) + sh.set(3) + shLim.set(1) + shLim.set(3), 0);  // 0x50
    // A growing string loses nothing to the right; bits pushed past the start are lost.
    EXPECT_EQ((Strs{after(sh.shiftRight(2), sh), after(sh.shiftRight(5), sh), after(sh.shiftLeft(7), sh),
                    after(sh.shiftLeft(1), sh), after(sh.shiftLeft(1), sh), after(sh.shiftLeft(10), sh)}),
              (Strs{"0 14 6 6", "0 00A0 11 11", "0 50 4 4", "0 A0 3 3", "0 40 2 2", "0  0 0"}));
    // With a limit, bits past the old top are lost, and a shift of the length or more clears all.
    EXPECT_EQ((Strs{after(shLim.shiftRight(2), shLim), after(shLim.shiftRight(4), shLim)}), (Strs{"0 10 4 4", "0  0 0"}));
}

static_assert(sizeof(ASN1CBitStr) == (sizeof(void*) == 8 ? 80 : 44),
              "ASN1CType, own count, own data, data location, limit, count location, units used, units allocated, "
              "dynamic flag");

}  // namespace
