// The generic walks over every real-world file of the corpus: each file read to its end (malformed
// ones end in a status), the header walk agreeing with the value walk, and DER written back byte for byte.
#include <string>
#include <vector>

#include "asn1rt/ber.h"
#include "ber_test_util.h"
#include "support/testsupport.h"

using bertest::Walked;

TEST(BerCorpus, EveryFileWalksAndWritesBack)
{
    CHAINVET_SKIP_WITHOUT_CORPUS();
    bertest::LastErrorUntouched platformState;
    int good = 0, der = 0;
    for (const char* kind : {"cert", "crl", "csr", "cms", "ocsp", "tsp", "cmp", "gost", "other"}) {
        for (const std::string& path : testsupport::corpusFiles(kind)) {
            SCOPED_TRACE(path);
            const std::vector<uint8_t> bytes = testsupport::readFile(path);
            const std::string hex = testsupport::toHex(bytes.data(), bytes.size());
            Walked values(hex, asn1rt::kWalkKeepValues), scratch(hex, asn1rt::kWalkScratchValues),
                headers(hex, asn1rt::kWalkStructure);
            if (path.find("/bad/") != std::string::npos)
                continue;  // any status will do, as long as nothing breaks
            ++good;
            der += values.walk.der;
            ASSERT_TRUE(values.status == 0 && headers.status == 0 && values.walk.count > 0);
            // Scratch storage instead of the heap: the same elements, but nothing to write back.
            EXPECT_EQ(scratch.state(), values.state());
            EXPECT_EQ(asn1rt::berWriteBack(&scratch.c, scratch.walk), RT_E_NOT_SUPPORTED);
            // Without strings read whole the two walks see the same elements.
            EXPECT_EQ(headers.walk.consumed, values.walk.consumed);
            if (values.walk.segmented == 0) {
                EXPECT_TRUE(bertest::sameNodes(headers.walk, values.walk));
                EXPECT_EQ(headers.c.savedState.index, values.c.savedState.index);
                EXPECT_EQ(headers.c.flags, values.c.flags);
            } else {
                EXPECT_GT(headers.walk.count, values.walk.count);
            }
            // DER goes back as it came; anything else in a definite form that walks again to itself
            // (DER headers, for the header walk).
            for (Walked* w : {&values, &headers}) {
                const std::string once = w->writeBack();
                if (w->walk.der) {
                    EXPECT_TRUE(once == hex.substr(0, 2 * w->walk.consumed));
                    continue;
                }
                Walked again(once, w->walk.mode);
                ASSERT_EQ(again.status, 0);
                EXPECT_TRUE(again.walk.count == w->walk.count && 2 * again.walk.consumed == once.size());
                EXPECT_TRUE(again.walk.der || w == &values);
                EXPECT_TRUE(again.writeBack() == once);
            }
        }
    }
    EXPECT_GT(good, 0);
    EXPECT_GT(der, 0);
}
