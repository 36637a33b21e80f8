// Quorvane::CBlob: ownership, growth without capacity, ordering, hexadecimal text, files.
#include "core/blob.h"
#include "support/testsupport.h"

#include <cstdio>
#include <fstream>
#include <functional>
#include <string>
#include <unistd.h>

using Quorvane::CBlob;
using testsupport::hex;

namespace {

CBlob blobOf(const std::string& hexText) {
    std::vector<uint8_t> v = hex(hexText);
    return CBlob(v.data(), static_cast<unsigned long>(v.size()));
}

std::string hexOf(const CBlob& b) { return testsupport::toHex(b.pbData(), b.cbData()); }

HRESULT thrownBy(const std::function<void()>& fn) {
    try {
        fn();
    } catch (const ATL::CAtlException& e) {
        return e.m_hr;
    }
    return 0;
}

TEST(Blob, ConstructionAndCopies) {
    CBlob empty;
    EXPECT_EQ(empty.cbData(), 0u);
    EXPECT_EQ(empty.pbData(), nullptr);

    // cb 0: null data, the pointer is not read.
    CBlob none(reinterpret_cast<const unsigned char*>(1), 0);
    EXPECT_EQ(none.pbData(), nullptr);

    // The size constructor always allocates and zero-fills, also for 0.
    CBlob zeros(5ul);
    EXPECT_EQ(hexOf(zeros), "0000000000");
    CBlob zero(0ul);
    EXPECT_NE(zero.pbData(), nullptr);
    EXPECT_EQ(zero.cbData(), 0u);

    CBlob a = blobOf("0102");
    CBlob b(a);
    EXPECT_NE(a.pbData(), b.pbData());
    b.pbData()[0] = 9;
    EXPECT_EQ(hexOf(a), "0102");
    CBlob c(empty);
    EXPECT_EQ(c.pbData(), nullptr);
}

TEST(Blob, AssignFromInsideItselfAndSelfAssignment) {
    CBlob b = blobOf("0102030405");
    b.assign(b.pbData() + 2, 3);
    EXPECT_EQ(hexOf(b), "030405");
    b = b;
    EXPECT_EQ(hexOf(b), "030405");
    // An empty source leaves null data.
    b = CBlob();
    EXPECT_EQ(b.cbData(), 0u);
    EXPECT_EQ(b.pbData(), nullptr);
}

TEST(Blob, ClearKeepsTheBuffer) {
    CBlob b = blobOf("AABB");
    unsigned char* p = b.pbData();
    b.clear();
    EXPECT_EQ(b.cbData(), 0u);
    EXPECT_EQ(b.pbData(), p);
    // Size 0 with a live buffer still equals a blob that never held anything.
    EXPECT_TRUE(b == CBlob());
}

TEST(Blob, ResizeHasNoCapacity) {
    CBlob b = blobOf("0102030405");
    unsigned char* p = b.pbData();
    b.resize_to(5);
    EXPECT_EQ(b.pbData(), p);
    b.resize_to(2);
    EXPECT_EQ(b.pbData(), p);
    EXPECT_EQ(hexOf(b), "0102");
    EXPECT_EQ(p[4], 0x05);  // still there, out of reach
    // Growing again reallocates and copies only the bytes below the present size.
    b.resize_to(4);
    EXPECT_NE(b.pbData(), p);
    EXPECT_EQ(b.cbData(), 4u);
    EXPECT_EQ(b.pbData()[0], 0x01);
    EXPECT_EQ(b.pbData()[1], 0x02);
    CBlob fresh;
    fresh.resize_to(3);
    EXPECT_EQ(fresh.cbData(), 3u);
    EXPECT_NE(fresh.pbData(), nullptr);
}

TEST(Blob, SwapReverseAppend) {
    CBlob a = blobOf("01"), b = blobOf("020304");
    unsigned char* pa = a.pbData();
    a.swap(b);
    EXPECT_EQ(hexOf(a), "020304");
    EXPECT_EQ(b.pbData(), pa);
    a.reverse();
    EXPECT_EQ(hexOf(a), "040302");
    CBlob four = blobOf("01020304");
    four.reverse();
    EXPECT_EQ(hexOf(four), "04030201");
    b.reverse();
    EXPECT_EQ(hexOf(b), "01");
    CBlob none;
    none.reverse();
    EXPECT_EQ(none.pbData(), nullptr);

    a += b;
    EXPECT_EQ(hexOf(a), "04030201");
    a += CBlob();
    EXPECT_EQ(hexOf(a), "04030201");
    CBlob start;
    start += a;
    EXPECT_EQ(hexOf(start), "04030201");
}

// Appending a blob to itself grows it without doubling the bytes and without touching
// anything past the buffer (the sanitizer build would see an overflow).
TEST(Blob, AppendToItselfOnlyGrows) {
    CBlob a = blobOf("0A0B0C");
    a += a;
    ASSERT_EQ(a.cbData(), 6ul);
    EXPECT_EQ(testsupport::toHex(a.pbData(), 3), "0A0B0C");
    CBlob empty;
    empty += empty;
    EXPECT_EQ(empty.cbData(), 0ul);
    EXPECT_EQ(empty.pbData(), nullptr);
}

TEST(Blob, Ordering) {
    struct Row {
        const char* a;
        const char* b;
        int sign;
    } rows[] = {
        {"01", "0100", -1},  // shorter first when the common part is equal
        {"02", "0100", 1},   // bytes go before length
        {"", "", 0},
        {"", "00", -1},
        {"FF", "7F", 1},     // unsigned bytes
        {"0102", "0102", 0},
        {"0102", "0103", -1},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.a) + " vs " + row.b);
        CBlob a = blobOf(row.a), b = blobOf(row.b);
        EXPECT_EQ(a < b, row.sign < 0);
        EXPECT_EQ(a <= b, row.sign <= 0);
        EXPECT_EQ(a > b, row.sign > 0);
        EXPECT_EQ(a >= b, row.sign >= 0);
        EXPECT_EQ(a == b, row.sign == 0);
        EXPECT_EQ(a != b, row.sign != 0);
    }
}

