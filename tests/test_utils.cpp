#include <kestra/kestra.h>
#include <gtest/gtest.h>
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr short kOk = 0;
constexpr short kBadInput = 110;
constexpr short kNoMemory = 115;

// Leak check around every test; fault injection is switched off afterwards.
class UtilsTest : public ::testing::Test {
protected:
    long live_before_ = v_memptr_live_count();
    void TearDown() override
    {
        v_memptr_fail_after(-1);
        debug_set_sink(nullptr, nullptr);
        EXPECT_EQ(v_memptr_live_count(), live_before_) << "tracked blocks leaked";
    }
};

struct SinkLog {
    std::vector<std::string> calls;
};

void log_sink(const char* text, void* user)
{
    static_cast<SinkLog*>(user)->calls.emplace_back(text);
}

}  // namespace

// --- tracked allocation ---

TEST_F(UtilsTest, Allocation_KeepsContentsZeroFillsAndCountsBlocks)
{
    const long live = v_memptr_live_count();
    const size_t bytes = v_memptr_live_bytes();
    auto* p = static_cast<int*>(v_memptr_alloc(nullptr, 4 * sizeof(int)));
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 16, 0u);
    for (int i = 0; i < 4; ++i) p[i] = i * i;
    EXPECT_EQ(v_memptr_live_count(), live + 1);
    EXPECT_EQ(v_memptr_live_bytes(), bytes + 4 * sizeof(int));
    p = static_cast<int*>(v_memptr_alloc(p, 1000 * sizeof(int)));
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(v_memptr_live_count(), live + 1);  // a reallocation is the same block
    EXPECT_EQ(v_memptr_live_bytes(), bytes + 1000 * sizeof(int));
    for (int i = 0; i < 4; ++i) EXPECT_EQ(p[i], i * i);
    p = static_cast<int*>(v_memptr_alloc(p, 3 * sizeof(int)));  // shrinking keeps the front
    ASSERT_NE(p, nullptr);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(p[i], i * i);
    EXPECT_EQ(v_memptr_live_bytes(), bytes + 3 * sizeof(int));
    v_memptr_free(p);
    v_memptr_free(nullptr);
    EXPECT_EQ(v_memptr_live_count(), live);
    EXPECT_EQ(v_memptr_live_bytes(), bytes);

    auto* z = static_cast<unsigned char*>(_v_calloc(10, 7, __FILE__, __LINE__, "test"));
    ASSERT_NE(z, nullptr);
    for (int i = 0; i < 70; ++i) ASSERT_EQ(z[i], 0) << i;
    z[69] = 5;
    z = static_cast<unsigned char*>(_v_realloc(z, 200, __FILE__, __LINE__, "test"));
    ASSERT_NE(z, nullptr);
    EXPECT_EQ(z[69], 5);
    z = static_cast<unsigned char*>(v_memptr_alloc(z, 300));
    ASSERT_NE(z, nullptr);
    EXPECT_EQ(z[69], 5);
    _v_free(z, __FILE__, __LINE__, "test");
    // count * size beyond the address space is refused instead of wrapping around.
    EXPECT_EQ(_v_calloc(SIZE_MAX / 2, 4, __FILE__, __LINE__, "huge"), nullptr);
    EXPECT_EQ(v_memptr_alloc(nullptr, SIZE_MAX), nullptr);
}

