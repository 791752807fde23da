// Tracked allocation, contract reports, diagnostics, VLST, bit arrays, formatting, text.
#include "base_support.h"
#include <random>
#include <string>
#include <utility>
#include <vector>

using namespace basetest;

namespace {

using UtilsTest = AllocFixture;

void log_sink(const char* text, void* user)
{
    static_cast<std::vector<std::string>*>(user)->emplace_back(text);
}

}  // namespace

TEST_F(UtilsTest, Allocation_KeepsContentsZeroFillsCountsAndInjectsFailures)
{
    const long live = v_memptr_live_count();
    const size_t bytes = v_memptr_live_bytes();
    auto* z = static_cast<unsigned char*>(_v_calloc(10, 7, __FILE__, __LINE__, "test"));
    ASSERT_NE(z, nullptr);
    for (int i = 0; i < 70; ++i) ASSERT_EQ(z[i], 0) << i;
    z[69] = 5;
    for (size_t n : {size_t{4000}, size_t{100}}) {  // grow, then shrink: the same block
        z = static_cast<unsigned char*>(v_memptr_alloc(z, n));
        ASSERT_TRUE(z != nullptr && z[69] == 5);
        EXPECT_TRUE(v_memptr_live_count() == live + 1 && v_memptr_live_bytes() == bytes + n);
    }
    // After three more successes every entry point fails; the old block stays valid.
    v_memptr_fail_after(3);
    void* a = v_memptr_alloc(nullptr, 8);
    void* b = _v_calloc(1, 8, __FILE__, __LINE__, "b");
    z = static_cast<unsigned char*>(_v_realloc(z, 8000, __FILE__, __LINE__, "z"));
    ASSERT_TRUE(a != nullptr && b != nullptr && z != nullptr);
    EXPECT_TRUE(v_memptr_alloc(nullptr, 8) == nullptr &&
                _v_calloc(1, 8, __FILE__, __LINE__, "c") == nullptr &&
                _v_realloc(z, 16000, __FILE__, __LINE__, "z") == nullptr &&
                v_memptr_alloc(z, 16000) == nullptr && z[69] == 5);
    v_memptr_fail_after(-1);
    void* c = v_memptr_alloc(nullptr, 8);
    for (void* q : {a, b, c, static_cast<void*>(z)}) v_memptr_free(q);
    _v_free(nullptr, __FILE__, __LINE__, "null");
    EXPECT_TRUE(v_memptr_live_count() == live && v_memptr_live_bytes() == bytes);
    EXPECT_TRUE(_v_calloc(SIZE_MAX / 4 + 2, 4, __FILE__, __LINE__, "wraps to 4") == nullptr &&
                v_memptr_alloc(nullptr, SIZE_MAX) == nullptr);  // no wrap-around
}

TEST(UtilsDeathTest, AssertReportCarriesBaseNameAndLine_ForeignFreeIsAViolation)
{
    EXPECT_DEATH(tavo_assert_failed_in_line("/src/curves/cs_util1.cpp", 42),
                 "^assertion failed in cs_util1\\.cpp line 42\n$");
    EXPECT_DEATH(tavo_assert_failed_in_line("C:\\src\\bspline.cpp", 7),
                 "assertion failed in bspline\\.cpp line 7\n");
    const int line = __LINE__ + 1;
    EXPECT_DEATH(KESTRA_REQUIRE(1 + 1 == 3),
                 "assertion failed in test_utils\\.cpp line " + std::to_string(line));
    auto* raw = static_cast<unsigned char*>(std::calloc(1, 64));
    EXPECT_DEATH(v_memptr_free(raw + 32), "assertion failed in memory\\.cpp line");
    std::free(raw);
}

