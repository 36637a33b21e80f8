// PKI status values: the language run inside free text (and its doubling on re-encoding),
// lookups by language that find only empty texts, failure bits and reason flags on the
// wire, type-and-value lists, certificate identifiers and revocation announcements.
#include "pki/pki_status.h"
#include "pki_test_util.h"

using namespace Quorvane;
using namespace Quorvane::ASN1;
using testsupport::hexOf;

namespace {

using pkitest::der;
std::string sq(const std::string& h) { return hexOf(der(h)); }
using pkitest::outcome;
// "language:text|..." of a list, texts narrowed with their U+0Exx characters as '#'.
std::string show(const CPKIFreeText& text) {
    std::string out;
    for (const CPKIFreeTextString& s : text) {
        out += std::string(s.get_language().tostring().c_str()) + ":";
        for (const wchar_t* c = s.get_value(); *c; ++c)
            out += (*c >> 8) == 0x0E ? '#' : static_cast<char>(*c);
        out += "|";
    }
    return out;
}
const char kRunRuRu[] = "E0B881 E0B9B2E0B9B5E0B8ADE0B9B2E0B9B5 E0B9BE";  // U+0E01, "ru-ru" moved, U+0E7E

TEST(PkiLanguageTag, NormalisedAndCompared) {
    EXPECT_TRUE(CLanguageTag("EN-US") == CLanguageTagEnUs());
    EXPECT_TRUE(CLanguageTag(L"Ru-RU") == CLanguageTagRuRu());
    EXPECT_TRUE(CLanguageTag() != CLanguageTagDefaultRead()) << "empty is not *";
    EXPECT_EQ(CLanguageTag::normalize("De-CH_x1"), "de-ch_x1");
}

// A PKIStatusInfo of status 0 whose text is one string of these UTF-8 bytes.
std::string statusWith(const std::string& utf8) {
    const size_t n = der(utf8).cbData();
    char head[32];
    std::snprintf(head, sizeof head, "30%02X02010030%02X0C%02X", unsigned(n + 7), unsigned(n + 2), unsigned(n));
    return head + sq(utf8);
}

TEST(PkiFreeText, LanguageRunOnTheWire) {
    const struct {
        CPKIFreeText text;
        std::string utf8;
    } rows[] = {
        {CPKIFreeText(L"x", CLanguageTagDefaultRead()), "78"},
        {CPKIFreeText(L"x", CLanguageTagRuRu()), kRunRuRu + std::string("78")},
        {CPKIFreeText(L"x", CLanguageTag()), "E0B881E0B9BE78"},  // an empty tag still opens a run
    };
    for (const auto& r : rows) {
        CPKIStatusInfo info(pkiStatusGranted);
        info.put_statusString(r.text);
        EXPECT_EQ(hexOf(info.encode()), statusWith(r.utf8));
    }
    // Parsing keeps the run in the text, so the next encoding writes a second one.
    CPKIStatusInfo info(pkiStatusGranted);
    info.decode(der(statusWith(kRunRuRu + std::string("78"))));
    EXPECT_EQ(show(info.get_statusString()), "ru-ru:#######x|");
    info.decode(info.encode());
    EXPECT_EQ(show(info.get_statusString()), "ru-ru:##############x|");
    const struct {
        const char *utf8, *read;
    } parsed[] = {
        {"E0B881 E0B992E0B995 E0B9BE 78", "ru:####x|"},  // "RU" lower-cased
        {"E0B881 E0B9BE", ":##|"},                      // closed at once: the empty tag
        {"E0B881 E0B9B2 78", "!80070057"},               // never closed
        {"E0B881", "!80070057"},
        {"78 E0B881", "*:x#|"},                          // a run only at the start
        {"78 FF", "!8009310E"},
    };
    for (const auto& p : parsed) {
        CPKIStatusInfo decoded(pkiStatusGranted);
        EXPECT_EQ(outcome([&] {
                      decoded.decode(der(statusWith(p.utf8)));
                      return show(decoded.get_statusString());
                  }),
                  p.read)
            << p.utf8;
    }
}

TEST(PkiFreeText, FindRemoveInsertByLanguage) {
    CPKIFreeText text(L"a", CLanguageTagRuRu());
    text.push_back(CPKIFreeTextString(CLanguageTagRuRu()));
    text.push_back(CPKIFreeTextString("b", CLanguageTagEnUs()));
    EXPECT_EQ(text.find(CLanguageTagRuRu()), std::next(text.begin())) << "only the empty text matches";
    EXPECT_EQ(text.find(CLanguageTagEnUs()), text.end());
    EXPECT_EQ(static_cast<const CPKIFreeText&>(text).find(CLanguageTagDefaultRead()), text.begin());
    EXPECT_STREQ(static_cast<CPKIFreeTextString>(text).get_value(), L"a");
    text.insert(CPKIFreeTextString(L"z", CLanguageTagRuRu()));   // over the empty ru-ru text
    text.insert(CPKIFreeTextString(L"c", CLanguageTagEnUs()));   // no empty en-us: appended
    text.insert(CPKIFreeTextString(L"d", CLanguageTagDefaultRead()));
    EXPECT_EQ(show(text), "ru-ru:a|ru-ru:z|en-us:b|en-us:c|*:d|");
    text.push_back(CPKIFreeTextString(CLanguageTagEnUs()));
    text.remove(CLanguageTagEnUs());
    EXPECT_EQ(show(text), "ru-ru:a|ru-ru:z|en-us:b|en-us:c|*:d|");
    text.remove(CLanguageTagDefaultRead());
    EXPECT_TRUE(text.empty());
    EXPECT_EQ(testsupport::thrownHr([&] { CPKIFreeTextString first = text; }), E_INVALIDARG);
}

TEST(PkiFailureInfo, BitsOnTheWire) {
    const struct {
        unsigned value;
        const char* wire;
    } rows[] = {{0, "030100"}, {1, "03020780"}, {4, "03020520"}, {0x2000000, "0305060000 0040"}, {0x80000000, "03050600000000"}};  // cut to the 26 named bits by the control class
    for (const auto& r : rows) {
        EXPECT_EQ(hexOf(CPKIFailureInfo(r.value).encode()), sq(r.wire));
        CPKIFailureInfo back(0);
        back.decode(der(r.wire));
        EXPECT_EQ(back.get_value(), r.value & 0x3FFFFFF);
    }
    CPKIFailureInfo held(1 | 8);
    held.decode(der("03020520"));
    EXPECT_EQ(held.get_value(), 4u | 8u) << "bits up to the count are written, those beyond it stay";
    EXPECT_EQ(testsupport::thrownHr([&] { held.put_bit(32, true); }), E_INVALIDARG);
    EXPECT_EQ(testsupport::thrownHr([&] { held.get_bit(32); }), E_INVALIDARG);

    CPKIStatusInfo info(pkiStatusRejection);
    EXPECT_EQ(hexOf(info.encode()), "3003020102") << "no failure bits, no text";
    info.put_failureInfo(CPKIFailureInfo(4));
    EXPECT_EQ(hexOf(info.encode()), "300702010203020520");
    info.put_statusString(CPKIFreeText(L"kept", CLanguageTagDefaultRead()));
    info.decode(der("3003020103"));
    EXPECT_EQ(info.get_pkiStatus(), pkiStatusWaiting);
    EXPECT_EQ(info.get_failureInfo(), CPKIFailureInfo(0));
    EXPECT_EQ(show(info.get_statusString()), "*:kept|") << "an absent text leaves the old one";
}

// Bits are taken modulo 32. Only the nine named bits reach the wire: bit 9 passes the
// view's limit, but the encoder's own binding cuts it and leaves the count at nine.
TEST(PkiReasonFlags, BitsAndWire) {
    CReasonFlags flags(0);
    flags.put_bit(32, true);
    flags.put_bit(33, true);
    EXPECT_EQ(flags.get_value(), 3u);
    EXPECT_TRUE(flags.get_bit(64));
    flags.add_flag(CReasonFlags::aACompromise);
    flags.remove_flag(CReasonFlags::unused);
    EXPECT_EQ(flags, CReasonFlags(0x102));
    EXPECT_TRUE(flags.get_flag(static_cast<CReasonFlags::Flag>(0x3)));
    const struct {
        unsigned value;
        const char* wire;
        unsigned back;
    } rows[] = {{0, "030100", 0},           {2, "03020640", 2},       {0x101, "0303078080", 0x101},
                {0x200, "0303070000", 0}, {0x400, "030100", 0}, {0x10002, "03020640", 2}};
    for (const auto& r : rows) {
        const CBlob wire = asn1Encode<ASN1T_ReasonFlags_traits, CReasonFlags>(CReasonFlags(r.value));
        EXPECT_EQ(hexOf(wire), r.wire) << r.value;
        CReasonFlags back(0xFFFF);
        asn1Decode<ASN1T_ReasonFlags_traits, CReasonFlags>(wire, back);
        EXPECT_EQ(back.get_value(), r.back);
    }
}

TEST(PkiInfoTypeAndValue, ListsAndTheirWire) {
    CInfoTypeAndValueList list;
    list.insert(CInfoTypeAndValue("1.2.3", der("0500")));
    list.insert(CInfoTypeAndValue("1.2.4"));
    list.insert(CInfoTypeAndValue("1.2.3", der("0501")));
    EXPECT_EQ(*list.begin(), CInfoTypeAndValue("1.2.3", der("0501")));
    EXPECT_EQ(testsupport::thrownHr([&] { list.remove("1.2.5"); }), E_INVALIDARG);
    list.front() = CInfoTypeAndValue("1.2.3", der("0500"));
    ASN1BERDecodeBuffer scratch;
    asn1data::ASN1T_GenMsgContent wire;
    ASN1TavList_Encode(list, wire, scratch);
    ASN1BEREncodeBuffer writer;
    const int len = asn1data::ASN1C_GenMsgContent(writer, wire).Encode();
    ASSERT_GT(len, 0);
    EXPECT_EQ(hexOf(CBlob(writer.getMsgPtr(), static_cast<unsigned long>(len))), "300E300606022A030500300406022A04");
    CInfoTypeAndValueList back(list);
    back.push_front(CInfoTypeAndValue("9.9"));
    ASN1TavList_Parse(wire, back);
    EXPECT_TRUE(back == list) << "a parsed list replaces what was there";
    back.remove("1.2.3");
    EXPECT_STREQ(back.front().get_infoType(), "1.2.4");
}

TEST(PkiRevAnnContent, EncodeDecodeAndCopies) {
    CGeneralName dns;
    dns.put_dNSName(L"a");
    const CBigInteger serial(reinterpret_cast<const unsigned char*>("\x05"), 1);
    EXPECT_EQ(hexOf(CCertId(dns, serial).encode()), "3006820161020105");
    const CDateTime from(2020, 1, 2, 3, 4, 5, 0, 0), to(2030, 1, 1, 0, 0, 0, 0, 0);
    CRevAnnContent ann(pkiStatusRevocationWarning, CCertId(dns, serial), from, to);
    const std::string body =
        "020104 3006820161020105" + pkitest::tlv("18", "20200102030405Z") + pkitest::tlv("18", "20300101000000Z");
    EXPECT_EQ(hexOf(ann.encode()), sq("302D" + body));
    CExtensions none;
    ann.put_crlDetails(&none);
    EXPECT_EQ(hexOf(ann.encode()), sq("302D" + body)) << "an empty list is left out";
    CExtensions details;
    details.insert(CExtension(CExtCRLReason(crlReasonSuperseded), false));
    ann.put_crlDetails(&details);
    CRevAnnContent copy(ann);
    copy.put_crlDetails(nullptr);
    ASSERT_NE(ann.get_crlDetails(), nullptr) << "copies are deep";
    const CBlob bytes = ann.encode();
    EXPECT_EQ(hexOf(bytes), sq("303B" + body + "300C300A0603551D1504030A0104"));
    copy.decode(bytes);
    ASSERT_NE(copy.get_crlDetails(), nullptr);
    EXPECT_TRUE(*copy.get_crlDetails() == details);
    EXPECT_EQ(copy.get_badSinceDate(), to);
    EXPECT_STREQ(copy.get_certId().get_issuer().get_dNSName(), L"a");
    copy.decode(der("302D" + body));
    EXPECT_EQ(copy.get_crlDetails(), nullptr);
    CRevAnnContent unset;
    unset = ann;
    EXPECT_EQ(unset.get_status(), pkiStatusRevocationWarning);
}

}  // namespace
