// Inputs that once broke the BER readers, kept so they stay fixed.
#include "ber_test_util.h"

namespace {

// A constructed BIT STRING whose only segment holds nothing but a non-zero unused-bits
// octet: the bit count would wrap below zero, and the writer would then read 512 MiB.
TEST(BerRegressions, ConstructedBitStringOfOnlyUnusedBitsIsRefused) {
    bertest::Dec d("2303030101");
    ASN1OCTET bits[8] = {};
    ASN1UINT numbits = sizeof bits * 8;
    ASN1TAG tag = 0;
    int length = 0;
    ASSERT_EQ(xd_tag_len(&d.c, &tag, &length, RT_MATCH_ADVANCE), 0);
    EXPECT_EQ(xd_bitstr_s(&d.c, bits, &numbits, ASN1IMPL, length), -18);
    EXPECT_EQ(d.recorded(), -18);
}

}  // namespace