TEST_F(UtilsTest, DebugPrintf_HandsWholeTextToSinkInOneCallNullSinkRestoresStderr)
{
    std::vector<std::string> calls;
    debug_set_sink(log_sink, &calls);
    debug_printf("%s %d %.2f", "knots", 4, 0.5);
    const std::string long_text(5000, 'x');
    debug_printf("<%s|%d>", long_text.c_str(), 17);
    v_memptr_fail_after(0);  // no memory for a long text: the first 511 bytes, in one call
    debug_printf("%s", long_text.c_str());
    v_memptr_fail_after(-1);
    const std::vector<std::string> want = {"knots 4 0.50", "<" + long_text + "|17>",
                                           std::string(511, 'x')};
    debug_set_sink(nullptr, &calls);
    testing::internal::CaptureStderr();
    debug_printf("line %d\n", 3);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "line 3\n");
    EXPECT_EQ(calls, want);
}

// One list of ints through a run of operations; each step gives the status and the count
// after it. Ops: i init (slots = position), p put, a put count + 1 .. position (value =
// position), s put the list's own item 1, g get (and get the pointer), d delete, c compact,
// r rewind, f free. fail: allocations allowed before failure, -1 for none.
TEST_F(UtilsTest, Vlst_OperationsGiveTheirStatusAndCount)
{
    const short ok = st::ok, bad = st::bad_input, nomem = st::no_memory;
    // clang-format off
    const struct { char op; unsigned long pos; int value; short rc; unsigned long count; long fail; } steps[] = {
        {'c', 0, 0, ok, 0, -1},  // never initialised: everything refuses, nothing crashes
        {'p', 1, 1, bad, 0, -1},  // refused
        {'g', 1, 0, bad, 0, -1},  // refused
        {'d', 1, 0, bad, 0, -1},  // refused
        {'f', 0, 0, ok, 0, -1},  // freeing nothing is fine
        {'i', 8, 0, ok, 0, -1},  // room for 8, count 0
        {'a', 6, 0, ok, 6, -1},  // 1 .. 6
        {'d', 2, 0, ok, 6, -1},  // a hole keeps the count
        {'d', 4, 0, ok, 6, -1},  // a second hole
        {'d', 4, 0, bad, 6, -1},  // already a hole
        {'g', 2, 0, bad, 6, -1},  // holes answer 110
        {'d', 6, 0, ok, 5, -1},   // the last item: count falls to the highest occupied
        {'d', 5, 0, ok, 3, -1},   // past the hole at 4
        {'c', 0, 0, ok, 2, -1},   // 1 3, in order
        {'g', 1, 1, ok, 2, -1},  // item 1
        {'g', 2, 3, ok, 2, -1},  // item 3 moved down
        {'g', 3, 0, bad, 2, -1},  // past the count
        {'p', 8, 7, ok, 8, -1},  // within the capacity positions may skip
        {'g', 5, 0, bad, 8, -1},  // skipped positions are holes
        {'c', 0, 0, ok, 3, -1},  // 1 3 7
        {'g', 3, 7, ok, 3, -1},  // 7 moved down
        {'r', 0, 0, ok, 0, -1},  // empties the list, which stays usable
        {'g', 1, 0, bad, 0, -1},  // nothing left
        {'i', 2, 0, ok, 0, -1},  // a live list is released first
        {'a', 2, 0, ok, 2, -1},  // fills the two slots
        {'p', 3, 7, nomem, 2, 0},  // the items cannot grow
        {'p', 3, 7, nomem, 2, 1},  // the items grow, the flags cannot
        {'g', 2, 2, ok, 2, -1},  // the failures lost nothing
        {'s', 3, 1, ok, 3, -1},  // an item of the list itself survives the growth that moves it
        {'g', 3, 1, ok, 3, -1},  // the copy of item 1
        {'a', 100, 0, ok, 100, -1},  // many growths
        {'g', 73, 73, ok, 100, -1},  // values survive the growths
        {'p', 1, 5, ok, 100, -1},  // replacing keeps the count
        {'g', 1, 5, ok, 100, -1},  // the new value
        {'g', 101, 0, bad, 100, -1},  // past the count
        {'g', 0, 0, bad, 100, -1},  // positions start at 1
        {'p', 1ul << 40, 0, bad, 100, -1},  // a corrupt position allocates nothing
        {'p', 0, 0, bad, 100, -1},  // positions start at 1
        {'f', 0, 0, ok, 0, -1},  // released
        {'i', 4, 0, nomem, 0, 1},  // the item block succeeds, the flag block fails
    };
    // clang-format on
    VLST l{};
    for (const auto& s : steps) {
        int v = -1;
        void* ptr = &v;
        short rc = ok;
        v_memptr_fail_after(s.fail);
        if (s.op == 'i') rc = VLST_init(&l, sizeof(int), s.pos);
        if (s.op == 'p') rc = VLST_put(&l, s.pos, &s.value);
        for (int k = int(VLST_count(&l)) + 1; s.op == 'a' && k <= int(s.pos) && rc == ok; ++k)
            rc = VLST_put(&l, k, &k);
        if (s.op == 's' && (rc = VLST_getptr_void(&l, 1, &ptr)) == ok)
            rc = VLST_put(&l, s.pos, ptr);
        if (s.op == 'd') rc = VLST_delete(&l, s.pos);
        if (s.op == 'c') VLST_compact(&l);
        if (s.op == 'r') VLST_rewind(&l);
        if (s.op == 'f') rc = VLST_free(&l);
        if (s.op == 'g') {
            rc = VLST_get(&l, s.pos, &v);
            EXPECT_EQ(VLST_getptr_void(&l, s.pos, &ptr), rc) << s.op << s.pos;
            EXPECT_TRUE(rc == ok ? v == s.value && *static_cast<int*>(ptr) == s.value
                                 : v == -1 && ptr == nullptr)
                << s.op << s.pos;
        }
        v_memptr_fail_after(-1);
        EXPECT_EQ(rc, s.rc) << s.op << s.pos;
        EXPECT_EQ(VLST_count(&l), s.count) << s.op << s.pos;
        EXPECT_TRUE(s.op != 'f' || l.data == nullptr);
    }
    EXPECT_TRUE(VLST_count(nullptr) == 0 && VLST_free(nullptr) == bad &&
                VLST_init(&l, 0, 4) == bad && VLST_put(&l, 1, nullptr) == bad);
}