TEST_F(UtilsTest, FailAfter_CountsSuccessfulAllocationsOfEveryEntryPoint)
{
    v_memptr_fail_after(3);
    void* a = v_memptr_alloc(nullptr, 8);
    void* b = _v_calloc(1, 8, __FILE__, __LINE__, "b");
    ASSERT_NE(a, nullptr);
    ASSERT_NE(b, nullptr);
    a = _v_realloc(a, 64, __FILE__, __LINE__, "a");  // the third success
    ASSERT_NE(a, nullptr);
    static_cast<char*>(a)[0] = 'k';
    EXPECT_EQ(v_memptr_alloc(nullptr, 8), nullptr);
    EXPECT_EQ(_v_calloc(1, 8, __FILE__, __LINE__, "c"), nullptr);
    EXPECT_EQ(_v_realloc(a, 128, __FILE__, __LINE__, "a"), nullptr);
    EXPECT_EQ(v_memptr_alloc(a, 128), nullptr);
    EXPECT_EQ(static_cast<char*>(a)[0], 'k');  // the old block stays valid
    v_memptr_fail_after(-1);
    void* c = v_memptr_alloc(nullptr, 8);
    EXPECT_NE(c, nullptr);
    v_memptr_free(a);
    v_memptr_free(b);
    v_memptr_free(c);

    v_memptr_fail_after(0);
    EXPECT_EQ(v_memptr_alloc(nullptr, 1), nullptr);
}

TEST(UtilsDeathTest, FreeingForeignPointer_IsContractViolation)
{
    // A block of the C runtime whose bytes in front of p hold no allocator marker.
    auto* raw = static_cast<unsigned char*>(std::calloc(1, 64));
    EXPECT_DEATH(v_memptr_free(raw + 32), "assertion failed in memory\\.cpp line");
    std::free(raw);
}

// --- contract reports ---

TEST(UtilsDeathTest, AssertReport_CarriesBaseNameAndLine)
{
    EXPECT_DEATH(tavo_assert_failed_in_line("/src/curves/cs_util1.cpp", 42),
                 "^assertion failed in cs_util1\\.cpp line 42\n$");
    EXPECT_DEATH(tavo_assert_failed_in_line("C:\\src\\bspline.cpp", 7),
                 "assertion failed in bspline\\.cpp line 7\n");
    EXPECT_DEATH(tavo_assert_failed_in_line("plain.cpp", 1),
                 "assertion failed in plain\\.cpp line 1");
    const int line = __LINE__ + 1;
    EXPECT_DEATH(KESTRA_REQUIRE(1 + 1 == 3),
                 "assertion failed in test_utils\\.cpp line " + std::to_string(line));
}

// --- diagnostics ---

TEST_F(UtilsTest, DebugPrintf_HandsWholeTextToSinkInOneCall)
{
    SinkLog log;
    debug_set_sink(log_sink, &log);
    debug_printf("%s %d %.2f", "knots", 4, 0.5);
    const std::string long_text(5000, 'x');
    debug_printf("<%s|%d>", long_text.c_str(), 17);
    ASSERT_EQ(log.calls.size(), 2u);
    EXPECT_EQ(log.calls[0], "knots 4 0.50");
    EXPECT_EQ(log.calls[1], "<" + long_text + "|17>");

    // Without memory for a long text the first 511 bytes still arrive, in one call.
    v_memptr_fail_after(0);
    debug_printf("%s", long_text.c_str());
    v_memptr_fail_after(-1);
    ASSERT_EQ(log.calls.size(), 3u);
    EXPECT_EQ(log.calls[2], std::string(511, 'x'));
}

TEST_F(UtilsTest, DebugSetSink_NullRestoresStderr)
{
    SinkLog log;
    debug_set_sink(log_sink, &log);
    debug_set_sink(nullptr, &log);
    testing::internal::CaptureStderr();
    debug_printf("line %d\n", 3);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "line 3\n");
    EXPECT_TRUE(log.calls.empty());
}

// --- VLST ---

