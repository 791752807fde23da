// Tracked allocation, contract reports, diagnostics, VLST, bit arrays, formatting, text.
#include "base_support.h"
#include <random>
#include <string>
#include <utility>
#include <vector>

using namespace basetest;

namespace {

// Leak check of AllocFixture; the debug sink is restored afterwards as well.
class UtilsTest : public AllocFixture {
protected:
    void TearDown() override
    {
        debug_set_sink(nullptr, nullptr);
        AllocFixture::TearDown();
    }
};

void log_sink(const char* text, void* user)
{
    static_cast<std::vector<std::string>*>(user)->emplace_back(text);
}

}  // namespace

// --- tracked allocation and contract reports ---

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

// --- diagnostics ---

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

// --- VLST ---

TEST_F(UtilsTest, Vlst_PutGetAcrossGrowthInvalidPositionsAnswer110)
{
    VLST l{};
    V_POINT q{};
    void* ptr = &q;
    VLST_compact(&l);  // never initialised: everything refuses, nothing crashes
    EXPECT_TRUE(VLST_put(&l, 1, &q) == st::bad_input && VLST_get(&l, 1, &q) == st::bad_input &&
                VLST_delete(&l, 1) == st::bad_input && VLST_count(nullptr) == 0 &&
                VLST_free(&l) == st::ok && VLST_free(nullptr) == st::bad_input &&
                VLST_init(&l, 0, 4) == st::bad_input);
    ASSERT_EQ(VLST_init(&l, sizeof(V_POINT), 2), st::ok);
    for (unsigned long i = 1; i <= 100; ++i) {
        const V_POINT p{double(i), 2.0 * double(i), -1.0};
        ASSERT_EQ(VLST_put(&l, VLST_count(&l) + 1, &p), st::ok) << i;
    }
    ASSERT_EQ(VLST_getptr_void(&l, 73, &ptr), st::ok);
    static_cast<V_POINT*>(ptr)->z = 8.0;
    ASSERT_EQ(VLST_get(&l, 73, &q), st::ok);
    EXPECT_TRUE(xyz_near(q, {73, 146, 8}, 0.0));
    ASSERT_EQ(VLST_put(&l, 1, &q), st::ok);  // replacing keeps the count
    EXPECT_EQ(VLST_count(&l), 100ul);
    for (unsigned long k : {0ul, 101ul})
        EXPECT_TRUE(VLST_get(&l, k, &q) == st::bad_input &&
                    VLST_getptr_void(&l, k, &ptr) == st::bad_input && ptr == nullptr);
    // A corrupt position past both count + 1 and the capacity allocates nothing.
    EXPECT_TRUE(VLST_put(&l, 1ul << 40, &q) == st::bad_input &&
                VLST_put(&l, 0, &q) == st::bad_input && VLST_put(&l, 1, nullptr) == st::bad_input);
    EXPECT_TRUE(VLST_free(&l) == st::ok && l.data == nullptr && VLST_count(&l) == 0);
}