TEST_F(UtilsTest, Bitmap_SetClearTestAndRefusals)
{
    unsigned char* b = create_bitmap(20);
    ASSERT_NE(b, nullptr);
    for (long k : {9l, 12l, 20l}) EXPECT_EQ(set_reset_test_bitmap(b, k, BITMAP_SET), st::ok);
    // Bit k lives in byte (k - 1) / 8 under mask 1 << ((k - 1) % 8).
    EXPECT_TRUE(b[0] == 0 && b[1] == 0x09 && b[2] == 0x08);
    EXPECT_TRUE(set_reset_test_bitmap(b, 9, BITMAP_CLEAR) == st::ok &&
                set_reset_test_bitmap(b, 9, BITMAP_TEST) == 0 &&
                set_reset_test_bitmap(b, 12, BITMAP_TEST) == 1);
    long start = 5, end = -7;  // an unaligned start in an empty byte
    EXPECT_TRUE(getnextxxbits_in_bitmap(b, &start, &end) == st::ok && start == 12 && end == 12);
    start = 21;  // no set bit at or after 21
    EXPECT_TRUE(getnextxxbits_in_bitmap(b, &start, &end) == 1 && start == 21 && end == 12);
    long zero = 0;
    EXPECT_TRUE(set_reset_test_bitmap(b, 0, BITMAP_SET) == st::bad_input &&
                set_reset_test_bitmap(b, 21, BITMAP_SET) == st::bad_input &&
                set_reset_test_bitmap(b, 3, 7) == st::bad_input &&
                set_reset_test_bitmap(nullptr, 3, BITMAP_SET) == st::bad_input &&
                getnextxxbits_in_bitmap(b, &zero, &end) == st::bad_input &&
                getnextxxbits_in_bitmap(b, nullptr, &end) == st::bad_input);
    delete_bitmap(b);
    delete_bitmap(nullptr);
    for (long bits : {0l, -5l, 1l << 40}) EXPECT_EQ(create_bitmap(bits), nullptr);
}

