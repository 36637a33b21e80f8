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

TEST(Blob, OwnershipAndGrowth) {
    // cb 0: null data, the pointer unread; the size constructor always allocates and zero-fills, also for 0.
    EXPECT_EQ(std::make_tuple(CBlob().pbData(), CBlob(reinterpret_cast<const unsigned char*>(1), 0).pbData(),
                              hexOf(CBlob(5ul)), CBlob(0ul).pbData() != nullptr),
              std::make_tuple(nullptr, nullptr, "0000000000", true));
    CBlob a = blob("0102"), b(a), d = blob("0102030405");
    b.pbData()[0] = 9;
    d.assign(d.pbData() + 2, 3);  // assign copies first: the source may lie inside the blob
    d = d;
    EXPECT_EQ(hexOf(a) + "/" + hexOf(b) + "/" + hexOf(d), "0102/0902/030405");
    d = CBlob();  // an empty source leaves null data
    EXPECT_EQ(d.pbData(), nullptr);
    // No capacity: clear and shrinking keep the buffer (and the bytes past the size);
    // growing again reallocates and copies only the bytes below the size in force.
    b = blob("0102030405");
    unsigned char* p = b.pbData();
    b.resize_to(5);
    b.resize_to(2);
    EXPECT_EQ(std::make_tuple(b.pbData(), hexOf(b), p[4]), std::make_tuple(p, "0102", 0x05));
    b.resize_to(4);
    EXPECT_EQ(std::make_tuple(b.pbData() != p, testsupport::toHex(b.pbData(), 2)), std::make_tuple(true, "0102"));
    b.clear();
    EXPECT_EQ(std::make_tuple(b.cbData(), b == CBlob()), std::make_tuple(0ul, true));
    CBlob fresh;
    fresh.resize_to(3);
    EXPECT_NE(fresh.pbData(), nullptr);

    CBlob x = blob("01"), y = blob("020304"), four = blob("01020304"), none;
    unsigned char* px = x.pbData();
    x.swap(y);
    EXPECT_EQ(y.pbData(), px);
    x.reverse(), four.reverse(), y.reverse(), none.reverse();
    EXPECT_EQ(hexOf(x) + "/" + hexOf(four) + "/" + hexOf(y), "040302/04030201/01");
    x += y;
    x += CBlob();
    none += x;
    EXPECT_EQ(hexOf(none), "04030201");
    // Appending a blob to itself grows it without doubling the bytes or reading past the buffer (ASan sees that).
    CBlob self = blob("0A0B0C"), empty;
    self += self;
    empty += empty;
    EXPECT_EQ(std::make_tuple(self.cbData(), testsupport::toHex(self.pbData(), 3), empty.pbData()),
              std::make_tuple(6ul, "0A0B0C", nullptr));
}

// Bytes before length, unsigned bytes, shorter first when the common part is equal.
TEST(Blob, Ordering) {
    const std::tuple<const char*, const char*, int> rows[] = {{"01", "0100", -1}, {"02", "0100", 1}, {"", "", 0},
                                                              {"", "00", -1},     {"FF", "7F", 1},   {"0102", "0102", 0},
                                                              {"0102", "0103", -1}};
    for (const auto& [ha, hb, sign] : rows) {
        const CBlob a = blob(ha), b = blob(hb);
        EXPECT_EQ(std::vector<bool>({a < b, a <= b, a > b, a >= b, a == b, a != b}),
                  std::vector<bool>({sign < 0, sign <= 0, sign > 0, sign >= 0, sign == 0, sign != 0}))
            << ha << " vs " << hb;
    }
}

TEST(Blob, HexStrings) {
    const std::tuple<const char*, unsigned long, const char*> out[] = {
        {"0102030405", 2, "0102 0304 05"}, {"0102030405", 0, "0102030405"}, {"01020304", 2, "0102 0304"},
        {"0102030405", 1, "01 02 03 04 05"}, {"0102030405", 9, "0102030405"}, {"abcdef", 0, "ABCDEF"}, {"", 3, ""}};
    for (const auto& [bytes, n, text] : out)
        EXPECT_STREQ(blob(bytes).writeToHexString(n).c_str(), text) << bytes << " " << n;
    // Never white space inside a pair; an odd digit at the end is dropped; the parse stops
    // silently at the first non-pair, a character above 0x7F included.
    const std::pair<const char*, const char*> in[] = {
        {"ab cd", "ABCD"}, {"a bcd", ""}, {"abc", "AB"}, {"  \t\n0aFf", "0AFF"}, {"0102zz03", "0102"},
        {"\xC3\xA9" "01", ""}, {"01\xC3\xA9", "01"}, {"0\x80", ""}, {"", ""}, {"01 02\n03\t", "010203"}};
    for (const auto& [text, bytes] : in) {
        CBlob b;
        b.readFromHexString(text);
        EXPECT_EQ(hexOf(b), bytes) << text;
    }
    // The old contents go; a buffer large enough is reused.
    CBlob b = blob("00112233445566778899");
    unsigned char* p = b.pbData();
    b.readFromHexString("dead");
    EXPECT_EQ(std::make_tuple(hexOf(b), b.pbData()), std::make_tuple("DEAD", p));
}

TEST(Blob, Files) {
    char tmpl[] = "/tmp/chainvet_blob_XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    const std::string dir = tmpl, path = dir + "/data.bin", empty = dir + "/empty.bin";
    const std::wstring wide(path.begin(), path.end());
    std::vector<uint8_t> bytes(70000);
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<uint8_t>(i * 7 + 3);
    testsupport::blobOf(bytes).writeToFile(path.c_str());
    CBlob in = blob("FFFF");
    in.readFromFile(wide.c_str());
    EXPECT_TRUE(in == testsupport::blobOf(bytes));
    blob("C0FFEE").writeToFile(wide.c_str());  // truncates
    in.readFromFile(path.c_str());
    EXPECT_EQ(hexOf(in), "C0FFEE");
    // An empty file reads as a blob with null data.
    CBlob().writeToFile(empty.c_str());
    in.readFromFile(empty.c_str());
    EXPECT_EQ(std::make_tuple(testsupport::fileExists(empty), in.cbData(), in.pbData()),
              std::make_tuple(true, 0ul, nullptr));
    // Missing file or folder: 0x80070002; a folder opens but cannot be read: 0x80070570.
    CBlob b = blob("0102"), c = blob("01");
    EXPECT_EQ(thrownHr([&] { b.readFromFile((dir + "/absent.bin").c_str()); }), HRESULT(0x80070002u));
    EXPECT_EQ(thrownHr([&] { blob("01").writeToFile((dir + "/no/such/file.bin").c_str()); }), HRESULT(0x80070002u));
    EXPECT_EQ(thrownHr([&] { c.readFromFile(dir.c_str()); }), HRESULT(0x80070570u));
    EXPECT_EQ(b.cbData() + c.cbData(), 0u);
    std::remove(path.c_str()), std::remove(empty.c_str()), rmdir(dir.c_str());
}

}  // namespace
