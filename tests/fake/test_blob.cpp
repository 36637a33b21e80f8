// Quorvane::CBlob: ownership, growth without capacity, ordering, hexadecimal text, files.
#include "core/blob.h"
#include "support/testsupport.h"

#include <cstdio>
#include <string>
#include <unistd.h>

using Quorvane::CBlob;
using testsupport::hexOf;
using testsupport::thrownHr;

namespace {

CBlob blob(const std::string& hexText) { return testsupport::blobOf(testsupport::hex(hexText)); }

TEST(Blob, ConstructionCopiesAndAssignment) {
    EXPECT_EQ(std::make_tuple(CBlob().cbData(), CBlob().pbData()), std::make_tuple(0ul, nullptr));
    // cb 0: null data, and the pointer is not read.
    EXPECT_EQ(CBlob(reinterpret_cast<const unsigned char*>(1), 0).pbData(), nullptr);
    // The size constructor always allocates and zero-fills, also for 0.
    EXPECT_EQ(hexOf(CBlob(5ul)), "0000000000");
    EXPECT_NE(CBlob(0ul).pbData(), nullptr);
    CBlob a = blob("0102"), b(a), c{CBlob()};
    b.pbData()[0] = 9;
    EXPECT_EQ(hexOf(a) + "/" + hexOf(b), "0102/0902");
    EXPECT_EQ(c.pbData(), nullptr);
    // assign copies first, so that the source may lie inside the blob.
    CBlob d = blob("0102030405");
    d.assign(d.pbData() + 2, 3);
    d = d;
    EXPECT_EQ(hexOf(d), "030405");
    d = CBlob();  // an empty source leaves null data
    EXPECT_EQ(d.pbData(), nullptr);
}

// No capacity: clear and shrinking keep the buffer (and the bytes past the size); growing
// again reallocates and copies only the bytes below the size in force.
TEST(Blob, ClearResizeSwapReverseAppend) {
    CBlob b = blob("0102030405");
    unsigned char* p = b.pbData();
    b.resize_to(5);
    b.resize_to(2);
    EXPECT_EQ(b.pbData(), p);
    EXPECT_EQ(hexOf(b), "0102");
    EXPECT_EQ(p[4], 0x05);
    b.resize_to(4);
    EXPECT_NE(b.pbData(), p);
    EXPECT_EQ(testsupport::toHex(b.pbData(), 2), "0102");
    b.clear();
    EXPECT_EQ(std::make_tuple(b.cbData(), b == CBlob()), std::make_tuple(0ul, true));
    CBlob fresh;
    fresh.resize_to(3);
    EXPECT_NE(fresh.pbData(), nullptr);

    CBlob x = blob("01"), y = blob("020304"), four = blob("01020304"), none;
    unsigned char* px = x.pbData();
    x.swap(y);
    EXPECT_EQ(y.pbData(), px);
    x.reverse();
    four.reverse();
    y.reverse();
    none.reverse();
    EXPECT_EQ(hexOf(x) + "/" + hexOf(four) + "/" + hexOf(y), "040302/04030201/01");
    x += y;
    x += CBlob();
    none += x;
    EXPECT_EQ(hexOf(none), "04030201");
    // Appending a blob to itself grows it without doubling the bytes and without reading
    // past the buffer (the sanitizer build would see an overflow).
    CBlob self = blob("0A0B0C"), empty;
    self += self;
    empty += empty;
    EXPECT_EQ(std::make_tuple(self.cbData(), testsupport::toHex(self.pbData(), 3), empty.pbData()),
              std::make_tuple(6ul, std::string("0A0B0C"), nullptr));
}

TEST(Blob, Ordering) {
    const struct {
        const char *a, *b;
        int sign;
    } rows[] = {{"01", "0100", -1},  // shorter first when the common part is equal
                {"02", "0100", 1},   // bytes go before length
                {"", "", 0},        {"", "00", -1},       {"FF", "7F", 1},  // unsigned bytes
                {"0102", "0102", 0}, {"0102", "0103", -1}};
    for (const auto& row : rows) {
        const CBlob a = blob(row.a), b = blob(row.b);
        EXPECT_EQ(std::vector<bool>({a < b, a <= b, a > b, a >= b, a == b, a != b}),
                  std::vector<bool>({row.sign < 0, row.sign <= 0, row.sign > 0, row.sign >= 0, row.sign == 0,
                                     row.sign != 0}))
            << row.a << " vs " << row.b;
    }
}

TEST(Blob, HexStrings) {
    const struct {
        const char* bytes;
        unsigned long n;
        const char* text;
    } out[] = {{"0102030405", 2, "0102 0304 05"}, {"0102030405", 0, "0102030405"},
               {"01020304", 2, "0102 0304"},  // never a blank at the end
               {"0102030405", 1, "01 02 03 04 05"}, {"0102030405", 9, "0102030405"}, {"A09F", 0, "A09F"},
               {"abcdef", 0, "ABCDEF"}, {"", 3, ""}};
    for (const auto& row : out)
        EXPECT_STREQ(blob(row.bytes).writeToHexString(row.n).c_str(), row.text) << row.bytes << " " << row.n;
    const std::pair<const char*, const char*> in[] = {
        {"ab cd", "ABCD"}, {"a bcd", ""},  // never white space inside a pair
        {"abc", "AB"},     // an odd digit at the end is dropped
        {"  \t\n0aFf", "0AFF"}, {"0102zz03", "0102"},  // stops silently at the first non-pair
        {"\xC3\xA9" "01", ""}, {"01\xC3\xA9", "01"},  // a character above 0x7F ends the parse
        {"0\x80", ""}, {"", ""}, {"01 02\n03\t", "010203"}};
    for (const auto& row : in) {
        CBlob b;
        b.readFromHexString(row.first);
        EXPECT_EQ(hexOf(b), row.second) << row.first;
    }
    // The old contents go; a buffer large enough is reused.
    CBlob b = blob("00112233445566778899");
    unsigned char* p = b.pbData();
    b.readFromHexString("dead");
    EXPECT_EQ(std::make_tuple(hexOf(b), b.pbData()), std::make_tuple(std::string("DEAD"), p));
    b.readFromHexString(blob("000102FEFF").writeToHexString(2).c_str());
    EXPECT_EQ(hexOf(b), "000102FEFF");
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

TEST_F(BlobFiles, RoundTripsAndFailures) {
    std::vector<uint8_t> bytes(70000);
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<uint8_t>(i * 7 + 3);
    const std::string path = dir + "/data.bin";
    testsupport::blobOf(bytes).writeToFile(path.c_str());
    EXPECT_EQ(testsupport::readFile(path), bytes);
    CBlob in = blob("FFFF");
    in.readFromFile(path.c_str());
    EXPECT_TRUE(in == testsupport::blobOf(bytes));
    blob("0102").writeToFile(path.c_str());  // truncates
    in.readFromFile(path.c_str());
    EXPECT_EQ(hexOf(in), "0102");
    // Wide paths.
    const std::string narrow = dir + "/wide.bin";
    const std::wstring wide(narrow.begin(), narrow.end());
    blob("C0FFEE").writeToFile(wide.c_str());
    in.readFromFile(wide.c_str());
    EXPECT_EQ(hexOf(in), "C0FFEE");
    // An empty file reads as a blob with null data.
    const std::string empty = dir + "/empty.bin";
    CBlob().writeToFile(empty.c_str());
    in.readFromFile(empty.c_str());
    EXPECT_EQ(std::make_tuple(testsupport::fileExists(empty), in.cbData(), in.pbData()),
              std::make_tuple(true, 0ul, nullptr));
    // Missing file or folder: 0x80070002; a folder opens but cannot be read: 0x80070570.
    CBlob b = blob("0102");
    EXPECT_EQ(thrownHr([&] { b.readFromFile((dir + "/absent.bin").c_str()); }), HRESULT(0x80070002u));
    EXPECT_EQ(b.cbData(), 0u);
    EXPECT_EQ(thrownHr([&] { blob("01").writeToFile((dir + "/no/such/file.bin").c_str()); }), HRESULT(0x80070002u));
    b = blob("01");
    EXPECT_EQ(thrownHr([&] { b.readFromFile(dir.c_str()); }), HRESULT(0x80070570u));
    EXPECT_EQ(b.cbData(), 0u);
}

}  // namespace