TEST_F(UtilsTest, Bitmap_RunsMatchANaiveScan)
{
    // Random bits plus long runs across byte boundaries; runs are recomputed bit by bit.
    const long bits = 1003;
    unsigned char* b = create_bitmap(bits);
    ASSERT_NE(b, nullptr);
    std::vector<char> ref(bits + 2, 0);
    std::mt19937 rng(12345);
    for (long k = 1; k <= bits; ++k) {
        ref[k] = (k >= 100 && k <= 260) || k >= 990 || (k > 300 && rng() % 3 == 0);
        if (ref[k]) set_reset_test_bitmap(b, k, BITMAP_SET);
    }
    std::vector<std::pair<long, long>> expected, found;
    for (long k = 1; k <= bits; ++k) {
        if (ref[k] && !ref[k - 1]) expected.emplace_back(k, k);
        if (ref[k]) expected.back().second = k;
    }
    long start = 1, end = 0;
    for (; getnextxxbits_in_bitmap(b, &start, &end) == st::ok && found.size() < 2000;
         start = end + 1)
        found.emplace_back(start, end);
    EXPECT_TRUE(found == expected && found.front() == std::make_pair(100l, 260l));
    delete_bitmap(b);
}

TEST_F(UtilsTest, Format_DecimalsWidthFlagsAndSpecialValues)
{
    // clang-format off
    const struct { double value; int decimals, width; uint32_t flags; const char* text; } rows[] = {
        {-0.0004, 3, 0, 0, "0.000"},  // no minus sign on a zero
        {-0.0004, 3, 0, FORMAT_PLUS_SIGN, "+0.000"},  // a zero takes the plus sign
        {2.5, 4, 0, FORMAT_TRIM_ZEROS, "2.5"},  // trailing zeros go
        {2.0, 4, 0, FORMAT_TRIM_ZEROS, "2"},  // and the point with them
        {100.0, 0, 0, FORMAT_TRIM_ZEROS, "100"},  // integer zeros stay
        {1.5, 2, 8, 0, "    1.50"},  // right aligned
        {1.5, 2, 8, FORMAT_LEFT_ALIGN, "1.50    "},  // left aligned
        {1.5, 2, 2, 0, "1.50"},                 // width is a minimum
        {0.25, 40, 0, 0, "0.250000000000000"},  // decimals clamp to 15
        {1.5e100, 2, 0, 0, "1.50e+100"},        // 104 characters in fixed notation
        {-1e200, 1, 0, FORMAT_TRIM_ZEROS, "-1e+200"},  // exponent form trimmed
        {-1.7976931348623157e308, 15, 0, 0, "-1.797693134862316e+308"},  // the longest text
        {kNaN, 2, 5, 0, "  nan"},  // padded
        {kInf, 2, 0, FORMAT_PLUS_SIGN, "+inf"},  // signed infinity
        {1.5, 1, 0, FORMAT_PLUS_SIGN, "+1.5"},  // plus sign
    };
    // clang-format on
    for (const auto& r : rows) {
        FORMAT_STRUCTURE f{r.value, r.decimals, r.width, r.flags, {}};
        std::memset(f.text, '#', sizeof f.text);
        format(&f);
        ASSERT_NE(std::memchr(f.text, 0, sizeof f.text), nullptr);
        EXPECT_STREQ(f.text, r.text);
    }
    FORMAT_STRUCTURE wide{7.0, -3, 500, 0, {}};
    format(&wide);
    EXPECT_EQ(std::string(wide.text), std::string(62, ' ') + "7");  // width clamps to 63
    format(nullptr);
}