TEST_F(UtilsTest, Vlst_PutGetCountAcrossGrowth)
{
    VLST l{};
    ASSERT_EQ(VLST_init(&l, sizeof(V_POINT), 2), kOk);
    for (unsigned long i = 1; i <= 100; ++i) {
        const V_POINT p{double(i), 2.0 * double(i), -1.0};
        ASSERT_EQ(VLST_put(&l, VLST_count(&l) + 1, &p), kOk) << i;
    }
    EXPECT_EQ(VLST_count(&l), 100ul);
    V_POINT q{};
    ASSERT_EQ(VLST_get(&l, 73, &q), kOk);
    EXPECT_EQ(q.x, 73.0);
    EXPECT_EQ(q.y, 146.0);
    void* ptr = nullptr;
    ASSERT_EQ(VLST_getptr_void(&l, 100, &ptr), kOk);
    static_cast<V_POINT*>(ptr)->z = 8.0;
    ASSERT_EQ(VLST_get(&l, 100, &q), kOk);
    EXPECT_EQ(q.z, 8.0);
    // Replacing keeps the count.
    const V_POINT r{0, 0, 0};
    ASSERT_EQ(VLST_put(&l, 1, &r), kOk);
    EXPECT_EQ(VLST_count(&l), 100ul);
    EXPECT_EQ(VLST_free(&l), kOk);
    EXPECT_EQ(l.data, nullptr);
    EXPECT_EQ(VLST_count(&l), 0ul);
}

TEST_F(UtilsTest, Vlst_InvalidPositionsAndLists_Answer110)
{
    VLST l{};
    double d = 1.0;
    void* ptr = &d;
    // Never initialised: everything refuses, nothing crashes.
    EXPECT_EQ(VLST_put(&l, 1, &d), kBadInput);
    EXPECT_EQ(VLST_get(&l, 1, &d), kBadInput);
    EXPECT_EQ(VLST_count(&l), 0ul);
    EXPECT_EQ(VLST_count(nullptr), 0ul);
    EXPECT_EQ(VLST_delete(&l, 1), kBadInput);
    VLST_rewind(&l);
    VLST_compact(&l);
    EXPECT_EQ(VLST_free(&l), kOk);
    EXPECT_EQ(VLST_free(nullptr), kBadInput);
    EXPECT_EQ(VLST_init(&l, 0, 4), kBadInput);
    EXPECT_EQ(VLST_init(nullptr, 8, 4), kBadInput);

    ASSERT_EQ(VLST_init(&l, sizeof(double), 4), kOk);
    ASSERT_EQ(VLST_put(&l, 1, &d), kOk);
    EXPECT_EQ(VLST_get(&l, 0, &d), kBadInput);
    EXPECT_EQ(VLST_get(&l, 2, &d), kBadInput);
    EXPECT_EQ(VLST_get(&l, 1, nullptr), kBadInput);
    EXPECT_EQ(VLST_getptr_void(&l, 2, &ptr), kBadInput);
    EXPECT_EQ(ptr, nullptr);
    EXPECT_EQ(VLST_put(&l, 0, &d), kBadInput);
    EXPECT_EQ(VLST_put(&l, 1, nullptr), kBadInput);
    // A corrupt position past both count + 1 and the capacity allocates nothing.
    EXPECT_EQ(VLST_put(&l, 1ul << 40, &d), kBadInput);
    EXPECT_EQ(VLST_count(&l), 1ul);
    EXPECT_EQ(VLST_free(&l), kOk);
}

