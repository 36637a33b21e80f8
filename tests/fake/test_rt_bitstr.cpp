// ASN1CBitStr: storage by constructor, growth and limits, the count that follows the
// highest set bit, ranges, bitwise operations and shifts.
#include "asn1rt/bitstr.h"

#include <gtest/gtest.h>

#include <string.h>

#include <string>

namespace {

std::string bytesHex(const ASN1OCTET* p, int n) {
    static const char* digits = "0123456789ABCDEF";
    std::string s;
    for (int i = 0; i < n; ++i) {
        s += digits[p[i] >> 4];
        s += digits[p[i] & 15];
    }
    return s;
}

std::string contents(const ASN1CBitStr& b) { return bytesHex(b.data(), b.size()); }

class BitStrTest : public ::testing::Test {
protected:
    ASN1BEREncodeBuffer buf;
    int status() const { return buf.getStatus(); }
};

TEST_F(BitStrTest, GrowingStringAllocatesWithSpare) {
    ASN1CBitStr b(buf, 0u);
    EXPECT_EQ(0xFFFFFFFFu, b.getMaxNumBits());
    EXPECT_EQ(0, b.getUnitsAllocated());
    ASSERT_EQ(0, b.set(5));
    EXPECT_EQ(6, b.length());
    EXPECT_EQ(1, b.size());
    EXPECT_EQ(1025, b.getUnitsAllocated());
    EXPECT_EQ(6u, b.getNumBits());
    EXPECT_EQ("04", contents(b));
    ASSERT_EQ(0, b.set(8 * 1100));
    EXPECT_EQ(1101, b.size());
    EXPECT_EQ(1101 + 1024, b.getUnitsAllocated());
    EXPECT_TRUE(b.get(5)) << "growth keeps the bits";
    EXPECT_EQ(2, b.cardinality());
}

TEST_F(BitStrTest, LimitedStringRefusesToGrow) {
    ASN1CBitStr b(buf, 8u);
    EXPECT_EQ(1, b.getUnitsAllocated());
    EXPECT_EQ(-5, b.set(8)) << "the limit lets bit 8 pass; its octet does not fit";
    EXPECT_EQ(-5, status());
    EXPECT_EQ(-29, b.set(9));
    EXPECT_EQ(0, b.set(7));
    EXPECT_EQ("01", contents(b));
    EXPECT_EQ(8, b.length());
    EXPECT_EQ(0, b.unusedBitsInLastUnit());
    EXPECT_FALSE(b.get(9)) << "above the limit reads as clear";
}

TEST_F(BitStrTest, CountFollowsTheHighestSetBit) {
    ASN1CBitStr b(buf, 0u);
    ASSERT_EQ(0, b.set(5));
    EXPECT_EQ(0, b.clear(5));
    EXPECT_EQ(0, b.length());
    EXPECT_EQ(0, b.size());
    EXPECT_EQ(0u, b.getNumBits());

    ASSERT_EQ(0, b.set(1));
    ASSERT_EQ(0, b.set(17));
    EXPECT_EQ(3, b.size());
    EXPECT_EQ(0, b.clear(17));
    EXPECT_EQ(1, b.size()) << "trailing zero octets leave units used";
    EXPECT_EQ(2u, b.getNumBits());
    EXPECT_EQ(6, b.unusedBitsInLastUnit());
    EXPECT_EQ(0, b.clear(100)) << "beyond units used: no effect";
    EXPECT_EQ(0, b.clear());
    EXPECT_EQ(0, b.size());
    EXPECT_EQ(0, b.unusedBitsInLastUnit());
}

TEST_F(BitStrTest, SetRangeRaisesTheCountToItsEnd) {
    ASN1CBitStr b(buf, 0u);
    ASSERT_EQ(0, b.set(2, 10));
    EXPECT_EQ("3FC0", contents(b));
    EXPECT_EQ(10u, b.getNumBits());
    EXPECT_EQ(8, b.cardinality());
    EXPECT_EQ(-24, b.set(5, 4));
    EXPECT_EQ(-24, status());
    ASSERT_EQ(0, b.set(20, 20));
    EXPECT_EQ(20u, b.getNumBits()) << "the set family raises the count even with nothing set";
    EXPECT_EQ(3, b.size()) << "and makes room up to it";

    EXPECT_EQ(0, b.clear(3, 9));
    EXPECT_EQ("2040", contents(b));
    EXPECT_EQ(-24, b.clear(9, 3));
    EXPECT_EQ(0, b.invert(0, 4));
    EXPECT_EQ("D040", contents(b));
    EXPECT_EQ(0, b.invert(9));
    EXPECT_EQ("D0", contents(b));
    EXPECT_EQ(4u, b.getNumBits());

    ASN1CBitStr lim(buf, 12u);
    EXPECT_EQ(-29, lim.set(0, 13));
    EXPECT_EQ(0, lim.set(0, 12));
    EXPECT_EQ("FFF0", contents(lim));
}

TEST_F(BitStrTest, GetRangeAndBytes) {
    ASN1CBitStr b(buf, 0u);
    ASSERT_EQ(0, b.set(0));
    ASSERT_EQ(0, b.set(3));
    ASSERT_EQ(0, b.set(9));
    ASN1OCTET dest[4];
    memset(dest, 0xEE, sizeof dest);
    EXPECT_EQ(0, b.get(0, 8, dest, 1));
    EXPECT_EQ("90", bytesHex(dest, 1));
    EXPECT_EQ(-17, b.get(0, 9, dest, 1));
    EXPECT_EQ(-17, b.get(3, 40, dest, 4));
    EXPECT_EQ(0, b.get(3, 35, dest, 4));
    EXPECT_EQ("82000000", bytesHex(dest, 4)) << "packed from the top, cut at the string's end";
    EXPECT_EQ(-24, b.get(5, 4, dest, 4));

    ASN1OCTET out[4];
    memset(out, 0xEE, sizeof out);
    EXPECT_EQ(0, b.getBytes(out, 4));
    EXPECT_EQ("90400000", bytesHex(out, 4)) << "the rest is zero-filled";
    EXPECT_EQ(-5, b.getBytes(out, 1));
}

TEST_F(BitStrTest, CallersOctets) {
    ASN1OCTET data[4] = {0xFF, 0xFF, 0xAA, 0xAA};
    ASN1UINT count = 20;
    ASN1CBitStr b(buf, data, count, 12);
    EXPECT_EQ(12u, count) << "clamped to the limit";
    EXPECT_EQ(2, b.size());
    EXPECT_EQ(2, b.getUnitsAllocated());
    EXPECT_EQ("FFF0AAAA", bytesHex(data, 4)) << "bits past the count cleared, nothing beyond";
    EXPECT_EQ(0, b.clear(0));
    EXPECT_EQ(0x7F, data[0]) << "works on the caller's octets";
    EXPECT_EQ(12u, count);
    EXPECT_EQ(-29, b.set(13));

    ASN1OCTET more[3] = {0x80, 0x55, 0x55};
    ASN1UINT n = 3;
    ASN1CBitStr c(buf, more, n, 24);
    EXPECT_EQ(3, c.getUnitsAllocated());
    EXPECT_EQ("800000", bytesHex(more, 3)) << "octets behind the count are zeroed";
}

TEST_F(BitStrTest, InitMultipliesByEight) {
    ASN1OCTET data[2] = {0x80, 0x00};
    ASN1UINT count = 2;
    ASN1CBitStr b(buf);
    EXPECT_EQ(0u, b.getMaxNumBits());
    EXPECT_EQ(-5, b.set(0)) << "no storage and a limit of 0";
    b.init(data, count, 16);
    EXPECT_EQ(16, b.size()) << "count times 8";
    EXPECT_EQ(128, b.getUnitsAllocated()) << "limit times 8";
    EXPECT_EQ(16u, b.getMaxNumBits());
}

TEST_F(BitStrTest, ValueBinding) {
    ASN1Context* ctxt = new ASN1Context;
    ctxt->_ref();
    ASN1OCTET* heap = (ASN1OCTET*)rtMemHeapAlloc(&ctxt->GetPtr()->typeHeap, 2);
    heap[0] = 0xFF;
    heap[1] = 0xFF;
    ASN1TDynBitStr value;
    value.numbits = 16;
    value.data = heap;
    {
        ASN1CBitStr b(*ctxt, value);
        EXPECT_EQ(0xFFFFFFFFu, b.getMaxNumBits());
        EXPECT_EQ(2, b.size());
        EXPECT_EQ(0xFE, heap[1]) << "the lowest bit of the last octet goes";
        ASSERT_EQ(0, b.set(40));
        EXPECT_NE((const ASN1OCTET*)heap, value.data) << "the value follows the new storage";
        EXPECT_EQ(41u, value.numbits);
        EXPECT_EQ(0xFF, value.data[0]);
        EXPECT_EQ(0x80, value.data[5]);
        ASN1TDynBitStr view = b;
        EXPECT_EQ(41u, view.numbits);
        EXPECT_EQ(value.data, view.data);
        ASN1TDynBitStr* copy = b;
        ASSERT_NE(nullptr, copy);
        EXPECT_NE(value.data, copy->data);
        EXPECT_EQ(0, memcmp(copy->data, value.data, 6));
    }
    ctxt->_unref();

    ASN1TDynBitStr empty;
    empty.numbits = 0;
    empty.data = nullptr;
    ASN1CBitStr e(buf, empty);
    EXPECT_EQ(0, e.size());
    EXPECT_EQ(0, e.set(3));
    EXPECT_EQ(4u, empty.numbits);
    EXPECT_EQ(0x10, empty.data[0]);
}

TEST_F(BitStrTest, Copies) {
    ASN1CBitStr a(buf, 16u);
    ASSERT_EQ(0, a.set(3));
    ASN1CBitStr same(a);
    EXPECT_EQ(2, same.getUnitsAllocated());
    EXPECT_EQ(16u, same.getMaxNumBits());
    EXPECT_NE(a.data(), same.data());
    EXPECT_EQ(contents(a), contents(same));
    EXPECT_EQ(4u, same.getNumBits());
    EXPECT_EQ(-5, same.set(16));

    ASN1CBitStr ext(a, 1);
    EXPECT_EQ(1 + 1024, ext.getUnitsAllocated());
    EXPECT_EQ(0xFFFFFFFFu, ext.getMaxNumBits());
    EXPECT_EQ(0, ext.set(100));
    EXPECT_FALSE(a.get(100));
}

TEST_F(BitStrTest, AndOrXorAndNot) {
    ASN1CBitStr b(buf, 0u);
    ASSERT_EQ(0, b.set(0, 16));  // FFFF
    const ASN1OCTET mask[] = {0x3C};
    EXPECT_EQ(0, b.doAnd(mask, 8));
    EXPECT_EQ("3C", contents(b));
    EXPECT_EQ(6u, b.getNumBits());
    EXPECT_EQ(-30, b.doAnd(nullptr, 8));
    EXPECT_EQ(-30, b.doAnd(b.data(), 8));
    EXPECT_EQ(-30, status());

    const ASN1OCTET high[] = {0x80, 0xFF};
    EXPECT_EQ(0, b.doOr(high, 9));
    EXPECT_EQ("BC80", contents(b)) << "operand bits past its count do not count";
    EXPECT_EQ(-30, b.doOr(high, 0)) << "setting everything of a string without a limit";
    EXPECT_EQ(0, b.doXor(high, 16));
    EXPECT_EQ("3C7F", contents(b));
    EXPECT_EQ(0, b.doXor(high, 0));
    EXPECT_EQ("3C7F", contents(b));
    EXPECT_EQ(0, b.doAndNot(high, 16));
    EXPECT_EQ("3C", contents(b));
    EXPECT_EQ(0, b.doAndNot(high, 0));
    EXPECT_EQ(0, b.doXor(b.data(), 8)) << "with itself";
    EXPECT_EQ(0, b.length());
    EXPECT_EQ(0, b.doAnd(mask, 0));
    EXPECT_EQ(0, b.size());

    ASN1CBitStr lim(buf, 12u);
    EXPECT_EQ(0, lim.doOr(high, 0));
    EXPECT_EQ("FFF0", contents(lim)) << "every bit up to the limit";
    EXPECT_EQ(0, lim.clear());
    const ASN1OCTET wide[] = {0xFF, 0xFF, 0xFF};
    EXPECT_EQ(0, lim.doOr(wide, 24));
    EXPECT_EQ("FFF0", contents(lim)) << "limited to 12 bits";
    EXPECT_EQ(0, lim.doXor(wide, 24));
    EXPECT_EQ(0, lim.length());
}

// AND works on whole octets of the operand; AND NOT clears only the operand's counted bits.
TEST_F(BitStrTest, OperandOctetsAndCountedBits) {
    ASN1CBitStr b(buf, 0u);
    ASSERT_EQ(0, b.set(0, 16));
    const ASN1OCTET ones[] = {0xFF};
    EXPECT_EQ(0, b.doAnd(ones, 4));
    EXPECT_EQ("FF", contents(b)) << "one octet of the operand, as it stands";
    EXPECT_EQ(0, b.doAndNot(ones, 4));
    EXPECT_EQ("0F", contents(b));
    EXPECT_EQ(8u, b.getNumBits());
    EXPECT_EQ(0, b.doOr(ones, 2));
    EXPECT_EQ("CF", contents(b));
}

TEST_F(BitStrTest, Shifts) {
    ASN1CBitStr b(buf, 0u);
    EXPECT_EQ(0, b.shiftLeft(3)) << "empty";
    EXPECT_EQ(0, b.shiftRight(3));
    ASSERT_EQ(0, b.set(1));
    ASSERT_EQ(0, b.set(3));  // 0x50
    EXPECT_EQ(0, b.shiftRight(2));
    EXPECT_EQ("14", contents(b));
    EXPECT_EQ(0, b.shiftRight(5));
    EXPECT_EQ("00A0", contents(b)) << "a growing string loses nothing";
    EXPECT_EQ(11u, b.getNumBits());
    EXPECT_EQ(0, b.shiftLeft(7));
    EXPECT_EQ("50", contents(b));
    EXPECT_EQ(0, b.shiftLeft(1));
    EXPECT_EQ("A0", contents(b));
    EXPECT_EQ(0, b.shiftLeft(1));
    EXPECT_EQ("40", contents(b)) << "bits pushed past the start are lost";
    EXPECT_EQ(0, b.shiftLeft(10));
    EXPECT_EQ(0, b.length());

    ASN1CBitStr lim(buf, 8u);
    ASSERT_EQ(0, lim.set(1));
    ASSERT_EQ(0, lim.set(3));
    EXPECT_EQ(0, lim.shiftRight(2));
    EXPECT_EQ("10", contents(lim)) << "with a limit, bits past the old top are lost";
    EXPECT_EQ(0, lim.shiftRight(4));
    EXPECT_EQ(0, lim.length()) << "a shift of the length or more clears everything";
}

TEST_F(BitStrTest, OwnContextWithoutBuffer) {
    ASN1CBitStr b;
    ASSERT_NE(nullptr, b.getCtxtPtr());
    EXPECT_EQ(0u, b.getMaxNumBits());
    ASN1OCTET data[1] = {0};
    ASN1UINT n = 0;
    ASN1CBitStr c(data, n, 8);
    EXPECT_EQ(0, c.set(2));
    EXPECT_EQ(3u, n);
    EXPECT_EQ(0x20, data[0]);
}

TEST(BitStrLayout, Size) {
    static_assert(sizeof(ASN1CBitStr) == (sizeof(void*) == 8 ? 80 : 44),
                  "ASN1CType, own count, own data, data location, limit, count location, "
                  "units used, units allocated, dynamic flag");
    SUCCEED();
}

}  // namespace