TEST_F(UtilsTest, TextConversionsAndCopy_TruncateToCapacityTerminateAndReplace)
{
    char16_t w[8] = {u'Q'};
    char a[8];
    EXPECT_TRUE(ascii_to_unicode(w, "", 0) == -1 && w[0] == u'Q');  // capacity 0: nothing written
    EXPECT_TRUE(ascii_to_unicode(w, "", 1) == 0 && w[0] == 0);
    EXPECT_TRUE(ascii_to_unicode(w, "abc", 4) == 3 && std::u16string(w) == u"abc");
    EXPECT_TRUE(ascii_to_unicode(w, "abcd", 4) == -1 && std::u16string(w) == u"abc");
    EXPECT_TRUE(ascii_to_unicode(w, "x\xE9y", 8) == 3 && std::u16string(w) == u"x?y");
    EXPECT_TRUE(ascii_to_unicode(w, nullptr, 8) == -1 && w[0] == 0 &&
                ascii_to_unicode(nullptr, "a", 8) == -1);
    // U+00E9, the pair D83D DE00 (U+1F600) and a lone low half are one '?' each.
    const char16_t text[] = {u'x', 0xE9, 0xD83D, 0xDE00, 0xDC00, u'y', 0};
    EXPECT_TRUE(unicode_to_ascii(a, text, 8) == 5 && std::string(a) == "x???y");
    EXPECT_TRUE(unicode_to_ascii(a, u"hello", 3) == -1 && std::string(a) == "he");
    char16_t d[8];
    std::fill(d, d + 8, char16_t(0x7777));
    strncpytavo(d, u"hello", 3);
    EXPECT_TRUE(std::u16string(d) == u"he" && d[3] == 0x7777);  // at most n units written
    EXPECT_TRUE(strncpytavo(d, u"hello", 8) == d && std::u16string(d) == u"hello");
    EXPECT_TRUE(d[5] == 0 && d[6] == 0 && d[7] == 0);  // no stale units behind the text
    const char16_t pair[] = {u'a', u'b', 0xD83D, 0xDE00, 0};
    strncpytavo(d, pair, 4);  // room for a, b and the high half only: the half is dropped
    EXPECT_EQ(std::u16string(d), u"ab");
    EXPECT_TRUE(strncpytavo(d, u"abc", 0) == d && d[0] == u'a');
    EXPECT_TRUE(strncpytavo(d, nullptr, 8) == d && d[0] == 0 &&
                strncpytavo(nullptr, u"a", 4) == nullptr);
}

TEST_F(UtilsTest, Utf8ToUtf16_PairsNeverSplitIllFormedBytesReplaced)
{
    char16_t d[16] = {9, 9, 9, 9};
    // 'a' + U+1F600 needs 3 units and a terminator: capacity 3 keeps "a" only.
    EXPECT_TRUE(utf8_to_utf16(d, "a\xF0\x9F\x98\x80", 3) == -1 && d[0] == u'a' && d[1] == 0 &&
                d[2] == 9);
    // h, U+20AC (E2 82 AC), U+1F600 (F0 9F 98 80 -> D83D DE00), U+00E9, U+FFFF.
    EXPECT_EQ(utf8_to_utf16(d, "h\xE2\x82\xAC\xF0\x9F\x98\x80\xC3\xA9\xEF\xBF\xBF", 16), 6);
    EXPECT_EQ(std::u16string(d), (std::u16string{u'h', 0x20AC, 0xD83D, 0xDE00, 0xE9, 0xFFFF}));
    // clang-format off
    const struct { const char* utf8; const char16_t* utf16; } rows[] = {
        {"\x80", u"\xFFFD"},                                // lone continuation byte
        {"\xC0\xAF", u"\xFFFD\xFFFD"},                      // C0 never starts a sequence
        {"\xE0\x80\xAF", u"\xFFFD\xFFFD\xFFFD"},            // overlong three-byte form
        {"\xED\xA0\x80", u"\xFFFD\xFFFD\xFFFD"},            // encoded surrogate D800
        {"\xF4\x90\x80\x80", u"\xFFFD\xFFFD\xFFFD\xFFFD"},  // above U+10FFFF
        {"\xE2\x82z", u"\xFFFDz"},  // a truncated sequence does not swallow the 'z'
        {"\xFF", u"\xFFFD"},                                // never a UTF-8 byte
    };
    // clang-format on
    for (const auto& r : rows) {
        EXPECT_EQ(utf8_to_utf16(d, r.utf8, 16), static_cast<int>(std::u16string(r.utf16).size()));
        EXPECT_EQ(std::u16string(d), r.utf16);
    }
}