TEST(Blob, WriteToHexString) {
    struct Row {
        const char* bytes;
        unsigned long n;
        const char* text;
    } rows[] = {
        {"0102030405", 2, "0102 0304 05"},
        {"0102030405", 0, "0102030405"},
        {"01020304", 2, "0102 0304"},  // never a blank at the end
        {"0102030405", 1, "01 02 03 04 05"},
        {"0102030405", 9, "0102030405"},
        {"A0", 0, "A0"},
        {"9F", 0, "9F"},
        {"abcdef", 0, "ABCDEF"},
        {"", 3, ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.bytes);
        EXPECT_STREQ(blobOf(row.bytes).writeToHexString(row.n).c_str(), row.text);
    }
}

TEST(Blob, ReadFromHexString) {
    struct Row {
        const char* text;
        const char* bytes;
    } rows[] = {
        {"ab cd", "ABCD"},
        {"a bcd", ""},        // never white space inside a pair
        {"abc", "AB"},        // an odd digit at the end is dropped
        {"  \t\n0aFf", "0AFF"},
        {"0102zz03", "0102"},  // stops silently at the first non-pair
        {"\xC3\xA9" "01", ""},   // a character above 0x7F ends the parse
        {"01\xC3\xA9", "01"},
        {"0\x80", ""},          // a negative second character ends it too
        {"", ""},
        {"01 02\n03\t", "010203"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        CBlob b;
        b.readFromHexString(row.text);
        EXPECT_EQ(hexOf(b), row.bytes);
    }
    // The old contents go; a buffer large enough is reused.
    CBlob b = blobOf("00112233445566778899");
    unsigned char* p = b.pbData();
    b.readFromHexString("dead");
    EXPECT_EQ(hexOf(b), "DEAD");
    EXPECT_EQ(b.pbData(), p);
    // Round trip.
    CBlob round;
    round.readFromHexString(blobOf("000102FEFF").writeToHexString(2).c_str());
    EXPECT_EQ(hexOf(round), "000102FEFF");
}

class BlobFiles : public ::testing::Test {
protected:
    void SetUp() override {
        char tmpl[] = "/tmp/chainvet_blob_XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        dir = tmpl;
    }
    void TearDown() override {
        for (const char* name : {"/data.bin", "/empty.bin", "/wide.bin"})
            std::remove((dir + name).c_str());
        rmdir(dir.c_str());
    }
    std::string dir;
};

TEST_F(BlobFiles, RoundTrip) {
    std::vector<uint8_t> bytes(70000);
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<uint8_t>(i * 7 + 3);
    CBlob out(bytes.data(), static_cast<unsigned long>(bytes.size()));
    const std::string path = dir + "/data.bin";
    out.writeToFile(path.c_str());
    EXPECT_EQ(testsupport::readFile(path), bytes);
    CBlob in = blobOf("FFFF");
    in.readFromFile(path.c_str());
    EXPECT_TRUE(in == out);
    // Writing truncates an existing file.
    blobOf("0102").writeToFile(path.c_str());
    in.readFromFile(path.c_str());
    EXPECT_EQ(hexOf(in), "0102");
}

TEST_F(BlobFiles, WidePaths) {
    const std::string path = dir + "/wide.bin";
    const std::wstring wide(path.begin(), path.end());
    blobOf("C0FFEE").writeToFile(wide.c_str());
    CBlob in;
    in.readFromFile(wide.c_str());
    EXPECT_EQ(hexOf(in), "C0FFEE");
}

TEST_F(BlobFiles, MissingFileAndMissingFolder) {
    CBlob b = blobOf("0102");
    const std::string missing = dir + "/absent.bin";
    EXPECT_EQ(thrownBy([&] { b.readFromFile(missing.c_str()); }), static_cast<HRESULT>(0x80070002u));
    EXPECT_EQ(b.cbData(), 0u);
    const std::string noFolder = dir + "/no/such/file.bin";
    EXPECT_EQ(thrownBy([&] { blobOf("01").writeToFile(noFolder.c_str()); }), static_cast<HRESULT>(0x80070002u));
    // A folder opens but cannot be read.
    CBlob c = blobOf("01");
    EXPECT_EQ(thrownBy([&] { c.readFromFile(dir.c_str()); }), static_cast<HRESULT>(0x80070570u));
    EXPECT_EQ(c.cbData(), 0u);
}

TEST_F(BlobFiles, EmptyFile) {
    const std::string path = dir + "/empty.bin";
    CBlob().writeToFile(path.c_str());
    EXPECT_TRUE(testsupport::fileExists(path));
    CBlob b = blobOf("0102");
    b.readFromFile(path.c_str());
    EXPECT_EQ(b.cbData(), 0u);
    EXPECT_EQ(b.pbData(), nullptr);
}

}  // namespace