TEST_F(UtilsTest, Vlst_DeleteCompactRewindAndOutOfMemory)
{
    VLST l{};
    int v = 0;
    const auto holds = [&l, &v](unsigned long k, int want) {
        return VLST_get(&l, k, &v) == st::ok && v == want;
    };
    ASSERT_EQ(VLST_init(&l, sizeof(int), 8), st::ok);
    for (int i = 1; i <= 6; ++i) ASSERT_EQ(VLST_put(&l, i, &i), st::ok);
    for (unsigned long k : {2ul, 4ul}) ASSERT_EQ(VLST_delete(&l, k), st::ok);
    EXPECT_TRUE(VLST_delete(&l, 4) == st::bad_input && VLST_count(&l) == 6 && !holds(2, 2));
    for (unsigned long k : {6ul, 5ul}) ASSERT_EQ(VLST_delete(&l, k), st::ok);
    EXPECT_EQ(VLST_count(&l), 3ul);  // deleting the last items drops the trailing holes
    VLST_compact(&l);
    EXPECT_TRUE(VLST_count(&l) == 2 && holds(1, 1) && holds(2, 3) && !holds(3, 3));
    const int seven = 7;
    ASSERT_EQ(VLST_put(&l, 8, &seven), st::ok);  // within the capacity positions may skip
    EXPECT_TRUE(VLST_count(&l) == 8 && !holds(5, 0));
    VLST_compact(&l);
    EXPECT_TRUE(VLST_count(&l) == 3 && holds(3, 7));
    VLST_rewind(&l);  // empties the list, which stays usable
    EXPECT_TRUE(VLST_count(&l) == 0 && !holds(1, 1));
    ASSERT_EQ(VLST_init(&l, sizeof(int), 2), st::ok);  // a live list is released first
    for (int i = 1; i <= 2; ++i) ASSERT_EQ(VLST_put(&l, i, &i), st::ok);
    for (long allowed = 0; allowed <= 1; ++allowed) {  // items, then flags cannot grow
        v_memptr_fail_after(allowed);
        EXPECT_EQ(VLST_put(&l, 3, &seven), st::no_memory);
        v_memptr_fail_after(-1);
        EXPECT_TRUE(VLST_count(&l) == 2 && holds(2, 2));
    }
    void* first = nullptr;  // an item of the list itself survives the growth that moves it
    ASSERT_EQ(VLST_getptr_void(&l, 1, &first), st::ok);
    ASSERT_EQ(VLST_put(&l, 3, first), st::ok);
    EXPECT_TRUE(holds(3, 1));
    EXPECT_EQ(VLST_free(&l), st::ok);
    v_memptr_fail_after(1);  // the item block succeeds, the flag block fails
    EXPECT_EQ(VLST_init(&l, sizeof(int), 4), st::no_memory);
    EXPECT_EQ(VLST_count(&l), 0ul);
}

// --- bit arrays ---

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

// --- numbers and text ---

TEST_F(UtilsTest, Format_DecimalsWidthFlagsAndSpecialValues)
{
    const struct {
        double value;
        int decimals, width;
        uint32_t flags;
        const char* text;
    } rows[] = {
        {-0.0004, 3, 0, 0, "0.000"},
        {-0.0004, 3, 0, FORMAT_PLUS_SIGN, "+0.000"},
        {2.5, 4, 0, FORMAT_TRIM_ZEROS, "2.5"},
        {2.0, 4, 0, FORMAT_TRIM_ZEROS, "2"},
        {100.0, 0, 0, FORMAT_TRIM_ZEROS, "100"},  // integer zeros stay
        {1.5, 2, 8, 0, "    1.50"},
        {1.5, 2, 8, FORMAT_LEFT_ALIGN, "1.50    "},
        {1.5, 2, 2, 0, "1.50"},                 // width is a minimum
        {0.25, 40, 0, 0, "0.250000000000000"},  // decimals clamp to 15
        {1.5e100, 2, 0, 0, "1.50e+100"},        // 104 characters in fixed notation
        {-1e200, 1, 0, FORMAT_TRIM_ZEROS, "-1e+200"},
        {-1.7976931348623157e308, 15, 0, 0, "-1.797693134862316e+308"},
        {kNaN, 2, 5, 0, "  nan"},
        {kInf, 2, 0, FORMAT_PLUS_SIGN, "+inf"},
        {1.5, 1, 0, FORMAT_PLUS_SIGN, "+1.5"},
    };
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
    const struct {
        const char* utf8;
        const char16_t* utf16;
    } rows[] = {
        {"\x80", u"\xFFFD"},                                // lone continuation byte
        {"\xC0\xAF", u"\xFFFD\xFFFD"},                      // C0 never starts a sequence
        {"\xE0\x80\xAF", u"\xFFFD\xFFFD\xFFFD"},            // overlong three-byte form
        {"\xED\xA0\x80", u"\xFFFD\xFFFD\xFFFD"},            // encoded surrogate D800
        {"\xF4\x90\x80\x80", u"\xFFFD\xFFFD\xFFFD\xFFFD"},  // above U+10FFFF
        {"\xE2\x82z", u"\xFFFDz"},  // a truncated sequence does not swallow the 'z'
        {"\xFF", u"\xFFFD"},
    };
    for (const auto& r : rows) {
        EXPECT_EQ(utf8_to_utf16(d, r.utf8, 16), static_cast<int>(std::u16string(r.utf16).size()));
        EXPECT_EQ(std::u16string(d), r.utf16);
    }
}