TEST_F(UtilsTest, Vlst_DeleteCompactAndRewind)
{
    VLST l{};
    ASSERT_EQ(VLST_init(&l, sizeof(int), 8), kOk);
    for (int i = 1; i <= 6; ++i) ASSERT_EQ(VLST_put(&l, i, &i), kOk);
    ASSERT_EQ(VLST_delete(&l, 2), kOk);
    ASSERT_EQ(VLST_delete(&l, 4), kOk);
    EXPECT_EQ(VLST_delete(&l, 4), kBadInput);  // already a hole
    int v = 0;
    EXPECT_EQ(VLST_get(&l, 2, &v), kBadInput);
    EXPECT_EQ(VLST_count(&l), 6ul);
    // Deleting the last item drops the trailing holes from the count.
    ASSERT_EQ(VLST_delete(&l, 6), kOk);
    ASSERT_EQ(VLST_delete(&l, 5), kOk);
    EXPECT_EQ(VLST_count(&l), 3ul);
    VLST_compact(&l);
    ASSERT_EQ(VLST_count(&l), 2ul);  // items 1 and 3 remain
    ASSERT_EQ(VLST_get(&l, 1, &v), kOk);
    EXPECT_EQ(v, 1);
    ASSERT_EQ(VLST_get(&l, 2, &v), kOk);
    EXPECT_EQ(v, 3);
    EXPECT_EQ(VLST_get(&l, 3, &v), kBadInput);
    // Within the capacity a put may skip positions; the skipped ones are holes.
    const int seven = 7;
    ASSERT_EQ(VLST_put(&l, 8, &seven), kOk);
    EXPECT_EQ(VLST_count(&l), 8ul);
    EXPECT_EQ(VLST_get(&l, 5, &v), kBadInput);
    VLST_compact(&l);
    EXPECT_EQ(VLST_count(&l), 3ul);
    ASSERT_EQ(VLST_get(&l, 3, &v), kOk);
    EXPECT_EQ(v, 7);

    // Rewind empties the list; it stays usable.
    ASSERT_EQ(VLST_init(&l, sizeof(int), 2), kOk);
    for (int i = 1; i <= 5; ++i) ASSERT_EQ(VLST_put(&l, i, &i), kOk);
    VLST_rewind(&l);
    EXPECT_EQ(VLST_count(&l), 0ul);
    EXPECT_EQ(VLST_get(&l, 1, &v), kBadInput);
    const int nine = 9;
    ASSERT_EQ(VLST_put(&l, 1, &nine), kOk);
    ASSERT_EQ(VLST_get(&l, 1, &v), kOk);
    EXPECT_EQ(v, 9);
    // Initialising a live list again releases its storage first.
    ASSERT_EQ(VLST_init(&l, sizeof(double), 3), kOk);
    EXPECT_EQ(VLST_count(&l), 0ul);
    EXPECT_EQ(VLST_free(&l), kOk);
}

TEST_F(UtilsTest, Vlst_OutOfMemory_Answers115AndKeepsItems)
{
    VLST l{};
    v_memptr_fail_after(1);  // the item block succeeds, the flag block fails
    EXPECT_EQ(VLST_init(&l, sizeof(int), 4), kNoMemory);
    v_memptr_fail_after(-1);
    EXPECT_EQ(VLST_count(&l), 0ul);

    ASSERT_EQ(VLST_init(&l, sizeof(int), 2), kOk);
    for (int i = 1; i <= 2; ++i) ASSERT_EQ(VLST_put(&l, i, &i), kOk);
    const int three = 3;
    for (long allowed = 0; allowed <= 1; ++allowed) {
        v_memptr_fail_after(allowed);
        EXPECT_EQ(VLST_put(&l, 3, &three), kNoMemory);
        v_memptr_fail_after(-1);
        EXPECT_EQ(VLST_count(&l), 2ul);
        int v = 0;
        ASSERT_EQ(VLST_get(&l, 2, &v), kOk);
        EXPECT_EQ(v, 2);
    }
    // An item taken from the list itself survives the growth that moves it.
    void* first = nullptr;
    ASSERT_EQ(VLST_getptr_void(&l, 1, &first), kOk);
    ASSERT_EQ(VLST_put(&l, 3, first), kOk);
    int v = 0;
    ASSERT_EQ(VLST_get(&l, 3, &v), kOk);
    EXPECT_EQ(v, 1);
    EXPECT_EQ(VLST_free(&l), kOk);
}

// --- bit arrays ---

