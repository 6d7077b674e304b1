// KvString against baselines measured in the same run: short strings (and the heap
// blocks they take), the narrow/wide round trip of 1 KiB against the bare bulk
// conversion of the code page, compareNoCase on ASCII against a plain folding compare,
// and find against std::u16string::find.
#include "kvstring.h"

#include "lumplatform/codepage.h"
#include "lumosbase.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdlib>
#include <string>

// Every heap block of the process is counted, so a benchmark can report blocks per step.
extern "C" void* __libc_malloc(size_t);
extern "C" void* __libc_calloc(size_t, size_t);
extern "C" void* __libc_realloc(void*, size_t);
extern "C" void __libc_free(void*);
static std::atomic<long> gBlocks{0};
extern "C" void* malloc(size_t n) { ++gBlocks; return __libc_malloc(n); }
extern "C" void* calloc(size_t n, size_t m) { ++gBlocks; return __libc_calloc(n, m); }
extern "C" void* realloc(void* p, size_t n) { ++gBlocks; return __libc_realloc(p, n); }
extern "C" void free(void* p) { __libc_free(p); }

namespace {

void countBlocks(benchmark::State& state, long before) {
    state.counters["blocks/iter"] = double(gBlocks - before) / double(state.iterations());
}

void BM_ShortStrings_KvString(benchmark::State& state) {
    long before = gBlocks;
    for (auto _ : state) {
        KvString narrow("abcdef");
        KvString wide(u"ab");
        KvString a(narrow), b(wide);
        benchmark::DoNotOptimize(a.ansiPtr());
        benchmark::DoNotOptimize(b.kwszPtr());
    }
    countBlocks(state, before);
}
BENCHMARK(BM_ShortStrings_KvString);

void BM_ShortStrings_StdBaseline(benchmark::State& state) {
    long before = gBlocks;
    for (auto _ : state) {
        std::string narrow("abcdef");
        std::u16string wide(u"ab");
        std::string a(narrow);
        std::u16string b(wide);
        benchmark::DoNotOptimize(a.data());
        benchmark::DoNotOptimize(b.data());
    }
    countBlocks(state, before);
}
BENCHMARK(BM_ShortStrings_StdBaseline);

// 1 KiB of code-page text: ASCII with a two-byte character every 16 bytes under 932.
std::string kibText() {
    std::string text;
    while (text.size() < 1024) text += lumGetACP() == 932 ? "Plain text \x82\xA0\x83\x41 " : "Plain text \xE9\xE8 ab ";
    return text.substr(0, 1024);
}

void BM_RoundTrip1KiB_KvString(benchmark::State& state) {
    const std::string text = kibText();
    for (auto _ : state) {
        KvString narrow(text.c_str());
        KvString wide;
        wide = narrow.kwszPtr();
        benchmark::DoNotOptimize(wide.ansiPtr());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * 1024);
}
BENCHMARK(BM_RoundTrip1KiB_KvString);

void BM_RoundTrip1KiB_BulkBaseline(benchmark::State& state) {
    const std::string text = kibText();
    std::u16string wide(2 * text.size(), u'\0');
    std::string narrow(7 * text.size(), '\0');
    for (auto _ : state) {
        int units = lumplatform::codePageToWide(lumGetACP(), text.data(), int(text.size()), &wide[0], int(wide.size()));
        int bytes = lumplatform::wideToCodePageEscaped(lumGetACP(), wide.data(), units, &narrow[0], int(narrow.size()));
        benchmark::DoNotOptimize(bytes);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * 1024);
}
BENCHMARK(BM_RoundTrip1KiB_BulkBaseline);

const std::u16string kLeft = u"Software\\Lumora\\Applications\\SampleModule\\Commands\\Group";
const std::u16string kRight = u"SOFTWARE\\LUMORA\\APPLICATIONS\\SAMPLEMODULE\\COMMANDS\\GROUP";

void BM_CompareNoCaseAscii_KvString(benchmark::State& state) {
    KvString s(kLeft.c_str());
    for (auto _ : state) benchmark::DoNotOptimize(s.compareNoCase(kRight.c_str()));
}
BENCHMARK(BM_CompareNoCaseAscii_KvString);

int plainCompareNoCase(const char16_t* a, const char16_t* b) {
    for (;; ++a, ++b) {
        char16_t x = (*a >= u'A' && *a <= u'Z') ? char16_t(*a + 32) : *a;
        char16_t y = (*b >= u'A' && *b <= u'Z') ? char16_t(*b + 32) : *b;
        if (x != y || !x) return int(x) - int(y);
    }
}

void BM_CompareNoCaseAscii_PlainBaseline(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(plainCompareNoCase(kLeft.c_str(), kRight.c_str()));
}
BENCHMARK(BM_CompareNoCaseAscii_PlainBaseline);

std::u16string haystack() {
    std::u16string text;
    for (int i = 0; i < 64; ++i) text += u"lorem ipsum dolor sit amet, ";
    return text + u"needle in the text";
}

void BM_Find_KvString(benchmark::State& state) {
    KvString s(haystack().c_str());
    for (auto _ : state) benchmark::DoNotOptimize(s.find(u"needle"));
}
BENCHMARK(BM_Find_KvString);

void BM_Find_StdBaseline(benchmark::State& state) {
    const std::u16string s = haystack();
    for (auto _ : state) benchmark::DoNotOptimize(s.find(u"needle"));
}
BENCHMARK(BM_Find_StdBaseline);

}  // namespace

BENCHMARK_MAIN();