TEST_F(UtilsTest, Bitmap_SetClearTestRangeAndEmptyIteration)
{
    unsigned char* b = create_bitmap(20);
    ASSERT_NE(b, nullptr);
    for (long k = 1; k <= 20; ++k) EXPECT_EQ(set_reset_test_bitmap(b, k, BITMAP_TEST), 0);
    EXPECT_EQ(set_reset_test_bitmap(b, 9, BITMAP_SET), kOk);
    EXPECT_EQ(b[1], 0x01);  // bit 9 is the lowest bit of the second byte
    EXPECT_EQ(set_reset_test_bitmap(b, 9, BITMAP_TEST), 1);
    EXPECT_EQ(set_reset_test_bitmap(b, 8, BITMAP_TEST), 0);
    EXPECT_EQ(set_reset_test_bitmap(b, 20, BITMAP_SET), kOk);
    EXPECT_EQ(set_reset_test_bitmap(b, 9, BITMAP_CLEAR), kOk);
    EXPECT_EQ(set_reset_test_bitmap(b, 9, BITMAP_TEST), 0);
    EXPECT_EQ(set_reset_test_bitmap(b, 20, BITMAP_TEST), 1);
    EXPECT_EQ(set_reset_test_bitmap(b, 0, BITMAP_SET), kBadInput);
    EXPECT_EQ(set_reset_test_bitmap(b, 21, BITMAP_SET), kBadInput);
    EXPECT_EQ(set_reset_test_bitmap(b, 3, 7), kBadInput);
    EXPECT_EQ(set_reset_test_bitmap(nullptr, 3, BITMAP_SET), kBadInput);
    delete_bitmap(b);
    delete_bitmap(nullptr);
    EXPECT_EQ(create_bitmap(0), nullptr);
    EXPECT_EQ(create_bitmap(-5), nullptr);
    EXPECT_EQ(create_bitmap(1l << 40), nullptr);

    // Iteration over an empty bitmap ends at once; bad arguments are refused.
    b = create_bitmap(16);
    ASSERT_NE(b, nullptr);
    long start = 1, end = -7;
    EXPECT_EQ(getnextxxbits_in_bitmap(b, &start, &end), 1);  // nothing set
    EXPECT_EQ(start, 1);
    EXPECT_EQ(end, -7);
    set_reset_test_bitmap(b, 16, BITMAP_SET);
    start = 17;
    EXPECT_EQ(getnextxxbits_in_bitmap(b, &start, &end), 1);
    start = 0;
    EXPECT_EQ(getnextxxbits_in_bitmap(b, &start, &end), kBadInput);
    EXPECT_EQ(getnextxxbits_in_bitmap(nullptr, &start, &end), kBadInput);
    EXPECT_EQ(getnextxxbits_in_bitmap(b, nullptr, &end), kBadInput);
    delete_bitmap(b);
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
        const bool on = (k >= 100 && k <= 260) || k == bits || (k > 300 && rng() % 3 == 0);
        if (on) {
            ref[k] = 1;
            ASSERT_EQ(set_reset_test_bitmap(b, k, BITMAP_SET), kOk);
        }
    }
    std::vector<std::pair<long, long>> expected;
    for (long k = 1; k <= bits; ++k) {
        if (ref[k] && !ref[k - 1]) expected.emplace_back(k, k);
        if (ref[k]) expected.back().second = k;
    }
    std::vector<std::pair<long, long>> found;
    long start = 1, end = 0;
    while (getnextxxbits_in_bitmap(b, &start, &end) == kOk) {
        found.emplace_back(start, end);
        start = end + 1;
        ASSERT_LT(found.size(), 2000u);
    }
    EXPECT_EQ(found, expected);
    EXPECT_EQ(found.front(), std::make_pair(100l, 260l));
    EXPECT_EQ(found.back().second, bits);
    delete_bitmap(b);
}

// --- numbers ---

namespace {
std::string formatted(double v, int decimals, int width, uint32_t flags)
{
    FORMAT_STRUCTURE f{};
    f.value = v;
    f.decimals = decimals;
    f.width = width;
    f.flags = flags;
    std::memset(f.text, '#', sizeof f.text);
    format(&f);
    EXPECT_NE(std::memchr(f.text, 0, sizeof f.text), nullptr);
    return f.text;
}
}  // namespace

TEST_F(UtilsTest, Format_DecimalsWidthFlagsAndSpecialValues)
{
    EXPECT_EQ(formatted(3.14159, 2, 0, 0), "3.14");
    EXPECT_EQ(formatted(-2.5, 3, 0, 0), "-2.500");
    EXPECT_EQ(formatted(1.5, 0, 0, 0), "2");  // 1.5 is exact; the tie rounds to even
    EXPECT_EQ(formatted(-0.0004, 3, 0, 0), "0.000");
    EXPECT_EQ(formatted(-0.0004, 3, 0, FORMAT_PLUS_SIGN), "+0.000");
    EXPECT_EQ(formatted(2.5, 4, 0, FORMAT_TRIM_ZEROS), "2.5");
    EXPECT_EQ(formatted(2.0, 4, 0, FORMAT_TRIM_ZEROS), "2");
    EXPECT_EQ(formatted(100.0, 0, 0, FORMAT_TRIM_ZEROS), "100");  // integer zeros stay
    EXPECT_EQ(formatted(1.5, 1, 0, FORMAT_PLUS_SIGN), "+1.5");
    EXPECT_EQ(formatted(1.5, 2, 8, 0), "    1.50");
    EXPECT_EQ(formatted(1.5, 2, 8, FORMAT_LEFT_ALIGN), "1.50    ");
    EXPECT_EQ(formatted(1.5, 2, 2, 0), "1.50");                 // width is a minimum
    EXPECT_EQ(formatted(0.25, 40, 0, 0), "0.250000000000000");  // decimals clamp to 15
    EXPECT_EQ(formatted(7.0, -3, 500, 0).size(), 63u);          // width clamps to 63
    EXPECT_EQ(formatted(1.5e300, 2, 0, 0), "1.50e+300");
    EXPECT_EQ(formatted(-1e200, 1, 0, FORMAT_TRIM_ZEROS), "-1e+200");
    EXPECT_EQ(formatted(-1.7976931348623157e308, 15, 0, 0), "-1.797693134862316e+308");
    EXPECT_EQ(formatted(std::nan(""), 2, 5, 0), "  nan");
    EXPECT_EQ(formatted(-INFINITY, 2, 0, 0), "-inf");
    EXPECT_EQ(formatted(INFINITY, 2, 0, FORMAT_PLUS_SIGN), "+inf");
    format(nullptr);
}

// --- text conversions ---

TEST_F(UtilsTest, AsciiToUnicode_FitsTruncatesAndReplaces)
{
    char16_t d[8];
    EXPECT_EQ(ascii_to_unicode(d, "abc", 4), 3);
    EXPECT_EQ(std::u16string(d), u"abc");
    EXPECT_EQ(ascii_to_unicode(d, "abcd", 4), -1);
    EXPECT_EQ(std::u16string(d), u"abc");
    EXPECT_EQ(ascii_to_unicode(d, "x\xE9y", 8), 3);
    EXPECT_EQ(std::u16string(d), u"x?y");
    EXPECT_EQ(ascii_to_unicode(d, "", 1), 0);
    EXPECT_EQ(d[0], 0);
    d[0] = u'Q';
    EXPECT_EQ(ascii_to_unicode(d, "", 0), -1);
    EXPECT_EQ(d[0], u'Q');  // capacity 0: nothing written
    EXPECT_EQ(ascii_to_unicode(d, nullptr, 8), -1);
    EXPECT_EQ(d[0], 0);
    EXPECT_EQ(ascii_to_unicode(nullptr, "a", 8), -1);
}

TEST_F(UtilsTest, UnicodeToAscii_OneQuestionMarkPerCharacter)
{
    char d[8];
    EXPECT_EQ(unicode_to_ascii(d, u"a\u00e9b", 8), 3);
    EXPECT_STREQ(d, "a?b");
    // U+1F600 is the pair D83D DE00: one character, one '?'; a lone low half is one too.
    const char16_t text[] = {u'x', 0xD83D, 0xDE00, 0xDC00, u'y', 0};
    EXPECT_EQ(unicode_to_ascii(d, text, 8), 4);
    EXPECT_STREQ(d, "x??y");
    EXPECT_EQ(unicode_to_ascii(d, u"hello", 3), -1);
    EXPECT_STREQ(d, "he");
}

TEST_F(UtilsTest, Utf8ToUtf16_DecodesPairsAndReplacesIllFormedBytes)
{
    char16_t d[16];
    // "h€😀": € is E2 82 AC = U+20AC; 😀 is F0 9F 98 80 = U+1F600 -> D83D DE00.
    EXPECT_EQ(utf8_to_utf16(d, "h\xE2\x82\xAC\xF0\x9F\x98\x80", 16), 4);
    const std::u16string expected = {u'h', 0x20AC, 0xD83D, 0xDE00};
    EXPECT_EQ(std::u16string(d), expected);
    // U+00E9 in two bytes, and the last character of the plane U+FFFF in three.
    EXPECT_EQ(utf8_to_utf16(d, "\xC3\xA9\xEF\xBF\xBF", 16), 2);
    EXPECT_EQ(std::u16string(d), (std::u16string{0x00E9, 0xFFFF}));

    struct Case {
        const char* utf8;
        size_t replacements;
    };
    const Case cases[] = {
        {"\x80", 1},              // lone continuation byte
        {"\xC0\xAF", 2},          // overlong '/': C0 never starts a sequence
        {"\xE0\x80\xAF", 3},      // overlong three-byte form
        {"\xED\xA0\x80", 3},      // encoded surrogate D800
        {"\xF4\x90\x80\x80", 4},  // above U+10FFFF
        {"\xE2\x82", 1},          // truncated at the end: one replacement for the prefix
        {"\xFF", 1},
    };
    for (const Case& c : cases) {
        ASSERT_EQ(utf8_to_utf16(d, c.utf8, 16), static_cast<int>(c.replacements)) << c.utf8;
        for (size_t i = 0; i < c.replacements; ++i) EXPECT_EQ(d[i], 0xFFFD);
    }
    // A truncated sequence does not swallow the ASCII character after it.
    EXPECT_EQ(utf8_to_utf16(d, "\xE2\x82z", 16), 2);
    EXPECT_EQ(d[1], u'z');
}

TEST_F(UtilsTest, Utf8ToUtf16_NeverSplitsAPairWhenTruncating)
{
    char16_t d[4] = {9, 9, 9, 9};
    // 'a' + pair needs 3 units and a terminator: capacity 3 keeps "a".
    EXPECT_EQ(utf8_to_utf16(d, "a\xF0\x9F\x98\x80", 3), -1);
    EXPECT_EQ(d[0], u'a');
    EXPECT_EQ(d[1], 0);
    EXPECT_EQ(d[2], 9);
    EXPECT_EQ(utf8_to_utf16(d, "a\xF0\x9F\x98\x80", 4), 3);
    EXPECT_EQ(d[3], 0);
}

TEST_F(UtilsTest, Strncpytavo_BoundsTerminatesAndZeroFills)
{
    char16_t d[8];
    std::fill(d, d + 8, char16_t(0x7777));
    EXPECT_EQ(strncpytavo(d, u"hello", 8), d);
    EXPECT_EQ(std::u16string(d), u"hello");
    for (int i = 5; i < 8; ++i) EXPECT_EQ(d[i], 0) << i;  // no stale units behind the text

    std::fill(d, d + 8, char16_t(0x7777));
    strncpytavo(d, u"hello", 3);
    EXPECT_EQ(std::u16string(d), u"he");
    EXPECT_EQ(d[3], 0x7777);  // at most n units written

    const char16_t pair[] = {u'a', u'b', 0xD83D, 0xDE00, 0};
    strncpytavo(d, pair, 4);  // room for a, b and the high half only
    EXPECT_EQ(std::u16string(d), u"ab");

    d[0] = u'Z';
    EXPECT_EQ(strncpytavo(d, u"abc", 0), d);
    EXPECT_EQ(d[0], u'Z');
    strncpytavo(d, nullptr, 8);
    EXPECT_EQ(d[0], 0);
    EXPECT_EQ(strncpytavo(nullptr, u"a", 4), nullptr);
}
